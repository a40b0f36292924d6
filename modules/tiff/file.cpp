// SPDX-License-Identifier: MIT
//
// A file in memory for libtiff. Nothing is printed, and nothing of libtiff that all users of the process share is changed.
#include "modules/tiff/tiff.h"

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

namespace tif {

namespace {

constexpr size_t first_block = 64 * 1024; // of a file that is written

File &of(thandle_t handle) { return *static_cast<File *>(handle); }

tmsize_t read_bytes(thandle_t handle, void *dst, tmsize_t size) {
    File &file = of(handle);
    if (file.position >= file.length || size <= 0) return 0;
    const size_t count = std::min(static_cast<size_t>(size), file.length - file.position);
    memcpy(dst, file.bytes.data() + file.position, count);
    file.position += count;
    return static_cast<tmsize_t>(count);
}

tmsize_t write_bytes(thandle_t handle, void *src, tmsize_t size) {
    File &file = of(handle);
    if (size <= 0) return 0;
    const auto count = static_cast<size_t>(size);
    if (count > SIZE_MAX / 4 - file.position || !file.bytes.grow(std::max(first_block, file.position + count))) {
        file.failure = no_memory;
        file.failed = true;
        return 0;
    }
    if (file.position > file.length) memset(file.bytes.data() + file.length, 0, file.position - file.length);
    memcpy(file.bytes.data() + file.position, src, count);
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
    *base = of(handle).bytes.data();
    *size = of(handle).length;
    return 1;
}
void unmap(thandle_t, void *, toff_t) {}

void keep_first(File &file, const char *format, va_list arguments) {
    if (!file.message[0]) vsnprintf(file.message, sizeof file.message, format, arguments);
}

// libtiff says only in words what went wrong.
int on_error(TIFF *, void *data, const char *, const char *format, va_list arguments) {
    auto &file = *static_cast<File *>(data);
    file.failed = true;
    if (strstr(format, "limit defined in open options")) {
        char text[256];
        va_list copy;
        va_copy(copy, arguments);
        vsnprintf(text, sizeof text, format, copy);
        va_end(copy);
        const char *figures = strstr(text, "Memory allocation of");
        if (figures) sscanf(figures, "Memory allocation of %" SCNu64 " bytes", &file.limit.needed);
        file.failure = over_limit;
    } else if (strstr(format, "emory") || strstr(format, "o space")) {
        file.failure = no_memory;
    }
    keep_first(file, format, arguments);
    return 1; // no other handler is to be asked
}

// A palette that cannot be read makes libtiff call its indices grey. Tags of others are no damage.
int on_warning(TIFF *, void *data, const char *, const char *format, va_list arguments) {
    auto &file = *static_cast<File *>(data);
    if (strstr(format, "Unknown field with tag")) return 1;
    char text[sizeof file.message];
    va_list copy;
    va_copy(copy, arguments);
    vsnprintf(text, sizeof text, format, copy);
    va_end(copy);
    if (strstr(text, "\"ColorMap\"")) file.lost_palette = true;
    keep_first(file, format, arguments);
    return 1;
}

} // namespace

void File::begin_page() {
    failure = ok;
    failed = lost_palette = false;
    message[0] = '\0';
}

TIFF *File::open(const char *mode, uint64_t most_at_once) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (!options) {
        failure = no_memory;
        return nullptr;
    }
    limit.allowed = std::min(most_at_once, max_allocation);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(limit.allowed));
    TIFFOpenOptionsSetErrorHandlerExtR(options, on_error, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, on_warning, this);
    TIFF *tif = TIFFClientOpenExt("", mode, this, read_bytes, write_bytes, seek, close, size_of, map, unmap, options);
    TIFFOpenOptionsFree(options);
    return tif;
}

} // namespace tif
