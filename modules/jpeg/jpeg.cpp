// SPDX-License-Identifier: MIT
//
// The entry of the JPEG module, and what libjpeg reports.
#include "modules/jpeg/jpeg.h"

namespace jpeg {

void State::on_error(j_common_ptr libjpeg) {
    auto &state = *static_cast<State *>(libjpeg->client_data);
    switch (libjpeg->err->msg_code) {
    case JERR_OUT_OF_MEMORY:
        state.leave(no_memory);
    case JERR_ARITH_NOTIMPL:
    case JERR_BAD_PRECISION:
    case JERR_CONVERSION_NOTIMPL:
    case JERR_FRACT_SAMPLE_NOTIMPL:
    case JERR_NOT_COMPILED:
    case JERR_SOF_UNSUPPORTED:
        state.leave(unsupported);
    default:
        state.leave();
    }
}

// Levels below 0 are warnings, the others traces.
void State::on_message(j_common_ptr libjpeg, int level) {
    auto &state = *static_cast<State *>(libjpeg->client_data);
    if (level >= 0) return;
    state.cut_ |= state.ended_ && libjpeg->err->msg_code == JWRN_HIT_MARKER;
    if (libjpeg->err->num_warnings++ == 0) libjpeg->err->format_message(libjpeg, state.warning_);
}

void State::begin(jpeg_common_struct *libjpeg) {
    libjpeg->err = jpeg_std_error(&errors_);
    libjpeg->client_data = this;
    errors_.error_exit = on_error;
    errors_.emit_message = on_message;
}

} // namespace jpeg

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return codec::functions_of<jpeg::Reader, jpeg::Writer>(table, size);
}
