// SPDX-License-Identifier: MIT
//
// The BMP codec module.
#pragma once

#include "modules/bmp/dib.h"
#include "modules/common/bytes.h"
#include "modules/common/entry.h"
#include "modules/common/transparency.h"

namespace bmp {

inline constexpr size_t file_header_size = 14;

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    Reader(io_handle &stream, Decoding &picture) : BaseReader(stream, picture), input_(stream) {}
    img_status frame();

private:
    img_status read_header();
    img_status read_palette();
    img_status read_profile(bool before_pixels);
    img_status read_rows();
    img_status read_runs();
    void put_indices(uint32_t &x, uint32_t count, const uint8_t *packed, bool same);
    img_status end_run_row();
    img_status end_early(uint32_t x);
    uint32_t y() const { return dib_.top_down ? rows_done_ : dib_.height - 1 - rows_done_; }
    img_status deliver() {
        const img_status status = picture_.deliver(y());
        rows_done_++;
        return status;
    }

    Input input_;
    Dib dib_{};
    uint64_t pixels_at_ = 0; // offset from the start of the file
    uint32_t palette_[max_colors];
    MaskedColors colors_;
    Bytes line_; // a row of the file where it differs from the picture's; of run-length data one byte per pixel
    uint32_t rows_done_ = 0;
};

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    img_status frame();

private:
    img_status choose(bool beside);
    img_status make_palette();
    img_status write_header(uint64_t stride);
    img_status write_rows(size_t stride, bool beside);

    TransparentRows transparent_;
    img_resolution resolution_{};
    img_bytes profile_{};
    img_format format_ = 0; // of the file
    uint32_t ncolors_ = 0;
    uint8_t palette_[max_colors * 4];
    Bytes line_;
};

} // namespace bmp
