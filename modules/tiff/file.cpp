// SPDX-License-Identifier: MIT
//
// A file in memory for libtiff. Nothing is printed, and nothing of libtiff that all users of the process share is changed.
#include "modules/tiff/tiff.h"

#include <stdio.h>
#include <string.h>

namespace tiff_module {

namespace {

File &of(thandle_t handle) { return *static_cast<File *>(handle); }

tmsize_t read_bytes(thandle_t handle, void *dst, tmsize_t size) {
    File &file = of(handle);
    if (file.position >= file.length || size <= 0) return 0;
    const size_t count = std::min(static_cast<size_t>(size), file.length - file.position);
    memcpy(dst, file.bytes.get() + file.position, count);
    file.position += count;
    return static_cast<tmsize_t>(count);
}

bool reserve(File &file, size_t size) {
    if (size <= file.capacity) return true;
    const size_t capacity = std::max({size, file.capacity * 2, size_t{64} * 1024});
    void *larger = realloc(file.bytes.get(), capacity);
    if (!larger) return false;
    static_cast<void>(file.bytes.release());
    file.bytes.reset(static_cast<uint8_t *>(larger));
    file.capacity = capacity;
    return true;
}

tmsize_t write_bytes(thandle_t handle, void *src, tmsize_t size) {
    File &file = of(handle);
    if (size <= 0) return 0;
    const auto count = static_cast<size_t>(size);
    if (count > SIZE_MAX / 4 - file.position || !reserve(file, file.position + count)) {
        file.failure = no_memory;
        return 0;
    }
    if (file.position > file.length) memset(file.bytes.get() + file.length, 0, file.position - file.length);
    memcpy(file.bytes.get() + file.position, src, count);
    file.position += count;
    file.length = std::max(file.length, file.position);
    return size;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    File &file = of(handle);
    const toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file.position : file.length;
    if (base + offset > SIZE_MAX / 4) return static_cast<toff_t>(-1);
    file.position = static_cast<size_t>(base + offset);
    return file.position;
}

int close(thandle_t) { return 0; }
toff_t size_of(thandle_t handle) { return of(handle).length; }

int map(thandle_t handle, void **base, toff_t *size) {
    *base = of(handle).bytes.get();
    *size = of(handle).length;
    return 1;
}
void unmap(thandle_t, void *, toff_t) {}

// libtiff says only in words what went wrong.
int on_error(TIFF *, void *data, const char *, const char *format, va_list) {
    img_status &failure = static_cast<File *>(data)->failure;
    if (strstr(format, "limit defined in open options"))
        failure = over_limit;
    else if (strstr(format, "emory") || strstr(format, "o space"))
        failure = no_memory;
    return 1; // no other handler is to be asked
}
// A palette that cannot be read makes libtiff call its indices grey.
int on_warning(TIFF *, void *data, const char *, const char *format, va_list arguments) {
    char text[256];
    vsnprintf(text, sizeof text, format, arguments);
    if (strstr(text, "\"ColorMap\"")) static_cast<File *>(data)->lost_palette = true;
    return 1;
}

} // namespace

TIFF *File::open(const char *mode) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (!options) {
        failure = no_memory;
        return nullptr;
    }
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, max_allocation);
    TIFFOpenOptionsSetErrorHandlerExtR(options, on_error, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, on_warning, this);
    TIFF *tif = TIFFClientOpenExt("", mode, this, read_bytes, write_bytes, seek, close, size_of, map, unmap, options);
    TIFFOpenOptionsFree(options);
    return tif;
}

} // namespace tiff_module
