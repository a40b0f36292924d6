// SPDX-License-Identifier: MIT
//
// The library handle: attach and detach.
#include "core/owned.h"
#include "core/registry.h"

using namespace img;

img_status img_lib_attach(img_lib_handle **handle) {
    *handle = allocate_zeroed<img_lib_handle>().release();
    if (!*handle) return IMG_ST_NOMEM;
    const char *path = getenv("PICTRA_CFGFILE");
    return img_cfg_read(*handle, path ? path : "/etc/system/config/img.conf");
}

void img_lib_detach(img_lib_handle *handle) {
    const Owned<img_lib_handle> owned{handle};
    if (!handle) return;
    while (img_codec *codec = handle->head) {
        handle->head = codec->next;
        codec_release(codec);
    }
}
