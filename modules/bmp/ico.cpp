// SPDX-License-Identifier: MIT
//
// The codec module of icons and cursors (ICO, CUR): several bitmaps in one file, each with a mask of its transparent pixels.
// It reads only. The largest picture comes first, so the file is held: its pictures lie anywhere in it.
#include "modules/bmp/dib.h"
#include "modules/common/bytes.h"

#include <algorithm>
#include <stdio.h>

using namespace module;

namespace {

constexpr size_t directory_size = 6, entry_size = 16;
constexpr uint32_t most_pictures = 10'000;
constexpr uint64_t most_bytes = 64 << 20; // far more than icons of all sizes take

struct Picture {
    uint32_t offset, size; // in the file
    uint32_t index;        // in its directory
    uint32_t pixels, depth;
    uint32_t hot_x, hot_y;
};

// The largest first; of the same size the one with more colours, then the earlier one.
bool before(const Picture &a, const Picture &b) {
    if (a.pixels != b.pixels) return a.pixels > b.pixels;
    return a.depth != b.depth ? a.depth > b.depth : a.index < b.index;
}

// What lives from one frame to the next.
struct Icons {
    Bytes file;
    size_t length = 0;
    bool cursors = false;
    std::unique_ptr<Picture, Delete<Picture>> pictures;
    uint32_t count = 0, next = 0;
    bool some_left_out = false; // those compressed as PNG

    img_status read(io_handle &stream);

private:
    img_status list(uint32_t entries);
};

bool plausible(const uint8_t *file) {
    const uint32_t type = little16(file + 2), count = little16(file + 4);
    const uint8_t *entry = file + directory_size;
    if (little16(file) != 0 || (type != 1 && type != 2) || count == 0 || entry[3] != 0) return false;
    if (type == 1 && (little16(entry + 4) > 1 || little16(entry + 6) > 32)) return false;
    return little32(entry + 8) > 12 && little32(entry + 12) >= directory_size + entry_size * count;
}

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    return signature.length >= directory_size + entry_size && plausible(signature.bytes) ? ok : wrong_format;
}

// Reads as far as the last picture goes.
img_status Icons::read(io_handle &stream) {
    uint8_t begin[directory_size + entry_size];
    if (read_up_to(stream, begin, sizeof begin) != sizeof begin || !plausible(begin)) return wrong_format;
    cursors = begin[2] == 2;
    const uint32_t entries = little16(begin + 4);
    if (entries > most_pictures) return over_limit;

    const size_t table = directory_size + entry_size * entries;
    const Bytes directory = make_bytes(table);
    if (!directory) return no_memory;
    memcpy(directory.get(), begin, sizeof begin);
    if (read_up_to(stream, directory.get() + sizeof begin, table - sizeof begin) != table - sizeof begin)
        return damaged;
    uint64_t end = table;
    for (uint32_t i = 0; i < entries; i++) {
        const uint8_t *entry = directory.get() + directory_size + entry_size * i;
        end = std::max(end, uint64_t{little32(entry + 8)} + little32(entry + 12));
    }
    if (end > most_bytes) return over_limit;
    if (!(file = make_bytes(end))) return no_memory;
    memcpy(file.get(), directory.get(), table);
    length = table + read_up_to(stream, file.get() + table, end - table);
    return list(entries);
}

img_status Icons::list(uint32_t entries) {
    pictures.reset(static_cast<Picture *>(calloc(entries, sizeof(Picture))));
    if (!pictures) return no_memory;
    constexpr uint8_t png[] = {0x89, 'P', 'N', 'G'};
    for (uint32_t i = 0; i < entries; i++) {
        const uint8_t *entry = file.get() + directory_size + entry_size * i;
        const auto side = [](uint8_t byte) { return byte ? byte : 256u; };
        Picture picture{};
        picture.offset = little32(entry + 12);
        picture.size = little32(entry + 8);
        picture.index = i;
        picture.hot_x = little16(entry + 4);
        picture.hot_y = little16(entry + 6);
        picture.pixels = side(entry[0]) * side(entry[1]);
        if (uint64_t{picture.offset} + 16 <= length) {
            const uint8_t *data = file.get() + picture.offset;
            if (memcmp(data, png, sizeof png) == 0) {
                some_left_out = true;
                continue;
            }
            picture.depth = little16(data + 14);
        }
        pictures.get()[count++] = picture;
    }
    std::sort(pictures.get(), pictures.get() + count, before);
    return count ? ok : unsupported;
}

// ---- One picture ----

struct Reader {
    Decoding output;
    const uint8_t *data = nullptr; // the bitmap
    uint64_t size = 0;
    Dib dib{};
    uint32_t palette[256];
    MaskedColors colors;
    const uint8_t *pixels = nullptr;
    const uint8_t *mask = nullptr; // null: alpha of the pixels decides

    img_status begin();
    img_status read();

private:
    bool has_alpha() const;
    const uint8_t *row(const uint8_t *rows, uint32_t depth, uint32_t y) const {
        return rows + dib_stride(dib.width, depth) * (dib.top_down ? y : dib.height - 1 - y);
    }
    void expand(uint32_t y, uint8_t *argb) const;
};

// Finds the parts of the bitmap. Its height counts the rows of the mask as well.
img_status Reader::begin() {
    uint8_t header[dib_header_most] = {};
    if (size < 40) return damaged;
    memcpy(header, data, static_cast<size_t>(std::min<uint64_t>(size, sizeof header)));
    if (!dib_plausible(header) || little32(header) < 40) return damaged;
    const uint64_t palette_at = uint64_t{little32(header)} + dib_mask_bytes(header);
    if (palette_at > size) return damaged;
    if (const img_status status = dib_parse(header, dib)) return status;
    if (dib.compression == Dib::rle4 || dib.compression == Dib::rle8) return unsupported;
    if (dib.height & 1) return damaged;
    dib.height /= 2;

    const uint64_t pixels_at = palette_at + uint64_t{dib.entries} * dib.entry_size;
    const uint64_t mask_at = pixels_at + dib_stride(dib.width, dib.depth) * dib.height;
    if (mask_at > size) return damaged;
    std::fill(palette, palette + 256, 0xff000000);
    if (dib.depth <= 8) dib_palette(dib, data + palette_at, std::min(dib.entries, 1u << dib.depth), palette);
    pixels = data + pixels_at;
    if (dib.depth == 32 && dib.compression == Dib::plain) dib.masks[3] = 0xff000000;
    if (dib.depth > 8)
        if (const img_status status = colors.begin(dib)) return status;
    if (has_alpha()) return ok;
    dib.masks[3] = 0; // all of it is 0, so it means nothing
    if (dib.depth > 8)
        if (const img_status status = colors.begin(dib)) return status;
    mask = data + mask_at;
    return mask_at + dib_stride(dib.width, 1) * dib.height <= size ? ok : damaged;
}

bool Reader::has_alpha() const {
    if (dib.depth != 32 || !dib.masks[3]) return false;
    const uint8_t *pixel = pixels;
    for (uint64_t left = uint64_t{dib.width} * dib.height; left; left--, pixel += 4)
        if (little32(pixel) & dib.masks[3]) return true;
    return false;
}

void Reader::expand(uint32_t y, uint8_t *argb) const {
    const uint8_t *in = row(pixels, dib.depth, y);
    if (dib.depth > 8) {
        colors.expand(in, dib.width, argb);
    } else {
        for (uint32_t x = 0; x < dib.width; x++) memcpy(argb + 4 * size_t{x}, palette + index_at(in, dib.depth, x), 4);
    }
    if (!mask) return;
    const uint8_t *masked = row(mask, 1, y);
    for (uint32_t x = 0; x < dib.width; x++) {
        uint32_t pixel;
        memcpy(&pixel, argb + 4 * size_t{x}, sizeof pixel);
        if (index_at(masked, 1, x)) pixel &= 0xffffff;
        memcpy(argb + 4 * size_t{x}, &pixel, sizeof pixel);
    }
}

img_status Reader::read() {
    constexpr img_format format = FMT_ARGB8888HE;
    if (const img_status status = output.report(IMG_VALUE_DEPTH, dib_sample_bits(dib))) return status;
    if (const img_status status = output.choose(dib.width, dib.height, 0, &format, 1)) return status;
    if (const img_status status = output.setup()) return status;
    for (uint32_t y = 0; y < dib.height; y++) {
        expand(y, output.row(y));
        output.hand_over(y);
        if (const img_status status = output.progress(y + 1)) return status;
    }
    return ok;
}

img_status report_file(const Decoding &output, const Icons &icons) {
    if (const img_status status = output.report(IMG_VALUE_FRAMES, icons.count)) return status;
    return icons.some_left_out ? output.warn("pictures compressed as PNG were left out") : ok;
}

img_status report_hot_spot(const Decoding &output, const Picture &picture) {
    char text[32] = "hotspot";
    const size_t keyword = strlen(text) + 1;
    const int digits = snprintf(text + keyword, sizeof text - keyword, "%u,%u", picture.hot_x, picture.hot_y);
    return output.report(IMG_VALUE_TEXT, text, keyword + static_cast<size_t>(digits));
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    const auto reader = make<Reader>();
    if (!reader) return no_memory;
    reader->output.begin(*callouts, *record);
    const bool first = !*state;
    if (first) {
        auto icons = make<Icons>();
        if (!icons) return no_memory;
        if (const img_status status = icons->read(*stream)) return status;
        *state = icons.release();
    }
    Icons &icons = *static_cast<Icons *>(*state);
    if (icons.next == icons.count) return wrong_format;
    if (first)
        if (const img_status status = report_file(reader->output, icons)) return status;
    const Picture &picture = icons.pictures.get()[icons.next++];
    if (uint64_t{picture.offset} + picture.size > icons.length) return damaged;
    reader->data = icons.file.get() + picture.offset;
    reader->size = picture.size;
    if (const img_status status = reader->begin()) return status;
    if (icons.cursors)
        if (const img_status status = report_hot_spot(reader->output, picture)) return status;
    return reader->read();
}

img_status decode_finish(io_handle *, void **state) {
    if (*state) Delete<Icons>()(static_cast<Icons *>(*state));
    *state = nullptr;
    return ok;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_frame, decode_finish, nullptr, nullptr, nullptr});
}
