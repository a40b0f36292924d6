// SPDX-License-Identifier: MIT
//
// Loading: asks the codecs in turn, then runs begin, frame and finish of the one that accepts the stream.
#include "codec/stream_file.h"
#include "core/owned.h"
#include "core/record.h"

using namespace img;

namespace {

// The codecs to ask, in order.
class Candidates {
public:
    explicit Candidates(uint32_t count) : list_(allocate<img_codec *>(count)) {}
    explicit operator bool() const { return bool{list_}; }
    img_codec **list() const { return list_.get(); }

    // Finds the codec that accepts the stream.
    img_status validate(uint32_t count, io_handle *stream, img_codec *&codec) const {
        uint32_t index = 0;
        const img_status status = img_decode_validate(list_.get(), count, stream, &index);
        codec = status ? nullptr : list_[index];
        return status;
    }

private:
    Owned<img_codec *> list_;
};

img_status decode(img_codec *codec, io_handle *stream, const img_decode_callouts *callouts, img_record *record) {
    void *state = nullptr;
    if (const img_status status = img_decode_begin(codec, stream, &state)) return status;
    const img_status status = img_decode_frame(codec, stream, callouts, record, &state);
    const img_status finished = img_decode_finish(codec, stream, &state);
    return status ? status : finished;
}

img_status load_by_extension(img_lib_handle *handle, const char *path, io_handle *stream,
                             const img_decode_callouts *callouts, img_record *record) {
    const uint32_t total = img_codec_list(handle, nullptr, 0, nullptr, 0);
    const Candidates matching{total};
    if (!matching) return IMG_ST_NOMEM;
    const uint32_t nmatching = img_codec_list_byext(handle, path, matching.list(), total);
    img_codec *codec;
    const img_status status = matching.validate(nmatching, stream, codec);
    if (status == IMG_ST_OK) return decode(codec, stream, callouts, record);

    const Candidates others{total - nmatching};
    if (!others) return status;
    const uint32_t nothers = img_codec_list(handle, others.list(), total - nmatching, matching.list(), nmatching);
    // Kept: When no codec accepts a file, the status is that of the codecs of its extension.
    if (others.validate(nothers, stream, codec) != IMG_ST_OK) return status;
    return decode(codec, stream, callouts, record);
}

} // namespace

img_status img_load(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                    img_record *record) {
    const uint32_t total = img_codec_list(handle, nullptr, 0, nullptr, 0);
    const Candidates all{total};
    if (!all) return IMG_ST_NOMEM;
    img_codec_list(handle, all.list(), total, nullptr, 0);
    img_codec *codec;
    if (const img_status status = all.validate(total, stream, codec)) return status;
    return decode(codec, stream, callouts, record);
}

img_status img_load_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                         img_record *record) {
    const FileStream file{path, IO_READ};
    if (!file.opened()) return IMG_ST_FILE;
    if (!file.stream()) return IMG_ST_NOMEM;
    return load_by_extension(handle, path, file.stream(), callouts, record);
}
