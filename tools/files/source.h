// SPDX-License-Identifier: MIT
//
// A file or standard input with the codec that reads it.
#pragma once

#include "tools/config.h"

#include <memory>
#include <string>
#include <vector>

namespace tool {

struct Close {
    void operator()(io_handle *stream) const { io_close(stream); }
};
using Stream = std::unique_ptr<io_handle, Close>;

// An open file; closed when it goes.
class Input {
public:
    explicit Input(const std::string &path); // "-" is standard input; fails with a message
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    const std::string &name() const { return name_; } // for messages
    const std::string &path() const { return path_; }
    int descriptor() const { return descriptor_; }
    bool rewind() const;                    // false where that is impossible
    uint64_t size() const { return size_; } // 0 if unknown

private:
    std::string path_, name_;
    int descriptor_;
    uint64_t size_ = 0;
};

// A stream with the codec that reads it, picture after picture. Statuses are the library's.
class Source {
public:
    Source() = default;
    ~Source() { finish(); }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    img_status open(int descriptor);
    img_status accept(const std::vector<img_codec *> &candidates); // begins with the first that takes the stream
    img_status next(const img_decode_callouts &callouts,
                    img_record &record); // IMG_ST_RESERVED1: there is no further one
    img_status finish();

    io_handle *stream() const { return stream_.get(); }
    img_codec *codec() const { return codec_; }

private:
    Stream stream_;
    img_codec *codec_ = nullptr;
    void *state_ = nullptr;
};

} // namespace tool
