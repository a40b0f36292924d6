// SPDX-License-Identifier: MIT
//
// The codec module of JPEG: writing.
#include "modules/common/text.h"
#include "modules/jpeg/jpeg.h"

#include <algorithm>
#include <string.h>

namespace module {

namespace {

struct Writer : State {
    jpeg_compress_struct codec;
    jpeg_destination_mgr destination;
    Encoding picture;
    Metadata metadata;
    int quality, subsampling; // options
    bool progressive, grey;

    ~Writer() { jpeg_destroy_compress(&codec); }
};

void begin_block(j_compress_ptr codec) {
    Writer &w = state_of<Writer>(codec);
    w.destination.next_output_byte = w.block;
    w.destination.free_in_buffer = block_size;
}

void write_block(Writer &w, size_t size) {
    if (write_all(*w.stream, w.block, size)) return;
    w.failure = write_failed;
    longjmp(w.jump, 1);
}

boolean empty(j_compress_ptr codec) {
    write_block(state_of<Writer>(codec), block_size);
    begin_block(codec);
    return TRUE;
}

void end(j_compress_ptr codec) {
    Writer &w = state_of<Writer>(codec);
    write_block(w, block_size - w.destination.free_in_buffer);
}

img_status ask(Writer &w) {
    img_option quality = number_option("quality", "of the pixels: 100 is best and largest", 1, 100, 85);
    img_option progressive = switch_option("progressive", "in passes, the first of which show all of the picture");
    img_option subsampling =
        choice_option("subsampling", "how colours are stored beside brightness", "444:422:420", 3, 2);
    img_option grey = switch_option("grey", "write grey");
    for (img_option *option : {&quality, &progressive, &subsampling, &grey})
        if (const img_status status = w.picture.ask(*option)) return status;
    w.quality = quality.value;
    w.progressive = progressive.value;
    w.subsampling = subsampling.value;
    w.grey = grey.value;
    return w.metadata.ask(w.picture);
}

// JPEG keeps no transparency, and to drop it is not ours to decide.
img_status choose(Writer &w) {
    const img_record &image = w.picture.image();
    if ((image.format & IMG_FMT_ALPHA) || w.picture.has(IMG_F_TRANSP | IMG_F_PAL_ALPHA)) return no_common_format;
    Offer offer;
    offer.add(FMT_G8);
    if (!w.grey) {
        Offer colors;
        colors.add(opaque_layouts);
        for (uint32_t i = 0; i < colors.count(); i++) offer.add(colors.formats()[i]);
    }
    return w.picture.choose_and_set_up(offer.formats(), offer.count());
}

// libjpeg counts whole dots.
void set_resolution(Writer &w) {
    const auto per_inch = [](double per_metre) { return per_metre / per_metre_of_inch + 0.5; };
    const double x = per_inch(w.metadata.resolution.x), y = per_inch(w.metadata.resolution.y);
    if (x < 1 || y < 1 || x >= 65536 || y >= 65536) return;
    w.codec.density_unit = 1;
    w.codec.X_density = static_cast<UINT16>(x);
    w.codec.Y_density = static_cast<UINT16>(y);
}

void set_parameters(Writer &w) {
    const img_record &image = w.picture.image();
    w.codec.image_width = image.width;
    w.codec.image_height = image.height;
    w.codec.in_color_space = color_space_of(image.format);
    w.codec.input_components = static_cast<int>(bits_per_pixel(image.format) / 8);
    jpeg_set_defaults(&w.codec);
    jpeg_set_quality(&w.codec, w.quality, TRUE);
    if (w.progressive) jpeg_simple_progression(&w.codec);
    if (image.format != FMT_G8) {
        w.codec.comp_info[0].h_samp_factor = w.subsampling > 0 ? 2 : 1;
        w.codec.comp_info[0].v_samp_factor = w.subsampling > 1 ? 2 : 1;
    }
    set_resolution(w);
}

// A marker holds 64 KiB; larger blocks and texts have no place in a JPEG file.
void write_marker(Writer &w, int code, const char *mark, size_t mark_size, const img_bytes &bytes) {
    if (!bytes.size || mark_size + bytes.size > max_marker) return;
    jpeg_write_m_header(&w.codec, code, static_cast<unsigned>(mark_size + bytes.size));
    for (size_t i = 0; i < mark_size; i++) jpeg_write_m_byte(&w.codec, mark[i]);
    const auto *content = static_cast<const uint8_t *>(bytes.data);
    for (size_t i = 0; i < bytes.size; i++) jpeg_write_m_byte(&w.codec, content[i]);
}

void write_metadata(Writer &w) {
    write_marker(w, JPEG_APP0 + 1, exif_mark, sizeof exif_mark, w.metadata.exif);
    write_marker(w, JPEG_APP0 + 1, xmp_mark, sizeof xmp_mark, w.metadata.xmp);
    for (Texts texts(w.metadata.texts); texts.next();)
        if (texts.is_comment()) write_marker(w, JPEG_COM, nullptr, 0, {texts.text(), strlen(texts.text())});
    if (w.metadata.icc.size)
        jpeg_write_icc_profile(&w.codec, static_cast<const JOCTET *>(w.metadata.icc.data),
                               static_cast<unsigned>(w.metadata.icc.size));
}

img_status encode(Writer &w) {
    jpeg_create_compress(&w.codec);
    w.codec.dest = &w.destination;
    w.failure = bad_record;
    if (const img_status status = choose(w)) return status;
    set_parameters(w);
    jpeg_start_compress(&w.codec, TRUE);
    write_metadata(w);
    for (uint32_t y = 0; y < w.codec.image_height; y++) {
        auto *row = const_cast<uint8_t *>(w.picture.fetch(y));
        jpeg_write_scanlines(&w.codec, &row, 1);
        if (const img_status status = w.picture.progress(y + 1)) return status;
    }
    jpeg_finish_compress(&w.codec);
    return ok;
}

} // namespace

img_status jpeg_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **) {
    const auto writer = make<Writer>();
    if (!writer) return no_memory;
    Writer &w = *writer;
    w.begin(reinterpret_cast<j_common_ptr>(&w.codec), stream);
    w.destination.init_destination = begin_block;
    w.destination.empty_output_buffer = empty;
    w.destination.term_destination = end;
    if (const img_status status = w.picture.begin(*callouts, *image)) return status;
    const uint32_t side = std::max(image->width, image->height);
    if (side > JPEG_MAX_DIMENSION) return w.picture.refuse({"side", side, JPEG_MAX_DIMENSION});
    if (const img_status status = ask(w)) return status;
    return guarded(w, encode);
}

} // namespace module
