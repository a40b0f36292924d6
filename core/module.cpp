// SPDX-License-Identifier: MIT
//
// Codec modules. A module is opened when it is first needed, at most once, and closed with its codec.
#include "core/log.h"
#include "core/registry.h"

#include <dlfcn.h>
#include <stdlib.h>

using namespace img;

namespace {

void close_module(img_codec &codec, const char *function, int32_t line) {
    const int result = dlclose(codec.module);
    codec.module = nullptr;
    if (result == 0) return;
    const char *reason = dlerror();
    imglog(log_error, function, line, log_code, "dlclose() failed: %d - dlerror(): %s", result, reason ? reason : "");
}

} // namespace

img_status codec_init(img_codec *codec) {
    // Kept: A module that did not open is not tried again. From then on this call succeeds and the table stays empty.
    if (codec->state & codec_initialised) return IMG_ST_OK;
    codec->state |= codec_initialised;
    if (!codec->path) return IMG_ST_OK;

    codec->module = dlopen(codec->path, RTLD_NOW | RTLD_LOCAL);
    if (!codec->module) return IMG_ST_MODULE;
    img_status status = IMG_ST_MODULE;
    if (void *entry = dlsym(codec->module, "img_codec_getfuncs")) {
        status = reinterpret_cast<img_getfuncs_func *>(entry)(&codec->funcs, sizeof codec->funcs);
        if (status == IMG_ST_OK) return IMG_ST_OK;
    }
    codec->funcs = {}; // they point into the module
    close_module(*codec, "codec_init", 285);
    return status;
}

void codec_release(img_codec *codec) {
    if (codec->module) close_module(*codec, "codec_release", 303);
    free(codec->path);
    free(codec->extensions);
    free(codec->mime_types);
    free(codec);
}
