// SPDX-License-Identifier: MIT
//
// The entry of the TIFF module.
#include "modules/tiff/tiff.h"

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<tif::Reader, tif::Writer>(table, size);
}
