// SPDX-License-Identifier: MIT
//
// The codec module of WebP: reading. A still picture is decoded while it is read, at the size that the caller wants; an
// animation is held as it is in the file, and each frame gives the whole canvas.
#include "modules/webp/webp.h"

#include "modules/common/buffer.h"
#include "modules/common/bytes.h"
#include "modules/common/exif.h"
#include "modules/common/layout.h"

#include <algorithm>
#include <string.h>
#include <webp/decode.h>
#include <webp/demux.h>

using namespace module;

namespace {

constexpr uint64_t max_file = uint64_t{1} << 30;
constexpr size_t portion = 64 * 1024;
constexpr uint32_t max_frames = 10'000;
constexpr size_t riff_size = 12;

// A file as far as it has been read, and no further than it says that it goes.
class File {
public:
    img_status begin(io_handle &stream, Decoding &picture) {
        stream_ = &stream;
        picture_ = &picture;
        uint8_t riff[riff_size];
        if (read_up_to(stream, riff, sizeof riff) != sizeof riff) return damaged;
        whole_ = uint64_t{little32(riff + 4)} + 8;
        if (whole_ > max_file) return picture.refuse({"file size", whole_, max_file});
        if (whole_ < sizeof riff) return damaged;
        whole_ += whole_ & 1;
        if (const img_status status = bytes_.grow(picture, std::min<uint64_t>(portion, whole_), whole_)) return status;
        memcpy(bytes_.data(), riff, sizeof riff);
        size_ = sizeof riff;
        return ok;
    }

    // One portion more. Memory grows with what is there, not with what the file says.
    img_status more() {
        const size_t wanted = std::min<uint64_t>(portion, whole_ - size_);
        if (const img_status status = bytes_.grow(*picture_, size_ + wanted, whole_)) return status;
        const size_t got = read_up_to(*stream_, bytes_.data() + size_, wanted);
        size_ += got;
        return got < wanted ? damaged : ok;
    }
    img_status all() {
        while (!complete())
            if (const img_status status = more())
                return status;
            else if (const img_status stopped = picture_->keep_alive(0))
                return stopped;
        return ok;
    }

    // Of a file that ends too early, keeps the chunks that are all there, as a file of their own.
    void drop_cut_chunk() {
        constexpr uint64_t chunk_header = 8;
        size_t end = riff_size;
        while (size_ - end >= chunk_header) {
            const uint64_t size = chunk_header + little32(bytes() + end + 4);
            if (size + (size & 1) > size_ - end) break;
            end += size + (size & 1);
        }
        whole_ = size_ = end;
        put_little32(bytes_.data() + 4, static_cast<uint32_t>(end - chunk_header));
        cut_ = true;
    }

    bool complete() const { return size_ == whole_; }
    bool cut() const { return cut_; }
    const uint8_t *bytes() const { return bytes_.data(); }
    size_t size() const { return size_; }

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

// What lives between the frames of an animation.
struct Reader {
    File file;
    std::unique_ptr<WebPDemuxer, DeleteDemuxer> frames; // of an animation
    WebPAnimDecoder *animation = nullptr;               // once pixels are wanted
    Size canvas_size{};
    int next_frame = 1;
    Decoding picture;
    Bytes canvas; // a still picture that cannot be decoded in place

    ~Reader() { WebPAnimDecoderDelete(animation); }
    bool more_frames() const {
        return frames && static_cast<uint32_t>(next_frame) <= WebPDemuxGetI(frames.get(), WEBP_FF_FRAME_COUNT);
    }
};

// What libwebp makes of a layout; MODE_LAST for those it does not.
WEBP_CSP_MODE mode_of(const Layout &layout) {
    switch (layout.fourth) {
    case Fourth::none:
        return layout.blue_first ? MODE_BGR : MODE_RGB;
    case Fourth::last:
        return layout.blue_first ? MODE_BGRA : MODE_RGBA;
    default:
        return layout.blue_first ? MODE_LAST : MODE_ARGB;
    }
}

Offer offer_for(bool alpha) {
    Offer offer;
    if (alpha)
        for (const Layout &layout : alpha_layouts)
            if (mode_of(layout) != MODE_LAST) offer.add(layout.format);
    for (const Layout &layout : opaque_layouts)
        if (mode_of(layout) != MODE_LAST) offer.add(layout.format);
    return offer;
}

// ---- Values ----

img_status report_chunks(const Reader &r) {
    const WebPData data{r.file.bytes(), r.file.size()};
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemux(&data));
    if (!demuxer) return r.picture.warn("its metadata cannot be read");
    img_status status = ok;
    const auto report = [&](const char *name, auto tell) {
        WebPChunkIterator chunk;
        if (status || !WebPDemuxGetChunk(demuxer.get(), name, 1, &chunk)) return;
        status = tell(chunk.chunk.bytes, chunk.chunk.size);
        WebPDemuxReleaseChunkIterator(&chunk);
    };
    report("ICCP",
           [&](const uint8_t *bytes, size_t size) { return report_block(r.picture, IMG_VALUE_ICC, bytes, size); });
    report("EXIF", [&](const uint8_t *bytes, size_t size) {
        const size_t mark = size >= 6 && memcmp(bytes, "Exif\0", 6) == 0 ? 6 : 0; // some writers put it there
        return report_exif(r.picture, bytes + mark, size - mark);
    });
    report("XMP ",
           [&](const uint8_t *bytes, size_t size) { return report_block(r.picture, IMG_VALUE_XMP, bytes, size); });
    return status;
}

// EXIF and XMP stand behind the pixels, so a file that has metadata is read before any of it is decoded.
img_status report_values(Reader &r) {
    constexpr size_t flags_at = 20;
    constexpr uint8_t metadata_flags = 0x20 | 0x08 | 0x04;
    if (!r.picture.listens()) return ok;
    if (const img_status status = r.picture.report(IMG_VALUE_DEPTH, 8)) return status;
    const uint8_t *bytes = r.file.bytes();
    const bool extended = r.file.size() > flags_at && memcmp(bytes + riff_size, "VP8X", 4) == 0;
    if (!extended || !(bytes[flags_at] & metadata_flags)) return ok;
    const img_status status = r.file.all();
    if (status == damaged) return ok; // there may be rows all the same
    return status ? status : report_chunks(r);
}

// ---- A still picture ----

struct DeleteDecoder {
    void operator()(WebPIDecoder *decoder) const { WebPIDelete(decoder); }
};

// Any size that is not above the picture's. A side that does not matter keeps the proportions.
void choose_size(Reader &r, const WebPBitstreamFeatures &features, WebPDecoderOptions &options) {
    const auto width = static_cast<uint32_t>(features.width), height = static_cast<uint32_t>(features.height);
    const auto in_proportion = [](uint32_t side, uint32_t to, uint32_t from) {
        return static_cast<uint32_t>((uint64_t{side} * to + from - 1) / from);
    };
    Size size = r.picture.wanted();
    if (!size.width && !size.height) return;
    if (!size.width) size.width = in_proportion(std::min(size.height, height), width, height);
    if (!size.height) size.height = in_proportion(std::min(size.width, width), height, width);
    size = {std::min(size.width, width), std::min(size.height, height)};
    if (size.width == width && size.height == height) return;
    options.use_scaling = 1;
    options.scaled_width = static_cast<int>(size.width);
    options.scaled_height = static_cast<int>(size.height);
    r.picture.deliver_at(size.width, size.height);
}

// libwebp keeps all pixels of a lossless picture, and the alpha of others.
img_status hold_planes(Reader &r, const WebPBitstreamFeatures &features) {
    constexpr int lossless = 2;
    const uint64_t bytes = features.format == lossless ? 4 : features.has_alpha ? 1 : 0;
    return r.picture.hold(bytes * static_cast<uint32_t>(features.width) * static_cast<uint32_t>(features.height));
}

// Where libwebp puts its rows: in the caller's buffer, or in one of our own.
img_status set_output(Reader &r, WebPDecBuffer &output) {
    const img_record &record = r.picture.record();
    const size_t own_stride = row_bytes(record.format, record.width);
    const bool in_place = record.flags & IMG_F_DIRECT;
    const size_t stride = in_place ? record.stride : own_stride;
    if (stride > INT32_MAX) return r.picture.refuse({"stride", stride, INT32_MAX});
    if (!in_place) {
        if (const img_status status = r.picture.hold(own_stride * record.height)) return status;
        if (!(r.canvas = make_bytes(own_stride * record.height))) return no_memory;
    }
    output.colorspace = mode_of(*layout_of(record.format));
    output.is_external_memory = 1;
    output.u.RGBA.rgba = in_place ? r.picture.row(0) : r.canvas.get();
    output.u.RGBA.stride = static_cast<int>(stride);
    output.u.RGBA.size = stride * (record.height - 1) + own_stride;
    return ok;
}

img_status hand_over(const Reader &r, uint32_t from, uint32_t to) {
    const img_record &record = r.picture.record();
    const size_t bytes = row_bytes(record.format, record.width);
    for (uint32_t y = from; y < to; y++) {
        if (r.canvas) memcpy(r.picture.row(y), r.canvas.get() + bytes * y, bytes);
        r.picture.hand_over(y);
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return ok;
}

img_status status_of(VP8StatusCode code) {
    switch (code) {
    case VP8_STATUS_OK:
        return ok;
    case VP8_STATUS_OUT_OF_MEMORY:
        return no_memory;
    case VP8_STATUS_UNSUPPORTED_FEATURE:
        return unsupported;
    default:
        return damaged;
    }
}

img_status decode_rows(Reader &r, WebPIDecoder &decoder) {
    uint32_t done = 0;
    for (img_status reading = ok;;) {
        const VP8StatusCode code = WebPIUpdate(&decoder, r.file.bytes(), r.file.size());
        int last = 0;
        if (WebPIDecGetRGB(&decoder, &last, nullptr, nullptr, nullptr) && static_cast<uint32_t>(last) > done) {
            if (const img_status status = hand_over(r, done, static_cast<uint32_t>(last))) return status;
            done = static_cast<uint32_t>(last);
        }
        if (code != VP8_STATUS_SUSPENDED) return status_of(code);
        if (reading || r.file.complete()) return reading ? reading : damaged;
        reading = r.file.more();
    }
}

img_status decode_still(Reader &r, const WebPBitstreamFeatures &features) {
    const auto width = static_cast<uint32_t>(features.width), height = static_cast<uint32_t>(features.height);
    const Offer offer = offer_for(features.has_alpha);
    if (const img_status status = r.picture.choose(width, height, 0, offer.formats(), offer.count())) return status;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return unsupported;
    choose_size(r, features, config.options);
    if (const img_status status = r.picture.setup()) return status;
    if (const img_status status = hold_planes(r, features)) return status;
    if (const img_status status = set_output(r, config.output)) return status;
    const std::unique_ptr<WebPIDecoder, DeleteDecoder> decoder(WebPIDecode(nullptr, 0, &config));
    if (!decoder) return no_memory;
    if (const img_status status = decode_rows(r, *decoder)) return status;
    return r.file.all(); // what follows the picture in the stream is not ours, but all of the file is
}

// ---- Animations ----

img_status open_animation(Reader &r) {
    const img_status reading = r.file.all();
    if (reading == damaged)
        r.file.drop_cut_chunk(); // the frames before it can be shown
    else if (reading)
        return reading;
    const WebPData data{r.file.bytes(), r.file.size()};
    r.frames.reset(WebPDemux(&data));
    if (!r.frames) return damaged;
    const uint32_t count = WebPDemuxGetI(r.frames.get(), WEBP_FF_FRAME_COUNT);
    if (count > max_frames) return r.picture.refuse({"frames", count, max_frames});
    r.canvas_size = {WebPDemuxGetI(r.frames.get(), WEBP_FF_CANVAS_WIDTH),
                     WebPDemuxGetI(r.frames.get(), WEBP_FF_CANVAS_HEIGHT)};
    return r.picture.check_size(r.canvas_size.width, r.canvas_size.height);
}

img_status report_frame(Reader &r) {
    if (r.next_frame == 1) {
        const uint32_t count = WebPDemuxGetI(r.frames.get(), WEBP_FF_FRAME_COUNT);
        if (const img_status status = r.picture.report(IMG_VALUE_FRAMES, count)) return status;
        const uint32_t loops = WebPDemuxGetI(r.frames.get(), WEBP_FF_LOOP_COUNT);
        if (const img_status status = r.picture.report(IMG_VALUE_LOOPS, loops)) return status;
    }
    WebPIterator frame;
    if (!WebPDemuxGetFrame(r.frames.get(), r.next_frame, &frame)) return damaged;
    const auto delay = static_cast<uint32_t>(std::max(frame.duration, 0));
    WebPDemuxReleaseIterator(&frame);
    return r.picture.report(IMG_VALUE_DELAY, delay);
}

// libwebp keeps two canvases, and all pixels of a lossless frame while it decodes that.
img_status begin_animation(Reader &r) {
    constexpr uint64_t canvases = 3;
    const uint64_t pixels = uint64_t{r.canvas_size.width} * r.canvas_size.height;
    if (const img_status status = r.picture.hold(canvases * 4 * pixels)) return status;
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return unsupported;
    options.color_mode = MODE_BGRA;
    const WebPData data{r.file.bytes(), r.file.size()};
    r.animation = WebPAnimDecoderNew(&data, &options);
    return r.animation ? ok : no_memory;
}

img_status decode_canvas(Reader &r) {
    if (const img_status status = report_frame(r)) return status;
    constexpr img_format format = word(FMT_ARGB8888HE);
    if (const img_status status = r.picture.choose(r.canvas_size.width, r.canvas_size.height, 0, &format, 1))
        return status;
    if (const img_status status = r.picture.setup()) return status;
    if (!r.animation)
        if (const img_status status = begin_animation(r)) return status;
    uint8_t *canvas;
    int until;
    if (!WebPAnimDecoderGetNext(r.animation, &canvas, &until)) return damaged;
    r.next_frame++;
    const size_t bytes = size_t{r.canvas_size.width} * 4;
    for (uint32_t y = 0; y < r.canvas_size.height; y++) {
        memcpy(r.picture.row(y), canvas + bytes * y, bytes);
        r.picture.hand_over(y);
        if (const img_status status = r.picture.progress(y + 1)) return status;
    }
    return ok;
}

// ---- The table ----

void forget(void *&state) {
    if (state) Delete<Reader>{}(static_cast<Reader *>(state));
    state = nullptr;
}

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    const uint8_t *bytes = signature.bytes;
    return signature.length >= 16 && memcmp(bytes, "RIFF", 4) == 0 && memcmp(bytes + 8, "WEBPVP8", 7) == 0
               ? ok
               : wrong_format;
}

img_status read_header(Reader &r, WebPBitstreamFeatures &features) {
    for (img_status reading = ok;;) {
        const VP8StatusCode code = WebPGetFeatures(r.file.bytes(), r.file.size(), &features);
        if (code != VP8_STATUS_NOT_ENOUGH_DATA) return status_of(code);
        if (reading || r.file.complete()) return reading ? reading : damaged;
        reading = r.file.more();
    }
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    auto *reader = static_cast<Reader *>(*state);
    if (reader && reader->more_frames()) {
        reader->picture.begin(*callouts, *record);
        return decode_canvas(*reader);
    }
    if (reader && reader->file.cut()) return damaged;
    forget(*state); // the file before
    if (const img_status status = decode_validate(stream)) return status;
    reader = make<Reader>().release();
    if (!reader) return no_memory;
    *state = reader;
    reader->picture.begin(*callouts, *record);
    WebPBitstreamFeatures features;
    if (const img_status status = reader->file.begin(*stream, reader->picture)) return status;
    if (const img_status status = read_header(*reader, features)) return status;
    if (const img_status status = report_values(*reader)) return status;
    if (!features.has_animation) return decode_still(*reader, features);
    if (const img_status status = open_animation(*reader)) return status;
    return decode_canvas(*reader);
}

img_status decode_finish(io_handle *, void **state) {
    forget(*state);
    return ok;
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, want_large_buffer, decode_frame, decode_finish, want_large_buffer,
                       webp_encode_frame, nullptr});
}
