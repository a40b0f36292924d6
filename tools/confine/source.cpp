// SPDX-License-Identifier: MIT
#include "tools/confine/source.h"

#include <utility>

namespace confine {

img_status Source::open(int descriptor) {
    stream_.reset(io_open(IO_FD, IO_READ, descriptor));
    return stream_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

bool Source::is_empty() const {
    uint8_t byte;
    return !stream_->read(stream_->self, &byte, 1) || stream_->unread(stream_->self, &byte, 1) != 0;
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

} // namespace confine
