// SPDX-License-Identifier: MIT
//
// The writing side of the JPEG module.
#include "modules/common/text.h"
#include "modules/jpeg/jpeg.h"

#include <algorithm>
#include <string.h>

namespace jpeg {

void Writer::begin_block(j_compress_ptr libjpeg) {
    auto &writer = state_of<Writer>(libjpeg);
    writer.destination_.next_output_byte = writer.block_;
    writer.destination_.free_in_buffer = block_size;
}

void Writer::write_block(size_t size) {
    if (!write_all(stream_, block_, size)) leave(write_failed);
}

boolean Writer::empty_block(j_compress_ptr libjpeg) {
    state_of<Writer>(libjpeg).write_block(block_size);
    begin_block(libjpeg);
    return TRUE;
}

void Writer::end_block(j_compress_ptr libjpeg) {
    auto &writer = state_of<Writer>(libjpeg);
    writer.write_block(block_size - writer.destination_.free_in_buffer);
}

img_status Writer::ask() {
    img_option quality = number_option("quality", "of the pixels: 100 is best and largest", 1, 100, 85);
    img_option progressive = switch_option("progressive", "in passes, the first of which show all of the picture");
    img_option subsampling =
        choice_option("subsampling", "how colours are stored beside brightness", "444:422:420", 3, 2);
    img_option grey = switch_option("grey", "write grey");
    for (img_option *option : {&quality, &progressive, &subsampling, &grey})
        if (const img_status status = picture_.ask(*option)) return status;
    quality_ = quality.value;
    progressive_ = progressive.value;
    subsampling_ = subsampling.value;
    grey_ = grey.value;
    return metadata_.ask(picture_);
}

// JPEG keeps no transparency, and to drop it is not ours to decide.
img_status Writer::choose() {
    const img_record &image = picture_.image();
    if ((image.format & IMG_FMT_ALPHA) || picture_.has(IMG_F_TRANSP | IMG_F_PAL_ALPHA)) return no_common_format;
    Offer offer;
    offer.add(FMT_G8);
    if (!grey_) {
        Offer colors;
        colors.add(opaque_layouts);
        for (uint32_t i = 0; i < colors.count(); i++) offer.add(colors.formats()[i]);
    }
    return picture_.choose_and_set_up(offer.formats(), offer.count());
}

// libjpeg counts whole dots.
void Writer::set_resolution() {
    const auto per_inch = [](double per_metre) { return per_metre / per_metre_of_inch + 0.5; };
    const double x = per_inch(metadata_.resolution.x), y = per_inch(metadata_.resolution.y);
    if (x < 1 || y < 1 || x >= 65536 || y >= 65536) return;
    libjpeg_.density_unit = 1;
    libjpeg_.X_density = static_cast<UINT16>(x);
    libjpeg_.Y_density = static_cast<UINT16>(y);
}

void Writer::set_parameters() {
    const img_record &image = picture_.image();
    libjpeg_.image_width = image.width;
    libjpeg_.image_height = image.height;
    libjpeg_.in_color_space = color_space_of(image.format);
    libjpeg_.input_components = static_cast<int>(bits_per_pixel(image.format) / 8);
    jpeg_set_defaults(&libjpeg_);
    jpeg_set_quality(&libjpeg_, quality_, TRUE);
    if (progressive_) jpeg_simple_progression(&libjpeg_);
    if (image.format != FMT_G8) {
        libjpeg_.comp_info[0].h_samp_factor = subsampling_ > 0 ? 2 : 1;
        libjpeg_.comp_info[0].v_samp_factor = subsampling_ > 1 ? 2 : 1;
    }
    set_resolution();
}

// A marker holds 64 KiB; larger blocks and texts have no place in a JPEG file.
void Writer::write_marker(int code, const char *mark, size_t mark_size, const img_bytes &bytes) {
    if (!bytes.size || mark_size + bytes.size > max_marker) return;
    jpeg_write_m_header(&libjpeg_, code, static_cast<unsigned>(mark_size + bytes.size));
    for (size_t i = 0; i < mark_size; i++) jpeg_write_m_byte(&libjpeg_, mark[i]);
    const auto *content = static_cast<const uint8_t *>(bytes.data);
    for (size_t i = 0; i < bytes.size; i++) jpeg_write_m_byte(&libjpeg_, content[i]);
}

void Writer::write_metadata() {
    write_marker(JPEG_APP0 + 1, exif_mark, sizeof exif_mark, metadata_.exif);
    write_marker(JPEG_APP0 + 1, xmp_mark, sizeof xmp_mark, metadata_.xmp);
    for (Texts texts(metadata_.texts); texts.next();)
        if (texts.is_comment()) write_marker(JPEG_COM, nullptr, 0, {texts.text(), strlen(texts.text())});
    if (metadata_.icc.size)
        jpeg_write_icc_profile(&libjpeg_, static_cast<const JOCTET *>(metadata_.icc.data),
                               static_cast<unsigned>(metadata_.icc.size));
}

img_status Writer::encode() {
    jpeg_create_compress(&libjpeg_);
    libjpeg_.dest = &destination_;
    failure_ = bad_record;
    if (const img_status status = choose()) return status;
    set_parameters();
    jpeg_start_compress(&libjpeg_, TRUE);
    write_metadata();
    for (uint32_t y = 0; y < libjpeg_.image_height; y++) {
        auto *row = const_cast<uint8_t *>(picture_.fetch(y));
        jpeg_write_scanlines(&libjpeg_, &row, 1);
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    jpeg_finish_compress(&libjpeg_);
    return ok;
}

img_status Writer::frame() {
    const img_record &image = picture_.image();
    const uint32_t side = std::max(image.width, image.height);
    if (side > JPEG_MAX_DIMENSION) return picture_.refuse({"side", side, JPEG_MAX_DIMENSION});
    if (const img_status status = ask()) return status;
    begin(reinterpret_cast<j_common_ptr>(&libjpeg_));
    destination_.init_destination = begin_block;
    destination_.empty_output_buffer = empty_block;
    destination_.term_destination = end_block;
    return guarded([this] { return encode(); });
}

} // namespace jpeg
