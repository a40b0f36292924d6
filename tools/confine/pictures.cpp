// SPDX-License-Identifier: MIT
#include "tools/confine/pictures.h"

#include "tools/confine/thumbnail.h"

#include <utility>

namespace confine {

Report Pictures::next(const std::vector<img_codec *> &candidates, img_record &record) {
    record = {};
    if (task_.format) {
        record.format = task_.format;
        record.flags = IMG_F_FORMAT | (record.format & IMG_FMT_ALPHA ? IMG_F_WANT_ALPHA : 0);
    }
    const img_decode_callouts callouts = listener_.begin();
    if (!std::exchange(begun_, true) && source_.is_empty()) return {IMG_ST_DAMAGED, Refusal::empty};
    const img_status status = decode(candidates, callouts, record);
    return listener_.finish(status, record);
}

img_status Pictures::decode(const std::vector<img_codec *> &candidates, const img_decode_callouts &callouts,
                            img_record &record) {
    if (task_.thumbnail) return decode_thumbnail(library_, source_.stream(), callouts, record);
    if (!source_.codec())
        if (const img_status status = candidates.empty() ? img_status{IMG_ST_NOCODEC} : source_.accept(candidates))
            return status;
    return source_.next(callouts, record);
}

Report write_picture(img_lib_handle &library, img_codec *codec, int file, const Task &task, img_record picture,
                     bool (*stopped)()) {
    Listener listener(task, nullptr, stopped);
    const Stream stream(io_open(IO_FD, IO_WRITE, file));
    if (!stream) return listener.finish(IMG_ST_NOMEM);
    const img_encode_callouts callouts = listener.begin_writing();
    picture.flags |= IMG_F_ANSWERS;
    img_status status = img_write(&library, stream.get(), &callouts, &picture, &codec);
    if (status == IMG_ST_OK && io_ostream_flush(stream->self) != 0) status = IMG_ST_FILE;
    return listener.finish(status);
}

} // namespace confine
