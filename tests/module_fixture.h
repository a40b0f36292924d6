// SPDX-License-Identifier: MIT
//
// The codec modules as the tests reach them: opened by the library through the configuration of the build tree. Pictures to
// write, pictures that were read, and what they look like.
#pragma once

#include "pictra/pictra.h"
#include "tests/fake_backend.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

namespace modules {

using Stream = std::unique_ptr<io_handle, decltype(&io_close)>;

constexpr img_format all_formats[] = {FMT_PAL1,       FMT_PAL4,       FMT_PAL8,       FMT_G8,         FMT_RGB888,
                                      FMT_BGR888,     FMT_XRGB1555HE, FMT_XRGB1555OE, FMT_ARGB1555HE, FMT_ARGB1555OE,
                                      FMT_RGB565HE,   FMT_RGB565OE,   FMT_XRGB8888HE, FMT_XRGB8888OE, FMT_XBGR8888HE,
                                      FMT_XBGR8888OE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_ABGR8888HE, FMT_ABGR8888OE};

// A record with the memory behind it.
struct Image {
    img_record record{};
    std::vector<uint8_t> pixels{};
    std::vector<uint32_t> palette{};

    Image(img_format format, uint32_t width, uint32_t height, uint32_t ncolors = 0, img_flags flags = 0) {
        std::minstd_rand random(width * 31 + height + format);
        const uint32_t bits = format & IMG_FMT_BPP_MASK, stride = (width * bits + 7) / 8 + 3;
        pixels.resize(size_t{stride} * height);
        for (uint8_t &byte : pixels) byte = static_cast<uint8_t>(random() >> 8);
        record.data = pixels.data();
        record.stride = stride;
        record.width = width;
        record.height = height;
        record.format = format;
        record.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT | flags;
        record.transparency = 0xff000000;
        if (!(format & IMG_FMT_PAL)) {
            if (flags & IMG_F_TRANSP) memset(pixels.data(), 0, (bits + 7) / 8); // one pixel is of the key
            return;
        }
        record.transparency8 = static_cast<uint8_t>(ncolors - 1);
        for (uint32_t i = 0; i < ncolors; i++) palette.push_back(static_cast<uint32_t>(random() * 2 + i));
        record.palette = palette.data();
        record.ncolors = ncolors;
        record.flags |= IMG_F_PALETTE;
        for (uint8_t &byte : pixels)
            byte = bits == 8   ? static_cast<uint8_t>(byte % ncolors)
                   : bits == 4 ? static_cast<uint8_t>(byte % ncolors | (byte >> 4) % ncolors << 4)
                               : static_cast<uint8_t>(ncolors == 1 ? 0 : byte);
    }
    Image(const Image &) = delete;
    Image &operator=(const Image &) = delete;
};

// A record whose pixels the library gave.
struct Loaded {
    img_record record{};
    Loaded() = default;
    explicit Loaded(img_format format) {
        record.format = format;
        record.flags = IMG_F_FORMAT | (format & IMG_FMT_ALPHA ? IMG_F_WANT_ALPHA : 0);
    }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;
    ~Loaded() {
        if (record.flags & IMG_F_DIRECT) free(record.data);
    }
};

// All pixels as colour with alpha, transparency applied: what a picture looks like, however it is held.
inline std::vector<uint32_t> look(const img_record &record) {
    std::vector<uint32_t> out(size_t{record.width} * record.height), palette;
    img_record source = record, target{};
    if (record.flags & IMG_F_PALETTE) {
        palette.assign(record.palette, record.palette + record.ncolors);
        for (uint32_t &argb : palette)
            if (!(record.flags & IMG_F_PAL_ALPHA)) argb |= 0xff000000;
        if (record.flags & IMG_F_TRANSP) palette[record.transparency8] &= 0xffffff;
        source.palette = palette.data();
    }
    target.data = out.data();
    target.stride = record.width * 4;
    target.format = FMT_ARGB8888HE;
    target.flags = IMG_F_FORMAT | IMG_F_DIRECT;
    EXPECT_EQ(img_dtransform(&source, &target), IMG_ST_OK);
    if (!(record.format & (IMG_FMT_PAL | IMG_FMT_ALPHA)) && (record.flags & IMG_F_TRANSP)) {
        uint32_t key = record.transparency;
        if ((record.format & IMG_FMT_BPP_MASK) <= 16) img_convert_data(record.format, &key, FMT_ARGB8888HE, &key, 1);
        for (uint32_t &argb : out)
            if ((argb & 0xffffff) == (key & 0xffffff)) argb &= 0xffffff;
    }
    return out;
}

inline std::string file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline std::string picture(const std::string &name) { return file(PICTRA_PICTURES "/" + name); }

inline std::string big_endian(uint32_t value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
    return bytes;
}

class Fixture : public testing::Test {
protected:
    Fixture() {
        setenv("PICTRA_CFGFILE", PICTRA_BUILD_CONFIG, 1);
        EXPECT_EQ(img_lib_attach(&library), IMG_ST_OK);
        EXPECT_EQ(img_codec_list_byext(library, "a.png", &png, 1), 1u);
        EXPECT_EQ(img_codec_list_byext(library, "a.PPM", &pnm, 1), 1u);
    }
    ~Fixture() override { img_lib_detach(library); }

    img_status load(FakeBackend &source, img_record &record, const img_decode_callouts *callouts = nullptr) {
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        return img_load(library, stream.get(), callouts, &record);
    }
    img_status load(const std::string &bytes, img_record &record) {
        FakeBackend source{.data = bytes, .buffer_size = 2048};
        return load(source, record);
    }
    img_status write(img_codec *codec, img_record &image, std::string &bytes, uint32_t most = UINT32_MAX,
                     uint32_t limit = UINT32_MAX) {
        FakeBackend sink{.most = most};
        const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
        io_stream_ctl(stream->self, IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{limit}));
        img_status status = img_write(library, stream.get(), nullptr, &image, &codec);
        size_t before;
        do { // as often as it moves something
            before = sink.data.size();
            if (io_ostream_flush(stream->self) == 0) break;
        } while (sink.data.size() > before);
        if (io_ostream_flush(stream->self) != 0) status = IMG_ST_FILE;
        bytes = sink.data;
        return status;
    }
    std::string written(img_codec *codec, Image &&image) {
        std::string bytes;
        EXPECT_EQ(write(codec, image.record, bytes), IMG_ST_OK);
        return bytes;
    }
    img_lib_handle *library = nullptr;
    img_codec *png = nullptr, *pnm = nullptr;
};

} // namespace modules
