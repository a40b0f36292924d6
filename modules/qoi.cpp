// SPDX-License-Identifier: MIT
//
// The codec module of QOI, the "Quite OK Image" format: colours of 8 bits a channel, each written as a repetition, an index
// into 64 earlier ones, a difference, or in full.
#include "modules/common/bytes.h"
#include "modules/common/layout.h"
#include "modules/common/transparency.h"

using namespace codec;

namespace {

constexpr uint8_t signature[4] = {'q', 'o', 'i', 'f'};
constexpr uint8_t end_marker[8] = {0, 0, 0, 0, 0, 0, 0, 1};
constexpr size_t header_size = 14;
constexpr uint32_t longest_run = 62; // runs of 63 and 64 would look like the tags of full colours

enum Tag : uint8_t {
    tag_index = 0x00,
    tag_difference = 0x40,
    tag_luma = 0x80,
    tag_run = 0xc0,
    tag_rgb = 0xfe,
    tag_rgba = 0xff,
    tag_mask = 0xc0
};

struct Color {
    uint8_t r, g, b, a;
    bool operator==(const Color &) const = default;
};

// What both sides remember: the last colour, and the last one of each hash.
struct Memory {
    Color last{0, 0, 0, 0xff};
    Color seen[64]{};

    Color &slot(Color c) { return seen[(c.r * 3 + c.g * 5 + c.b * 7 + c.a * 11) & 63]; }
};

bool plausible(const uint8_t *header) {
    return memcmp(header, signature, sizeof signature) == 0 && (header[12] == 3 || header[12] == 4) && header[13] <= 1;
}

uint32_t big32(const uint8_t *at) {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}
void put_big32(uint8_t *at, uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) *at++ = static_cast<uint8_t>(value >> shift);
}

// ---- Decoding ----

img_status decode_validate(io_handle *stream) {
    Signature begin;
    if (const img_status status = peek(*stream, begin)) return status;
    return begin.length >= header_size && plausible(begin.bytes) ? ok : wrong_format;
}

struct Reader {
    Input input;
    Decoding picture;
    Memory memory;
    uint32_t repeats = 0; // pixels still to come in the last colour

    img_status read();

private:
    using ReadRow = bool (Reader::*)(uint8_t *, uint64_t);
    static ReadRow row_reader(const Layout &layout);
    template <bool blue_first, Fourth fourth> bool read_row(uint8_t *out, uint64_t left);
    bool read_color(uint64_t left);
};

// Reads the next colour and how often it comes. left: pixels that the picture still lacks. They need a byte for 62 of them
// at least, and the end marker follows, so there are always as many bytes as the longest colour takes.
inline bool Reader::read_color(uint64_t left) {
    if (!input.need(5, left / longest_run + sizeof end_marker)) return false;
    const uint8_t *at = input.data();
    const uint8_t tag = at[0];
    Color c = memory.last;
    const auto add = [](uint8_t &channel, int difference) { channel = static_cast<uint8_t>(channel + difference); };
    size_t length = 1;
    repeats = 1;
    if (tag >= tag_rgb) {
        length = tag == tag_rgba ? 5 : 4;
        c = {at[1], at[2], at[3], tag == tag_rgba ? at[4] : c.a};
    } else if ((tag & tag_mask) == tag_index) {
        c = memory.seen[tag];
    } else if ((tag & tag_mask) == tag_difference) {
        add(c.r, (tag >> 4 & 3) - 2);
        add(c.g, (tag >> 2 & 3) - 2);
        add(c.b, (tag & 3) - 2);
    } else if ((tag & tag_mask) == tag_luma) {
        length = 2;
        const int green = (tag & 0x3f) - 32;
        add(c.r, green + (at[1] >> 4) - 8);
        add(c.g, green);
        add(c.b, green + (at[1] & 15) - 8);
    } else {
        repeats = (tag & 0x3fu) + 1;
    }
    input.take(length);
    memory.slot(c) = memory.last = c;
    return true;
}

template <bool blue_first, Fourth fourth> bool Reader::read_row(uint8_t *out, uint64_t left) {
    constexpr ColorBytes at = color_bytes({0, blue_first, fourth});
    for (uint32_t x = 0, width = picture.record().width; x < width;) {
        if (!repeats && !read_color(left - x)) return false;
        const uint32_t count = std::min(repeats, width - x);
        const Color c = memory.last;
        for (uint32_t i = 0; i < count; i++, out += fourth == Fourth::none ? 3 : 4) {
            out[at.red] = c.r;
            out[at.green] = c.g;
            out[at.blue] = c.b;
            if (fourth != Fourth::none) out[fourth == Fourth::first ? 0 : 3] = c.a;
        }
        repeats -= count;
        x += count;
    }
    return true;
}

Reader::ReadRow Reader::row_reader(const Layout &layout) {
    switch (layout.fourth) {
    case Fourth::first:
        return layout.blue_first ? &Reader::read_row<true, Fourth::first> : &Reader::read_row<false, Fourth::first>;
    case Fourth::last:
        return layout.blue_first ? &Reader::read_row<true, Fourth::last> : &Reader::read_row<false, Fourth::last>;
    default:
        return layout.blue_first ? &Reader::read_row<true, Fourth::none> : &Reader::read_row<false, Fourth::none>;
    }
}

img_status Reader::read() {
    uint8_t header[header_size];
    if (!input.read(header, sizeof header) || !plausible(header)) return damaged;
    const uint32_t width = big32(header + 4), height = big32(header + 8);
    if (const img_status status = picture.report(IMG_VALUE_DEPTH, 8)) return status;
    if (header[13])
        if (const img_status status = picture.warn("the colours are linear, not sRGB")) return status;
    Offer offer;
    if (header[12] == 4) offer.add(alpha_layouts);
    offer.add(opaque_layouts);
    if (const img_status status = picture.choose(width, height, 0, offer.formats(), offer.count())) return status;
    if (const img_status status = picture.setup()) return status;
    const ReadRow read_row = row_reader(*layout_of(picture.record().format));
    for (uint32_t y = 0; y < height; y++) {
        if (!(this->*read_row)(picture.row(y), uint64_t{height - y} * width)) return damaged;
        if (const img_status status = picture.deliver(y)) return status;
    }
    if (!input.need(sizeof end_marker, 0)) return damaged;
    return memcmp(input.data(), end_marker, sizeof end_marker) == 0 ? ok : damaged;
}

// ---- Encoding ----

struct Writer {
    io_handle *stream = nullptr;
    Encoding picture;
    TransparentRows transparent;
    Memory memory;
    uint32_t run = 0;
    Bytes line;

    img_status write();

private:
    template <bool alpha> uint8_t *pack_row(const uint8_t *row, uint8_t *out);
    uint8_t *pack_color(Color c, uint8_t *out);
    uint8_t *end_run(uint8_t *out) {
        if (run) *out++ = static_cast<uint8_t>(tag_run | (run - 1));
        run = 0;
        return out;
    }
};

// The shortest form that holds the colour, a known one first.
inline uint8_t *Writer::pack_color(Color c, uint8_t *out) {
    Color &slot = memory.slot(c);
    if (slot == c) {
        *out++ = static_cast<uint8_t>(tag_index | (&slot - memory.seen));
        return out;
    }
    slot = c;
    const Color last = memory.last;
    if (c.a != last.a) {
        for (const uint8_t byte : {uint8_t{tag_rgba}, c.r, c.g, c.b, c.a}) *out++ = byte;
        return out;
    }
    const auto difference = [](uint8_t to, uint8_t from) { return static_cast<int8_t>(to - from); };
    const int red = difference(c.r, last.r), green = difference(c.g, last.g), blue = difference(c.b, last.b);
    const int red_over = static_cast<int8_t>(red - green), blue_over = static_cast<int8_t>(blue - green);
    const auto within = [](int value, int half) { return value >= -half && value < half; };
    if (within(red, 2) && within(green, 2) && within(blue, 2)) {
        *out++ = static_cast<uint8_t>(tag_difference | (red + 2) << 4 | (green + 2) << 2 | (blue + 2));
    } else if (within(green, 32) && within(red_over, 8) && within(blue_over, 8)) {
        *out++ = static_cast<uint8_t>(tag_luma | (green + 32));
        *out++ = static_cast<uint8_t>((red_over + 8) << 4 | (blue_over + 8));
    } else {
        for (const uint8_t byte : {uint8_t{tag_rgb}, c.r, c.g, c.b}) *out++ = byte;
    }
    return out;
}

template <bool alpha> uint8_t *Writer::pack_row(const uint8_t *row, uint8_t *out) {
    for (uint32_t x = 0, width = picture.image().width; x < width; x++, row += alpha ? 4 : 3) {
        Color c{row[0], row[1], row[2], 0xff};
        if (alpha) {
            uint32_t argb;
            memcpy(&argb, row, sizeof argb);
            c = {static_cast<uint8_t>(argb >> 16), static_cast<uint8_t>(argb >> 8), static_cast<uint8_t>(argb),
                 static_cast<uint8_t>(argb >> 24)};
        }
        if (c == memory.last) {
            if (++run == longest_run) out = end_run(out);
            continue;
        }
        out = pack_color(c, end_run(out));
        memory.last = c;
    }
    return out;
}

img_status Writer::write() {
    img_option linear = switch_option("linear", "say that the colours are linear, not sRGB");
    if (const img_status status = picture.ask(linear)) return status;
    const bool beside = TransparentRows::needed(picture.image());
    const img_format own = TransparentRows::offer(picture.image());
    constexpr img_format formats[] = {FMT_RGB888, FMT_ARGB8888HE};
    if (const img_status status = picture.choose_and_set_up(beside ? &own : formats, beside ? 1 : 2)) return status;
    const img_record &image = picture.image();
    if (beside)
        if (const img_status status = transparent.begin(picture, FMT_ARGB8888HE)) return status;
    const bool alpha = beside || image.format == FMT_ARGB8888HE;
    if (!(line = make_bytes(size_t{image.width} * 5 + 1))) return no_memory; // 5 a colour, and a run before them

    uint8_t header[header_size];
    memcpy(header, signature, sizeof signature);
    put_big32(header + 4, image.width);
    put_big32(header + 8, image.height);
    header[12] = alpha ? 4 : 3;
    header[13] = static_cast<uint8_t>(linear.value);
    if (!write_all(*stream, header, sizeof header)) return write_failed;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = beside ? transparent.fetch(picture, y) : picture.fetch(y);
        if (!row) return bad_record;
        uint8_t *end = alpha ? pack_row<true>(row, line.get()) : pack_row<false>(row, line.get());
        if (y + 1 == image.height) end = end_run(end);
        if (!write_all(*stream, line.get(), static_cast<size_t>(end - line.get()))) return write_failed;
        if (const img_status status = picture.progress(y + 1)) return status;
    }
    return write_all(*stream, end_marker, sizeof end_marker) ? ok : write_failed;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_file<Reader, decode_validate>, nullptr,
                       want_large_buffer, encode_file<Writer>, nullptr});
}
