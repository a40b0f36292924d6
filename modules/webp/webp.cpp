// SPDX-License-Identifier: MIT
//
// The entry of the WebP module.
#include "modules/webp/webp.h"

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<webp::Reader, webp::Writer>(table, size);
}
