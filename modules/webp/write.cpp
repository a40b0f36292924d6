// SPDX-License-Identifier: MIT
//
// The codec module of WebP: writing. The format needs all of a picture at once, and the file's size before its content.
#include "modules/common/exif.h"
#include "modules/common/transparency.h"
#include "modules/webp/webp.h"

#include <algorithm>
#include <bit>
#include <string.h>
#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace module {

namespace {

struct Writer {
    io_handle *stream = nullptr;
    Encoding picture;
    TransparentRows transparent;
    Metadata metadata;
    WebPConfig config;
    WebPPicture pixels;
    WebPMemoryWriter file;
    img_status stopped = ok; // by the caller, in the middle

    Writer() { WebPMemoryWriterInit(&file); }
    ~Writer() {
        WebPPictureFree(&pixels);
        WebPMemoryWriterClear(&file);
    }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    img_status write();

private:
    img_status ask();
    img_status fill();
    img_status encode();
    img_status verify() const;
    img_status finish();
};

img_status Writer::ask() {
    img_option quality =
        number_option("quality", "of the pixels, if not lossless: 100 is best and largest", 0, 100, 80);
    img_option lossless = switch_option("lossless", "keep every pixel, also those that cannot be seen");
    img_option method = number_option("method", "effort to make the file small", 0, 6, 4);
    for (img_option *option : {&quality, &lossless, &method})
        if (const img_status status = picture.ask(*option)) return status;
    constexpr float usual_effort = 75;
    config.lossless = lossless.value;
    config.exact = lossless.value;
    config.quality = lossless.value ? usual_effort : static_cast<float>(quality.value);
    config.method = method.value;
    return metadata.ask(picture, false);
}

// All pixels, as libwebp's words: ARGB in host order.
img_status Writer::fill() {
    const bool beside = TransparentRows::needed(picture.image());
    img_format formats[] = {FMT_ARGB8888HE, FMT_XRGB8888HE};
    if (beside) formats[0] = TransparentRows::offer(picture.image());
    if (const img_status status = picture.choose_and_set_up(formats, beside ? 1 : 2)) return status;
    if (beside)
        if (const img_status status = transparent.begin(picture, FMT_ARGB8888HE)) return status;
    const img_record &image = picture.image();
    pixels.use_argb = 1;
    pixels.width = static_cast<int>(image.width);
    pixels.height = static_cast<int>(image.height);
    if (!WebPPictureAlloc(&pixels)) return no_memory;
    const uint32_t opaque = beside || (image.format & IMG_FMT_ALPHA) ? 0 : 0xff000000;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = beside ? transparent.fetch(picture, y) : picture.fetch(y);
        if (!row) return bad_record;
        uint32_t *out = pixels.argb + size_t{y} * static_cast<uint32_t>(pixels.argb_stride);
        memcpy(out, row, size_t{image.width} * 4);
        for (uint32_t x = 0; x < image.width; x++) out[x] |= opaque;
    }
    return ok;
}

// Encoding takes the time, so progress is that of encoding.
int on_progress(int percent, const WebPPicture *pixels) {
    auto &w = *static_cast<Writer *>(pixels->user_data);
    const uint64_t height = w.picture.image().height;
    w.stopped = w.picture.progress(static_cast<uint32_t>(height * static_cast<uint32_t>(percent) / 100));
    return w.stopped == ok;
}

img_status Writer::encode() {
    pixels.writer = WebPMemoryWrite;
    pixels.custom_ptr = &file;
    pixels.progress_hook = on_progress;
    pixels.user_data = this;
    if (WebPEncode(&config, &pixels)) return ok;
    if (stopped) return stopped;
    constexpr uint64_t first_partition = 1 << 19, partition = 1 << 24, file_size = uint64_t{1} << 32;
    switch (pixels.error_code) {
    case VP8_ENC_ERROR_PARTITION0_OVERFLOW:
        return picture.refuse({"first partition", first_partition + 1, first_partition});
    case VP8_ENC_ERROR_PARTITION_OVERFLOW:
        return picture.refuse({"partition", partition + 1, partition});
    case VP8_ENC_ERROR_FILE_TOO_BIG:
        return picture.refuse({"file size", file_size + 1, file_size});
    default: // libwebp does not name every lack of memory, and nothing else is left
        return no_memory;
    }
}

// libwebp takes no notice where its lossless encoder, which also writes the alpha of lossy pictures, runs out of memory,
// and the file is wrong. So what that encoder wrote is decoded and compared.
img_status Writer::verify() const {
    if (!config.lossless && !WebPPictureHasTransparency(&pixels)) return ok;
    struct Free {
        void operator()(uint8_t *bytes) const { WebPFree(bytes); }
    };
    constexpr bool little_endian = std::endian::native == std::endian::little;
    const auto decode = little_endian ? WebPDecodeBGRA : WebPDecodeARGB;
    int width = 0, height = 0;
    const std::unique_ptr<uint8_t, Free> decoded(decode(file.mem, file.size, &width, &height));
    if (!decoded || width != pixels.width || height != pixels.height) return no_memory;
    const uint32_t compared = config.lossless ? 0xffffffff : 0xff000000;
    const auto *got = reinterpret_cast<const uint32_t *>(decoded.get());
    const uint32_t *want = pixels.argb;
    for (int y = 0; y < height; y++, got += width, want += pixels.argb_stride)
        for (int x = 0; x < width; x++)
            if ((got[x] ^ want[x]) & compared) return no_memory;
    return ok;
}

img_status Writer::finish() {
    if (!metadata.icc.size && !metadata.exif.size && !metadata.xmp.size)
        return write_all(*stream, file.mem, file.size) ? ok : write_failed;
    const WebPData encoded{file.mem, file.size};
    const std::unique_ptr<WebPMux, void (*)(WebPMux *)> mux(WebPMuxCreate(&encoded, 0), WebPMuxDelete);
    if (!mux) return no_memory;
    const struct {
        const char *name;
        const img_bytes &bytes;
    } chunks[] = {{"ICCP", metadata.icc}, {"EXIF", metadata.exif}, {"XMP ", metadata.xmp}};
    for (const auto &[name, bytes] : chunks) {
        const WebPData data{static_cast<const uint8_t *>(bytes.data), bytes.size};
        if (bytes.size && WebPMuxSetChunk(mux.get(), name, &data, 0) != WEBP_MUX_OK) return no_memory;
    }
    WebPData assembled{};
    if (WebPMuxAssemble(mux.get(), &assembled) != WEBP_MUX_OK) return no_memory;
    const bool written = write_all(*stream, assembled.bytes, assembled.size);
    WebPDataClear(&assembled);
    return written ? ok : write_failed;
}

img_status Writer::write() {
    if (!WebPConfigInit(&config) || !WebPPictureInit(&pixels)) return unsupported;
    if (const img_status status = ask()) return status;
    const img_record &image = picture.image();
    const uint32_t side = std::max(image.width, image.height);
    if (side > WEBP_MAX_DIMENSION) return picture.refuse({"side", side, WEBP_MAX_DIMENSION});
    if (const img_status status = fill()) return status;
    if (const img_status status = encode()) return status;
    if (const img_status status = verify()) return status;
    return finish();
}

} // namespace

img_status webp_encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state) {
    return encode_file<Writer>(stream, callouts, image, state);
}

} // namespace module
