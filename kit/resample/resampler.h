// SPDX-License-Identifier: MIT
//
// A picture being scaled. Rows of the source are scaled across in pairs as they come, into a ring of as many as the
// filter is high; when the last pair that a row of the result needs is there, that is made of the ring, and handed
// over.
#pragma once

#include "kit/resample/axis.h"
#include "kit/resample/kernels.h"
#include "kit/resample/rows.h"
#include "kit/resample/tone.h"

namespace img::kit {

class Resampler {
public:
    img_status make(const img_record &source, const img_record &target, const pictra_resample_options &options);
    // With a stride the row and all after it stay where they are, so many bytes apart, and are not copied.
    img_status take_row(const void *pixels, uint32_t stride = 0);
    img_status take_run(uint32_t x, uint32_t y, uint32_t count, const void *pixels);
    img_status end() const;
    img_status failure() const { return status_; } // of a run

private:
    img_status make_levels();
    img_status make_weighted();
    img_status make_kinds();
    img_status make_sums();
    template <typename Weight> void use(const Axis<Weight> &across, const Axis<Weight> &down);

    bool picks() const { return filter_ == PICTRA_FILTER_NEAREST; }
    bool spreads() const; // weighted values across as 16 bits
    bool is_complete(uint32_t i, uint32_t y) const { return upward_ ? y <= first_row_[i] : y >= last_row_[i]; }
    bool is_needed(uint32_t i, uint32_t y) const { return upward_ ? y <= last_row_[i] : y >= first_row_[i]; }
    bool ends_pair(uint32_t y) const { return upward_ ? y % 2 == 0 : y % 2 == 1 || y == source_.height - 1; }
    int16_t *levels_pair(uint32_t pair) const {
        return levels_ring_.get() + uint64_t{pair % ring_pairs_} * target_width_ * 8;
    }
    uint32_t next_result() const { return upward_ ? target_height_ - 1 - made_ : made_; }

    img_status make_results(uint32_t y);
    img_status prepare_pick();
    void pick(const uint8_t *pixels, uint8_t *out);
    img_status scale_pair_across(uint32_t pair);
    template <typename Scale> void across(Scale scale) const;
    img_status scale_weighted_across(const uint8_t *const (&rows)[2], uint32_t pair);
    void scale_down(uint32_t i, uint8_t *out);
    void scale_levels_down(uint32_t i, uint8_t *out);
    void scale_weighted_down(uint32_t i, uint8_t *out);
    float *weighted_row(uint32_t y) const;
    void weigh_pair(uint32_t pair);

    img_record source_{}; // its shape
    uint32_t target_width_ = 0, target_height_ = 0;
    bool upward_ = false;
    Span columns_{}, lines_{};
    SourceRows in_;
    ResultRows out_;

    uint32_t filter_ = 0; // PICTRA_FILTER_NEAREST also for a picture that keeps its size
    const uint32_t *first_row_ = nullptr,
                   *last_row_ = nullptr; // that a row of the result needs
    uint32_t begin_ = 0, end_ = 0;       // the columns that count

    // Opaque rows are scaled as levels, all others weighted. What the latter needs is made for the first of them.
    bool levels_ = false;
    Axis<int16_t> across_, down_;
    Axis<float> weighted_across_, weighted_down_;

    bool linear_ = false, has_background_ = false;
    uint32_t background_ = 0; // a working pixel
    Tones tones_;

    uint32_t row_pixels_ = 0;        // of the source, with those that count nothing
    Owned<uint8_t> pixels_;          // of the pair that comes, in the working format
    const uint8_t *rows_[2] = {};    // where either is; null while it is not there
    const uint8_t *ahead_ = nullptr; // rows that come next and stay, or null
    size_t ahead_bytes_ = 0;

    enum Kind : uint8_t { as_levels = 1, as_weighted = 2 };
    uint32_t ring_pairs_ = 0;
    Owned<uint8_t> kinds_; // what each pair of the ring is there as
    Owned<int16_t> spread_, levels_ring_;
    Owned<float> weighted_row_, weighted_ring_, sums_;
    Owned<const int16_t *> levels_taps_;
    Owned<const float *> weighted_taps_;

    uint32_t taken_ = 0, made_ = 0; // rows of source and result
    uint32_t run_end_ = 0;          // of the row that comes in runs
    Owned<uint8_t> run_row_;
    img_status status_ = IMG_ST_OK; // the first that a run met
};

} // namespace img::kit
