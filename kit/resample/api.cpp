// SPDX-License-Identifier: MIT
//
// The C interface of resampling.
#include "kit/options.h"
#include "kit/resample/resampler.h"
#include "kit/resample/storage.h"

#include <new>

using namespace img;
using namespace img::kit;

struct pictra_resampler : Resampler {};

namespace {

// Colours with as much transparency as the source has, where its own format cannot be scaled or does not hold it.
img_format scalable_format(const img_record &source) {
    const bool transparent = has(source, IMG_F_TRANSP | IMG_F_PAL_ALPHA);
    if (is_palette(source.format)) return transparent ? FMT_ARGB8888HE : FMT_RGB888;
    return transparent && !(source.format & IMG_FMT_ALPHA) ? img_format{FMT_ARGB8888HE} : source.format;
}

void complete_shape(img_record &target, const img_record &source) {
    if (!has(target, IMG_F_FORMAT)) target.format = scalable_format(source);
    if (!has(target, IMG_F_WIDTH)) target.width = source.width;
    if (!has(target, IMG_F_HEIGHT)) target.height = source.height;
    target.flags |= IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
}

img_status feed(Resampler &resampler, const img_record &source) {
    if (has(source, IMG_F_DIRECT)) {
        const auto *pixels = static_cast<const uint8_t *>(source.data);
        for (uint64_t y = 0; y < source.height; y++)
            if (const img_status status = resampler.take_row(pixels + y * source.stride, source.stride)) return status;
        return resampler.end();
    }
    const Owned<uint8_t> line = allocate<uint8_t>((uint64_t{source.width} * bits_per_pixel(source.format) + 7) / 8);
    if (!line) return IMG_ST_NOMEM;
    for (uint32_t y = 0; y < source.height; y++) {
        source.access(source.access_arg, 0, y, source.width, line.get());
        if (const img_status status = resampler.take_row(line.get())) return status;
    }
    return resampler.end();
}

} // namespace

img_status pictra_resampler_create(const img_record *source, const img_record *target,
                                   const pictra_resample_options *options, pictra_resampler **resampler) {
    *resampler = nullptr;
    pictra_resample_options known;
    if (!read_options(options, known)) return IMG_ST_BADARG;
    void *room = malloc(sizeof(pictra_resampler));
    if (!room) return IMG_ST_NOMEM;
    auto *made = new (room) pictra_resampler;
    const img_status status = made->make(*source, *target, known);
    if (status)
        pictra_resampler_free(made);
    else
        *resampler = made;
    return status;
}

void pictra_resampler_free(pictra_resampler *resampler) {
    if (!resampler) return;
    resampler->~pictra_resampler();
    free(resampler);
}

img_status pictra_resampler_row(pictra_resampler *resampler, const void *pixels) { return resampler->take_row(pixels); }

int pictra_resampler_access(void *resampler, uint32_t x, uint32_t y, uint32_t count, void *scanline) {
    return static_cast<int>(static_cast<pictra_resampler *>(resampler)->take_run(x, y, count, scanline));
}

img_status pictra_resampler_end(const pictra_resampler *resampler) { return resampler->end(); }

img_status pictra_resample(const img_record *source, img_record *target, const pictra_resample_options *options) {
    pictra_resample_options known;
    if (!read_options(options, known) || (known.flags & PICTRA_RESAMPLE_UPWARD)) return IMG_ST_BADARG;
    constexpr img_flags shape = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    if ((source->flags & shape) != shape || !has(*source, IMG_F_DIRECT | IMG_F_ACCESS)) return IMG_ST_BADARG;
    complete_shape(*target, *source);
    if (is_palette(target->format)) return IMG_ST_BADFMT;
    Storage storage(*target);
    if (const img_status status = storage.make()) return status;
    Resampler resampler;
    if (const img_status status = resampler.make(*source, *target, known)) return status;
    if (const img_status status = feed(resampler, *source)) return status;
    storage.keep();
    return IMG_ST_OK;
}
