// SPDX-License-Identifier: MIT
#include "tools/picture.h"

#include "tools/text.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

namespace tool {

namespace {

// What the library's status would tell less clearly.
void check_readable(const std::string &path) {
    struct stat about;
    if (stat(path.c_str(), &about) != 0) throw Failure(path + ": " + strerror(errno) + "; check the name");
    if (S_ISDIR(about.st_mode)) throw Failure(path + ": it is a directory; name a picture in it");
    if (S_ISREG(about.st_mode) && about.st_size == 0) throw Failure(path + ": the file is empty; get it again");
}

img_status load_from_input(img_lib_handle &library, img_record &record) {
    const Stream stream(io_open(IO_FD, IO_READ, 0));
    return stream ? img_load(&library, stream.get(), nullptr, &record) : img_status{IMG_ST_NOMEM};
}

} // namespace

Picture::Picture(img_lib_handle &library, const std::string &path, std::optional<img_format> format) {
    if (format) {
        record_.format = *format;
        record_.flags = IMG_F_FORMAT | (*format & IMG_FMT_ALPHA ? IMG_F_WANT_ALPHA : 0);
    }
    const bool input = path == "-";
    if (!input) check_readable(path);
    const img_status status =
        input ? load_from_input(library, record_) : img_load_file(&library, path.c_str(), nullptr, &record_);
    if (status == IMG_ST_FILE && !input) throw Failure(path + ": " + strerror(errno) + "; check its rights");
    if (status == IMG_ST_NOCONV && format)
        throw Failure(path + ": the picture cannot become " + format_name(*format) + "; choose another with --format");
    if (status != IMG_ST_OK) throw Failure(explain(input ? "standard input" : path, status));
}

img_status Picture::convert(img_format format) {
    if (record_.format == format) return IMG_ST_OK;
    img_record converted{};
    converted.format = format;
    converted.flags = IMG_F_FORMAT;
    if (const img_status status = img_dtransform(&record_, &converted)) return status;
    release();
    record_ = converted;
    return IMG_ST_OK;
}

// The library makes pixels and palette in one block.
void Picture::release() {
    if (record_.flags & IMG_F_DIRECT) free(record_.data);
}

} // namespace tool
