// SPDX-License-Identifier: MIT
//
// The reading side of the WebP module.
#include "modules/common/bytes.h"
#include "modules/common/layout.h"
#include "modules/webp/webp.h"

#include <algorithm>
#include <string.h>

namespace webp {

namespace {

constexpr uint64_t max_file = uint64_t{1} << 30;
constexpr size_t portion = 64 * 1024;
constexpr uint32_t max_frames = 10'000;
constexpr size_t riff_size = 12;

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

} // namespace

// ---- The file ----

img_status File::begin(io_handle &stream, Decoding &picture) {
    stream_ = &stream;
    picture_ = &picture;
    uint8_t riff[riff_size];
    if (read_up_to(stream, riff, sizeof riff) != sizeof riff) return damaged;
    whole_ = uint64_t{little32(riff + 4)} + 8;
    if (whole_ > max_file) return picture.refuse({"file size", whole_, max_file});
    if (whole_ < sizeof riff) return damaged;
    whole_ += whole_ & 1;
    if (const img_status status = picture.grow(bytes_, std::min<uint64_t>(portion, whole_), whole_)) return status;
    memcpy(bytes_.data(), riff, sizeof riff);
    size_ = sizeof riff;
    return ok;
}

img_status File::more() {
    const size_t wanted = std::min<uint64_t>(portion, whole_ - size_);
    if (const img_status status = picture_->grow(bytes_, size_ + wanted, whole_)) return status;
    const size_t got = read_up_to(*stream_, bytes_.data() + size_, wanted);
    size_ += got;
    return got < wanted ? damaged : picture_->keep_alive();
}

img_status File::all() {
    while (!complete())
        if (const img_status status = more()) return status;
    return ok;
}

void File::drop_cut_chunk() {
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

bool Reader::recognises(const Signature &start) {
    return start.length >= 16 && memcmp(start.bytes, "RIFF", 4) == 0 && memcmp(start.bytes + 8, "WEBPVP8", 7) == 0;
}

img_status Reader::read_features() {
    for (img_status reading = ok;;) {
        const VP8StatusCode code = WebPGetFeatures(file_.bytes(), file_.size(), &features_);
        if (code != VP8_STATUS_NOT_ENOUGH_DATA) return status_of(code);
        if (reading || file_.complete()) return reading ? reading : damaged;
        reading = file_.more();
    }
}

// ---- Values ----

img_status Reader::report_chunks() {
    const WebPData data = file_.data();
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemux(&data));
    if (!demuxer) return picture_.warn("its metadata cannot be read");
    img_status status = ok;
    const auto report = [&](const char *name, auto tell) {
        WebPChunkIterator chunk;
        if (status || !WebPDemuxGetChunk(demuxer.get(), name, 1, &chunk)) return;
        status = tell(chunk.chunk.bytes, chunk.chunk.size);
        WebPDemuxReleaseChunkIterator(&chunk);
    };
    report("ICCP",
           [&](const uint8_t *bytes, size_t size) { return report_block(picture_, IMG_VALUE_ICC, bytes, size); });
    report("EXIF", [&](const uint8_t *bytes, size_t size) {
        const size_t mark = size >= 6 && memcmp(bytes, "Exif\0", 6) == 0 ? 6 : 0; // some writers put it there
        return report_exif(picture_, bytes + mark, size - mark);
    });
    report("XMP ",
           [&](const uint8_t *bytes, size_t size) { return report_block(picture_, IMG_VALUE_XMP, bytes, size); });
    return status;
}

// EXIF and XMP follow the pixels, so a file that has metadata is read before any of it is decoded.
img_status Reader::report_values() {
    constexpr size_t flags_at = 20;
    constexpr uint8_t metadata_flags = 0x20 | 0x08 | 0x04;
    if (!picture_.listens()) return ok;
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, 8)) return status;
    const uint8_t *bytes = file_.bytes();
    const bool extended = file_.size() > flags_at && memcmp(bytes + riff_size, "VP8X", 4) == 0;
    if (!extended || !(bytes[flags_at] & metadata_flags)) return ok;
    const img_status status = file_.all();
    if (status == damaged) return ok; // there may be rows all the same
    return status ? status : report_chunks();
}

// ---- A still picture ----

// Any size that is not above the picture's. A side that does not matter keeps the proportions.
void Reader::choose_size(WebPDecoderOptions &options) {
    const auto width = static_cast<uint32_t>(features_.width), height = static_cast<uint32_t>(features_.height);
    const auto in_proportion = [](uint32_t side, uint32_t to, uint32_t from) {
        return static_cast<uint32_t>((uint64_t{side} * to + from - 1) / from);
    };
    Size size = picture_.wanted();
    if (!size.width && !size.height) return;
    if (!size.width) size.width = in_proportion(std::min(size.height, height), width, height);
    if (!size.height) size.height = in_proportion(std::min(size.width, width), height, width);
    size = {std::min(size.width, width), std::min(size.height, height)};
    if (size.width == width && size.height == height) return;
    options.use_scaling = 1;
    options.scaled_width = static_cast<int>(size.width);
    options.scaled_height = static_cast<int>(size.height);
    picture_.deliver_at(size.width, size.height);
}

// libwebp keeps all pixels of a lossless picture, and the alpha of others.
img_status Reader::hold_planes() {
    constexpr int lossless = 2;
    const uint64_t bytes = features_.format == lossless ? 4 : features_.has_alpha ? 1 : 0;
    return picture_.hold(bytes * static_cast<uint32_t>(features_.width) * static_cast<uint32_t>(features_.height));
}

// Where libwebp puts its rows: in the caller's buffer, or in one of our own.
img_status Reader::set_output(WebPDecBuffer &output) {
    const img_record &record = picture_.record();
    const size_t own_stride = row_bytes(record.format, record.width);
    const bool in_place = record.flags & IMG_F_DIRECT;
    const size_t stride = in_place ? record.stride : own_stride;
    if (stride > INT32_MAX) return picture_.refuse({"stride", stride, INT32_MAX});
    if (!in_place) {
        if (const img_status status = picture_.hold(own_stride * record.height)) return status;
        if (!(rows_ = make_bytes(own_stride * record.height))) return no_memory;
    }
    output.colorspace = mode_of(*layout_of(record.format));
    output.is_external_memory = 1;
    output.u.RGBA.rgba = in_place ? picture_.row(0) : rows_.get();
    output.u.RGBA.stride = static_cast<int>(stride);
    output.u.RGBA.size = stride * (record.height - 1) + own_stride;
    return ok;
}

// The rows that have been decoded, up to end.
img_status Reader::deliver(uint32_t end) {
    const img_record &record = picture_.record();
    const size_t bytes = row_bytes(record.format, record.width);
    for (; done_ < end; done_++) {
        if (rows_) memcpy(picture_.row(done_), rows_.get() + bytes * done_, bytes);
        if (const img_status status = picture_.deliver(done_)) return status;
    }
    return ok;
}

img_status Reader::decode_rows(WebPIDecoder &decoder) {
    for (img_status reading = ok;;) {
        const VP8StatusCode code = WebPIUpdate(&decoder, file_.bytes(), file_.size());
        int last = 0;
        if (WebPIDecGetRGB(&decoder, &last, nullptr, nullptr, nullptr))
            if (const img_status status = deliver(static_cast<uint32_t>(last))) return status;
        if (code != VP8_STATUS_SUSPENDED) return status_of(code);
        if (reading || file_.complete()) return reading ? reading : damaged;
        reading = file_.more();
    }
}

img_status Reader::decode_still() {
    const auto width = static_cast<uint32_t>(features_.width), height = static_cast<uint32_t>(features_.height);
    const Offer offer = offer_for(features_.has_alpha);
    if (const img_status status = picture_.choose(width, height, 0, offer.formats(), offer.count())) return status;
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return unsupported;
    choose_size(config.options);
    if (const img_status status = picture_.setup()) return status;
    if (const img_status status = hold_planes()) return status;
    if (const img_status status = set_output(config.output)) return status;
    const std::unique_ptr<WebPIDecoder, void (*)(WebPIDecoder *)> decoder(WebPIDecode(nullptr, 0, &config),
                                                                          WebPIDelete);
    if (!decoder) return no_memory;
    if (const img_status status = decode_rows(*decoder)) return status;
    return file_.all(); // what follows the picture in the stream is not ours, but all of the file is
}

// ---- Animations ----

img_status Reader::open_animation() {
    const img_status reading = file_.all();
    if (reading == damaged)
        file_.drop_cut_chunk(); // the frames before it can be shown
    else if (reading)
        return reading;
    const WebPData data = file_.data();
    frames_.reset(WebPDemux(&data));
    if (!frames_) return damaged;
    const uint32_t count = WebPDemuxGetI(frames_.get(), WEBP_FF_FRAME_COUNT);
    if (count > max_frames) return picture_.refuse({"frames", count, max_frames});
    canvas_ = {WebPDemuxGetI(frames_.get(), WEBP_FF_CANVAS_WIDTH), WebPDemuxGetI(frames_.get(), WEBP_FF_CANVAS_HEIGHT)};
    return picture_.check_size(canvas_.width, canvas_.height);
}

bool Reader::more_frames() const {
    return frames_ && static_cast<uint32_t>(next_frame_) <= WebPDemuxGetI(frames_.get(), WEBP_FF_FRAME_COUNT);
}

img_status Reader::report_frame() {
    if (next_frame_ == 1) {
        const uint32_t count = WebPDemuxGetI(frames_.get(), WEBP_FF_FRAME_COUNT);
        if (const img_status status = picture_.report(IMG_VALUE_FRAMES, count)) return status;
        const uint32_t loops = WebPDemuxGetI(frames_.get(), WEBP_FF_LOOP_COUNT);
        if (const img_status status = picture_.report(IMG_VALUE_LOOPS, loops)) return status;
    }
    WebPIterator frame;
    if (!WebPDemuxGetFrame(frames_.get(), next_frame_, &frame)) return damaged;
    const auto delay = static_cast<uint32_t>(std::max(frame.duration, 0));
    WebPDemuxReleaseIterator(&frame);
    return picture_.report(IMG_VALUE_DELAY, delay);
}

// libwebp keeps two canvases, and all pixels of a lossless frame while it decodes that.
img_status Reader::begin_animation() {
    constexpr uint64_t canvases = 3;
    const uint64_t pixels = uint64_t{canvas_.width} * canvas_.height;
    if (const img_status status = picture_.hold(canvases * 4 * pixels)) return status;
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return unsupported;
    options.color_mode = MODE_BGRA;
    const WebPData data = file_.data();
    animation_.reset(WebPAnimDecoderNew(&data, &options));
    return animation_ ? ok : no_memory;
}

img_status Reader::decode_canvas() {
    if (const img_status status = report_frame()) return status;
    constexpr img_format format = word(FMT_ARGB8888HE);
    if (const img_status status = picture_.choose(canvas_.width, canvas_.height, 0, &format, 1)) return status;
    if (const img_status status = picture_.setup()) return status;
    if (!animation_)
        if (const img_status status = begin_animation()) return status;
    uint8_t *canvas;
    int until;
    if (!WebPAnimDecoderGetNext(animation_.get(), &canvas, &until)) return damaged;
    next_frame_++;
    const size_t bytes = size_t{canvas_.width} * 4;
    for (uint32_t y = 0; y < canvas_.height; y++) {
        memcpy(picture_.row(y), canvas + bytes * y, bytes);
        if (const img_status status = picture_.deliver(y)) return status;
    }
    return ok;
}

// ---- Files ----

void Reader::forget_file() {
    animation_.reset();
    frames_.reset();
    file_ = File();
    rows_.reset();
    done_ = 0;
    next_frame_ = 1;
    picture_.release_all();
}

img_status Reader::begin_file() {
    forget_file();
    if (const img_status status = Decoder<Reader>::validate(&stream_)) return status;
    if (const img_status status = file_.begin(stream_, picture_)) return status;
    if (const img_status status = read_features()) return status;
    if (const img_status status = report_values()) return status;
    if (!features_.has_animation) return decode_still();
    const img_status status = open_animation();
    return status ? status : decode_canvas();
}

img_status Reader::frame() {
    if (more_frames()) return decode_canvas();
    return file_.cut() ? damaged : begin_file();
}

} // namespace webp
