// SPDX-License-Identifier: MIT
//
// The reading side of the BMP module. Rows are delivered in the order of the file, usually bottom-up.
#include "modules/bmp/bmp.h"

#include <algorithm>

namespace bmp {

namespace {

constexpr uint32_t largest_profile = 4 << 20;

// The smallest header, of 12 bytes, and one row of pixels.
constexpr size_t smallest_file = file_header_size + 12 + 4;

bool plausible(const uint8_t *file) {
    return file[0] == 'B' && file[1] == 'M' && dib_plausible(file + file_header_size);
}

// Widens pixels of two bits to four.
void expand_pairs(const uint8_t *in, size_t bytes, uint8_t *out, size_t out_bytes) {
    for (size_t i = 0; i < bytes; i++)
        for (size_t half = 0; half < 2 && 2 * i + half < out_bytes; half++) {
            const int two = in[i] >> (half ? 0 : 4);
            out[2 * i + half] = static_cast<uint8_t>((two & 0xc) << 2 | (two & 3));
        }
}

} // namespace

bool Reader::recognises(const Signature &start) { return start.length >= smallest_file && plausible(start.bytes); }

img_status Reader::read_header() {
    uint8_t bytes[file_header_size + dib_header_most] = {};
    uint8_t *const header = bytes + file_header_size;
    constexpr size_t first = file_header_size + 12; // what all headers have
    if (!input_.read(bytes, first)) return damaged;
    const uint32_t size = little32(header);
    if (size < 12 || size > dib_header_most || !input_.read(bytes + first, size - 12) || !plausible(bytes))
        return damaged;
    if (const uint32_t more = dib_mask_bytes(header))
        if (!input_.read(header + size, more)) return damaged;
    pixels_at_ = little32(bytes + 10);
    return dib_parse(header, dib_);
}

// A palette ends where the pixels begin, whatever size the header gives, unless the pixels are said to begin at once:
// some writers leave the palette out of the offset. Indices without an entry are common, and readers show them as
// black.
img_status Reader::read_palette() {
    std::fill(palette_, palette_ + 256, 0xff000000);
    const uint64_t at = input_.position();
    const bool forgotten = pixels_at_ < at || (pixels_at_ == at && dib_.depth <= 8);
    const uint64_t space = forgotten ? UINT64_MAX : (pixels_at_ - at) / dib_.entry_size;
    const uint64_t stored = std::min<uint64_t>(dib_.entries, space);
    const auto used = static_cast<uint32_t>(std::min<uint64_t>(stored, dib_.depth <= 8 ? 1u << dib_.depth : 0));
    uint8_t entries[256 * 4];
    if (!input_.read(entries, size_t{used} * dib_.entry_size)) return damaged;
    dib_palette(dib_, entries, used, palette_);
    return input_.discard((stored - used) * dib_.entry_size) ? ok : damaged;
}

// A colour profile may be anywhere after the header; usually it is after the pixels.
img_status Reader::read_profile(bool before_pixels) {
    const uint64_t at = uint64_t{dib_.profile_offset} + file_header_size;
    const uint32_t size = dib_.profile_size;
    if (!size || at < input_.position() || before_pixels != (at + size <= pixels_at_)) return ok;
    if (size > largest_profile) return picture_.warn("the colour profile is larger than 4 MiB and was left out");
    const Bytes profile = make_bytes(size);
    if (!profile) return no_memory;
    if (!input_.discard(at - input_.position()) || !input_.read(profile.get(), size)) return damaged;
    return picture_.report(IMG_VALUE_ICC, profile.get(), size);
}

// ---- Plain rows ----

img_status Reader::read_rows() {
    const uint64_t stride = dib_stride(dib_.width, dib_.depth);
    const auto bytes = static_cast<size_t>((uint64_t{dib_.width} * dib_.depth + 7) / 8);
    const bool as_it_is = dib_format(dib_) != 0;
    if (!as_it_is && !(line_ = make_bytes(bytes))) return no_memory;
    while (rows_done_ < dib_.height) {
        uint8_t *row = picture_.row(y());
        if (!input_.read(as_it_is ? row : line_.get(), bytes)) return damaged;
        if (dib_.depth == 2)
            expand_pairs(line_.get(), bytes, row, row_bytes(FMT_PAL4, dib_.width));
        else if (!as_it_is)
            colors_.expand(line_.get(), dib_.width, row);
        if (!input_.discard(stride - bytes)) return damaged;
        if (const img_status status = deliver()) return status;
    }
    return ok;
}

// ---- Runs ----

// Stores count pixels from x on: one or two that are repeated, or all different. Pixels beyond the end of the row are
// dropped.
void Reader::put_indices(uint32_t &x, uint32_t count, const uint8_t *packed, bool same) {
    const uint32_t fitting = x < dib_.width ? std::min(count, dib_.width - x) : 0;
    uint8_t *out = line_.get() + x;
    if (dib_.depth == 4)
        for (uint32_t i = 0; i < fitting; i++) out[i] = packed[same ? 0 : i / 2] >> (i & 1 ? 0 : 4) & 15;
    else if (same)
        memset(out, packed[0], fitting);
    else
        memcpy(out, packed, fitting);
    x += count;
}

img_status Reader::end_run_row() {
    if (rows_done_ == dib_.height) return ok;
    uint8_t *row = picture_.row(y());
    if (dib_.depth == 8) {
        memcpy(row, line_.get(), dib_.width);
    } else {
        for (uint32_t x = 0; x < dib_.width; x += 2)
            row[x / 2] = static_cast<uint8_t>(line_.get()[x] << 4 | line_.get()[x + 1]);
    }
    memset(line_.get(), 0, dib_.width);
    return deliver();
}

// The data ended at x of a row. Nothing is lost if only the end mark is missing, which some writers forget.
img_status Reader::end_early(uint32_t x) {
    if (rows_done_ + 1 == dib_.height && x >= dib_.width)
        if (const img_status status = end_run_row()) return status;
    return rows_done_ == dib_.height ? picture_.warn("the runs have no mark at their end") : damaged;
}

// Run-length data consists of pairs of bytes: a count and an index, or 0 and an escape code. Pixels that are skipped
// get index 0.
img_status Reader::read_runs() {
    if (!(line_ = make_bytes(size_t{dib_.width} + 1))) return no_memory;
    const uint64_t end = input_.position() + dib_.data_size;
    const auto need = [&](size_t length) {
        return input_.need(length, end > input_.position() ? end - input_.position() : 0);
    };
    enum { end_of_line, end_of_picture, jump };
    for (uint32_t x = 0;;) {
        if (!need(2)) return end_early(x);
        const uint32_t count = input_.data()[0], code = input_.data()[1];
        if ((count || code > jump) && rows_done_ == dib_.height)
            return picture_.warn("pixels after the last row were left out");
        if (count) {
            put_indices(x, count, input_.data() + 1, true);
            input_.take(2);
            continue;
        }
        input_.take(2);
        uint32_t rows = 0;
        if (code == end_of_line) {
            rows = 1;
            x = 0;
        } else if (code == end_of_picture) {
            rows = dib_.height - rows_done_;
        } else if (code == jump) {
            if (!need(2)) return damaged;
            x += input_.data()[0];
            rows = input_.data()[1];
            input_.take(2);
        } else {
            const size_t bytes = dib_.depth == 8 ? code : (code + 1) / 2;
            if (!need(bytes + (bytes & 1))) return damaged;
            put_indices(x, code, input_.data(), false);
            input_.take(bytes + (bytes & 1));
        }
        for (; rows; rows--)
            if (const img_status status = end_run_row()) return status;
        if (code == end_of_picture) return ok;
    }
}

img_status Reader::frame() {
    if (const img_status status = read_header()) return status;
    if (const img_status status = read_palette()) return status;
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, dib_sample_bits(dib_))) return status;
    if (dib_.resolution.x > 0 && dib_.resolution.y > 0)
        if (const img_status status = picture_.report(IMG_VALUE_RESOLUTION, &dib_.resolution, sizeof dib_.resolution))
            return status;
    if (const img_status status = read_profile(true)) return status;

    const bool indexed = dib_.depth <= 8;
    img_format format = dib_format(dib_);
    if (dib_.depth == 2) {
        format = FMT_PAL4;
    } else if (!format) {
        format = dib_.masks[3] ? FMT_ARGB8888HE : FMT_XRGB8888HE;
        if (const img_status status = colors_.begin(dib_)) return status;
    }
    if (const img_status status = picture_.choose(dib_.width, dib_.height, indexed ? 1u << dib_.depth : 0, &format, 1))
        return status;
    if (const img_status status = picture_.setup(dib_.top_down ? IMG_SETUP_TOPDOWN : IMG_SETUP_BOTTOMUP)) return status;
    if (indexed)
        if (const img_status status = picture_.set_palette(palette_)) return status;
    if (pixels_at_ > input_.position() && !input_.discard(pixels_at_ - input_.position())) return damaged;
    if (const img_status status =
            dib_.compression == Dib::rle8 || dib_.compression == Dib::rle4 ? read_runs() : read_rows())
        return status;
    return read_profile(false);
}

} // namespace bmp
