// SPDX-License-Identifier: MIT
//
// The reading side of the JPEG module.
#include "modules/common/text.h"
#include "modules/jpeg/jpeg.h"

#include <algorithm>
#include <string.h>

namespace jpeg {

namespace {

// Of a picture in several scans. A scan costs as much as the blocks that it visits, though a few bytes describe it; the
// largest colour picture takes not half of this in the ten scans that encoders write.
constexpr int max_scans = 500;
constexpr uint64_t max_scan_blocks = uint64_t{1} << 27;
constexpr size_t max_kept = 8 * 1024 * 1024; // bytes of all markers with metadata

void nothing(j_decompress_ptr) {}

// Blocks of a component, as many as its whole scan visits and libjpeg keeps.
uint64_t blocks_of(const jpeg_component_info &component) {
    const auto padded = [](uint64_t count, int factor) {
        const auto unit = static_cast<uint64_t>(factor);
        return (count + unit - 1) / unit * unit;
    };
    return padded(component.width_in_blocks, component.h_samp_factor) *
           padded(component.height_in_blocks, component.v_samp_factor);
}

// a * b / 255, rounded to the nearest.
uint32_t scaled(uint32_t a, uint32_t b) {
    const uint32_t product = a * b + 128;
    return (product + (product >> 8)) >> 8;
}

// Files hold how little ink there is: the programs that write such pictures agree on it, with or without a marker.
void inks_to_rgb(const uint8_t *inks, uint8_t *rgb, uint32_t count) {
    for (uint32_t x = 0; x < count; x++, inks += 4, rgb += 3)
        for (uint32_t i = 0; i < 3; i++) rgb[i] = static_cast<uint8_t>(scaled(inks[i], inks[3]));
}

} // namespace

bool Reader::recognises(const Signature &start) {
    return start.length >= 4 && memcmp(start.bytes, "\xff\xd8\xff", 3) == 0 && start.bytes[3] >= 0xc0;
}

// ---- Bytes ----

boolean Reader::fill(j_decompress_ptr libjpeg) {
    auto &reader = state_of<Reader>(libjpeg);
    if (const img_status status = reader.picture_.keep_alive()) reader.leave(status);
    size_t length = reader.stream_.read(reader.stream_.self, reader.block_, block_size);
    if (!length) { // the picture must end some time
        reader.ended_ = true;
        reader.block_[0] = 0xff;
        reader.block_[1] = JPEG_EOI;
        length = 2;
    }
    reader.source_.next_input_byte = reader.block_;
    reader.source_.bytes_in_buffer = length;
    return TRUE;
}

void Reader::skip(j_decompress_ptr libjpeg, long count) {
    auto &reader = state_of<Reader>(libjpeg);
    jpeg_source_mgr &source = reader.source_;
    for (auto left = static_cast<size_t>(std::max(count, 0L)); left && !reader.ended_;) {
        if (!source.bytes_in_buffer) fill(libjpeg);
        const size_t now = std::min(left, source.bytes_in_buffer);
        source.next_input_byte += now;
        source.bytes_in_buffer -= now;
        left -= now;
    }
}

void Reader::copy_bytes(uint8_t *to, size_t count) {
    while (count) {
        if (!source_.bytes_in_buffer) fill(&libjpeg_);
        const size_t now = std::min(count, source_.bytes_in_buffer);
        memcpy(to, source_.next_input_byte, now);
        source_.next_input_byte += now;
        source_.bytes_in_buffer -= now;
        to += now;
        count -= now;
    }
}

// Called between the rows of a scan, so also before its first one.
void Reader::watch_scans(j_common_ptr common) {
    auto &reader = state_of<Reader>(common);
    const jpeg_decompress_struct &libjpeg = reader.libjpeg_;
    if (const img_status status = reader.picture_.keep_alive()) reader.leave(status);
    if (libjpeg.input_scan_number == reader.scan_) return;
    const int scan = reader.scan_ = libjpeg.input_scan_number;
    if (scan > max_scans) reader.leave(reader.picture_.refuse({"scans", static_cast<uint64_t>(scan), max_scans}));
    for (int i = 0; i < libjpeg.comps_in_scan; i++) reader.scan_blocks_ += blocks_of(*libjpeg.cur_comp_info[i]);
    if (reader.scan_blocks_ > max_scan_blocks && jpeg_has_multiple_scans(&reader.libjpeg_))
        reader.leave(reader.picture_.refuse({"blocks in all scans", reader.scan_blocks_, max_scan_blocks}));
}

// ---- Metadata ----

// Keeps a marker, or reads over it if there are too many.
boolean Reader::keep_marker(j_decompress_ptr libjpeg) {
    auto &reader = state_of<Reader>(libjpeg);
    uint8_t length_bytes[2];
    reader.copy_bytes(length_bytes, 2);
    const size_t length = size_t{length_bytes[0]} << 8 | length_bytes[1];
    if (length < 2) ERREXIT(libjpeg, JERR_BAD_LENGTH);
    const size_t size = reader.kept_size_ + 3 + length - 2;
    if (size > max_kept) {
        reader.overfull_ = true;
        skip(libjpeg, static_cast<long>(length - 2));
        return TRUE;
    }
    if (!reader.kept_.grow(size)) reader.leave(no_memory);
    uint8_t *at = reader.kept_.data() + reader.kept_size_;
    *at++ = static_cast<uint8_t>(libjpeg->unread_marker);
    *at++ = static_cast<uint8_t>((length - 2) >> 8);
    *at++ = static_cast<uint8_t>(length - 2);
    reader.copy_bytes(at, length - 2);
    reader.kept_size_ = size;
    return TRUE;
}

struct Reader::Marker {
    int code;
    const uint8_t *content;
    size_t size;

    // What follows the mark, if it begins with that.
    bool strip(const char *mark, size_t length) {
        if (size < length || memcmp(content, mark, length) != 0) return false;
        content += length;
        size -= length;
        return true;
    }
};

template <typename Visit> img_status Reader::for_each_marker(Visit visit) const {
    for (const uint8_t *at = kept_.data(), *end = at + kept_size_; at < end;) {
        const size_t size = size_t{at[1]} << 8 | at[2];
        if (const img_status status = visit(Marker{at[0], at + 3, size})) return status;
        at += 3 + size;
    }
    return ok;
}

// A profile comes in numbered parts, in any order.
img_status Reader::report_profile() const {
    size_t total = 0, parts = 0, sizes[256] = {};
    const uint8_t *contents[256] = {};
    for_each_marker([&](Marker marker) {
        if (marker.code != JPEG_APP0 + 2 || !marker.strip(icc_mark, sizeof icc_mark) || marker.size < 2) return ok;
        const uint8_t number = marker.content[0];
        if (contents[number]) return ok;
        parts = std::max<size_t>(parts, marker.content[1]);
        contents[number] = marker.content + 2;
        total += sizes[number] = marker.size - 2;
        return ok;
    });
    for (size_t i = 1; i <= parts; i++)
        if (!contents[i]) return picture_.warn("a part of its colour profile is missing");
    if (!parts || !total) return ok;
    const Bytes profile = make_bytes(total);
    if (!profile) return no_memory;
    uint8_t *out = profile.get();
    for (size_t i = 1; i <= parts; i++) {
        memcpy(out, contents[i], sizes[i]);
        out += sizes[i];
    }
    return report_block(picture_, IMG_VALUE_ICC, profile.get(), static_cast<size_t>(out - profile.get()));
}

bool Reader::resolution(img_resolution &found) const {
    const auto unit = libjpeg_.density_unit;
    if (!libjpeg_.saw_JFIF_marker || (unit != 1 && unit != 2)) return false;
    const double per_metre = unit == 1 ? per_metre_of_inch : per_metre_of_centimetre;
    found = {libjpeg_.X_density * per_metre, libjpeg_.Y_density * per_metre};
    return true;
}

img_status Reader::report_markers(bool resolution_known) const {
    bool exif = false;
    return for_each_marker([&](Marker marker) {
        if (marker.code == JPEG_COM) return report_text(picture_, "Comment", marker.content, marker.size);
        if (marker.code != JPEG_APP0 + 1) return ok;
        if (!exif && marker.strip(exif_mark, sizeof exif_mark)) {
            exif = true;
            return report_exif(picture_, marker.content, marker.size, resolution_known);
        }
        if (marker.strip(xmp_mark, sizeof xmp_mark))
            return report_block(picture_, IMG_VALUE_XMP, marker.content, marker.size);
        return ok;
    });
}

img_status Reader::report_values() const {
    if (!picture_.listens()) return ok;
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, 8)) return status;
    img_resolution found;
    const bool known = resolution(found);
    if (known)
        if (const img_status status = picture_.report(IMG_VALUE_RESOLUTION, &found, sizeof found)) return status;
    if (const img_status status = report_profile()) return status;
    if (const img_status status = report_markers(known)) return status;
    return overfull_ ? picture_.warn("it holds more than 8 MiB of metadata; not all of it is reported") : ok;
}

// ---- Pixels ----

// Grey made from colours would not be the library's grey, so it is not offered.
img_status Reader::choose() {
    Offer offer;
    const bool inks = libjpeg_.jpeg_color_space == JCS_CMYK || libjpeg_.jpeg_color_space == JCS_YCCK;
    if (libjpeg_.jpeg_color_space == JCS_GRAYSCALE) offer.add(FMT_G8);
    if (inks)
        offer.add(FMT_RGB888);
    else
        offer.add(opaque_layouts);
    const img_status status =
        picture_.choose(libjpeg_.image_width, libjpeg_.image_height, 0, offer.formats(), offer.count());
    libjpeg_.out_color_space = inks ? JCS_CMYK : color_space_of(picture_.record().format);
    return status;
}

// The smallest number of eighths that is not below the size wanted.
void Reader::choose_size() {
    const Size wanted = picture_.wanted();
    const auto enough = [](uint32_t side, uint32_t eighths, uint32_t least) {
        return (uint64_t{side} * eighths + 7) / 8 >= least;
    };
    uint32_t eighths = wanted.width || wanted.height ? 1 : 8;
    while (eighths < 8 && !(enough(libjpeg_.image_width, eighths, wanted.width) &&
                            enough(libjpeg_.image_height, eighths, wanted.height)))
        eighths++;
    libjpeg_.scale_num = eighths;
    libjpeg_.scale_denom = 8;
    jpeg_calc_output_dimensions(&libjpeg_);
    picture_.deliver_at(libjpeg_.output_width, libjpeg_.output_height);
}

// libjpeg keeps the coefficients of all blocks of a picture in several scans.
img_status Reader::hold_coefficients() {
    if (!jpeg_has_multiple_scans(&libjpeg_)) return ok;
    uint64_t blocks = 0;
    for (int i = 0; i < libjpeg_.num_components; i++) blocks += blocks_of(libjpeg_.comp_info[i]);
    return picture_.hold(blocks * sizeof(JBLOCK));
}

img_status Reader::read_rows() {
    for (uint32_t y = 0; y < libjpeg_.output_height; y++) {
        uint8_t *row = inks_ ? inks_.get() : picture_.row(y);
        jpeg_read_scanlines(&libjpeg_, &row, 1);
        // A picture that comes in one scan ends here; of several scans the first ones show all of it.
        if (cut_ && !libjpeg_.progressive_mode && !jpeg_has_multiple_scans(&libjpeg_)) return damaged;
        if (inks_) inks_to_rgb(row, picture_.row(y), libjpeg_.output_width);
        if (const img_status status = picture_.deliver(y)) return status;
    }
    return cut_ ? damaged : ok;
}

img_status Reader::decode() {
    jpeg_create_decompress(&libjpeg_);
    libjpeg_.src = &source_;
    libjpeg_.progress = &monitor_;
    monitor_.progress_monitor = watch_scans;
    if (picture_.listens())
        for (const int marker : {JPEG_APP0 + 1, JPEG_APP0 + 2, JPEG_COM})
            jpeg_set_marker_processor(&libjpeg_, marker, keep_marker);
    failure_ = damaged;
    jpeg_read_header(&libjpeg_, TRUE);
    if (const img_status status = report_values()) return status;
    if (const img_status status = choose()) return status;
    choose_size();
    if (const img_status status = picture_.setup()) return status;
    if (const img_status status = hold_coefficients()) return status;
    if (libjpeg_.out_color_space == JCS_CMYK && !(inks_ = make_bytes(size_t{libjpeg_.output_width} * 4)))
        return no_memory;
    jpeg_start_decompress(&libjpeg_);
    if (const img_status status = read_rows()) return status;
    jpeg_finish_decompress(&libjpeg_);
    if (!errors_.num_warnings) return ok;
    return strict_ ? damaged : picture_.warn(warning_);
}

img_status Reader::frame() {
    img_option strict = switch_option("strict", "refuse files with damage that a picture can be made of");
    if (const img_status status = picture_.ask(strict)) return status;
    strict_ = strict.value;
    begin(reinterpret_cast<j_common_ptr>(&libjpeg_));
    source_.init_source = nothing;
    source_.fill_input_buffer = fill;
    source_.skip_input_data = skip;
    source_.resync_to_restart = jpeg_resync_to_restart;
    source_.term_source = nothing;
    const img_status status = guarded([this] { return decode(); });
    // What follows the picture is not ours.
    if (!ended_) give_back(stream_, source_.next_input_byte, source_.bytes_in_buffer);
    return status;
}

} // namespace jpeg
