// SPDX-License-Identifier: MIT
//
// The reading side of the GIF module. It does without giflib, which refuses files that other readers accept (more than 8
// bits for an index, bytes of 0 between pictures) and loses up to 255 bytes before a cut.
#include "modules/common/bytes.h"
#include "modules/common/exif.h"
#include "modules/common/text.h"
#include "modules/gif/gif.h"

#include <algorithm>
#include <string.h>
#include <utility>

namespace gif {

namespace {

constexpr uint32_t max_pictures = 10'000;
constexpr uint32_t max_zeros = 256; // between two pictures

constexpr uint8_t extension_follows = '!', picture_follows = ',', trailer = ';';
constexpr uint8_t control_label = 0xf9, comment_label = 0xfe, application_label = 0xff;
constexpr size_t application_size = 11; // of the name at the head of an application's extension

bool is_signature(const uint8_t *bytes) { return !memcmp(bytes, "GIF87a", 6) || !memcmp(bytes, "GIF89a", 6); }
Words make_words(size_t count) { return Words(static_cast<uint32_t *>(calloc(count, sizeof(uint32_t)))); }

// The order in which a picture's rows are stored.
class RowOrder {
public:
    RowOrder(bool interlaced, uint32_t height) : height_(height), pass_(interlaced ? 0 : 4) {}
    uint32_t row() const { return row_; }
    void advance() {
        constexpr uint32_t start[] = {0, 4, 2, 1}, step[] = {8, 8, 4, 2, 1};
        row_ += step[pass_];
        while (row_ >= height_ && pass_ < 3) row_ = start[++pass_];
    }

private:
    uint32_t height_, pass_, row_ = 0;
};

// An XMP packet is not stored in blocks: it follows the name verbatim, so its characters are read as block lengths.
// After it, bytes that count down to 0 lead readers that follow those lengths to the end of the extension. Returns
// the length of the packet, 0 if there is no countdown.
size_t xmp_length(const uint8_t *bytes, size_t length) {
    constexpr size_t countdown = 257; // from 1 over 255, 254 and so on to 0; another 0 ends the blocks
    if (length < countdown) return 0;
    const uint8_t *at = bytes + (length - countdown);
    bool same = *at == 1;
    for (size_t i = 1; i < countdown; i++) same = same && at[i] == 256 - i;
    return same ? length - countdown : 0;
}

// Some writers put the packet in blocks like everything else.
size_t drop_lengths(uint8_t *bytes, size_t length) {
    size_t out = 0;
    for (size_t at = 0; at < length;) {
        const size_t block = bytes[at++];
        memmove(bytes + out, bytes + at, block);
        at += block;
        out += block;
    }
    return out;
}

void draw(const uint32_t *palette, const uint8_t *indices, uint32_t count, uint32_t *out) {
    for (uint32_t x = 0; x < count; x++) {
        const uint32_t color = palette[indices[x]];
        out[x] = color >> 24 ? color : out[x];
    }
}

} // namespace

// ---- The head of the file ----

bool Reader::read_colors(Colors &map, uint8_t flags) {
    map.depth = map.count = 0;
    if (!(flags & 0x80)) return true;
    map.depth = (flags & 7u) + 1;
    map.count = 1u << map.depth;
    return read(map.rgb, size_t{3} * map.count);
}

bool Reader::recognises(const Signature &start) { return start.length >= 6 && is_signature(start.bytes); }

img_status Reader::read_header() {
    uint8_t header[13];
    if (!read(header, sizeof header)) return damaged;
    if (!is_signature(header)) return wrong_format;
    width_ = little16(header + 6);
    height_ = little16(header + 8);
    return read_colors(global_, header[10]) ? ok : damaged;
}

// ---- Extensions and picture headers ----

img_status Reader::read_control() {
    while (blocks_.next()) {
        if (blocks_.length() != 4) continue;
        const uint8_t *bytes = blocks_.bytes();
        const uint8_t disposal = bytes[0] >> 2 & 7;
        control_.present = true;
        control_.disposal = disposal <= 3 ? Disposal{disposal} : Disposal::unspecified;
        control_.delay = little16(bytes + 1);
        control_.has_transparent = bytes[0] & 1;
        control_.transparent = bytes[3];
    }
    return blocks_.cut() ? damaged : ok;
}

// Keeps the contents of the blocks. What exceeds the limit for reports is only counted.
img_status Reader::keep_blocks(Keep what) {
    kept_length_ = 0;
    if (!picture_.listens()) return blocks_.skip() ? ok : damaged;
    while (blocks_.next()) {
        const size_t lengths = what == Keep::contents_and_lengths ? 1 : 0,
                     end = kept_length_ + lengths + blocks_.length();
        if (end <= max_block) {
            if (!kept_.grow(end, max_block)) return no_memory;
            uint8_t *out = kept_.data() + kept_length_;
            if (lengths) *out++ = static_cast<uint8_t>(blocks_.length());
            memcpy(out, blocks_.bytes(), blocks_.length());
        }
        kept_length_ = end;
    }
    return blocks_.cut() ? damaged : ok;
}

img_status Reader::read_comment() {
    if (const img_status status = keep_blocks(Keep::contents)) return status;
    if (kept_length_ > max_block) return picture_.warn("a comment of more than 4 MiB was left out");
    return kept_length_ ? report_text(picture_, "Comment", kept_.data(), kept_length_) : ok;
}

img_status Reader::read_profile() {
    if (const img_status status = keep_blocks(Keep::contents)) return status;
    return kept_length_ ? report_block(picture_, IMG_VALUE_ICC, kept_.data(), kept_length_) : ok;
}

img_status Reader::read_xmp() {
    if (const img_status status = keep_blocks(Keep::contents_and_lengths)) return status;
    if (!kept_length_) return ok;
    size_t length = kept_length_;
    if (length <= max_block) {
        length = xmp_length(kept_.data(), kept_length_);
        if (!length) length = drop_lengths(kept_.data(), kept_length_);
    }
    return report_block(picture_, IMG_VALUE_XMP, kept_.data(), length);
}

// The file says how often the animation is repeated; 0 means for ever.
img_status Reader::report_loops() {
    while (blocks_.next()) {
        if (blocks_.length() != 3 || blocks_.bytes()[0] != 1) continue;
        const uint32_t repeated = little16(blocks_.bytes() + 1);
        if (const img_status status = picture_.report(IMG_VALUE_LOOPS, repeated ? repeated + 1 : 0)) return status;
    }
    return blocks_.cut() ? damaged : ok;
}

img_status Reader::read_application() {
    if (!blocks_.next()) return blocks_.cut() ? damaged : ok;
    const auto is = [this](const char *name) {
        return blocks_.length() == application_size && !memcmp(blocks_.bytes(), name, application_size);
    };
    if (is("NETSCAPE2.0") || is("ANIMEXTS1.0")) return report_loops();
    if (is("ICCRGBG1012")) return read_profile();
    if (is("XMP DataXMP")) return read_xmp();
    return blocks_.skip() ? ok : damaged;
}

img_status Reader::read_extension() {
    uint8_t label;
    if (!read(&label, 1)) return damaged;
    blocks_.begin(stream_);
    switch (label) {
    case control_label:
        return read_control();
    case comment_label:
        return read_comment();
    case application_label:
        return read_application();
    default:
        return blocks_.skip() ? ok : damaged;
    }
}

// Takes the colours of the current picture. A transparent index may be without a colour in the file.
img_status Reader::take_palette() {
    const Colors &map = local_.count ? local_ : global_;
    if (!map.count) return damaged;
    ncolors_ = control_.has_transparent ? std::max(map.count, control_.transparent + 1u) : map.count;
    for (uint32_t i = 0; i < ncolors_; i++) {
        const uint8_t *rgb = map.rgb + size_t{3} * i;
        const uint32_t color = i < map.count ? uint32_t{rgb[0]} << 16 | uint32_t{rgb[1]} << 8 | rgb[2] : 0;
        palette_[i] = control_.has_transparent && i == control_.transparent ? color : color | 0xff000000;
    }
    return picture_.report(IMG_VALUE_DEPTH, map.depth);
}

img_status Reader::read_picture_header() {
    uint8_t header[9];
    if (!read(header, sizeof header)) return damaged;
    image_ = {little16(header), little16(header + 2), little16(header + 4), little16(header + 6)};
    interlaced_ = header[8] & 0x40;
    if (!read_colors(local_, header[8]) || !read(&index_bits_, 1)) return damaged;
    if (!image_.width || !image_.height || index_bits_ > Lzw::most_index_bits) return damaged;
    if (const img_status status = picture_.check_size(image_.width, image_.height)) return status;
    if (pictures_ == max_pictures) return picture_.refuse({"frames", max_pictures + 1, max_pictures});
    // Some writers leave the size of the canvas open.
    if (!width_) width_ = image_.left + image_.width;
    if (!height_) height_ = image_.top + image_.height;
    if (const img_status status = take_palette()) return status;
    return control_.present ? picture_.report(IMG_VALUE_DELAY, control_.delay * 10) : ok;
}

// Goes to the next picture. A file that ends between pictures is only missing its trailer.
img_status Reader::next_picture() {
    control_ = {};
    for (uint32_t zeros = 0;;) {
        uint8_t follows;
        if (!read(&follows, 1) || follows == trailer) return pictures_ ? wrong_format : damaged;
        if (follows == picture_follows) return read_picture_header();
        if (follows == extension_follows) {
            if (const img_status status = read_extension()) return status;
        } else if (follows || ++zeros > max_zeros) { // writers that end a chain of blocks twice leave a zero
            return damaged;
        }
    }
}

// ---- Rows ----

// Reads all rows, and calls use for each with its position in the picture.
template <typename Use> img_status Reader::read_lines(Use use) {
    blocks_.begin(stream_);
    codes_.begin(blocks_, index_bits_);
    RowOrder order(interlaced_, image_.height);
    for (uint32_t i = 0; i < image_.height; i++, order.advance()) {
        if (codes_.read(line_, image_.width) != image_.width) return damaged;
        if (!indices_below(line_, 8, image_.width, ncolors_)) return damaged;
        if (const img_status status = use(order.row())) return status;
        if (const img_status status = picture_.keep_alive()) return status; // some lines make no row
    }
    return blocks_.skip() ? ok : damaged;
}

// ---- The first picture, as indices ----

img_status Reader::decode_indices() {
    constexpr img_format format = FMT_PAL8;
    if (const img_status status = picture_.choose(width_, height_, ncolors_, &format, 1)) return status;
    if (const img_status status = picture_.setup(interlaced_ ? 0 : IMG_SETUP_TOPDOWN)) return status;
    if (const img_status status = picture_.set_palette(palette_)) return status;
    const bool stays = control_.disposal != Disposal::background && control_.disposal != Disposal::previous;
    if (stays) {
        const size_t bytes = size_t{width_} * height_;
        if (const img_status status = picture_.hold(bytes)) return status;
        if (!(first_ = make_bytes(bytes))) return no_memory;
    }
    memcpy(first_palette_, palette_, sizeof first_palette_);
    return read_lines([&](uint32_t y) {
        if (y >= height_) return img_status{ok};
        memcpy(picture_.row(y), line_, width_);
        if (stays) memcpy(first_.get() + size_t{y} * width_, line_, width_);
        return picture_.deliver(y);
    });
}

// ---- Further pictures, drawn on the canvas ----

img_status Reader::make_canvas() {
    const size_t pixels = size_t{width_} * height_;
    if (const img_status status = picture_.hold(pixels * sizeof(uint32_t))) return status;
    canvas_ = make_words(pixels);
    if (!canvas_) return no_memory;
    if (!first_) return ok;
    for (uint32_t y = 0; y < height_; y++)
        draw(first_palette_, first_.get() + size_t{y} * width_, width_, canvas_at(0, y));
    first_.reset();
    picture_.release(pixels);
    return ok;
}

void Reader::dispose_of_last() {
    const size_t bytes = size_t{area_.width} * sizeof(uint32_t);
    for (uint32_t y = 0; y < area_.height; y++) {
        uint32_t *row = canvas_at(area_.left, area_.top + y);
        if (disposal_ == Disposal::background) memset(row, 0, bytes);
        if (disposal_ == Disposal::previous) memcpy(row, hidden_.get() + size_t{y} * area_.width, bytes);
    }
    if (hidden_) picture_.release(bytes * area_.height);
    hidden_.reset();
}

// Notes the area that the current picture covers, and saves what it shows if that is to be restored.
img_status Reader::take_area() {
    const uint32_t left = std::min(image_.left, width_), top = std::min(image_.top, height_);
    area_ = {left, top, std::min(image_.width, width_ - left), std::min(image_.height, height_ - top)};
    disposal_ = control_.disposal;
    if (!area_.width) area_.height = 0;
    if (disposal_ != Disposal::previous || !area_.height) return ok;
    const size_t pixels = size_t{area_.width} * area_.height;
    if (const img_status status = picture_.hold(pixels * sizeof(uint32_t))) return status;
    hidden_ = make_words(pixels);
    if (!hidden_) return no_memory;
    for (uint32_t y = 0; y < area_.height; y++)
        memcpy(hidden_.get() + size_t{y} * area_.width, canvas_at(left, top + y), area_.width * sizeof(uint32_t));
    return ok;
}

// Hands over the rows before end that have not been handed over.
img_status Reader::deliver_canvas(uint32_t end) {
    for (; shown_ < end; shown_++) {
        memcpy(picture_.row(shown_), canvas_at(0, shown_), size_t{width_} * sizeof(uint32_t));
        if (const img_status status = picture_.deliver(shown_)) return status;
    }
    return ok;
}

// Of a damaged picture, the rows that could be decoded are shown on top of what was there before.
img_status Reader::decode_on_canvas() {
    constexpr img_format format = FMT_ARGB8888HE;
    if (const img_status status = picture_.choose(width_, height_, 0, &format, 1)) return status;
    if (const img_status status = picture_.setup()) return status;
    if (canvas_)
        dispose_of_last();
    else if (const img_status status = make_canvas())
        return status;
    if (const img_status status = take_area()) return status;
    shown_ = 0;
    const img_status drawn = read_lines([&](uint32_t y) {
        if (y >= area_.height) return img_status{ok};
        draw(palette_, line_, area_.width, canvas_at(area_.left, area_.top + y));
        if (interlaced_) return img_status{ok};
        return deliver_canvas(area_.top + y + 1);
    });
    if (drawn && drawn != damaged) return drawn;
    const img_status status = deliver_canvas(height_);
    return status ? status : drawn;
}

img_status Reader::decode_picture() {
    if (!std::exchange(header_read_, true))
        if (const img_status status = read_header()) return status;
    if (const img_status status = next_picture()) return status;
    return !pictures_ && covers_canvas() ? decode_indices() : decode_on_canvas();
}

img_status Reader::frame() {
    if (ended_) return ended_;
    ended_ = decode_picture();
    pictures_++;
    return ended_;
}

} // namespace gif
