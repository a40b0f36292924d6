// SPDX-License-Identifier: MIT
//
// The codec module of the PNM family: bitmaps, grey and colour, as text (P1 to P3) and as bytes (P4 to P6), and PAM (P7).
// Several images may follow each other in one stream of bytes; text ends the file.
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
    bool packed;                     // eight bits a byte
    bool one_is_white;               // of bits
    uint32_t width, height, highest; // highest: the sample that means full intensity
};

uint32_t channels(Kind kind) {
    constexpr uint8_t table[] = {1, 1, 2, 3, 4};
    return table[static_cast<size_t>(kind)];
}

// PAM keeps alpha beside each pixel. ARGB, because its conversion to grey weighs all three colours.
img_format format_of(Kind kind) {
    constexpr img_format table[] = {FMT_PAL1, FMT_G8, FMT_ARGB8888HE, FMT_RGB888, FMT_ARGB8888HE};
    return table[static_cast<size_t>(kind)];
}

// ---- Decoding ----

// Characters of a stream. Text is read in blocks; before bytes, nothing more is taken than asked for.
class Characters {
public:
    void begin(io_handle &stream) { stream_ = &stream; }
    void read_ahead() { most_ = sizeof block_; }
    bool ended() const { return ended_; } // something was looked for behind the last character

    int next() { // -1 at the end
        if (at_ == length_) {
            at_ = 0;
            length_ = read_up_to(*stream_, block_, most_);
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

    // Bytes behind the characters that were asked for, unless something was read ahead.
    bool read(uint8_t *dst, size_t length) { return read_up_to(*stream_, dst, length) == length; }

private:
    io_handle *stream_ = nullptr;
    size_t most_ = 1, at_ = 0, length_ = 0;
    bool ended_ = false;
    uint8_t block_[4096];
};

struct Reader {
    Characters input;
    Header header{};
    Decoding picture;
    Bytes samples;      // a row, one byte a sample, where it is not the record's row itself
    Bytes wide_samples; // a row of two bytes a sample
    uint8_t scaled[0x10000];

    img_status read();

private:
    img_status read_header();
    img_status read_pam_header();
    img_status set_tuple(const char *type, uint32_t depth);
    img_status read_rows();
    img_status read_row(uint8_t *row);
    img_status read_samples(uint8_t *dst, size_t count);
    img_status read_text_samples(uint8_t *dst, size_t count);
};

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    const auto at = [&](size_t i) { return i < signature.length ? signature.bytes[i] : -1; };
    if (at(0) != 'P' || at(1) < '1' || at(1) > '7') return wrong_format;
    // Behind a P7 and a blank, others have put pictures that are no PAM.
    if (at(1) == '7') return at(2) == '\n' || at(2) == '\r' ? ok : wrong_format;
    size_t i = 2;
    while (is_space(at(i))) i++;
    const bool number_or_comment = (i > 2 && is_digit(at(i))) || at(i) == '#';
    return number_or_comment || (i > 2 && at(i) < 0 && i == signature_size) ? ok : wrong_format;
}

img_status Reader::read_header() {
    if (input.next() != 'P') return damaged;
    const int type = input.next();
    if (type == '7') return read_pam_header();
    if (type < '1' || type > '6') return damaged;
    constexpr Kind kinds[] = {Kind::bits, Kind::grey, Kind::rgb};
    header.kind = kinds[(type - '1') % 3];
    header.text = type <= '3';
    header.packed = type == '4';
    if (header.text) input.read_ahead();
    for (uint32_t *side : {&header.width, &header.height})
        if (const img_status status = input.number(*side))
            return status == over_limit ? picture.refuse({"side", Characters::too_large, max_side}) : status;
    header.highest = 1;
    return header.kind == Kind::bits || input.number(header.highest) == ok ? ok : damaged;
}

img_status Reader::read_pam_header() {
    char line[256], type[256] = "";
    uint32_t depth = 0;
    for (;;) {
        if (!input.line(line, sizeof line)) return damaged;
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
            {"WIDTH", &header.width}, {"HEIGHT", &header.height}, {"DEPTH", &depth}, {"MAXVAL", &header.highest}};
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
        header.kind = tuple.kind == Kind::bits && header.highest != 1 ? Kind::grey : tuple.kind;
        header.one_is_white = true;
        return ok;
    }
    return unsupported;
}

img_status Reader::read_text_samples(uint8_t *dst, size_t count) {
    for (size_t i = 0; i < count; i++) {
        uint32_t value;
        if (header.kind == Kind::bits) { // digits, which need no blanks between them
            value = static_cast<uint32_t>(input.next_visible() - '0');
        } else if (const img_status status = input.number(value)) {
            return damaged;
        }
        if (value > header.highest) return damaged;
        dst[i] = scaled[value];
    }
    return ok;
}

// Samples scaled to eight bits, rounded to the nearest.
img_status Reader::read_samples(uint8_t *dst, size_t count) {
    if (header.text) return read_text_samples(dst, count);
    if (header.highest > 0xff) {
        const uint8_t *wide = wide_samples.get();
        if (!input.read(wide_samples.get(), count * 2)) return damaged;
        for (size_t i = 0; i < count; i++) {
            const uint32_t value = uint32_t{wide[2 * i]} << 8 | wide[2 * i + 1];
            if (value > header.highest) return damaged;
            dst[i] = scaled[value];
        }
        return ok;
    }
    if (!input.read(dst, count)) return damaged;
    if (header.highest == 0xff) return ok;
    for (size_t i = 0; i < count; i++) {
        if (dst[i] > header.highest) return damaged;
        dst[i] = scaled[dst[i]];
    }
    return ok;
}

img_status Reader::read_row(uint8_t *row) {
    const uint32_t width = header.width;
    if (header.packed) {
        return input.read(row, row_bytes(FMT_PAL1, width)) ? ok : damaged;
    }
    uint8_t *in = samples ? samples.get() : row;
    if (const img_status status = read_samples(in, size_t{width} * channels(header.kind))) return status;
    if (header.kind == Kind::bits) {
        memset(row, 0, row_bytes(FMT_PAL1, width));
        for (uint32_t x = 0; x < width; x++)
            row[x >> 3] = static_cast<uint8_t>(row[x >> 3] | (in[x] ? 0x80 >> (x & 7) : 0));
    } else if (header.kind == Kind::grey_alpha || header.kind == Kind::rgb_alpha) {
        const bool grey = header.kind == Kind::grey_alpha;
        for (uint32_t x = 0; x < width; x++, in += grey ? 2 : 4, row += 4) {
            const uint32_t color = grey ? in[0] * 0x10101u : uint32_t{in[0]} << 16 | uint32_t{in[1]} << 8 | in[2];
            const uint32_t pixel = uint32_t{in[grey ? 1 : 3]} << 24 | color;
            memcpy(row, &pixel, sizeof pixel);
        }
    }
    return ok;
}

img_status Reader::read_rows() {
    for (uint32_t y = 0; y < header.height; y++) {
        if (const img_status status = read_row(picture.row(y))) return status;
        if (input.ended() && y + 1 < header.height) return damaged; // the row's last number may have been cut
        if (const img_status status = picture.deliver(y)) return status;
    }
    return ok;
}

img_status Reader::read() {
    if (const img_status status = read_header()) return status;
    if (!header.highest || header.highest > 0xffff) return damaged;
    const img_format format = format_of(header.kind);
    const uint32_t depth = header.kind == Kind::bits ? 1u : static_cast<uint32_t>(std::bit_width(header.highest));
    if (const img_status status = picture.report(IMG_VALUE_DEPTH, depth)) return status;
    if (const img_status status = picture.choose(header.width, header.height, 2, &format, 1)) return status;
    if (const img_status status = picture.setup()) return status;
    if (header.kind == Kind::bits) {
        constexpr uint32_t white = 0xffffffff, black = 0xff000000;
        const uint32_t palette[2] = {header.one_is_white ? black : white, header.one_is_white ? white : black};
        if (const img_status status = picture.set_palette(palette)) return status;
    }
    const size_t count = size_t{header.width} * channels(header.kind);
    if (format == FMT_PAL1 || format == FMT_ARGB8888HE)
        if (!(samples = make_bytes(count))) return no_memory;
    if (header.highest > 0xff && !header.text)
        if (!(wide_samples = make_bytes(count * 2))) return no_memory;
    for (uint32_t value = 0; value <= header.highest; value++)
        scaled[value] = static_cast<uint8_t>((value * 255 + header.highest / 2) / header.highest);
    return read_rows();
}

// ---- Encoding ----

constexpr uint32_t rgb_of(uint32_t argb) { return argb & 0xffffff; }

struct Writer {
    io_handle *stream = nullptr;
    Encoding picture;
    uint32_t palette[max_colors];
    uint8_t key[4];   // the colour key as a pixel
    uint8_t flip = 0; // 0xff where index 0 is black: in a bitmap, 1 is
    Bytes line;       // a row of the file, where it is not the picture's

    img_status write();

private:
    img_status choose();
    img_status write_header();
    void pack_row(const uint8_t *row);
    // A palette with alpha or a key, which only PAM with alpha can hold.
    bool transparent_palette() const {
        return (picture.image().format & IMG_FMT_PAL) && picture.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP);
    }
    bool keyed() const {
        return !(picture.image().format & (IMG_FMT_PAL | IMG_FMT_ALPHA)) && picture.has(IMG_F_TRANSP);
    }
};

bool black_and_white(const img_record &image) {
    if (!(image.flags & IMG_F_PALETTE) || image.ncolors != 2) return false;
    const uint32_t first = rgb_of(image.palette[0]);
    return (first == 0 || first == 0xffffff) && (first ^ rgb_of(image.palette[1])) == 0xffffff;
}

img_status Writer::choose() {
    const img_record &image = picture.image();
    img_format formats[] = {FMT_PAL1, FMT_G8, FMT_RGB888, rgba_bytes};
    if (transparent_palette()) { // taken as it is: expanded, its key could equal an opaque colour
        formats[0] = image.format;
        return picture.choose_and_set_up(formats, 1);
    }
    if (black_and_white(image)) return picture.choose_and_set_up(formats, 4);
    return picture.choose_and_set_up(formats + 1, 3);
}

img_status Writer::write_header() {
    const img_record &image = picture.image();
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
    return write_all(*stream, text, strlen(text)) ? ok : write_failed;
}

void Writer::pack_row(const uint8_t *row) {
    const img_record &image = picture.image();
    uint8_t *out = line.get();
    if (transparent_palette()) {
        for (uint32_t x = 0; x < image.width; x++) {
            const uint32_t argb = palette[index_at(row, bits_per_pixel(image.format), x)];
            for (const int shift : {16, 8, 0, 24}) *out++ = static_cast<uint8_t>(argb >> shift);
        }
    } else if (keyed()) {
        const size_t bytes = bits_per_pixel(image.format) / 8;
        for (uint32_t x = 0; x < image.width; x++, row += bytes, out += bytes + 1) {
            memcpy(out, row, bytes);
            out[bytes] = memcmp(row, key, bytes) == 0 ? 0 : 0xff;
        }
    } else {
        const size_t bytes = row_bytes(FMT_PAL1, image.width);
        for (size_t i = 0; i < bytes; i++) out[i] = row[i] ^ flip;
        if (image.width & 7) out[bytes - 1] = static_cast<uint8_t>(out[bytes - 1] & (0xff00 >> (image.width & 7)));
    }
}

img_status Writer::write() {
    if (const img_status status = choose()) return status;
    const img_record &image = picture.image();
    size_t bytes = row_bytes(image.format, image.width);
    const bool indexed = image.format & IMG_FMT_PAL;
    if (indexed) {
        if (const img_status status = picture.get_palette(palette)) return status;
        flip = rgb_of(palette[0]) == 0 ? 0xff : 0;
    }
    if (keyed())
        if (const img_status status = picture.get_transparency(key)) return status;
    if (transparent_palette())
        bytes = size_t{image.width} * 4;
    else if (keyed())
        bytes += image.width;
    if (indexed || keyed())
        if (!(line = make_bytes(bytes))) return no_memory;
    if (const img_status status = write_header()) return status;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = picture.fetch(y);
        if (!row) return bad_record;
        if (line) pack_row(row);
        if (!write_all(*stream, line ? line.get() : row, bytes)) return write_failed;
        if (const img_status status = picture.progress(y + 1)) return status;
    }
    return ok;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_file<Reader, decode_validate>, nullptr,
                       want_large_buffer, encode_file<Writer>, nullptr});
}
