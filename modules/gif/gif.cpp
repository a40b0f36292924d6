// SPDX-License-Identifier: MIT
//
// The entry of the GIF module.
#include "modules/gif/gif.h"

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<gif::Reader, gif::Writer>(table, size);
}
