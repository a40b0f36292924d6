// SPDX-License-Identifier: MIT
//
// Pixels of a profile's space into sRGB, in blocks. Grey is a table of 256, palettes are rows of their entries.
#include "kit/colour/engine.h"
#include "kit/options.h"
#include "kit/pixels.h"

#include <new>
#include <string.h>

using namespace img;
using namespace img::kit;

namespace {

constexpr uint32_t block_pixels = 1024;
constexpr uint32_t work_layout = TYPE_BGRA_8; // of the working format

// How the library calls the bytes of a pixel; 0 for formats that go through the working one.
uint32_t layout_of(img_format format) {
    const bool little = std::endian::native == std::endian::little;
    const bool low_first =
        bits_per_pixel(format) == 32 && (little == bool(format & IMG_FMT_HE)); // alpha is the last byte
    switch (format & ~img_format{IMG_FMT_ALPHA | IMG_FMT_HE | IMG_FMT_OE}) {
    case FMT_RGB888:
        return TYPE_RGB_8;
    case FMT_BGR888:
        return TYPE_BGR_8;
    case FMT_XRGB8888HE & ~IMG_FMT_HE:
        return low_first ? TYPE_BGRA_8 : TYPE_ARGB_8;
    case FMT_XBGR8888HE & ~IMG_FMT_HE:
        return low_first ? TYPE_RGBA_8 : TYPE_ABGR_8;
    default:
        return 0;
    }
}

// How the library calls samples as a file has them.
uint32_t layout_of(const pictra_samples &samples, uint32_t channels) {
    const uint32_t space = channels == 1 ? PT_GRAY : channels == 3 ? PT_RGB : PT_CMYK;
    return COLORSPACE_SH(space) | CHANNELS_SH(channels) | EXTRA_SH(samples.extra) | BYTES_SH(samples.bits / 8) |
           FLAVOR_SH(samples.flags & PICTRA_SAMPLES_INVERTED ? 1u : 0u);
}

} // namespace

struct pictra_colour {
    Engine engine;
    uint8_t grey[256];  // of a stored grey level
    bool keeps = false; // the profile is sRGB, or so near that it makes no difference

    img_status make(const void *icc, size_t size, const pictra_colour_options &options);
    img_status convert(img_format format, const uint8_t *src, uint8_t *dst, uint32_t count);
    img_status convert_samples(const pictra_samples &samples, const uint8_t *src, img_format format, uint8_t *dst,
                               uint32_t count);
    img_status convert_key(img_record &image);

private:
    img_status make_grey();
    img_status compare();
    void convert_grey(const uint8_t *src, uint8_t *dst, size_t bytes) const {
        for (size_t i = 0; i < bytes; i++) dst[i] = grey[src[i]];
    }
};

img_status pictra_colour::make(const void *icc, size_t size, const pictra_colour_options &options) {
    Profile profile;
    if (const img_status status = read_profile(static_cast<const uint8_t *>(icc), size, profile)) return status;
    if (const img_status status = engine.make(static_cast<Profile &&>(profile), options)) return status;
    if (engine.channels() == 4) return IMG_ST_OK;
    if (const img_status status = make_grey()) return status;
    return engine.channels() == 3 ? compare() : img_status{IMG_ST_OK};
}

// Grey of an RGB profile is what has the same red, green and blue.
img_status pictra_colour::make_grey() {
    const bool rgb = engine.channels() == 3;
    cmsHTRANSFORM transform = engine.transform(rgb ? TYPE_RGB_8 : TYPE_GRAY_8, TYPE_RGB_8);
    if (!transform) return engine.failure();
    uint8_t from[256 * 3], to[256 * 3];
    for (size_t i = 0; i < 256; i++) {
        if (rgb)
            memset(from + i * 3, static_cast<int>(i), 3);
        else
            from[i] = static_cast<uint8_t>(i);
    }
    cmsDoTransform(transform, from, to, 256);
    for (size_t i = 0; i < 256; i++) grey[i] = to[i * 3 + 1];
    return IMG_ST_OK;
}

// Whether all colours stay within a level of what they are.
img_status pictra_colour::compare() {
    constexpr uint32_t steps = 9;
    cmsHTRANSFORM transform = engine.transform(TYPE_RGB_8, TYPE_RGB_8);
    if (!transform) return engine.failure();
    keeps = true;
    for (size_t i = 0; i < 256; i++) keeps &= grey[i] + 1u >= i && grey[i] <= i + 1;
    for (uint32_t i = 0; keeps && i < steps * steps * steps; i++) {
        const uint8_t from[] = {static_cast<uint8_t>(i % steps * 255 / (steps - 1)),
                                static_cast<uint8_t>(i / steps % steps * 255 / (steps - 1)),
                                static_cast<uint8_t>(i / steps / steps * 255 / (steps - 1))};
        uint8_t to[3];
        cmsDoTransform(transform, from, to, 1);
        for (size_t c = 0; c < 3; c++) keeps &= to[c] + 1u >= from[c] && to[c] <= from[c] + 1;
    }
    return IMG_ST_OK;
}

img_status pictra_colour::convert(img_format format, const uint8_t *src, uint8_t *dst, uint32_t count) {
    const uint32_t bits = bits_per_pixel(format), channels = engine.channels();
    if (is_palette(format) || format == FMT_A8 || channels == 4 || !img_convert_getfunc(format, work_format))
        return IMG_ST_BADFMT;
    const size_t bytes = size_t{count} * bits / 8;
    if (keeps) return memmove(dst, src, bytes), IMG_ST_OK;
    if (format == FMT_G8) return convert_grey(src, dst, bytes), IMG_ST_OK;
    if (const uint32_t layout = channels == 3 ? layout_of(format) : 0) {
        cmsHTRANSFORM transform = engine.transform(layout, layout);
        if (!transform) return engine.failure();
        for (uint32_t i = 0; i < count; i += block_pixels)
            cmsDoTransform(transform, src + size_t{i} * bits / 8, dst + size_t{i} * bits / 8,
                           count - i < block_pixels ? count - i : block_pixels);
        return IMG_ST_OK;
    }
    cmsHTRANSFORM transform = channels == 3 ? engine.transform(work_layout, work_layout) : nullptr;
    if (channels == 3 && !transform) return engine.failure();
    for (uint32_t i = 0; i < count; i += block_pixels) {
        uint8_t block[block_pixels * 4];
        const uint32_t now = count - i < block_pixels ? count - i : block_pixels;
        img_convert_data(format, src + size_t{i} * bits / 8, work_format, block, now);
        if (transform)
            cmsDoTransform(transform, block, block, now);
        else
            for (uint32_t k = 0; k < now; k++) convert_grey(block + k * 4, block + k * 4, 3);
        img_convert_data(work_format, block, format, dst + size_t{i} * bits / 8, now);
    }
    return IMG_ST_OK;
}

img_status pictra_colour::convert_samples(const pictra_samples &samples, const uint8_t *src, img_format format,
                                          uint8_t *dst, uint32_t count) {
    const size_t pixel = (engine.channels() + samples.extra) * (samples.bits / 8);
    const size_t result = bits_per_pixel(format) / 8;
    cmsHTRANSFORM transform = engine.transform(layout_of(samples, engine.channels()), work_layout);
    if (!transform) return engine.failure();
    for (uint32_t i = 0; i < count; i += block_pixels) {
        uint8_t block[block_pixels * 4];
        memset(block, 0xff, sizeof block); // the library leaves alpha alone
        const uint32_t now = count - i < block_pixels ? count - i : block_pixels;
        cmsDoTransform(transform, src + i * pixel, block, now);
        img_convert_data(work_format, block, format, dst + i * result, now);
    }
    return IMG_ST_OK;
}

// The key is a colour of the picture, and stays the one that its pixels have.
img_status pictra_colour::convert_key(img_record &image) {
    if (!has(image, IMG_F_TRANSP) || is_palette(image.format)) return IMG_ST_OK;
    const img_format format = bits_per_pixel(image.format) >= 24 ? img_format{FMT_ARGB8888HE} : image.format;
    auto *key = reinterpret_cast<uint8_t *>(&image.transparency);
    return convert(format, key, key, 1);
}

namespace {

img_status convert_image(pictra_colour &colour, img_record &image) {
    if (is_palette(image.format)) {
        auto *entries = reinterpret_cast<uint8_t *>(image.palette);
        return colour.convert(FMT_ARGB8888HE, entries, entries, image.ncolors);
    }
    auto *pixels = static_cast<uint8_t *>(image.data);
    for (uint64_t y = 0; y < image.height; y++) {
        uint8_t *row = pixels + y * image.stride;
        if (const img_status status = colour.convert(image.format, row, row, image.width)) return status;
    }
    return colour.convert_key(image);
}

} // namespace

// ---- The C interface -------------------------------------------------------------------------------------------------

img_status pictra_colour_create(const void *icc, size_t size, const pictra_colour_options *options,
                                pictra_colour **colour) {
    *colour = nullptr;
    pictra_colour_options known;
    if (!icc || !read_options(options, known) || known.intent > PICTRA_INTENT_RELATIVE ||
        (known.flags & ~uint32_t{PICTRA_COLOUR_BLACK_POINT | PICTRA_COLOUR_FAST}))
        return IMG_ST_BADARG;
    void *room = malloc(sizeof(pictra_colour));
    if (!room) return IMG_ST_NOMEM;
    auto *made = new (room) pictra_colour;
    const img_status status = made->make(icc, size, known);
    if (status)
        pictra_colour_free(made);
    else
        *colour = made;
    return status;
}

void pictra_colour_free(pictra_colour *colour) {
    if (!colour) return;
    colour->~pictra_colour();
    free(colour);
}

uint32_t pictra_colour_channels(const pictra_colour *colour) { return colour->engine.channels(); }

uint32_t pictra_colour_is_srgb(const pictra_colour *colour) { return colour->keeps; }

void pictra_colour_name(pictra_colour *colour, char *text, size_t size) { colour->engine.name(text, size); }

img_status pictra_colour_convert(pictra_colour *colour, img_format format, const void *src, void *dst, uint32_t count) {
    return colour->convert(format, static_cast<const uint8_t *>(src), static_cast<uint8_t *>(dst), count);
}

img_status pictra_colour_convert_samples(pictra_colour *colour, const pictra_samples *samples, const void *src,
                                         img_format format, void *dst, uint32_t count) {
    pictra_samples known;
    if (!samples || !read_options(samples, known) || (known.bits != 8 && known.bits != 16) || known.extra > 7 ||
        (known.flags & ~uint32_t{PICTRA_SAMPLES_INVERTED}))
        return IMG_ST_BADARG;
    if (is_palette(format) || !img_convert_getfunc(work_format, format)) return IMG_ST_BADFMT;
    return colour->convert_samples(known, static_cast<const uint8_t *>(src), format, static_cast<uint8_t *>(dst),
                                   count);
}

img_status pictra_colour_convert_image(pictra_colour *colour, img_record *image) {
    const bool palette = is_palette(image->format);
    constexpr img_flags shape = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    if ((image->flags & shape) != shape || !has(*image, palette ? IMG_F_PALETTE : IMG_F_DIRECT)) return IMG_ST_BADARG;
    return convert_image(*colour, *image);
}
