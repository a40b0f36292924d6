// SPDX-License-Identifier: MIT
//
// The PNG codec module, on libpng: its entry.
#include "modules/png/png.h"

using namespace codec;

namespace {

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    return signature.length >= 8 && png_sig_cmp(signature.bytes, 0, 8) == 0 ? ok : wrong_format;
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **) {
    if (const img_status status = decode_validate(stream)) return status;
    const auto reader = make<png::Reader>();
    if (!reader) return no_memory;
    Decoding picture;
    picture.begin(*callouts, *record);
    bool strict;
    if (const img_status status = png::ask_strict(picture, strict)) return status;
    return reader->read(*stream, picture, strict);
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_frame, nullptr, want_large_buffer,
                       encode_file<png::Writer>, nullptr});
}
