/* SPDX-License-Identifier: MIT */
/* A codec module for tests of opening modules; what its entry does is chosen when it is compiled. */
#include "pictra/pictra.h"

static img_status validate(io_handle *stream) {
    (void)stream;
    return 0;
}

#ifdef FAKE_STATUS
img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    if (size != 56) return 99;
    table->decode_validate = validate;
    return FAKE_STATUS;
}
#else
IMG_API img_status (*img_not_the_entry)(io_handle *) = validate;
#endif
