// SPDX-License-Identifier: MIT
//
// The TGA codec module: indices, grey and colours of 15 to 32 bits, uncompressed or run-length encoded. A file has no
// signature, so its whole header must make sense.
#include "modules/common/bytes.h"
#include "modules/common/entry.h"
#include "modules/common/layout.h"
#include "modules/common/transparency.h"

using namespace codec;

namespace {

constexpr size_t header_size = 18;
constexpr uint32_t max_packet = 128; // pixels

enum Type : uint8_t { indexed = 1, color = 2, grey = 3 };
constexpr uint8_t in_runs = 8;                        // added to the type
constexpr uint8_t from_right = 0x10, from_top = 0x20; // in the descriptor, next to the number of attribute bits
constexpr uint8_t footer[] =
    "\0\0\0\0\0\0\0\0TRUEVISION-XFILE."; // with its final zero; the offsets of both optional areas are 0

struct Header {
    uint8_t id_length, type;
    bool runs, mapped;
    uint32_t map_first, map_length, map_bits;
    uint32_t width, height, depth, attributes; // depth counts the attribute bits
    bool right_to_left, top_down;

    uint32_t pixel_bytes() const { return (depth + 7) / 8; }
    uint32_t entry_bytes() const { return (map_bits + 7) / 8; }
};

Header parse(const uint8_t *bytes) {
    Header h{};
    h.id_length = bytes[0];
    h.mapped = bytes[1];
    h.type = bytes[2] & static_cast<uint8_t>(~in_runs);
    h.runs = bytes[2] & in_runs;
    h.map_first = little16(bytes + 3);
    h.map_length = little16(bytes + 5);
    h.map_bits = bytes[7];
    h.width = little16(bytes + 12);
    h.height = little16(bytes + 14);
    h.depth = bytes[16];
    h.attributes = bytes[17] & 15;
    h.right_to_left = bytes[17] & from_right;
    h.top_down = bytes[17] & from_top;
    return h;
}

bool is_color_depth(uint32_t bits) { return bits == 15 || bits == 16 || bits == 24 || bits == 32; }

// Programs disagree on how to count attribute bits: there are pixels of 32 bits with 4 or 8 of them, and of 24 bits
// with 8. So the count is a hint: 0 means that the fourth byte or the top bit is not alpha, any other number that it
// is.
bool plausible_pixels(const Header &h) {
    if (h.attributes > 8) return false;
    return h.type == color ? is_color_depth(h.depth) : h.depth == 8 || h.depth == 16;
}

bool plausible(const uint8_t *bytes) {
    const Header h = parse(bytes);
    if (bytes[1] > 1 || h.type < indexed || h.type > grey || !h.width || !h.height || bytes[17] >> 6) return false;
    const bool map = h.mapped ? h.map_length && is_color_depth(h.map_bits)
                              : !h.map_first && !h.map_length && (!h.map_bits || is_color_depth(h.map_bits));
    return map && (h.mapped || h.type != indexed) && plausible_pixels(h);
}

// The format that has the file's pixel layout; for grey with alpha, the format that it is expanded to.
img_format format_of(const Header &h) {
    if (h.type == indexed) return FMT_PAL8;
    if (h.depth == 8) return FMT_G8;
    if (h.type == grey) return FMT_ARGB8888HE;
    if (h.depth == 24) return FMT_BGR888;
    if (h.depth == 32) return word(h.attributes ? FMT_ARGB8888HE : FMT_XRGB8888HE);
    return word(h.attributes && h.depth == 16 ? FMT_ARGB1555HE : FMT_XRGB1555HE);
}

// ---- Decoding ----

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start);

    Reader(io_handle &stream, Decoding &picture) : BaseReader(stream, picture), input_(stream) {}
    img_status frame();

private:
    img_status read_map();
    img_status read_rows();
    bool read_packets(uint8_t *out, uint64_t left);

    Input input_;
    Header header_{};
    uint32_t palette_[256];
    uint32_t ncolors_ = 0;
    Bytes line_;             // a row of grey with alpha
    uint32_t in_packet_ = 0; // pixels left in the packet
    bool repeated_ = false;  // all of them are
    uint8_t pixel_[4];       // this one
};

bool Reader::recognises(const Signature &start) { return start.length >= header_size && plausible(start.bytes); }

uint32_t map_entry(const uint8_t *at, uint32_t bytes, uint32_t attributes) {
    if (bytes > 2) {
        const uint32_t alpha = bytes == 4 && attributes ? at[3] : 0xffu;
        return alpha << 24 | uint32_t{at[2]} << 16 | uint32_t{at[1]} << 8 | at[0];
    }
    const uint32_t value = little16(at);
    const auto scaled = [value](int shift) { return ((value >> shift & 31) * 255 + 15) / 31; };
    const uint32_t alpha = attributes == 1 && !(value & 0x8000) ? 0 : 0xff;
    return alpha << 24 | scaled(10) << 16 | scaled(5) << 8 | scaled(0);
}

// A map may start at an index above 0, and a file whose pixels are not indices may have one.
img_status Reader::read_map() {
    const uint32_t bytes = header_.entry_bytes();
    std::fill(palette_, palette_ + 256, 0xff000000);
    for (uint32_t i = 0; i < header_.map_length; i++) {
        if (!input_.need(bytes, uint64_t{header_.map_length - i} * bytes)) return damaged;
        const uint32_t index = header_.map_first + i;
        if (index < 256) palette_[index] = map_entry(input_.data(), bytes, header_.attributes);
        input_.take(bytes);
    }
    if (header_.type == indexed) ncolors_ = std::min(header_.map_first + header_.map_length, 256u);
    return ok;
}

void repeat(uint8_t *out, uint32_t count, const uint8_t *pixel, size_t bytes) {
    if (bytes == 1)
        memset(out, *pixel, count);
    else
        for (uint32_t i = 0; i < count; i++, out += bytes)
            for (size_t byte = 0; byte < bytes; byte++) out[byte] = pixel[byte];
}

// Reads a row of pixels from packets, which may go on in the next row. left: pixels missing from the picture, this row
// included. A packet holds at most 128 of them and takes at least one byte and one pixel.
bool Reader::read_packets(uint8_t *out, uint64_t left) {
    const size_t bytes = header_.pixel_bytes();
    for (uint32_t x = 0; x < header_.width;) {
        if (!in_packet_) {
            if (!input_.need(1 + bytes, (left - x + max_packet - 1) / max_packet * (1 + bytes))) return false;
            repeated_ = input_.data()[0] & 0x80;
            in_packet_ = (input_.data()[0] & 0x7fu) + 1;
            memcpy(pixel_, input_.data() + 1, bytes);
            input_.take(repeated_ ? 1 + bytes : 1);
        }
        const uint32_t count = std::min(in_packet_, header_.width - x);
        if (repeated_)
            repeat(out, count, pixel_, bytes);
        else if (!input_.read(out, count * bytes))
            return false;
        out += count * bytes;
        x += count;
        in_packet_ -= count;
    }
    return true;
}

void mirror(uint8_t *row, uint32_t width, size_t bytes) {
    for (uint8_t *left = row, *right = row + (width - size_t{1}) * bytes; left < right; left += bytes, right -= bytes)
        std::swap_ranges(left, left + bytes, right);
}

void expand_grey(const uint8_t *in, uint32_t count, bool alpha, uint8_t *argb) {
    for (uint32_t x = 0; x < count; x++, in += 2, argb += 4) {
        const uint32_t pixel = uint32_t{alpha ? in[1] : uint8_t{0xff}} << 24 | in[0] * 0x10101u;
        memcpy(argb, &pixel, sizeof pixel);
    }
}

img_status Reader::read_rows() {
    const size_t bytes = size_t{header_.width} * header_.pixel_bytes();
    const bool grey_alpha = header_.type == grey && header_.depth == 16;
    if (grey_alpha && !(line_ = make_bytes(bytes))) return no_memory;
    for (uint32_t done = 0; done < header_.height; done++) {
        const uint32_t y = header_.top_down ? done : header_.height - 1 - done;
        uint8_t *const row = picture_.row(y), *const in = grey_alpha ? line_.get() : row;
        const uint64_t left = uint64_t{header_.height - done} * header_.width;
        if (!(header_.runs ? read_packets(in, left) : input_.read(in, bytes))) return damaged;
        if (header_.right_to_left) mirror(in, header_.width, header_.pixel_bytes());
        if (grey_alpha) expand_grey(in, header_.width, header_.attributes, row);
        if (const img_status status = picture_.deliver(y)) return status;
    }
    return ok;
}

img_status Reader::frame() {
    uint8_t bytes[header_size];
    if (!input_.read(bytes, sizeof bytes) || !plausible(bytes)) return damaged;
    header_ = parse(bytes);
    if (header_.type == indexed && header_.depth == 16) return unsupported;
    if (!input_.discard(header_.id_length)) return damaged;
    if (const img_status status = read_map()) return status;
    const uint32_t sample = header_.type == color && header_.depth <= 16 ? 5 : 8;
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, sample)) return status;
    const img_format format = format_of(header_);
    if (const img_status status = picture_.choose(header_.width, header_.height, ncolors_, &format, 1)) return status;
    if (const img_status status = picture_.setup(header_.top_down ? IMG_SETUP_TOPDOWN : IMG_SETUP_BOTTOMUP))
        return status;
    if (header_.type == indexed)
        if (const img_status status = picture_.set_palette(palette_)) return status;
    return read_rows();
}

// ---- Encoding ----

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = false;

    using BaseWriter::BaseWriter;
    img_status frame();

private:
    img_status choose();
    img_status write_header();
    img_status write_map(uint32_t ncolors, bool alpha);
    img_status write_rows();

    TransparentRows transparent_;
    bool beside_ = false, runs_ = true;
    img_format format_ = 0; // of the file
    uint32_t palette_[max_colors];
    Bytes line_;
};

img_status Writer::choose() {
    const img_record &image = picture_.image();
    beside_ = image.format != FMT_PAL8 && TransparentRows::needed(image);
    Offer offer;
    if (beside_) {
        offer.add(TransparentRows::offer(image));
    } else {
        for (const img_format format_of_bytes : {FMT_PAL8, FMT_G8, FMT_BGR888}) offer.add(format_of_bytes);
        offer.add(word(FMT_ARGB8888HE));
        // A picture of 5-6-5 would lose a bit of green.
        if (bits_per_pixel(image.format) != 16 || !(image.format & IMG_FMT_ALT))
            for (const img_format narrow : {FMT_XRGB1555HE, FMT_ARGB1555HE}) offer.add(word(narrow));
    }
    if (const img_status status = picture_.choose_and_set_up(offer.formats(), offer.count())) return status;
    format_ = beside_ ? word(FMT_ARGB8888HE) : image.format;
    return beside_ ? transparent_.begin(picture_, format_) : ok;
}

// Writes the palette with its transparency: alpha, a key, or none.
img_status Writer::write_map(uint32_t ncolors, bool alpha) {
    uint8_t map[256 * 4];
    const size_t bytes = alpha ? 4 : 3;
    for (uint32_t i = 0; i < ncolors; i++)
        for (size_t byte = 0; byte < bytes; byte++)
            map[i * bytes + byte] = static_cast<uint8_t>(palette_[i] >> 8 * byte);
    return write_all(stream_, map, ncolors * bytes) ? ok : write_failed;
}

img_status Writer::write_header() {
    const img_record &image = picture_.image();
    const bool map = format_ & IMG_FMT_PAL;
    const bool map_alpha = map && picture_.has(IMG_F_TRANSP | IMG_F_PAL_ALPHA);
    uint32_t attributes = map_alpha ? 8 : 0;
    if (format_ & IMG_FMT_ALPHA) attributes = bits_per_pixel(format_) == 16 ? 1 : 8;
    if (map)
        if (const img_status status = picture_.get_palette(palette_)) return status;
    uint8_t bytes[header_size] = {};
    bytes[1] = map;
    bytes[2] = static_cast<uint8_t>((map ? indexed : format_ == FMT_G8 ? grey : color) | (runs_ ? in_runs : 0));
    if (map) {
        put_little16(bytes + 5, image.ncolors);
        bytes[7] = map_alpha ? 32 : 24;
    }
    put_little16(bytes + 12, image.width);
    put_little16(bytes + 14, image.height);
    bytes[16] = static_cast<uint8_t>(bits_per_pixel(format_));
    bytes[17] = static_cast<uint8_t>(attributes | from_top); // some readers show bottom-up pictures upside down
    if (!write_all(stream_, bytes, sizeof bytes)) return write_failed;
    return map ? write_map(image.ncolors, map_alpha) : ok;
}

// Packets end with the row, as some readers expect. A run of two equal bytes is not worth a packet of its own.
template <size_t bytes> size_t pack_row(const uint8_t *row, uint32_t width, uint8_t *begin) {
    const auto equal = [row](size_t a, size_t b) { return memcmp(row + a * bytes, row + b * bytes, bytes) == 0; };
    const auto repeats = [&](size_t x) {
        constexpr size_t more = bytes == 1 ? 2 : 1;
        return x + more < width && equal(x, x + 1) && (more == 1 || equal(x, x + more));
    };
    uint8_t *out = begin;
    for (size_t x = 0, count; x < width; x += count) {
        const size_t most = std::min<size_t>(max_packet, width - x);
        const bool run = repeats(x);
        count = 1;
        while (count < most && (run ? equal(x, x + count) : !repeats(x + count))) count++;
        *out++ = static_cast<uint8_t>((run ? 0x80 : 0) | (count - 1));
        const size_t length = run ? bytes : count * bytes;
        memcpy(out, row + x * bytes, length);
        out += length;
    }
    return static_cast<size_t>(out - begin);
}

img_status Writer::write_rows() {
    constexpr size_t (*pack[])(const uint8_t *, uint32_t, uint8_t *) = {pack_row<1>, pack_row<2>, pack_row<3>,
                                                                        pack_row<4>};
    const img_record &image = picture_.image();
    const size_t bytes = bits_per_pixel(format_) / 8;
    if (runs_ && !(line_ = make_bytes(image.width * (bytes + 1)))) return no_memory;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = beside_ ? transparent_.fetch(picture_, y) : picture_.fetch(y);
        if (!row) return bad_record;
        const size_t length = runs_ ? pack[bytes - 1](row, image.width, line_.get()) : image.width * bytes;
        if (!write_all(stream_, runs_ ? line_.get() : row, length)) return write_failed;
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return ok;
}

img_status Writer::frame() {
    img_option rle = switch_option("rle", "write runs_ of equal pixels once", true);
    if (const img_status status = picture_.ask(rle)) return status;
    runs_ = rle.value != 0;
    const uint32_t side = std::max(picture_.image().width, picture_.image().height);
    if (side > UINT16_MAX) return picture_.refuse({"side", side, UINT16_MAX});
    if (const img_status status = choose()) return status;
    if (const img_status status = write_header()) return status;
    if (const img_status status = write_rows()) return status;
    return write_all(stream_, footer, sizeof footer) ? ok : write_failed;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) { return functions_of<Reader, Writer>(table, size); }
