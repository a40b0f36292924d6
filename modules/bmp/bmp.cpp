// SPDX-License-Identifier: MIT
//
// The entry of the BMP module.
#include "modules/bmp/bmp.h"

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<bmp::Reader, bmp::Writer>(table, size);
}
