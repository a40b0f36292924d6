// SPDX-License-Identifier: MIT
//
// The writing side of the WebP module.
#include "modules/webp/webp.h"

#include <algorithm>
#include <bit>
#include <string.h>
#include <webp/mux.h>

namespace webp {

Writer::~Writer() {
    WebPPictureFree(&pixels_);
    WebPMemoryWriterClear(&file_);
}

img_status Writer::ask() {
    img_option quality =
        number_option("quality", "of the pixels, if not lossless: 100 is best and largest", 0, 100, 80);
    img_option lossless = switch_option("lossless", "keep every pixel, also those that cannot be seen");
    img_option method = number_option("method", "effort to make the file small", 0, 6, 4);
    for (img_option *option : {&quality, &lossless, &method})
        if (const img_status status = picture_.ask(*option)) return status;
    constexpr float usual_effort = 75;
    config_.lossless = lossless.value;
    config_.exact = lossless.value;
    config_.quality = lossless.value ? usual_effort : static_cast<float>(quality.value);
    config_.method = method.value;
    return metadata_.ask(picture_, false);
}

// All pixels, as libwebp's words: ARGB in host order.
img_status Writer::fill() {
    const bool beside = TransparentRows::needed(picture_.image());
    img_format formats[] = {FMT_ARGB8888HE, FMT_XRGB8888HE};
    if (beside) formats[0] = TransparentRows::offer(picture_.image());
    if (const img_status status = picture_.choose_and_set_up(formats, beside ? 1 : 2)) return status;
    if (beside)
        if (const img_status status = transparent_.begin(picture_, FMT_ARGB8888HE)) return status;
    const img_record &image = picture_.image();
    pixels_.use_argb = 1;
    pixels_.width = static_cast<int>(image.width);
    pixels_.height = static_cast<int>(image.height);
    if (!WebPPictureAlloc(&pixels_)) return no_memory;
    const uint32_t opaque = beside || (image.format & IMG_FMT_ALPHA) ? 0 : 0xff000000;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = beside ? transparent_.fetch(picture_, y) : picture_.fetch(y);
        if (!row) return bad_record;
        uint32_t *out = pixels_.argb + size_t{y} * static_cast<uint32_t>(pixels_.argb_stride);
        memcpy(out, row, size_t{image.width} * 4);
        for (uint32_t x = 0; x < image.width; x++) out[x] |= opaque;
    }
    return ok;
}

// Encoding takes the time, so progress is that of encoding.
int Writer::on_progress(int percent, const WebPPicture *pixels) {
    auto &writer = *static_cast<Writer *>(pixels->user_data);
    const uint64_t height = writer.picture_.image().height;
    writer.stopped_ = writer.picture_.progress(static_cast<uint32_t>(height * static_cast<uint32_t>(percent) / 100));
    return writer.stopped_ == ok;
}

img_status Writer::encode() {
    pixels_.writer = WebPMemoryWrite;
    pixels_.custom_ptr = &file_;
    pixels_.progress_hook = on_progress;
    pixels_.user_data = this;
    if (WebPEncode(&config_, &pixels_)) return ok;
    if (stopped_) return stopped_;
    constexpr uint64_t first_partition = 1 << 19, partition = 1 << 24, file_size = uint64_t{1} << 32;
    switch (pixels_.error_code) {
    case VP8_ENC_ERROR_PARTITION0_OVERFLOW:
        return picture_.refuse({"first partition", first_partition + 1, first_partition});
    case VP8_ENC_ERROR_PARTITION_OVERFLOW:
        return picture_.refuse({"partition", partition + 1, partition});
    case VP8_ENC_ERROR_FILE_TOO_BIG:
        return picture_.refuse({"file size", file_size + 1, file_size});
    default: // libwebp does not name every lack of memory, and nothing else is left
        return no_memory;
    }
}

// libwebp takes no notice where its lossless encoder, which also writes the alpha of lossy pictures, runs out of memory,
// and the file is wrong. So what that encoder wrote is decoded and compared.
img_status Writer::verify() const {
    if (!config_.lossless && !WebPPictureHasTransparency(&pixels_)) return ok;
    struct Free {
        void operator()(uint8_t *bytes) const { WebPFree(bytes); }
    };
    constexpr bool little_endian = std::endian::native == std::endian::little;
    const auto decode = little_endian ? WebPDecodeBGRA : WebPDecodeARGB;
    int width = 0, height = 0;
    const std::unique_ptr<uint8_t, Free> decoded(decode(file_.mem, file_.size, &width, &height));
    if (!decoded || width != pixels_.width || height != pixels_.height) return no_memory;
    const uint32_t compared = config_.lossless ? 0xffffffff : 0xff000000;
    const auto *got = reinterpret_cast<const uint32_t *>(decoded.get());
    const uint32_t *want = pixels_.argb;
    for (int y = 0; y < height; y++, got += width, want += pixels_.argb_stride)
        for (int x = 0; x < width; x++)
            if ((got[x] ^ want[x]) & compared) return no_memory;
    return ok;
}

img_status Writer::finish() {
    if (!metadata_.icc.size && !metadata_.exif.size && !metadata_.xmp.size)
        return write_all(stream_, file_.mem, file_.size) ? ok : write_failed;
    const WebPData encoded{file_.mem, file_.size};
    const std::unique_ptr<WebPMux, void (*)(WebPMux *)> mux(WebPMuxCreate(&encoded, 0), WebPMuxDelete);
    if (!mux) return no_memory;
    const struct {
        const char *name;
        const img_bytes &bytes;
    } chunks[] = {{"ICCP", metadata_.icc}, {"EXIF", metadata_.exif}, {"XMP ", metadata_.xmp}};
    for (const auto &[name, bytes] : chunks) {
        const WebPData data{static_cast<const uint8_t *>(bytes.data), bytes.size};
        if (bytes.size && WebPMuxSetChunk(mux.get(), name, &data, 0) != WEBP_MUX_OK) return no_memory;
    }
    WebPData assembled{};
    if (WebPMuxAssemble(mux.get(), &assembled) != WEBP_MUX_OK) return no_memory;
    const bool written = write_all(stream_, assembled.bytes, assembled.size);
    WebPDataClear(&assembled);
    return written ? ok : write_failed;
}

img_status Writer::frame() {
    if (!WebPConfigInit(&config_) || !WebPPictureInit(&pixels_)) return unsupported;
    if (const img_status status = ask()) return status;
    const img_record &image = picture_.image();
    const uint32_t side = std::max(image.width, image.height);
    if (side > WEBP_MAX_DIMENSION) return picture_.refuse({"side", side, WEBP_MAX_DIMENSION});
    if (const img_status status = fill()) return status;
    if (const img_status status = encode()) return status;
    if (const img_status status = verify()) return status;
    return finish();
}

} // namespace webp
