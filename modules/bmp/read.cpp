// SPDX-License-Identifier: MIT
//
// The codec module of BMP: reading. Rows go out in the order of the file, which is from the bottom up as a rule.
#include "modules/bmp/bmp.h"

#include "modules/bmp/dib.h"
#include "modules/common/bytes.h"

#include <algorithm>

using namespace codec;

namespace {

constexpr uint32_t largest_profile = 4 << 20;

// The smallest header, of 12 bytes, and one row of pixels behind it.
constexpr size_t smallest_file = bmp_file_header_size + 12 + 4;

bool plausible(const uint8_t *file) {
    return file[0] == 'B' && file[1] == 'M' && dib_plausible(file + bmp_file_header_size);
}

img_status decode_validate(io_handle *stream) {
    Signature signature{};
    if (const img_status status = peek(*stream, signature)) return status;
    return signature.length >= smallest_file && plausible(signature.bytes) ? ok : wrong_format;
}

struct Reader {
    Input input;
    Decoding picture;
    Dib dib{};
    uint64_t pixels_at = 0; // in the file, counted from its begin
    uint32_t palette[256];
    MaskedColors colors;
    Bytes line; // a row of the file where it is not the picture's; a byte a pixel, of runs
    uint32_t rows_done = 0;

    img_status read();

private:
    img_status read_header();
    img_status read_palette();
    img_status read_profile(bool before_pixels);
    img_status read_rows();
    img_status read_runs();
    void put_indices(uint32_t &x, uint32_t count, const uint8_t *packed, bool same);
    img_status end_run_row();
    img_status end_early(uint32_t x);
    uint32_t y() const { return dib.top_down ? rows_done : dib.height - 1 - rows_done; }
    img_status hand_over() {
        const img_status status = picture.deliver(y());
        rows_done++;
        return status;
    }
};

img_status Reader::read_header() {
    uint8_t bytes[bmp_file_header_size + dib_header_most] = {};
    uint8_t *const header = bytes + bmp_file_header_size;
    constexpr size_t first = bmp_file_header_size + 12; // what all headers have
    if (!input.read(bytes, first)) return damaged;
    const uint32_t size = little32(header);
    if (size < 12 || size > dib_header_most || !input.read(bytes + first, size - 12) || !plausible(bytes))
        return damaged;
    if (const uint32_t more = dib_mask_bytes(header))
        if (!input.read(header + size, more)) return damaged;
    pixels_at = little32(bytes + 10);
    return dib_parse(header, dib);
}

// A palette ends where the pixels begin, whatever the header says of its size, unless they are said to begin at once: some
// writers forget the palette. Indices without an entry are common, and everybody shows them black.
img_status Reader::read_palette() {
    std::fill(palette, palette + 256, 0xff000000);
    const uint64_t at = input.position();
    const bool forgotten = pixels_at < at || (pixels_at == at && dib.depth <= 8);
    const uint64_t space = forgotten ? UINT64_MAX : (pixels_at - at) / dib.entry_size;
    const uint64_t stored = std::min<uint64_t>(dib.entries, space);
    const auto used = static_cast<uint32_t>(std::min<uint64_t>(stored, dib.depth <= 8 ? 1u << dib.depth : 0));
    uint8_t entries[256 * 4];
    if (!input.read(entries, size_t{used} * dib.entry_size)) return damaged;
    dib_palette(dib, entries, used, palette);
    return input.discard((stored - used) * dib.entry_size) ? ok : damaged;
}

// A colour profile lies anywhere behind the header, as a rule after the pixels.
img_status Reader::read_profile(bool before_pixels) {
    const uint64_t at = uint64_t{dib.profile_offset} + bmp_file_header_size;
    const uint32_t size = dib.profile_size;
    if (!size || at < input.position() || before_pixels != (at + size <= pixels_at)) return ok;
    if (size > largest_profile) return picture.warn("the colour profile is larger than 4 MiB and was left out");
    const Bytes profile = make_bytes(size);
    if (!profile) return no_memory;
    if (!input.discard(at - input.position()) || !input.read(profile.get(), size)) return damaged;
    return picture.report(IMG_VALUE_ICC, profile.get(), size);
}

// ---- Plain rows ----

// Two bits a pixel, as four.
void expand_pairs(const uint8_t *in, size_t bytes, uint8_t *out, size_t out_bytes) {
    for (size_t i = 0; i < bytes; i++)
        for (size_t half = 0; half < 2 && 2 * i + half < out_bytes; half++) {
            const int two = in[i] >> (half ? 0 : 4);
            out[2 * i + half] = static_cast<uint8_t>((two & 0xc) << 2 | (two & 3));
        }
}

img_status Reader::read_rows() {
    const uint64_t stride = dib_stride(dib.width, dib.depth);
    const auto bytes = static_cast<size_t>((uint64_t{dib.width} * dib.depth + 7) / 8);
    const bool as_it_is = dib_format(dib) != 0;
    if (!as_it_is && !(line = make_bytes(bytes))) return no_memory;
    while (rows_done < dib.height) {
        uint8_t *row = picture.row(y());
        if (!input.read(as_it_is ? row : line.get(), bytes)) return damaged;
        if (dib.depth == 2)
            expand_pairs(line.get(), bytes, row, row_bytes(FMT_PAL4, dib.width));
        else if (!as_it_is)
            colors.expand(line.get(), dib.width, row);
        if (!input.discard(stride - bytes)) return damaged;
        if (const img_status status = hand_over()) return status;
    }
    return ok;
}

// ---- Runs ----

// count pixels from x on: the same one or two over and over, or each its own. What leaves the row on the right is dropped.
void Reader::put_indices(uint32_t &x, uint32_t count, const uint8_t *packed, bool same) {
    const uint32_t fitting = x < dib.width ? std::min(count, dib.width - x) : 0;
    uint8_t *out = line.get() + x;
    if (dib.depth == 4)
        for (uint32_t i = 0; i < fitting; i++) out[i] = packed[same ? 0 : i / 2] >> (i & 1 ? 0 : 4) & 15;
    else if (same)
        memset(out, packed[0], fitting);
    else
        memcpy(out, packed, fitting);
    x += count;
}

img_status Reader::end_run_row() {
    if (rows_done == dib.height) return ok;
    uint8_t *row = picture.row(y());
    if (dib.depth == 8) {
        memcpy(row, line.get(), dib.width);
    } else {
        for (uint32_t x = 0; x < dib.width; x += 2)
            row[x / 2] = static_cast<uint8_t>(line.get()[x] << 4 | line.get()[x + 1]);
    }
    memset(line.get(), 0, dib.width);
    return hand_over();
}

// The data ended at x of a row. Writers forget the mark of the picture's end, with which nothing is lost.
img_status Reader::end_early(uint32_t x) {
    if (rows_done + 1 == dib.height && x >= dib.width)
        if (const img_status status = end_run_row()) return status;
    return rows_done == dib.height ? picture.warn("the runs have no mark at their end") : damaged;
}

// Pairs of bytes: a count and an index, or 0 and what else is to happen. Pixels that are jumped over are index 0.
img_status Reader::read_runs() {
    if (!(line = make_bytes(size_t{dib.width} + 1))) return no_memory;
    const uint64_t end = input.position() + dib.data_size;
    const auto need = [&](size_t length) {
        return input.need(length, end > input.position() ? end - input.position() : 0);
    };
    enum { end_of_line, end_of_picture, jump };
    for (uint32_t x = 0;;) {
        if (!need(2)) return end_early(x);
        const uint32_t count = input.data()[0], code = input.data()[1];
        if ((count || code > jump) && rows_done == dib.height)
            return picture.warn("pixels after the last row were left out");
        if (count) {
            put_indices(x, count, input.data() + 1, true);
            input.take(2);
            continue;
        }
        input.take(2);
        uint32_t rows = 0;
        if (code == end_of_line) {
            rows = 1;
            x = 0;
        } else if (code == end_of_picture) {
            rows = dib.height - rows_done;
        } else if (code == jump) {
            if (!need(2)) return damaged;
            x += input.data()[0];
            rows = input.data()[1];
            input.take(2);
        } else {
            const size_t bytes = dib.depth == 8 ? code : (code + 1) / 2;
            if (!need(bytes + (bytes & 1))) return damaged;
            put_indices(x, code, input.data(), false);
            input.take(bytes + (bytes & 1));
        }
        for (; rows; rows--)
            if (const img_status status = end_run_row()) return status;
        if (code == end_of_picture) return ok;
    }
}

img_status Reader::read() {
    if (const img_status status = read_header()) return status;
    if (const img_status status = read_palette()) return status;
    if (const img_status status = picture.report(IMG_VALUE_DEPTH, dib_sample_bits(dib))) return status;
    if (dib.resolution.x > 0 && dib.resolution.y > 0)
        if (const img_status status = picture.report(IMG_VALUE_RESOLUTION, &dib.resolution, sizeof dib.resolution))
            return status;
    if (const img_status status = read_profile(true)) return status;

    const bool indexed = dib.depth <= 8;
    img_format format = dib_format(dib);
    if (dib.depth == 2) {
        format = FMT_PAL4;
    } else if (!format) {
        format = dib.masks[3] ? FMT_ARGB8888HE : FMT_XRGB8888HE;
        if (const img_status status = colors.begin(dib)) return status;
    }
    if (const img_status status = picture.choose(dib.width, dib.height, indexed ? 1u << dib.depth : 0, &format, 1))
        return status;
    if (const img_status status = picture.setup(dib.top_down ? IMG_SETUP_TOPDOWN : IMG_SETUP_BOTTOMUP)) return status;
    if (indexed)
        if (const img_status status = picture.set_palette(palette)) return status;
    if (pixels_at > input.position() && !input.discard(pixels_at - input.position())) return damaged;
    if (const img_status status =
            dib.compression == Dib::rle8 || dib.compression == Dib::rle4 ? read_runs() : read_rows())
        return status;
    return read_profile(false);
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_file<Reader, decode_validate>, nullptr,
                       want_large_buffer, encode_bmp, nullptr});
}
