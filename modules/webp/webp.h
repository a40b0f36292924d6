// SPDX-License-Identifier: MIT
//
// The WebP codec module, on libwebp. A still picture is decoded while it is read, at the size that the caller wants; an
// animation is held as it is in the file, and each frame gives the whole canvas.
#pragma once

#include "modules/common/entry.h"
#include "modules/common/exif.h"
#include "modules/common/transparency.h"

#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>

namespace webp {

using namespace codec;

// A file as far as it has been read, and no further than it says that it goes.
class File {
public:
    img_status begin(io_handle &stream, Decoding &picture);
    img_status more(); // one portion; damaged where the stream ends too early
    img_status all();
    void drop_cut_chunk(); // of a file that ends too early: what is left is a file of the chunks that are all there

    bool complete() const { return size_ == whole_; }
    bool cut() const { return cut_; }
    const uint8_t *bytes() const { return bytes_.data(); }
    size_t size() const { return size_; }
    WebPData data() const { return {bytes(), size()}; }

private:
    io_handle *stream_ = nullptr;
    Decoding *picture_ = nullptr;
    Buffer bytes_;
    uint64_t whole_ = 0;
    size_t size_ = 0;
    bool cut_ = false;
};

struct DeleteDemuxer {
    void operator()(WebPDemuxer *demuxer) const { WebPDemuxDelete(demuxer); }
};
struct DeleteAnimation {
    void operator()(WebPAnimDecoder *animation) const { WebPAnimDecoderDelete(animation); }
};

// A file may follow another in the stream, so a Reader begins anew where the pictures of one end.
class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = true;
    static bool recognises(const Signature &start);

    using BaseReader::BaseReader;
    img_status frame();

private:
    bool more_frames() const;
    void forget_file();
    img_status begin_file();
    img_status read_features();
    img_status report_chunks();
    img_status report_values();

    void choose_size(WebPDecoderOptions &options);
    img_status hold_planes();
    img_status set_output(WebPDecBuffer &output);
    img_status deliver(uint32_t end);
    img_status decode_rows(WebPIDecoder &decoder);
    img_status decode_still();

    img_status open_animation();
    img_status report_frame();
    img_status begin_animation();
    img_status decode_canvas();

    File file_;
    WebPBitstreamFeatures features_{};
    Bytes rows_;        // of a still picture that cannot be decoded in place
    uint32_t done_ = 0; // rows delivered of it

    std::unique_ptr<WebPDemuxer, DeleteDemuxer> frames_;          // of an animation
    std::unique_ptr<WebPAnimDecoder, DeleteAnimation> animation_; // once pixels are wanted
    Size canvas_{};
    int next_frame_ = 1;
};

// The format needs all of a picture at once, and the file's size before its content.
class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = false;

    Writer(io_handle &stream, Encoding &picture) : BaseWriter(stream, picture) { WebPMemoryWriterInit(&file_); }
    ~Writer();
    img_status frame();

private:
    static int on_progress(int percent, const WebPPicture *pixels);
    img_status ask();
    img_status fill();
    img_status encode();
    img_status verify() const;
    img_status finish();

    TransparentRows transparent_;
    Metadata metadata_;
    WebPConfig config_{};
    WebPPicture pixels_{};
    WebPMemoryWriter file_;
    img_status stopped_ = ok; // by the caller, in the middle
};

} // namespace webp
