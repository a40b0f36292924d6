// SPDX-License-Identifier: MIT
//
// The entry of the PNG module.
#include "modules/png/png.h"

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<png::Reader, png::Writer>(table, size);
}
