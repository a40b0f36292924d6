// SPDX-License-Identifier: MIT
//
// The codec registry: registration and lookup. module.cpp opens and closes modules.
#include "core/registry.h"

#include "core/owned.h"

#include <string.h>
#include <strings.h>

using namespace img;

namespace {

Owned<char> copy_text(const char *text) {
    const size_t size = strlen(text) + 1;
    Owned<char> copy = allocate<char>(size);
    if (copy) memcpy(copy.get(), text, size);
    return copy;
}

// Turns "a:b" into the strings "a" and "b" and an empty one. No text gives no list. False when out of memory.
bool make_list(const char *text, Owned<char> &list) {
    if (!text || !*text) return true;
    const size_t length = strlen(text);
    list = allocate<char>(length + 2);
    if (!list) return false;
    for (size_t i = 0; i < length; i++) list[i] = text[i] == ':' ? '\0' : text[i];
    list[length] = list[length + 1] = '\0';
    return true;
}

bool list_holds(const char *list, const char *text) {
    if (!list) return false;
    for (; *list; list += strlen(list) + 1)
        if (strcasecmp(list, text) == 0) return true;
    return false;
}

img_codec *codec_create_and_link(img_lib_handle &handle, const char *extensions, const char *mime_types) {
    Owned<img_codec> codec = allocate_zeroed<img_codec>();
    Owned<char> extension_list, mime_list;
    if (!codec || !make_list(extensions, extension_list) || !make_list(mime_types, mime_list)) return nullptr;
    codec->extensions = extension_list.release();
    codec->mime_types = mime_list.release();
    codec->next = handle.head;
    handle.head = codec.release();
    return handle.head;
}

bool holds(img_codec *const *codecs, uint32_t count, const img_codec *codec) {
    for (uint32_t i = 0; i < count; i++)
        if (codecs[i] == codec) return true;
    return false;
}

// Counts the codecs for which match returns true, and stores as many of them as there is room for.
template <typename Match> uint32_t list_matching(img_lib_handle &handle, img_codec **out, uint32_t max, Match match) {
    uint32_t count = 0;
    for (img_codec *codec = handle.head; codec; codec = codec->next) {
        if (!match(*codec)) continue;
        if (count < max) out[count] = codec;
        count++;
    }
    return count;
}

} // namespace

img_codec *img_codec_register_dll(img_lib_handle *handle, const char *path, const char *extensions,
                                  const char *mime_types) {
    Owned<char> path_copy = copy_text(path);
    if (!path_copy) return nullptr;
    img_codec *codec = codec_create_and_link(*handle, extensions, mime_types);
    if (codec) codec->path = path_copy.release();
    return codec;
}

img_codec *img_codec_register(img_lib_handle *handle, img_getfuncs_func *getfuncs, const char *extensions,
                              const char *mime_types) {
    img_codec *codec = codec_create_and_link(*handle, extensions, mime_types);
    if (!codec) return nullptr;
    if (getfuncs(&codec->funcs, sizeof codec->funcs) != IMG_ST_OK) {
        img_codec_deregister(handle, codec);
        return nullptr;
    }
    return codec;
}

void img_codec_deregister(img_lib_handle *handle, img_codec *codec) {
    for (img_codec **link = &handle->head; *link; link = &(*link)->next) {
        if (*link == codec) {
            *link = codec->next;
            break;
        }
    }
    codec_release(codec);
}

uint32_t img_codec_list(img_lib_handle *handle, img_codec **out, uint32_t max, img_codec *const *exclude,
                        uint32_t nexclude) {
    return list_matching(*handle, out, max, [&](const img_codec &codec) { return !holds(exclude, nexclude, &codec); });
}

uint32_t img_codec_list_byext(img_lib_handle *handle, const char *path, img_codec **out, uint32_t max) {
    const char *dot = strrchr(path, '.');
    if (!dot || !dot[1]) return 0;
    return list_matching(*handle, out, max,
                         [&](const img_codec &codec) { return list_holds(codec.extensions, dot + 1); });
}

uint32_t img_codec_list_bymime(img_lib_handle *handle, const char *mime_type, img_codec **out, uint32_t max) {
    return list_matching(*handle, out, max,
                         [&](const img_codec &codec) { return list_holds(codec.mime_types, mime_type); });
}

void img_codec_get_criteria(img_codec *codec, const char **extensions, const char **mime_types) {
    if (extensions) *extensions = codec->extensions;
    if (mime_types) *mime_types = codec->mime_types;
}
