// SPDX-License-Identifier: MIT
//
// What the parts of the JPEG module share: libjpeg under control.
//
// libjpeg reports errors by longjmp. It is called from guarded() only; what runs inside has no object with a destructor,
// and everything that changes there lives in the state on the heap, which is released after the jump.
#pragma once

#include "modules/common/exif.h"
#include "modules/common/layout.h"

#include <setjmp.h>
#include <stdio.h>

// libjpeg's header needs the one above.
#include <jerror.h>
#include <jpeglib.h>

namespace module {

// What the markers of metadata begin with, zeros included.
inline constexpr char exif_mark[] = "Exif\0";
inline constexpr char xmp_mark[] = "http://ns.adobe.com/xap/1.0/";
inline constexpr char icc_mark[] = "ICC_PROFILE";
inline constexpr size_t max_marker = 65533;
inline constexpr size_t block_size = 16 * 1024;

struct State {
    jpeg_error_mgr errors;
    jmp_buf jump;
    img_status failure;            // what a jump out of libjpeg means, unless its error says more
    bool cut;                      // it lacked bytes of the picture
    bool ended;                    // the stream has no more
    char warning[JMSG_LENGTH_MAX]; // the first one
    io_handle *stream;
    uint8_t block[block_size]; // of the stream

    // Gives libjpeg what both directions have in common.
    void begin(jpeg_common_struct *codec, io_handle *stream);
};

// The state of a direction, in one of libjpeg's functions.
template <typename S, typename Codec> S &state_of(Codec *codec) {
    return *static_cast<S *>(static_cast<State *>(codec->client_data));
}

template <typename S> img_status guarded(S &state, img_status (*step)(S &)) {
    if (setjmp(state.jump)) return state.failure;
    return step(state);
}

// The format as libjpeg names it. Of those that layout.h knows without alpha.
inline J_COLOR_SPACE color_space_of(img_format format) {
    const Layout *layout = layout_of(format);
    if (!layout) return JCS_GRAYSCALE;
    if (layout->fourth == Fourth::none) return layout->blue_first ? JCS_EXT_BGR : JCS_EXT_RGB;
    if (layout->fourth == Fourth::last) return layout->blue_first ? JCS_EXT_BGRX : JCS_EXT_RGBX;
    return layout->blue_first ? JCS_EXT_XBGR : JCS_EXT_XRGB;
}

img_status jpeg_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);

} // namespace module
