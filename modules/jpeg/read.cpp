// SPDX-License-Identifier: MIT
//
// The codec module of JPEG: reading, at an eighth to the whole of the size.
#include "modules/jpeg/jpeg.h"

#include "modules/common/buffer.h"
#include "modules/common/text.h"

#include <algorithm>
#include <string.h>

namespace module {

namespace {

[[noreturn]] void on_error(j_common_ptr codec) {
    auto &state = *static_cast<State *>(codec->client_data);
    switch (codec->err->msg_code) {
    case JERR_OUT_OF_MEMORY:
        state.failure = no_memory;
        break;
    case JERR_ARITH_NOTIMPL:
    case JERR_BAD_PRECISION:
    case JERR_CONVERSION_NOTIMPL:
    case JERR_FRACT_SAMPLE_NOTIMPL:
    case JERR_NOT_COMPILED:
    case JERR_SOF_UNSUPPORTED:
        state.failure = unsupported;
        break;
    default:
        break;
    }
    longjmp(state.jump, 1);
}

// Levels below 0 are warnings, the others traces.
void on_message(j_common_ptr codec, int level) {
    auto &state = *static_cast<State *>(codec->client_data);
    if (level >= 0) return;
    state.cut |= state.ended && codec->err->msg_code == JWRN_HIT_MARKER;
    if (codec->err->num_warnings++ == 0) codec->err->format_message(codec, state.warning);
}

} // namespace

void State::begin(jpeg_common_struct *codec, io_handle *io) {
    stream = io;
    failure = no_memory;
    codec->err = jpeg_std_error(&errors);
    codec->client_data = this;
    errors.error_exit = on_error;
    errors.emit_message = on_message;
}

} // namespace module

using namespace module;

namespace {

// Of a picture in several scans. A scan costs as much as the blocks that it visits, though a few bytes describe it; the
// largest colour picture takes not half of this in the ten scans that encoders write.
constexpr int max_scans = 500;
constexpr uint64_t max_scan_blocks = uint64_t{1} << 27;
constexpr size_t max_kept = 8 * 1024 * 1024; // bytes of all markers with metadata

struct Reader : State {
    jpeg_decompress_struct codec;
    jpeg_source_mgr source;
    jpeg_progress_mgr monitor;
    Decoding picture;
    bool strict;
    bool overfull; // more markers than are kept
    Bytes cmyk;    // a row of four channels
    Buffer kept;   // markers with metadata: code, two bytes of length, content
    size_t kept_size;
    int scan; // the last one whose blocks were counted
    uint64_t scan_blocks;

    ~Reader() { jpeg_destroy_decompress(&codec); }
};

// Out of libjpeg.
[[noreturn]] void stop(Reader &r, img_status status) {
    r.failure = status;
    longjmp(r.jump, 1);
}

// ---- Bytes ----

boolean fill(j_decompress_ptr codec) {
    Reader &r = state_of<Reader>(codec);
    if (const img_status status = r.picture.keep_alive(codec->output_scanline)) stop(r, status);
    size_t length = r.stream->read(r.stream->self, r.block, block_size);
    if (!length) { // the picture must end some time
        r.ended = true;
        r.block[0] = 0xff;
        r.block[1] = JPEG_EOI;
        length = 2;
    }
    r.source.next_input_byte = r.block;
    r.source.bytes_in_buffer = length;
    return TRUE;
}

void skip(j_decompress_ptr codec, long count) {
    Reader &r = state_of<Reader>(codec);
    for (auto left = static_cast<size_t>(std::max(count, 0L)); left && !r.ended;) {
        if (!r.source.bytes_in_buffer) fill(codec);
        const size_t now = std::min(left, r.source.bytes_in_buffer);
        r.source.next_input_byte += now;
        r.source.bytes_in_buffer -= now;
        left -= now;
    }
}

void copy_bytes(Reader &r, uint8_t *to, size_t count) {
    while (count) {
        if (!r.source.bytes_in_buffer) fill(&r.codec);
        const size_t now = std::min(count, r.source.bytes_in_buffer);
        memcpy(to, r.source.next_input_byte, now);
        r.source.next_input_byte += now;
        r.source.bytes_in_buffer -= now;
        to += now;
        count -= now;
    }
}

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

// Called between the rows of a scan, so also before its first one.
void watch_scans(j_common_ptr common) {
    Reader &r = state_of<Reader>(common);
    const jpeg_decompress_struct &codec = r.codec;
    if (const img_status status = r.picture.keep_alive(codec.output_scanline)) stop(r, status);
    if (codec.input_scan_number == r.scan) return;
    r.scan = codec.input_scan_number;
    if (r.scan > max_scans) stop(r, r.picture.refuse({"scans", static_cast<uint64_t>(r.scan), max_scans}));
    for (int i = 0; i < codec.comps_in_scan; i++) r.scan_blocks += blocks_of(*codec.cur_comp_info[i]);
    if (r.scan_blocks > max_scan_blocks && jpeg_has_multiple_scans(&r.codec))
        stop(r, r.picture.refuse({"blocks in all scans", r.scan_blocks, max_scan_blocks}));
}

// ---- Metadata ----

// Keeps a marker, or reads over it if there are too many.
boolean keep_marker(j_decompress_ptr codec) {
    Reader &r = state_of<Reader>(codec);
    uint8_t length_bytes[2];
    copy_bytes(r, length_bytes, 2);
    const size_t length = size_t{length_bytes[0]} << 8 | length_bytes[1];
    if (length < 2) ERREXIT(codec, JERR_BAD_LENGTH);
    const size_t size = r.kept_size + 3 + length - 2;
    if (size > max_kept) {
        r.overfull = true;
        skip(codec, static_cast<long>(length - 2));
        return TRUE;
    }
    if (!r.kept.grow(size)) ERREXIT1(codec, JERR_OUT_OF_MEMORY, 0);
    uint8_t *at = r.kept.data() + r.kept_size;
    *at++ = static_cast<uint8_t>(codec->unread_marker);
    *at++ = static_cast<uint8_t>((length - 2) >> 8);
    *at++ = static_cast<uint8_t>(length - 2);
    copy_bytes(r, at, length - 2);
    r.kept_size = size;
    return TRUE;
}

struct Marker {
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

template <typename Visit> img_status for_each_marker(const Reader &r, Visit visit) {
    for (const uint8_t *at = r.kept.data(), *end = at + r.kept_size; at < end;) {
        const size_t size = size_t{at[1]} << 8 | at[2];
        if (const img_status status = visit(Marker{at[0], at + 3, size})) return status;
        at += 3 + size;
    }
    return ok;
}

// A profile comes in numbered parts, in any order.
img_status report_profile(const Reader &r) {
    size_t total = 0, parts = 0, sizes[256] = {};
    const uint8_t *contents[256] = {};
    for_each_marker(r, [&](Marker marker) {
        if (marker.code != JPEG_APP0 + 2 || !marker.strip(icc_mark, sizeof icc_mark) || marker.size < 2) return ok;
        const uint8_t number = marker.content[0];
        if (contents[number]) return ok;
        parts = std::max<size_t>(parts, marker.content[1]);
        contents[number] = marker.content + 2;
        total += sizes[number] = marker.size - 2;
        return ok;
    });
    for (size_t i = 1; i <= parts; i++)
        if (!contents[i]) return r.picture.warn("a part of its colour profile is missing");
    if (!parts || !total) return ok;
    const Bytes profile = make_bytes(total);
    if (!profile) return no_memory;
    uint8_t *out = profile.get();
    for (size_t i = 1; i <= parts; i++) {
        memcpy(out, contents[i], sizes[i]);
        out += sizes[i];
    }
    return report_block(r.picture, IMG_VALUE_ICC, profile.get(), static_cast<size_t>(out - profile.get()));
}

bool resolution_of(const jpeg_decompress_struct &codec, img_resolution &resolution) {
    if (!codec.saw_JFIF_marker || (codec.density_unit != 1 && codec.density_unit != 2)) return false;
    const double unit = codec.density_unit == 1 ? per_metre_of_inch : per_metre_of_centimetre;
    resolution = {codec.X_density * unit, codec.Y_density * unit};
    return true;
}

img_status report_values(Reader &r) {
    if (!r.picture.listens()) return ok;
    if (const img_status status = r.picture.report(IMG_VALUE_DEPTH, 8)) return status;
    img_resolution resolution;
    const bool known = resolution_of(r.codec, resolution);
    if (known)
        if (const img_status status = r.picture.report(IMG_VALUE_RESOLUTION, &resolution, sizeof resolution))
            return status;
    if (const img_status status = report_profile(r)) return status;
    bool exif = false;
    const img_status status = for_each_marker(r, [&](Marker marker) {
        if (marker.code == JPEG_COM) return report_text(r.picture, "Comment", marker.content, marker.size);
        if (marker.code != JPEG_APP0 + 1) return ok;
        if (!exif && marker.strip(exif_mark, sizeof exif_mark)) {
            exif = true;
            return report_exif(r.picture, marker.content, marker.size, known);
        }
        if (marker.strip(xmp_mark, sizeof xmp_mark))
            return report_block(r.picture, IMG_VALUE_XMP, marker.content, marker.size);
        return ok;
    });
    if (status) return status;
    return r.overfull ? r.picture.warn("it holds more than 8 MiB of metadata; not all of it is reported") : ok;
}

// ---- Pixels ----

// Grey made from colours would not be the library's grey, so it is not offered.
img_status choose(Reader &r) {
    Offer offer;
    const bool inks = r.codec.jpeg_color_space == JCS_CMYK || r.codec.jpeg_color_space == JCS_YCCK;
    if (r.codec.jpeg_color_space == JCS_GRAYSCALE) offer.add(FMT_G8);
    if (inks)
        offer.add(FMT_RGB888);
    else
        offer.add(opaque_layouts);
    const img_status status =
        r.picture.choose(r.codec.image_width, r.codec.image_height, 0, offer.formats(), offer.count());
    r.codec.out_color_space = inks ? JCS_CMYK : color_space_of(r.picture.record().format);
    return status;
}

// The smallest number of eighths that is not below the size wanted.
void choose_size(Reader &r) {
    const Size wanted = r.picture.wanted();
    const auto enough = [](uint32_t side, uint32_t eighths, uint32_t least) {
        return (uint64_t{side} * eighths + 7) / 8 >= least;
    };
    uint32_t eighths = wanted.width || wanted.height ? 1 : 8;
    while (eighths < 8 && !(enough(r.codec.image_width, eighths, wanted.width) &&
                            enough(r.codec.image_height, eighths, wanted.height)))
        eighths++;
    r.codec.scale_num = eighths;
    r.codec.scale_denom = 8;
    jpeg_calc_output_dimensions(&r.codec);
    r.picture.deliver_at(r.codec.output_width, r.codec.output_height);
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

img_status read_rows(Reader &r) {
    const uint32_t width = r.codec.output_width, height = r.codec.output_height;
    for (uint32_t y = 0; y < height; y++) {
        uint8_t *row = r.cmyk ? r.cmyk.get() : r.picture.row(y);
        jpeg_read_scanlines(&r.codec, &row, 1);
        // A picture that comes in one scan ends here; of several scans the first ones show all of it.
        if (r.cut && !r.codec.progressive_mode && !jpeg_has_multiple_scans(&r.codec)) return damaged;
        if (r.cmyk) inks_to_rgb(row, r.picture.row(y), width);
        r.picture.hand_over(y);
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return r.cut ? damaged : ok;
}

// libjpeg keeps the coefficients of all blocks of a picture in several scans.
img_status hold_coefficients(Reader &r) {
    if (!jpeg_has_multiple_scans(&r.codec)) return ok;
    uint64_t blocks = 0;
    for (int i = 0; i < r.codec.num_components; i++) blocks += blocks_of(r.codec.comp_info[i]);
    return r.picture.hold(blocks * sizeof(JBLOCK));
}

img_status decode(Reader &r) {
    jpeg_create_decompress(&r.codec);
    r.codec.src = &r.source;
    r.codec.progress = &r.monitor;
    r.monitor.progress_monitor = watch_scans;
    if (r.picture.listens())
        for (const int marker : {JPEG_APP0 + 1, JPEG_APP0 + 2, JPEG_COM})
            jpeg_set_marker_processor(&r.codec, marker, keep_marker);
    r.failure = damaged;
    jpeg_read_header(&r.codec, TRUE);
    if (const img_status status = report_values(r)) return status;
    if (const img_status status = choose(r)) return status;
    choose_size(r);
    if (const img_status status = r.picture.setup()) return status;
    if (const img_status status = hold_coefficients(r)) return status;
    if (r.codec.out_color_space == JCS_CMYK && !(r.cmyk = make_bytes(size_t{r.codec.output_width} * 4)))
        return no_memory;
    jpeg_start_decompress(&r.codec);
    if (const img_status status = read_rows(r)) return status;
    jpeg_finish_decompress(&r.codec);
    if (!r.errors.num_warnings) return ok;
    return r.strict ? damaged : r.picture.warn(r.warning);
}

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    return signature.length >= 4 && memcmp(signature.bytes, "\xff\xd8\xff", 3) == 0 && signature.bytes[3] >= 0xc0
               ? ok
               : wrong_format;
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **) {
    if (const img_status status = decode_validate(stream)) return status;
    const auto reader = make<Reader>();
    if (!reader) return no_memory;
    Reader &r = *reader;
    r.begin(reinterpret_cast<j_common_ptr>(&r.codec), stream);
    r.source.init_source = nothing;
    r.source.fill_input_buffer = fill;
    r.source.skip_input_data = skip;
    r.source.resync_to_restart = jpeg_resync_to_restart;
    r.source.term_source = nothing;
    r.picture.begin(*callouts, *record);
    img_option strict = switch_option("strict", "refuse files with damage that a picture can be made of");
    if (const img_status status = r.picture.ask(strict)) return status;
    r.strict = strict.value;
    const img_status status = guarded(r, decode);
    // What follows the picture is not ours.
    if (!r.ended) give_back(*stream, r.source.next_input_byte, r.source.bytes_in_buffer);
    return status;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(
        table, size,
        {decode_validate, want_large_buffer, decode_frame, nullptr, want_large_buffer, jpeg_encode_frame, nullptr});
}
