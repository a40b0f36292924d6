// SPDX-License-Identifier: MIT
#include "tools/files/source.h"

#include "tools/text.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tool {

Input::Input(const std::string &path)
    : path_(path), name_(path == "-" ? "standard input" : path),
      descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        throw Failure(path + ": " + strerror(errno) + (errno == EACCES ? "; check its rights" : "; check the name"),
                      IMG_ST_FILE);
    struct stat about;
    if (fstat(descriptor_, &about) != 0) return;
    const bool is_directory = S_ISDIR(about.st_mode), is_empty = S_ISREG(about.st_mode) && about.st_size == 0;
    if (S_ISREG(about.st_mode)) size_ = static_cast<uint64_t>(about.st_size);
    if (!is_directory && !is_empty) return;
    if (path != "-") close(descriptor_);
    if (is_directory) throw Failure(name_ + ": it is a directory; name a picture in it", IMG_ST_FILE);
    throw Failure(name_ + ": the file is empty; get it again", IMG_ST_RESERVED4);
}

Input::~Input() {
    if (descriptor_ != STDIN_FILENO) close(descriptor_);
}

bool Input::rewind() const { return lseek(descriptor_, 0, SEEK_SET) == 0; }

img_status Source::open(int descriptor) {
    stream_.reset(io_open(IO_FD, IO_READ, descriptor));
    return stream_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

img_status Source::accept(const std::vector<img_codec *> &candidates) {
    uint32_t index = 0;
    const auto count = static_cast<uint32_t>(candidates.size());
    if (const img_status status = img_decode_validate(candidates.data(), count, stream_.get(), &index)) return status;
    if (const img_status status = img_decode_begin(candidates[index], stream_.get(), &state_)) return status;
    codec_ = candidates[index];
    return IMG_ST_OK;
}

img_status Source::next(const img_decode_callouts &callouts, img_record &record) {
    return img_decode_frame(codec_, stream_.get(), &callouts, &record, &state_);
}

img_status Source::finish() {
    img_codec *codec = std::exchange(codec_, nullptr);
    return codec ? img_decode_finish(codec, stream_.get(), &state_) : img_status{IMG_ST_OK};
}

} // namespace tool
