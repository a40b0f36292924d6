// SPDX-License-Identifier: MIT
//
// The codec module of BMP: writing, from the bottom up and without compression, with the shortest header that can say what
// there is to say: masks behind it for 16 bits of 5-6-5, the longest one for alpha and for a colour profile.
#include "modules/bmp/bmp.h"

#include "modules/bmp/dib.h"
#include "modules/common/bytes.h"
#include "modules/common/layout.h"
#include "modules/common/transparency.h"

using namespace codec;

namespace {

constexpr uint32_t info_size = 40, profile_header_size = 124;
constexpr uint32_t perceptual_intent = 4;
constexpr uint64_t most_profile = UINT32_MAX / 2; // the file's size has 32 bits

struct Writer {
    io_handle *stream = nullptr;
    Encoding picture;
    TransparentRows transparent;
    img_resolution resolution{};
    img_bytes profile{};
    img_format format = 0; // of the file
    uint32_t ncolors = 0;
    uint8_t palette[256 * 4];
    Bytes line;

    img_status write();

private:
    img_status choose(bool beside);
    img_status make_palette();
    img_status write_header(uint64_t stride);
    img_status write_rows(size_t stride, bool beside);
};

img_status Writer::choose(bool beside) {
    const img_format own = picture.image().format;
    Offer offer;
    if (beside) {
        offer.add(TransparentRows::offer(picture.image()));
    } else {
        for (const img_format indices_or_grey : {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8}) offer.add(indices_or_grey);
        offer.add(FMT_BGR888);
        offer.add(word(FMT_XRGB8888HE));
        offer.add(word(FMT_ARGB8888HE));
        // Of the formats of 16 bits, not the one that has other channels than the picture.
        const bool narrow = bits_per_pixel(own) == 16, six_of_green = own & IMG_FMT_ALT;
        if (!narrow || !six_of_green) offer.add(word(FMT_XRGB1555HE));
        if (!narrow || six_of_green) offer.add(word(FMT_RGB565HE));
    }
    if (const img_status status = picture.choose_and_set_up(offer.formats(), offer.count(), IMG_SETUP_BOTTOMUP))
        return status;
    format = beside ? word(FMT_ARGB8888HE) : picture.image().format;
    return beside ? transparent.begin(picture, format) : ok;
}

img_status Writer::make_palette() {
    uint32_t argb[max_colors];
    if (format == FMT_G8) {
        ncolors = 256;
        for (uint32_t i = 0; i < ncolors; i++) argb[i] = i * 0x10101;
    } else if (format & IMG_FMT_PAL) {
        if (const img_status status = picture.get_palette(argb)) return status;
        ncolors = std::min(picture.image().ncolors, 1u << bits_per_pixel(format));
    }
    for (uint32_t i = 0; i < ncolors; i++) put_little32(palette + 4 * i, argb[i] & 0xffffff);
    return ok;
}

uint32_t whole(double value) { return value > 0 ? static_cast<uint32_t>(std::min(value + 0.5, 2147483647.0)) : 0; }

img_status Writer::write_header(uint64_t stride) {
    const img_record &image = picture.image();
    const bool alpha = format & IMG_FMT_ALPHA, masks = alpha || format == word(FMT_RGB565HE);
    const uint32_t size = alpha || profile.size ? profile_header_size : info_size;
    const uint32_t masks_behind = masks && size == info_size ? 12 : 0;
    const uint32_t data_at = static_cast<uint32_t>(bmp_file_header_size) + size + masks_behind + ncolors * 4;
    const auto data_size = static_cast<uint32_t>(stride * image.height); // at most 2^30, and rows filled up to 4 bytes
    uint8_t bytes[bmp_file_header_size + profile_header_size] = {'B', 'M'};
    put_little32(bytes + 2, data_at + data_size + static_cast<uint32_t>(profile.size));
    put_little32(bytes + 10, data_at);

    uint8_t *const header = bytes + bmp_file_header_size;
    put_little32(header, size);
    put_little32(header + 4, image.width);
    put_little32(header + 8, image.height);
    put_little16(header + 12, 1);
    put_little16(header + 14, bits_per_pixel(format));
    put_little32(header + 16, masks ? Dib::fields : Dib::plain);
    put_little32(header + 20, data_size);
    put_little32(header + 24, whole(resolution.x));
    put_little32(header + 28, whole(resolution.y));
    put_little32(header + 32, ncolors);
    constexpr uint32_t wide[] = {0xff0000, 0xff00, 0xff, 0xff000000}, narrow[] = {0xf800, 0x7e0, 0x1f, 0};
    if (masks)
        for (size_t i = 0; i < (size == info_size ? 3 : 4); i++)
            put_little32(header + 40 + 4 * i, (alpha ? wide : narrow)[i]);
    if (size == profile_header_size) {
        put_little32(header + 56, profile.size ? embedded_profile : srgb_profile);
        put_little32(header + 108, perceptual_intent);
        if (profile.size) {
            put_little32(header + 112, data_at - static_cast<uint32_t>(bmp_file_header_size) + data_size);
            put_little32(header + 116, static_cast<uint32_t>(profile.size));
        }
    }
    if (!write_all(*stream, bytes, bmp_file_header_size + size + masks_behind)) return write_failed;
    return write_all(*stream, palette, size_t{ncolors} * 4) ? ok : write_failed;
}

img_status Writer::write_rows(size_t stride, bool beside) {
    const img_record &image = picture.image();
    const size_t bytes = row_bytes(format, image.width);
    const uint32_t used_bits = image.width * bits_per_pixel(format) & 7;
    for (uint32_t done = 0; done < image.height; done++) {
        const uint32_t y = image.height - 1 - done;
        const uint8_t *row = beside ? transparent.fetch(picture, y) : picture.fetch(y);
        if (!row) return bad_record;
        memcpy(line.get(), row, bytes);
        if (used_bits) line.get()[bytes - 1] = static_cast<uint8_t>(line.get()[bytes - 1] & (0xff00 >> used_bits));
        if (!write_all(*stream, line.get(), stride)) return write_failed;
        if (const img_status status = picture.progress(done + 1)) return status;
    }
    return ok;
}

img_status Writer::write() {
    if (const img_status status = picture.ask(IMG_VALUE_RESOLUTION, &resolution)) return status;
    if (const img_status status = picture.ask(IMG_VALUE_ICC, &profile)) return status;
    if (profile.size > most_profile) return picture.refuse({"profile", profile.size, most_profile});
    const bool beside = TransparentRows::needed(picture.image());
    if (const img_status status = choose(beside)) return status;
    if (const img_status status = make_palette()) return status;
    const uint64_t stride = dib_stride(picture.image().width, bits_per_pixel(format));
    if (!(line = make_bytes(stride))) return no_memory;
    if (const img_status status = write_header(stride)) return status;
    if (const img_status status = write_rows(stride, beside)) return status;
    return write_all(*stream, profile.data, profile.size) ? ok : write_failed;
}

} // namespace

img_status encode_bmp(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state) {
    return encode_file<Writer>(stream, callouts, image, state);
}
