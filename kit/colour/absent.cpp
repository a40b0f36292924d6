// SPDX-License-Identifier: MIT
//
// What stands for colour where it is built out: nothing can be made, so nothing else is called.
#include "pictra/kit.h"

img_status pictra_colour_create(const void *, size_t, const pictra_colour_options *, pictra_colour **colour) {
    *colour = nullptr;
    return IMG_ST_NOTSUP;
}
void pictra_colour_free(pictra_colour *) {}
uint32_t pictra_colour_channels(const pictra_colour *) { return 0; }
uint32_t pictra_colour_is_srgb(const pictra_colour *) { return 0; }
void pictra_colour_name(pictra_colour *, char *text, size_t size) {
    if (size) *text = 0;
}
img_status pictra_colour_convert(pictra_colour *, img_format, const void *, void *, uint32_t) { return IMG_ST_NOTSUP; }
img_status pictra_colour_convert_samples(pictra_colour *, const pictra_samples *, const void *, img_format, void *,
                                         uint32_t) {
    return IMG_ST_NOTSUP;
}
img_status pictra_colour_convert_image(pictra_colour *, img_record *) { return IMG_ST_NOTSUP; }
