// SPDX-License-Identifier: MIT
//
// The codec module of icons and cursors (ICO, CUR), which reads only. A file holds several pictures, each a bitmap
// with a mask of its transparent pixels or a PNG file. The largest is delivered first; since the pictures may be
// anywhere in the file, all of it is held.
//
// PNG files are read with the PNG module's reader, which is linked in. A module sees a stream and callouts but no
// registry, and a confined process could not open a second module.
#include "modules/bmp/dib.h"
#include "modules/common/bytes.h"
#include "modules/common/entry.h"
#include "modules/png/png.h"

#include <algorithm>
#include <stdio.h>

using namespace bmp;

namespace {

constexpr size_t directory_size = 6, entry_size = 16;
constexpr uint32_t most_pictures = 10'000;
constexpr uint64_t most_bytes = 64 << 20; // far more than icons of all sizes take

struct Entry {
    uint32_t offset, size; // in the file
    uint32_t index;        // in its directory
    uint64_t pixels;
    uint32_t depth;
    uint32_t hot_x, hot_y;
    bool png;
};

// Sorts the largest picture first, of equal sizes the one with more colours, then the earlier one.
bool before(const Entry &a, const Entry &b) {
    if (a.pixels != b.pixels) return a.pixels > b.pixels;
    return a.depth != b.depth ? a.depth > b.depth : a.index < b.index;
}

bool plausible(const uint8_t *file) {
    const uint32_t type = little16(file + 2), count = little16(file + 4);
    const uint8_t *entry = file + directory_size;
    if (little16(file) != 0 || (type != 1 && type != 2) || count == 0 || entry[3] != 0) return false;
    if (type == 1 && (little16(entry + 4) > 1 || little16(entry + 6) > 32)) return false;
    return little32(entry + 8) > 12 && little32(entry + 12) >= directory_size + entry_size * count;
}

// ---- A bitmap ----

class Bitmap {
public:
    img_status begin(const uint8_t *data, uint64_t size);
    img_status deliver(Decoding &picture);

private:
    bool has_alpha() const;
    const uint8_t *row(const uint8_t *rows, uint32_t depth, uint32_t y) const {
        return rows + dib_stride(dib_.width, depth) * (dib_.top_down ? y : dib_.height - 1 - y);
    }
    void expand(uint32_t y, uint8_t *argb) const;

    Dib dib_{};
    uint32_t palette_[max_colors];
    MaskedColors colors_;
    const uint8_t *pixels_ = nullptr;
    const uint8_t *mask_ = nullptr; // null: the pixels have alpha
};

// Locates the parts of the bitmap. The height in its header includes the rows of the mask.
img_status Bitmap::begin(const uint8_t *data, uint64_t size) {
    uint8_t header[dib_header_most] = {};
    if (size < 40) return damaged;
    memcpy(header, data, static_cast<size_t>(std::min<uint64_t>(size, sizeof header)));
    if (!dib_plausible(header) || little32(header) < 40) return damaged;
    const uint64_t palette_at = uint64_t{little32(header)} + dib_mask_bytes(header);
    if (palette_at > size) return damaged;
    if (const img_status status = dib_parse(header, dib_)) return status;
    if (dib_.compression == Dib::rle4 || dib_.compression == Dib::rle8) return unsupported;
    if (dib_.height & 1) return damaged;
    dib_.height /= 2;

    const uint64_t pixels_at = palette_at + uint64_t{dib_.entries} * dib_.entry_size;
    const uint64_t mask_at = pixels_at + dib_stride(dib_.width, dib_.depth) * dib_.height;
    if (mask_at > size) return damaged;
    std::fill(palette_, palette_ + 256, 0xff000000);
    if (dib_.depth <= 8) dib_palette(dib_, data + palette_at, std::min(dib_.entries, 1u << dib_.depth), palette_);
    pixels_ = data + pixels_at;
    if (dib_.depth == 32 && dib_.compression == Dib::plain) dib_.masks[3] = 0xff000000;
    if (dib_.depth > 8)
        if (const img_status status = colors_.begin(dib_)) return status;
    if (has_alpha()) return ok;
    dib_.masks[3] = 0; // alpha that is 0 everywhere is none
    if (dib_.depth > 8)
        if (const img_status status = colors_.begin(dib_)) return status;
    mask_ = data + mask_at;
    return mask_at + dib_stride(dib_.width, 1) * dib_.height <= size ? ok : damaged;
}

bool Bitmap::has_alpha() const {
    if (dib_.depth != 32 || !dib_.masks[3]) return false;
    const uint8_t *pixel = pixels_;
    for (uint64_t left = uint64_t{dib_.width} * dib_.height; left; left--, pixel += 4)
        if (little32(pixel) & dib_.masks[3]) return true;
    return false;
}

void Bitmap::expand(uint32_t y, uint8_t *argb) const {
    const uint8_t *in = row(pixels_, dib_.depth, y);
    if (dib_.depth > 8) {
        colors_.expand(in, dib_.width, argb);
    } else {
        for (uint32_t x = 0; x < dib_.width; x++)
            memcpy(argb + 4 * size_t{x}, palette_ + index_at(in, dib_.depth, x), 4);
    }
    if (!mask_) return;
    const uint8_t *masked = row(mask_, 1, y);
    for (uint32_t x = 0; x < dib_.width; x++) {
        uint32_t pixel;
        memcpy(&pixel, argb + 4 * size_t{x}, sizeof pixel);
        if (index_at(masked, 1, x)) pixel &= 0xffffff;
        memcpy(argb + 4 * size_t{x}, &pixel, sizeof pixel);
    }
}

img_status Bitmap::deliver(Decoding &picture) {
    constexpr img_format format = FMT_ARGB8888HE;
    if (const img_status status = picture.report(IMG_VALUE_DEPTH, dib_sample_bits(dib_))) return status;
    if (const img_status status = picture.choose(dib_.width, dib_.height, 0, &format, 1)) return status;
    if (const img_status status = picture.setup()) return status;
    for (uint32_t y = 0; y < dib_.height; y++) {
        expand(y, picture.row(y));
        if (const img_status status = picture.deliver(y)) return status;
    }
    return ok;
}

// ---- A PNG file ----

// A stream over bytes in memory. It can be read and nothing else, which is all that the PNG reader does.
class MemoryStream {
public:
    MemoryStream(const uint8_t *bytes, size_t length) : bytes_(bytes), left_(length) {
        handle_.self = reinterpret_cast<io_stream *>(this);
        handle_.read = read;
    }
    MemoryStream(const MemoryStream &) = delete;
    MemoryStream &operator=(const MemoryStream &) = delete;
    io_handle &handle() { return handle_; }

private:
    static uint32_t read(io_stream *self, void *dst, uint32_t length) {
        auto &stream = *reinterpret_cast<MemoryStream *>(self);
        const auto got = static_cast<uint32_t>(std::min<size_t>(length, stream.left_));
        memcpy(dst, stream.bytes_, got);
        stream.bytes_ += got;
        stream.left_ -= got;
        return got;
    }

    const uint8_t *bytes_;
    size_t left_;
    io_handle handle_{};
};

constexpr uint8_t png_signature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr size_t png_header_size = 26; // up to the type of its colours

// ---- The file ----

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = true;
    static bool recognises(const Signature &start) {
        return start.length >= directory_size + entry_size && plausible(start.bytes);
    }

    using BaseReader::BaseReader;
    img_status frame();

private:
    img_status read_file();
    img_status list(uint32_t entries);
    void measure(Entry &entry) const;
    img_status read_picture(const Entry &entry, bool strict);
    img_status report_hot_spot(const Entry &entry) const;

    img_status ended_ = ok; // what every further frame gets
    Bytes file_;
    size_t length_ = 0;
    bool cursors_ = false;
    std::unique_ptr<Entry, Delete<Entry>> entries_;
    uint32_t count_ = 0, next_ = 0;
};

// Reads up to the end of the last picture.
img_status Reader::read_file() {
    uint8_t begin[directory_size + entry_size];
    if (read_up_to(stream_, begin, sizeof begin) != sizeof begin || !plausible(begin)) return wrong_format;
    cursors_ = begin[2] == 2;
    const uint32_t entries = little16(begin + 4);
    if (entries > most_pictures) return picture_.refuse({"frames", entries, most_pictures});

    const size_t table = directory_size + entry_size * entries;
    const Bytes directory = make_bytes(table);
    if (!directory) return no_memory;
    memcpy(directory.get(), begin, sizeof begin);
    if (read_up_to(stream_, directory.get() + sizeof begin, table - sizeof begin) != table - sizeof begin)
        return damaged;
    uint64_t end = table;
    for (uint32_t i = 0; i < entries; i++) {
        const uint8_t *entry = directory.get() + directory_size + entry_size * i;
        end = std::max(end, uint64_t{little32(entry + 8)} + little32(entry + 12));
    }
    if (end > most_bytes) return picture_.refuse({"file size", end, most_bytes});
    if (const img_status status = picture_.hold(end)) return status;
    if (!(file_ = make_bytes(end))) return no_memory;
    memcpy(file_.get(), directory.get(), table);
    length_ = table + read_up_to(stream_, file_.get() + table, end - table);
    return list(entries);
}

// The directory cannot express sides above 256, so the size of a PNG file is taken from that file.
void Reader::measure(Entry &entry) const {
    if (uint64_t{entry.offset} + png_header_size > length_) return;
    const uint8_t *data = file_.get() + entry.offset;
    entry.png = memcmp(data, png_signature, sizeof png_signature) == 0;
    entry.depth = little16(data + 14);
    if (!entry.png) return;
    constexpr uint8_t channels[] = {1, 0, 3, 1, 2, 0, 4, 0}; // by the type of its colours
    entry.pixels = uint64_t{big32(data + 16)} * big32(data + 20);
    entry.depth = uint32_t{data[24]} * channels[data[25] & 7];
}

img_status Reader::list(uint32_t entries) {
    entries_.reset(static_cast<Entry *>(calloc(entries, sizeof(Entry))));
    if (!entries_) return no_memory;
    for (; count_ < entries; count_++) {
        const uint8_t *bytes = file_.get() + directory_size + entry_size * count_;
        const auto side = [](uint8_t byte) { return byte ? byte : 256u; };
        Entry &entry = entries_.get()[count_];
        entry.offset = little32(bytes + 12);
        entry.size = little32(bytes + 8);
        entry.index = count_;
        entry.hot_x = little16(bytes + 4);
        entry.hot_y = little16(bytes + 6);
        entry.pixels = uint64_t{side(bytes[0])} * side(bytes[1]);
        measure(entry);
    }
    std::sort(entries_.get(), entries_.get() + count_, before);
    return ok;
}

img_status Reader::report_hot_spot(const Entry &entry) const {
    char text[32] = "hotspot";
    const size_t keyword = strlen(text) + 1;
    const int digits = snprintf(text + keyword, sizeof text - keyword, "%u,%u", entry.hot_x, entry.hot_y);
    return picture_.report(IMG_VALUE_TEXT, text, keyword + static_cast<size_t>(digits));
}

img_status Reader::read_picture(const Entry &entry, bool strict) {
    if (uint64_t{entry.offset} + entry.size > length_) return damaged;
    if (cursors_)
        if (const img_status status = report_hot_spot(entry)) return status;
    const uint8_t *data = file_.get() + entry.offset;
    if (entry.png) {
        MemoryStream stream(data, entry.size);
        const auto reader = make<png::Reader>(stream.handle(), picture_);
        return reader ? reader->read(strict) : no_memory;
    }
    const auto bitmap = make<Bitmap>();
    if (!bitmap) return no_memory;
    const img_status status = bitmap->begin(data, entry.size);
    return status ? status : bitmap->deliver(picture_);
}

img_status Reader::frame() {
    if (ended_) return ended_;
    bool strict;
    if (const img_status status = png::ask_strict(picture_, strict)) return status;
    if (!file_) {
        if ((ended_ = read_file())) return ended_;
        if (const img_status status = picture_.report(IMG_VALUE_FRAMES, count_)) return status;
    }
    if (next_ == count_) return wrong_format;
    return read_picture(entries_.get()[next_++], strict);
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return functions_of<Reader, NoWriter>(table, size);
}
