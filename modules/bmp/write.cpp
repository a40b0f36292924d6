// SPDX-License-Identifier: MIT
//
// The writing side of the BMP module. Files are bottom-up and uncompressed, with the shortest header that suffices:
// masks after it for 16 bits of 5-6-5, the longest one for alpha or a colour profile.
#include "modules/bmp/bmp.h"
#include "modules/common/layout.h"

#include <algorithm>
#include <string.h>

namespace bmp {

namespace {

constexpr uint32_t info_size = 40, profile_header_size = 124;
constexpr uint32_t perceptual_intent = 4;
constexpr uint64_t most_profile = UINT32_MAX / 2; // the file's size has 32 bits

uint32_t whole(double value) { return value > 0 ? static_cast<uint32_t>(std::min(value + 0.5, 2147483647.0)) : 0; }

} // namespace

img_status Writer::choose(bool beside) {
    const img_format own = picture_.image().format;
    Offer offer;
    if (beside) {
        offer.add(TransparentRows::offer(picture_.image()));
    } else {
        for (const img_format indices_or_grey : {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8}) offer.add(indices_or_grey);
        offer.add(FMT_BGR888);
        offer.add(word(FMT_XRGB8888HE));
        offer.add(word(FMT_ARGB8888HE));
        // A picture of 16 bits is not converted between 5-5-5 and 5-6-5.
        const bool narrow = bits_per_pixel(own) == 16, six_of_green = own & IMG_FMT_ALT;
        if (!narrow || !six_of_green) offer.add(word(FMT_XRGB1555HE));
        if (!narrow || six_of_green) offer.add(word(FMT_RGB565HE));
    }
    if (const img_status status = picture_.choose_and_set_up(offer.formats(), offer.count(), IMG_SETUP_BOTTOMUP))
        return status;
    format_ = beside ? word(FMT_ARGB8888HE) : picture_.image().format;
    return beside ? transparent_.begin(picture_, format_) : ok;
}

img_status Writer::make_palette() {
    uint32_t argb[max_colors];
    if (format_ == FMT_G8) {
        ncolors_ = 256;
        for (uint32_t i = 0; i < ncolors_; i++) argb[i] = i * 0x10101;
    } else if (format_ & IMG_FMT_PAL) {
        if (const img_status status = picture_.get_palette(argb)) return status;
        ncolors_ = std::min(picture_.image().ncolors, 1u << bits_per_pixel(format_));
    }
    for (uint32_t i = 0; i < ncolors_; i++) put_little32(palette_ + 4 * i, argb[i] & 0xffffff);
    return ok;
}

img_status Writer::write_header(uint64_t stride) {
    const img_record &image = picture_.image();
    const bool alpha = format_ & IMG_FMT_ALPHA, masks = alpha || format_ == word(FMT_RGB565HE);
    const uint32_t size = alpha || profile_.size ? profile_header_size : info_size;
    const uint32_t masks_after = masks && size == info_size ? 12 : 0;
    const uint32_t data_at = static_cast<uint32_t>(file_header_size) + size + masks_after + ncolors_ * 4;
    const auto data_size = static_cast<uint32_t>(stride * image.height); // at most 2^30, and rows filled up to 4 bytes
    uint8_t bytes[file_header_size + profile_header_size] = {'B', 'M'};
    put_little32(bytes + 2, data_at + data_size + static_cast<uint32_t>(profile_.size));
    put_little32(bytes + 10, data_at);

    uint8_t *const header = bytes + file_header_size;
    put_little32(header, size);
    put_little32(header + 4, image.width);
    put_little32(header + 8, image.height);
    put_little16(header + 12, 1);
    put_little16(header + 14, bits_per_pixel(format_));
    put_little32(header + 16, masks ? Dib::fields : Dib::plain);
    put_little32(header + 20, data_size);
    put_little32(header + 24, whole(resolution_.x));
    put_little32(header + 28, whole(resolution_.y));
    put_little32(header + 32, ncolors_);
    constexpr uint32_t wide[] = {0xff0000, 0xff00, 0xff, 0xff000000}, narrow[] = {0xf800, 0x7e0, 0x1f, 0};
    if (masks)
        for (size_t i = 0; i < (size == info_size ? 3 : 4); i++)
            put_little32(header + 40 + 4 * i, (alpha ? wide : narrow)[i]);
    if (size == profile_header_size) {
        put_little32(header + 56, profile_.size ? embedded_profile : srgb_profile);
        put_little32(header + 108, perceptual_intent);
        if (profile_.size) {
            put_little32(header + 112, data_at - static_cast<uint32_t>(file_header_size) + data_size);
            put_little32(header + 116, static_cast<uint32_t>(profile_.size));
        }
    }
    if (!write_all(stream_, bytes, file_header_size + size + masks_after)) return write_failed;
    return write_all(stream_, palette_, size_t{ncolors_} * 4) ? ok : write_failed;
}

img_status Writer::write_rows(size_t stride, bool beside) {
    const img_record &image = picture_.image();
    const size_t bytes = row_bytes(format_, image.width);
    const uint32_t used_bits = image.width * bits_per_pixel(format_) & 7;
    for (uint32_t done = 0; done < image.height; done++) {
        const uint32_t y = image.height - 1 - done;
        const uint8_t *row = beside ? transparent_.fetch(picture_, y) : picture_.fetch(y);
        if (!row) return bad_record;
        memcpy(line_.get(), row, bytes);
        if (used_bits) line_.get()[bytes - 1] = static_cast<uint8_t>(line_.get()[bytes - 1] & (0xff00 >> used_bits));
        if (!write_all(stream_, line_.get(), stride)) return write_failed;
        if (const img_status status = picture_.progress(done + 1)) return status;
    }
    return ok;
}

img_status Writer::frame() {
    if (const img_status status = picture_.ask(IMG_VALUE_RESOLUTION, &resolution_)) return status;
    if (const img_status status = picture_.ask(IMG_VALUE_ICC, &profile_)) return status;
    if (profile_.size > most_profile) return picture_.refuse({"profile_", profile_.size, most_profile});
    const bool beside = TransparentRows::needed(picture_.image());
    if (const img_status status = choose(beside)) return status;
    if (const img_status status = make_palette()) return status;
    const uint64_t stride = dib_stride(picture_.image().width, bits_per_pixel(format_));
    if (!(line_ = make_bytes(stride))) return no_memory;
    if (const img_status status = write_header(stride)) return status;
    if (const img_status status = write_rows(stride, beside)) return status;
    return write_all(stream_, profile_.data, profile_.size) ? ok : write_failed;
}

} // namespace bmp
