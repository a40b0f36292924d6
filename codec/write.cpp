// SPDX-License-Identifier: MIT
//
// Writing: runs begin, frame and finish of one codec, to a stream or to a file. An incomplete file is removed.
#include "codec/stream_file.h"

#include <unistd.h>

using namespace img;

img_status img_write(img_lib_handle *, io_handle *stream, const img_encode_callouts *callouts, img_record *image,
                     img_codec *const *codecs) {
    img_codec *codec = codecs[0];
    void *state = nullptr;
    if (const img_status status = img_encode_begin(codec, stream, &state)) return status;
    const img_status status = img_encode_frame(codec, stream, callouts, image, &state);
    const img_status finished = img_encode_finish(codec, stream, &state);
    return status ? status : finished;
}

img_status img_write_file(img_lib_handle *handle, const char *path, const img_encode_callouts *callouts,
                          img_record *image) {
    img_codec *codec;
    if (!img_codec_list_byext(handle, path, &codec, 1)) return IMG_ST_NOCODEC;
    img_status status;
    { // Kept: img_write_file does not notice a disk that is full at the final flush.
        const FileStream file{path, IO_WRITE};
        if (!file.opened()) return IMG_ST_FILE;
        status = file.stream() ? img_write(handle, file.stream(), callouts, image, &codec) : img_status{IMG_ST_NOMEM};
    }
    if (status != IMG_ST_OK) unlink(path);
    return status;
}
