// SPDX-License-Identifier: MIT
//
// The codec module of QOI, the "Quite OK Image" format: 8 bits per channel, each colour stored as a repetition, an
// index into 64 earlier colours, a difference, or in full.
#include "modules/common/bytes.h"
#include "modules/common/entry.h"
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

// What reader and writer remember: the last colour, and the last one with each hash value.
struct Memory {
    Color last{0, 0, 0, 0xff};
    Color seen[64]{};

    Color &slot(Color c) { return seen[(c.r * 3 + c.g * 5 + c.b * 7 + c.a * 11) & 63]; }
};

bool plausible(const uint8_t *header) {
    return memcmp(header, signature, sizeof signature) == 0 && (header[12] == 3 || header[12] == 4) && header[13] <= 1;
}

// ---- Decoding ----

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    Reader(io_handle &stream, Decoding &picture) : BaseReader(stream, picture), input_(stream) {}
    img_status frame();

private:
    using ReadRow = bool (Reader::*)(uint8_t *, uint64_t);
    static ReadRow row_reader(const Layout &layout);
    template <bool blue_first, Fourth fourth> bool read_row(uint8_t *out, uint64_t left);
    bool read_color(uint64_t left);

    Input input_;
    Memory memory_;
    uint32_t repeats_ = 0; // pixels of the last colour still to come
};

bool Reader::recognises(const Signature &start) { return start.length >= header_size && plausible(start.bytes); }

// Reads the next colour and how often it is repeated. left: pixels missing from the picture. 62 of them take at least
// one byte, and the end marker follows, so there are always as many bytes as the longest colour takes.
inline bool Reader::read_color(uint64_t left) {
    if (!input_.need(5, left / longest_run + sizeof end_marker)) return false;
    const uint8_t *at = input_.data();
    const uint8_t tag = at[0];
    Color c = memory_.last;
    const auto add = [](uint8_t &channel, int difference) { channel = static_cast<uint8_t>(channel + difference); };
    size_t length = 1;
    repeats_ = 1;
    if (tag >= tag_rgb) {
        length = tag == tag_rgba ? 5 : 4;
        c = {at[1], at[2], at[3], tag == tag_rgba ? at[4] : c.a};
    } else if ((tag & tag_mask) == tag_index) {
        c = memory_.seen[tag];
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
        repeats_ = (tag & 0x3fu) + 1;
    }
    input_.take(length);
    memory_.slot(c) = memory_.last = c;
    return true;
}

template <bool blue_first, Fourth fourth> bool Reader::read_row(uint8_t *out, uint64_t left) {
    constexpr ColorBytes at = color_bytes({0, blue_first, fourth});
    for (uint32_t x = 0, width = picture_.record().width; x < width;) {
        if (!repeats_ && !read_color(left - x)) return false;
        const uint32_t count = std::min(repeats_, width - x);
        const Color c = memory_.last;
        for (uint32_t i = 0; i < count; i++, out += fourth == Fourth::none ? 3 : 4) {
            out[at.red] = c.r;
            out[at.green] = c.g;
            out[at.blue] = c.b;
            if (fourth != Fourth::none) out[fourth == Fourth::first ? 0 : 3] = c.a;
        }
        repeats_ -= count;
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

img_status Reader::frame() {
    uint8_t header[header_size];
    if (!input_.read(header, sizeof header) || !plausible(header)) return damaged;
    const uint32_t width = big32(header + 4), height = big32(header + 8);
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, 8)) return status;
    if (header[13])
        if (const img_status status = picture_.warn("the colours are linear, not sRGB")) return status;
    Offer offer;
    if (header[12] == 4) offer.add(alpha_layouts);
    offer.add(opaque_layouts);
    if (const img_status status = picture_.choose(width, height, 0, offer.formats(), offer.count())) return status;
    if (const img_status status = picture_.setup()) return status;
    const ReadRow read_row = row_reader(*layout_of(picture_.record().format));
    for (uint32_t y = 0; y < height; y++) {
        if (!(this->*read_row)(picture_.row(y), uint64_t{height - y} * width)) return damaged;
        if (const img_status status = picture_.deliver(y)) return status;
    }
    if (!input_.need(sizeof end_marker, 0)) return damaged;
    return memcmp(input_.data(), end_marker, sizeof end_marker) == 0 ? ok : damaged;
}

// ---- Encoding ----

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    img_status frame();

private:
    template <bool alpha> uint8_t *pack_row(const uint8_t *row, uint8_t *out);
    uint8_t *pack_color(Color c, uint8_t *out);
    uint8_t *end_run(uint8_t *out) {
        if (run_) *out++ = static_cast<uint8_t>(tag_run | (run_ - 1));
        run_ = 0;
        return out;
    }

    TransparentRows transparent_;
    Memory memory_;
    uint32_t run_ = 0;
    Bytes line_;
};

// Appends the shortest form of the colour; an index into the known colours is tried first.
inline uint8_t *Writer::pack_color(Color c, uint8_t *out) {
    Color &slot = memory_.slot(c);
    if (slot == c) {
        *out++ = static_cast<uint8_t>(tag_index | (&slot - memory_.seen));
        return out;
    }
    slot = c;
    const Color last = memory_.last;
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
    for (uint32_t x = 0, width = picture_.image().width; x < width; x++, row += alpha ? 4 : 3) {
        Color c{row[0], row[1], row[2], 0xff};
        if (alpha) {
            uint32_t argb;
            memcpy(&argb, row, sizeof argb);
            c = {static_cast<uint8_t>(argb >> 16), static_cast<uint8_t>(argb >> 8), static_cast<uint8_t>(argb),
                 static_cast<uint8_t>(argb >> 24)};
        }
        if (c == memory_.last) {
            if (++run_ == longest_run) out = end_run(out);
            continue;
        }
        out = pack_color(c, end_run(out));
        memory_.last = c;
    }
    return out;
}

img_status Writer::frame() {
    img_option linear = switch_option("linear", "say that the colours are linear, not sRGB");
    if (const img_status status = picture_.ask(linear)) return status;
    const bool beside = TransparentRows::needed(picture_.image());
    const img_format own = TransparentRows::offer(picture_.image());
    constexpr img_format formats[] = {FMT_RGB888, FMT_ARGB8888HE};
    if (const img_status status = picture_.choose_and_set_up(beside ? &own : formats, beside ? 1 : 2)) return status;
    const img_record &image = picture_.image();
    if (beside)
        if (const img_status status = transparent_.begin(picture_, FMT_ARGB8888HE)) return status;
    const bool alpha = beside || image.format == FMT_ARGB8888HE;
    if (!(line_ = make_bytes(size_t{image.width} * 5 + 1))) return no_memory; // 5 per colour, and a run before them

    uint8_t header[header_size];
    memcpy(header, signature, sizeof signature);
    put_big32(header + 4, image.width);
    put_big32(header + 8, image.height);
    header[12] = alpha ? 4 : 3;
    header[13] = static_cast<uint8_t>(linear.value);
    if (!write_all(stream_, header, sizeof header)) return write_failed;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = beside ? transparent_.fetch(picture_, y) : picture_.fetch(y);
        if (!row) return bad_record;
        uint8_t *end = alpha ? pack_row<true>(row, line_.get()) : pack_row<false>(row, line_.get());
        if (y + 1 == image.height) end = end_run(end);
        if (!write_all(stream_, line_.get(), static_cast<size_t>(end - line_.get()))) return write_failed;
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return write_all(stream_, end_marker, sizeof end_marker) ? ok : write_failed;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) { return functions_of<Reader, Writer>(table, size); }
