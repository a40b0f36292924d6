// SPDX-License-Identifier: MIT
//
// A stream with the codec that reads it, picture after picture.
#pragma once

#include "pictra/pictra.h"

#include <memory>
#include <vector>

namespace confine {

struct Close {
    void operator()(io_handle *stream) const { io_close(stream); }
};
using Stream = std::unique_ptr<io_handle, Close>;

// Statuses are the library's.
class Source {
public:
    Source() = default;
    ~Source() { finish(); }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    img_status open(int descriptor);
    bool is_empty() const;                                         // before anything was read; a pipe tells no sooner
    img_status accept(const std::vector<img_codec *> &candidates); // begins with the first that takes the stream
    img_status next(const img_decode_callouts &callouts,
                    img_record &record); // IMG_ST_WRONGFORMAT: there is no further one
    img_status finish();

    io_handle *stream() const { return stream_.get(); }
    img_codec *codec() const { return codec_; }

private:
    Stream stream_;
    img_codec *codec_ = nullptr;
    void *state_ = nullptr;
};

} // namespace confine
