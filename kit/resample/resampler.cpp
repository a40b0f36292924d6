// SPDX-License-Identifier: MIT
#include "kit/resample/resampler.h"

#include <string.h>

namespace img::kit {

namespace {

// From here on, so many pixels are mixed that weights of 14 bits do for weighted values, too.
constexpr double least_spread_ratio = 2;

// Beyond, weights of 14 bits would be too coarse.
constexpr double largest_levels_ratio = 32;

constexpr img_flags shape_flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
constexpr uint32_t known_flags = PICTRA_RESAMPLE_LINEAR | PICTRA_RESAMPLE_BACKGROUND | PICTRA_RESAMPLE_UPWARD;

bool has_shape(const img_record &record) {
    return (record.flags & shape_flags) == shape_flags && record.width && record.height;
}

// The part from `from` on, or false if it is not one.
bool make_span(uint32_t source, double from, double length, uint32_t result, Span &span) {
    if (!(from >= 0 && from < source && length >= 0)) return false; // also what is no number
    span = {source, from, length > 0 ? length : source - from, result};
    return span.from + span.length <= source;
}

bool convertible(img_format from, img_format to) {
    if (is_palette(to)) return false;
    return is_palette(from) ? img_convert_getfunc(work_format, to) : img_convert_getfunc(from, to);
}

template <typename T> Owned<T> allocate_cleared(uint64_t count) {
    Owned<T> made = allocate<T>(count);
    if (made) memset(made.get(), 0, count * sizeof(T));
    return made;
}

} // namespace

// ---- Preparation ----------------------------------------------------------------------------------------------------

img_status Resampler::make(const img_record &source, const img_record &target, const pictra_resample_options &options) {
    if (!has_shape(source) || !has_shape(target) || !has(target, IMG_F_DIRECT | IMG_F_ACCESS)) return IMG_ST_BADARG;
    if (options.filter > PICTRA_FILTER_BICUBIC || (options.flags & ~known_flags)) return IMG_ST_BADARG;
    if (!make_span(source.width, options.x, options.width, target.width, columns_)) return IMG_ST_BADARG;
    if (!make_span(source.height, options.y, options.height, target.height, lines_)) return IMG_ST_BADARG;
    if (!convertible(source.format, target.format)) return IMG_ST_BADFMT;
    source_ = source;
    target_width_ = target.width;
    target_height_ = target.height;
    upward_ = options.flags & PICTRA_RESAMPLE_UPWARD;
    linear_ = options.flags & PICTRA_RESAMPLE_LINEAR;
    has_background_ = options.flags & PICTRA_RESAMPLE_BACKGROUND;
    img_convert_data(FMT_ARGB8888HE, &options.background, work_format, &background_, 1);

    filter_ = columns_.is_identity() && lines_.is_identity() ? uint32_t{PICTRA_FILTER_NEAREST} : options.filter;
    levels_ = filter_ == PICTRA_FILTER_NEAREST ||
              (!linear_ && columns_.ratio() <= largest_levels_ratio && lines_.ratio() <= largest_levels_ratio);
    if (const img_status status = levels_ ? make_levels() : make_weighted()) return status;
    pixels_ = allocate<uint8_t>(uint64_t{source.width} * 4 * 2);
    if (!pixels_) return IMG_ST_NOMEM;
    if (const img_status status = in_.make(source, begin_, end_)) return status;
    return out_.make(target, source.format);
}

// Takes over which columns and lines count. The ring has room for all the lines of a result row.
template <typename Weight> void Resampler::use(const Axis<Weight> &across, const Axis<Weight> &down) {
    first_row_ = down.first.get();
    last_row_ = down.last.get();
    // Weights of 0 at either end are left out, so neither begins nor ends of neighbours need to be in order.
    begin_ = across.first[0];
    end_ = row_pixels_ = 0;
    for (uint32_t i = 0; i < across.result; i++) {
        if (begin_ > across.first[i]) begin_ = across.first[i];
        if (end_ < across.last[i] + 1) end_ = across.last[i] + 1;
        if (row_pixels_ < across.first[i] + across.taps) row_pixels_ = across.first[i] + across.taps;
    }
    if (row_pixels_ < end_) row_pixels_ = end_;
    ring_pairs_ = (down.rows + 1) / 2;
}

img_status Resampler::make_levels() {
    if (!across_.make(columns_, filter_, 4) || !down_.make(lines_, filter_, 2)) return IMG_ST_NOMEM;
    use(across_, down_);
    if (picks()) return IMG_ST_OK;
    spread_ = allocate_cleared<int16_t>(uint64_t{row_pixels_} * 8);
    levels_ring_ = allocate<int16_t>(uint64_t{ring_pairs_} * target_width_ * 8);
    levels_taps_ = allocate<const int16_t *>(ring_pairs_);
    return spread_ && levels_ring_ && levels_taps_ ? make_kinds() : img_status{IMG_ST_NOMEM};
}

bool Resampler::spreads() const { return levels_ && columns_.ratio() >= least_spread_ratio; }

img_status Resampler::make_weighted() {
    if (!weighted_down_.make(lines_, filter_, 2)) return IMG_ST_NOMEM;
    if (!spreads()) {
        if (!weighted_across_.make(columns_, filter_, 4)) return IMG_ST_NOMEM;
        use(weighted_across_, weighted_down_);
        weighted_row_ = allocate_cleared<float>(uint64_t{row_pixels_} * 4);
        if (!weighted_row_) return IMG_ST_NOMEM;
    }
    weighted_ring_ = allocate<float>(uint64_t{ring_pairs_} * target_width_ * 8);
    weighted_taps_ = allocate<const float *>(ring_pairs_ * uint64_t{2});
    if (!weighted_ring_ || !weighted_taps_) return IMG_ST_NOMEM;
    if (const img_status status = kinds_ ? img_status{IMG_ST_OK} : make_kinds()) return status;
    return make_sums();
}

img_status Resampler::make_kinds() {
    kinds_ = allocate_cleared<uint8_t>(ring_pairs_);
    return kinds_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

// What makes pixels of weighted values.
img_status Resampler::make_sums() {
    const auto *background = reinterpret_cast<const uint8_t *>(&background_);
    if (const img_status status = tones_.make(linear_, has_background_ ? background : nullptr)) return status;
    sums_ = allocate<float>(uint64_t{target_width_} * 4);
    return sums_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

// ---- Rows -----------------------------------------------------------------------------------------------------------

img_status Resampler::take_row(const void *pixels, uint32_t stride) {
    if (taken_ == source_.height) return IMG_ST_BADARG;
    const uint32_t y = upward_ ? source_.height - 1 - taken_ : taken_;
    if (made_ < target_height_ && is_needed(next_result(), y)) {
        uint8_t *room = pixels_.get() + y % 2 * uint64_t{source_.width} * 4;
        rows_[y % 2] = in_.convert(pixels, stride, room);
        if (!rows_[y % 2]) return IMG_ST_BADARG;
        const uint32_t left = source_.height - 1 - taken_;
        ahead_ = stride && left ? static_cast<const uint8_t *>(pixels) + stride : nullptr;
        ahead_bytes_ = size_t{stride} * (left < 2 ? left : 2);
        if (picks())
            if (const img_status status = prepare_pick()) return status;
        if (picks() || ends_pair(y))
            if (const img_status status = make_results(y)) return status;
    }
    taken_++;
    return IMG_ST_OK;
}

// All that are complete with row y.
img_status Resampler::make_results(uint32_t y) {
    if (!picks())
        if (const img_status status = scale_pair_across(y / 2)) return status;
    for (; made_ < target_height_ && is_complete(next_result(), y); made_++) {
        const uint32_t i = next_result();
        if (picks())
            pick(rows_[y % 2], out_.room(i));
        else
            scale_down(i, out_.room(i));
        out_.deliver(i);
    }
    return IMG_ST_OK;
}

// Runs are put together. What is wrong is kept, because who calls an access function does not look at its result.
img_status Resampler::take_run(uint32_t x, uint32_t y, uint32_t count, const void *pixels) {
    if (status_) return status_;
    const uint32_t expected = upward_ ? source_.height - 1 - taken_ : taken_;
    if (taken_ == source_.height || y != expected || x != run_end_ || count > source_.width - x)
        return status_ = IMG_ST_BADARG;
    const uint64_t bits = bits_per_pixel(source_.format);
    if (count < source_.width) {
        if (!run_row_) run_row_ = allocate<uint8_t>((source_.width * bits + 7) / 8);
        if (!run_row_) return status_ = IMG_ST_NOMEM;
        if (x * bits % 8) return status_ = IMG_ST_BADARG; // it would begin within a byte
        memcpy(run_row_.get() + x * bits / 8, pixels, (count * bits + 7) / 8);
        run_end_ = x + count;
        if (run_end_ < source_.width) return IMG_ST_OK;
        run_end_ = 0;
        pixels = run_row_.get();
    }
    return status_ = take_row(pixels);
}

img_status Resampler::end() const {
    if (status_) return status_;
    return made_ == target_height_ ? IMG_ST_OK : IMG_ST_BADARG;
}

// ---- Pixels picked --------------------------------------------------------------------------------------------------

img_status Resampler::prepare_pick() {
    return has_background_ && in_.may_be_transparent() && !sums_ ? make_sums() : img_status{IMG_ST_OK};
}

void Resampler::pick(const uint8_t *pixels, uint8_t *out) {
    if (columns_.is_identity())
        memcpy(out, pixels, uint64_t{target_width_} * 4);
    else
        for (uint32_t i = 0; i < target_width_; i++)
            memcpy(out + i * size_t{4}, pixels + across_.first[i] * size_t{4}, 4);
    if (!sums_) return;
    const ResampleKernels &kernels = resample_kernels.best();
    kernels.weigh(out, target_width_, tones_.tone(), sums_.get());
    kernels.finish(sums_.get(), target_width_, tones_.tone(), out);
}

// ---- Pixels mixed ---------------------------------------------------------------------------------------------------

img_status Resampler::scale_pair_across(uint32_t pair) {
    const ResampleKernels &kernels = resample_kernels.best();
    const size_t skipped = begin_ * size_t{4};
    const uint32_t count = end_ - begin_;
    // Without one of the two the other takes its place; it counts nothing.
    const uint8_t *rows[2] = {rows_[rows_[0] ? 0 : 1] + skipped, rows_[rows_[1] ? 1 : 0] + skipped};
    rows_[0] = rows_[1] = nullptr;
    const auto is_opaque = [&](const uint8_t *row) { return kernels.opaque(row, count); };
    if (!levels_ || (in_.may_be_transparent() && !(is_opaque(rows[0]) && is_opaque(rows[1]))))
        return scale_weighted_across(rows, pair);
    kernels.spread_levels(rows[0], rows[1], count, spread_.get() + skipped * 2);
    int16_t *to = levels_pair(pair);
    across([&](Range range) { kernels.across_levels(spread_.get(), across_, range, to); });
    kinds_[pair % ring_pairs_] = as_levels;
    return IMG_ST_OK;
}

// Runs scale over all result positions. The rows that come next are fetched from memory meanwhile, a few cache lines at
// a time: more would have to wait for each other.
template <typename Scale> void Resampler::across(Scale scale) const {
    constexpr uint32_t step = 8, cache_line = 64;
    const size_t share = ahead_ ? ahead_bytes_ * step / target_width_ + cache_line : 0;
    for (uint32_t i = 0; i < target_width_; i += step) {
        const size_t begin = ahead_ ? ahead_bytes_ * i / target_width_ : 0;
        const size_t end = begin + share < ahead_bytes_ ? begin + share : ahead_bytes_;
        for (size_t at = begin; at < end && ahead_; at += cache_line) __builtin_prefetch(ahead_ + at, 0, 2);
        scale(Range{i, i + step < target_width_ ? i + step : target_width_});
    }
}

img_status Resampler::scale_weighted_across(const uint8_t *const (&rows)[2], uint32_t pair) {
    const ResampleKernels &kernels = resample_kernels.best();
    if (!weighted_ring_)
        if (const img_status status = make_weighted()) return status;
    const uint32_t count = end_ - begin_;
    const size_t skipped = begin_ * size_t{4};
    kinds_[pair % ring_pairs_] = as_weighted;
    float *to[2] = {weighted_row(pair * 2), weighted_row(pair * 2 + 1)};
    if (spreads()) {
        kernels.spread_weighted(rows[0], rows[1], count, spread_.get() + skipped * 2);
        across([&](Range range) { kernels.across_spread(spread_.get(), across_, range, to[0], to[1]); });
        return IMG_ST_OK;
    }
    for (size_t r = 0; r < 2; r++) {
        kernels.weigh(rows[r], count, tones_.tone(), weighted_row_.get() + skipped);
        kernels.across_weighted(weighted_row_.get(), weighted_across_, to[r]);
    }
    return IMG_ST_OK;
}

void Resampler::scale_down(uint32_t i, uint8_t *out) {
    for (uint32_t pair = first_row_[i] / 2; pair <= last_row_[i] / 2; pair++)
        if (!(kinds_[pair % ring_pairs_] & as_levels)) return scale_weighted_down(i, out);
    scale_levels_down(i, out);
}

void Resampler::scale_levels_down(uint32_t i, uint8_t *out) {
    const uint32_t first = first_row_[i] / 2, pairs = last_row_[i] / 2 - first + 1;
    for (uint32_t k = 0; k < pairs; k++) levels_taps_[k] = levels_pair(first + k);
    resample_kernels.best().down_levels(levels_taps_.get(), down_.of(i), pairs, size_t{target_width_} * 4, out);
}

void Resampler::scale_weighted_down(uint32_t i, uint8_t *out) {
    const ResampleKernels &kernels = resample_kernels.best();
    const uint32_t first = first_row_[i], rows = last_row_[i] - first + 1;
    for (uint32_t pair = first / 2; pair <= last_row_[i] / 2; pair++) weigh_pair(pair);
    for (uint32_t k = 0; k < rows; k++) weighted_taps_[k] = weighted_row(first + k);
    kernels.down_weighted(weighted_taps_.get(), weighted_down_.of(i), rows, size_t{target_width_} * 4, sums_.get());
    kernels.finish(sums_.get(), target_width_, tones_.tone(), out);
}

float *Resampler::weighted_row(uint32_t y) const {
    return weighted_ring_.get() + (uint64_t{y / 2 % ring_pairs_} * 2 + y % 2) * target_width_ * 4;
}

// Weighs a pair of the ring that is there as levels only.
void Resampler::weigh_pair(uint32_t pair) {
    uint8_t &kinds = kinds_[pair % ring_pairs_];
    if (kinds & as_weighted) return;
    kinds |= as_weighted;
    const auto &weigh_levels = resample_kernels.best().weigh_levels;
    weigh_levels(levels_pair(pair), size_t{target_width_} * 4, weighted_row(pair * 2), weighted_row(pair * 2 + 1));
}

} // namespace img::kit
