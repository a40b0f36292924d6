// SPDX-License-Identifier: MIT
//
// The codec module of the PNM family: bitmaps, grey and colour, as text (P1 to P3) or bytes (P4 to P6), and PAM (P7).
// Several binary images may follow each other in a stream; a text image is the last one.
#include "modules/common/entry.h"
#include "modules/common/layout.h"

#include <bit>
#include <stdio.h>
#include <string.h>

using namespace codec;

namespace {

bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool is_digit(int c) { return c >= '0' && c <= '9'; }

enum class Kind : uint8_t { bits, grey, grey_alpha, rgb, rgb_alpha };

struct Header {
    Kind kind;
    bool text;                       // samples are decimal numbers
    bool packed;                     // eight pixels per byte
    bool one_is_white;               // of bits
    uint32_t width, height, highest; // highest: the sample that means full intensity
};

uint32_t channels(Kind kind) {
    constexpr uint8_t table[] = {1, 1, 2, 3, 4};
    return table[static_cast<size_t>(kind)];
}

// PAM stores alpha with each pixel. ARGB, because its conversion to grey weighs all three colours.
img_format format_of(Kind kind) {
    constexpr img_format table[] = {FMT_PAL1, FMT_G8, FMT_ARGB8888HE, FMT_RGB888, FMT_ARGB8888HE};
    return table[static_cast<size_t>(kind)];
}

// ---- Decoding ----

// The characters of a stream. Text is read in blocks; a header before binary data byte by byte, so that nothing of the
// data is taken.
class Characters {
public:
    explicit Characters(io_handle &stream) : stream_(stream) {}
    void read_ahead() { most_ = sizeof block_; }
    bool ended() const { return ended_; } // a read went past the last character

    int next() { // -1 at the end
        if (at_ == length_) {
            at_ = 0;
            length_ = read_up_to(stream_, block_, most_);
            if (!length_) {
                ended_ = true;
                return -1;
            }
        }
        return block_[at_++];
    }
    // A comment reads as the end of its line.
    int next_outside_comments() {
        int c = next();
        if (c == '#') do
                c = next();
            while (c >= 0 && c != '\n' && c != '\r');
        return c;
    }
    int next_visible() {
        int c;
        do c = next_outside_comments();
        while (is_space(c));
        return c;
    }
    // A decimal number and the one character after it. Numbers of more than nine digits exceed every limit.
    static constexpr uint32_t too_large = 1'000'000'000;
    img_status number(uint32_t &value) {
        int c = next_visible();
        if (!is_digit(c)) return damaged;
        value = 0;
        for (; is_digit(c); c = next_outside_comments()) {
            if (value >= too_large / 10) return over_limit;
            value = value * 10 + static_cast<uint32_t>(c - '0');
        }
        return c < 0 || is_space(c) ? ok : damaged;
    }
    // A line without blanks at its ends and without its comment; false at the end of the data or for an overlong one.
    bool line(char *text, size_t size) {
        size_t length = 0;
        int c = next_visible();
        for (; c >= 0 && c != '\n' && c != '\r'; c = next_outside_comments()) {
            if (length + 1 == size) return false;
            text[length++] = static_cast<char>(c);
        }
        while (length && is_space(text[length - 1])) length--;
        text[length] = '\0';
        return c >= 0;
    }

    // The bytes after the last character, provided that read_ahead was not called.
    bool read(uint8_t *dst, size_t length) { return read_up_to(stream_, dst, length) == length; }

private:
    io_handle &stream_;
    size_t most_ = 1, at_ = 0, length_ = 0;
    bool ended_ = false;
    uint8_t block_[4096];
};

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    Reader(io_handle &stream, Decoding &picture) : BaseReader(stream, picture), input_(stream) {}
    img_status frame();

private:
    img_status read_header();
    img_status read_pam_header();
    img_status set_tuple(const char *type, uint32_t depth);
    img_status read_rows();
    img_status read_row(uint8_t *row);
    img_status read_samples(uint8_t *dst, size_t count);
    img_status read_text_samples(uint8_t *dst, size_t count);

    Characters input_;
    Header header_{};
    Bytes samples_;      // a row with one byte per sample, unless samples are stored in the record's row at once
    Bytes wide_samples_; // a row with two bytes per sample
    uint8_t scaled_[0x10000];
};

bool Reader::recognises(const Signature &start) {
    const auto at = [&](size_t i) { return i < start.length ? start.bytes[i] : -1; };
    if (at(0) != 'P' || at(1) < '1' || at(1) > '7') return false;
    // "P7" and a blank start another format, of thumbnails.
    if (at(1) == '7') return at(2) == '\n' || at(2) == '\r';
    size_t i = 2;
    while (is_space(at(i))) i++;
    const bool number_or_comment = (i > 2 && is_digit(at(i))) || at(i) == '#';
    return number_or_comment || (i > 2 && at(i) < 0 && i == signature_size);
}

img_status Reader::read_header() {
    if (input_.next() != 'P') return damaged;
    const int type = input_.next();
    if (type == '7') return read_pam_header();
    if (type < '1' || type > '6') return damaged;
    constexpr Kind kinds[] = {Kind::bits, Kind::grey, Kind::rgb};
    header_.kind = kinds[(type - '1') % 3];
    header_.text = type <= '3';
    header_.packed = type == '4';
    if (header_.text) input_.read_ahead();
    for (uint32_t *side : {&header_.width, &header_.height})
        if (const img_status status = input_.number(*side))
            return status == over_limit ? picture_.refuse({"side", Characters::too_large, max_side}) : status;
    header_.highest = 1;
    return header_.kind == Kind::bits || input_.number(header_.highest) == ok ? ok : damaged;
}

img_status Reader::read_pam_header() {
    char line[256], type[256] = "";
    uint32_t depth = 0;
    for (;;) {
        if (!input_.line(line, sizeof line)) return damaged;
        if (strcmp(line, "ENDHDR") == 0) break;
        char *value = line;
        while (*value && !is_space(*value)) value++;
        if (*value) *value++ = '\0';
        while (is_space(*value)) value++;
        if (strcmp(line, "TUPLTYPE") == 0) {
            memcpy(type, value, strlen(value) + 1);
            continue;
        }
        const struct {
            const char *key;
            uint32_t *number;
        } fields[] = {
            {"WIDTH", &header_.width}, {"HEIGHT", &header_.height}, {"DEPTH", &depth}, {"MAXVAL", &header_.highest}};
        for (const auto &[key, number] : fields) {
            if (strcmp(line, key) != 0) continue;
            char *end;
            const unsigned long read = is_digit(*value) ? strtoul(value, &end, 10) : 0;
            if (!is_digit(*value) || *end) return damaged;
            *number = read > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(read);
        }
    }
    return set_tuple(type, depth);
}

img_status Reader::set_tuple(const char *type, uint32_t depth) {
    constexpr struct {
        const char *type;
        Kind kind;
    } tuples[] = {{"BLACKANDWHITE", Kind::bits},
                  {"GRAYSCALE", Kind::grey},
                  {"GRAYSCALE_ALPHA", Kind::grey_alpha},
                  {"BLACKANDWHITE_ALPHA", Kind::grey_alpha},
                  {"RGB", Kind::rgb},
                  {"RGB_ALPHA", Kind::rgb_alpha}};
    for (const auto &tuple : tuples) {
        const bool named =
            *type ? strcmp(type, tuple.type) == 0 : tuple.kind != Kind::bits && depth == channels(tuple.kind);
        if (!named) continue;
        if (depth != channels(tuple.kind)) return damaged;
        header_.kind = tuple.kind == Kind::bits && header_.highest != 1 ? Kind::grey : tuple.kind;
        header_.one_is_white = true;
        return ok;
    }
    return unsupported;
}

img_status Reader::read_text_samples(uint8_t *dst, size_t count) {
    for (size_t i = 0; i < count; i++) {
        uint32_t value;
        if (header_.kind == Kind::bits) { // digits, which need no blanks between them
            value = static_cast<uint32_t>(input_.next_visible() - '0');
        } else if (const img_status status = input_.number(value)) {
            return damaged;
        }
        if (value > header_.highest) return damaged;
        dst[i] = scaled_[value];
    }
    return ok;
}

// Reads samples and scales them to eight bits, rounded to the nearest value.
img_status Reader::read_samples(uint8_t *dst, size_t count) {
    if (header_.text) return read_text_samples(dst, count);
    if (header_.highest > 0xff) {
        const uint8_t *wide = wide_samples_.get();
        if (!input_.read(wide_samples_.get(), count * 2)) return damaged;
        for (size_t i = 0; i < count; i++) {
            const uint32_t value = uint32_t{wide[2 * i]} << 8 | wide[2 * i + 1];
            if (value > header_.highest) return damaged;
            dst[i] = scaled_[value];
        }
        return ok;
    }
    if (!input_.read(dst, count)) return damaged;
    if (header_.highest == 0xff) return ok;
    for (size_t i = 0; i < count; i++) {
        if (dst[i] > header_.highest) return damaged;
        dst[i] = scaled_[dst[i]];
    }
    return ok;
}

img_status Reader::read_row(uint8_t *row) {
    const uint32_t width = header_.width;
    if (header_.packed) {
        return input_.read(row, row_bytes(FMT_PAL1, width)) ? ok : damaged;
    }
    uint8_t *in = samples_ ? samples_.get() : row;
    if (const img_status status = read_samples(in, size_t{width} * channels(header_.kind))) return status;
    if (header_.kind == Kind::bits) {
        memset(row, 0, row_bytes(FMT_PAL1, width));
        for (uint32_t x = 0; x < width; x++)
            row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (in[x] ? 0x80 >> (x & 7) : 0));
    } else if (header_.kind == Kind::grey_alpha || header_.kind == Kind::rgb_alpha) {
        const bool grey = header_.kind == Kind::grey_alpha;
        for (uint32_t x = 0; x < width; x++, in += grey ? 2 : 4, row += 4) {
            const uint32_t color = grey ? in[0] * 0x10101u : uint32_t{in[0]} << 16 | uint32_t{in[1]} << 8 | in[2];
            const uint32_t pixel = uint32_t{in[grey ? 1 : 3]} << 24 | color;
            memcpy(row, &pixel, sizeof pixel);
        }
    }
    return ok;
}

img_status Reader::read_rows() {
    for (uint32_t y = 0; y < header_.height; y++) {
        if (const img_status status = read_row(picture_.row(y))) return status;
        if (input_.ended() && y + 1 < header_.height) return damaged; // the row's last number may have been cut
        if (const img_status status = picture_.deliver(y)) return status;
    }
    return ok;
}

img_status Reader::frame() {
    if (const img_status status = read_header()) return status;
    if (!header_.highest || header_.highest > 0xffff) return damaged;
    const img_format format = format_of(header_.kind);
    const uint32_t depth = header_.kind == Kind::bits ? 1u : static_cast<uint32_t>(std::bit_width(header_.highest));
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, depth)) return status;
    if (const img_status status = picture_.choose(header_.width, header_.height, 2, &format, 1)) return status;
    if (const img_status status = picture_.setup()) return status;
    if (header_.kind == Kind::bits) {
        constexpr uint32_t white = 0xffffffff, black = 0xff000000;
        const uint32_t palette[2] = {header_.one_is_white ? black : white, header_.one_is_white ? white : black};
        if (const img_status status = picture_.set_palette(palette)) return status;
    }
    const size_t count = size_t{header_.width} * channels(header_.kind);
    if (format == FMT_PAL1 || format == FMT_ARGB8888HE)
        if (!(samples_ = make_bytes(count))) return no_memory;
    if (header_.highest > 0xff && !header_.text)
        if (!(wide_samples_ = make_bytes(count * 2))) return no_memory;
    for (uint32_t value = 0; value <= header_.highest; value++)
        scaled_[value] = static_cast<uint8_t>((value * 255 + header_.highest / 2) / header_.highest);
    return read_rows();
}

// ---- Encoding ----

constexpr uint32_t rgb_of(uint32_t argb) { return argb & 0xffffff; }

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    img_status frame();

private:
    img_status choose();
    img_status write_header();
    void pack_row(const uint8_t *row);
    // Whether the picture has a palette with alpha or a key, which only PAM with alpha can store.
    bool transparent_palette() const {
        return (picture_.image().format & IMG_FMT_PAL) && picture_.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP);
    }
    bool keyed() const {
        return !(picture_.image().format & (IMG_FMT_PAL | IMG_FMT_ALPHA)) && picture_.has(IMG_F_TRANSP);
    }

    uint32_t palette_[max_colors];
    uint8_t key_[4];   // the colour key as a pixel
    uint8_t flip_ = 0; // 0xff where index 0 is black: in a bitmap, 1 is
    Bytes line_;       // a row of the file, where it differs from the picture's
};

bool black_and_white(const img_record &image) {
    if (!(image.flags & IMG_F_PALETTE) || image.ncolors != 2) return false;
    const uint32_t first = rgb_of(image.palette[0]);
    return (first == 0 || first == 0xffffff) && (first ^ rgb_of(image.palette[1])) == 0xffffff;
}

img_status Writer::choose() {
    const img_record &image = picture_.image();
    img_format formats[] = {FMT_PAL1, FMT_G8, FMT_RGB888, rgba_bytes};
    if (transparent_palette()) { // not expanded: then the key could equal an opaque colour
        formats[0] = image.format;
        return picture_.choose_and_set_up(formats, 1);
    }
    if (black_and_white(image)) return picture_.choose_and_set_up(formats, 4);
    return picture_.choose_and_set_up(formats + 1, 3);
}

img_status Writer::write_header() {
    const img_record &image = picture_.image();
    char text[128];
    const bool pam = transparent_palette() || keyed() || image.format == rgba_bytes;
    if (pam) {
        const bool grey = image.format == FMT_G8;
        snprintf(text, sizeof text, "P7\nWIDTH %u\nHEIGHT %u\nDEPTH %d\nMAXVAL 255\nTUPLTYPE %s\nENDHDR\n", image.width,
                 image.height, grey ? 2 : 4, grey ? "GRAYSCALE_ALPHA" : "RGB_ALPHA");
    } else if (image.format == FMT_PAL1) {
        snprintf(text, sizeof text, "P4\n%u %u\n", image.width, image.height);
    } else {
        snprintf(text, sizeof text, "P%c\n%u %u\n255\n", image.format == FMT_G8 ? '5' : '6', image.width, image.height);
    }
    return write_all(stream_, text, strlen(text)) ? ok : write_failed;
}

void Writer::pack_row(const uint8_t *row) {
    const img_record &image = picture_.image();
    uint8_t *out = line_.get();
    if (transparent_palette()) {
        for (uint32_t x = 0; x < image.width; x++) {
            const uint32_t argb = palette_[index_at(row, bits_per_pixel(image.format), x)];
            for (const int shift : {16, 8, 0, 24}) *out++ = static_cast<uint8_t>(argb >> shift);
        }
    } else if (keyed()) {
        const size_t bytes = bits_per_pixel(image.format) / 8;
        for (uint32_t x = 0; x < image.width; x++, row += bytes, out += bytes + 1) {
            memcpy(out, row, bytes);
            out[bytes] = memcmp(row, key_, bytes) == 0 ? 0 : 0xff;
        }
    } else {
        const size_t bytes = row_bytes(FMT_PAL1, image.width);
        for (size_t i = 0; i < bytes; i++) out[i] = row[i] ^ flip_;
        if (image.width & 7) out[bytes - 1] = static_cast<uint8_t>(out[bytes - 1] & (0xff00 >> (image.width & 7)));
    }
}

img_status Writer::frame() {
    if (const img_status status = choose()) return status;
    const img_record &image = picture_.image();
    size_t bytes = row_bytes(image.format, image.width);
    const bool indexed = image.format & IMG_FMT_PAL;
    if (indexed) {
        if (const img_status status = picture_.get_palette(palette_)) return status;
        flip_ = rgb_of(palette_[0]) == 0 ? 0xff : 0;
    }
    if (keyed())
        if (const img_status status = picture_.get_transparency(key_)) return status;
    if (transparent_palette())
        bytes = size_t{image.width} * 4;
    else if (keyed())
        bytes += image.width;
    if (indexed || keyed())
        if (!(line_ = make_bytes(bytes))) return no_memory;
    if (const img_status status = write_header()) return status;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = picture_.fetch(y);
        if (!row) return bad_record;
        if (line_) pack_row(row);
        if (!write_all(stream_, line_ ? line_.get() : row, bytes)) return write_failed;
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return ok;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) { return functions_of<Reader, Writer>(table, size); }
