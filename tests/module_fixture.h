// SPDX-License-Identifier: MIT
//
// The codec modules as the tests reach them: opened by the library through the configuration of the build tree. Pictures to
// write, pictures that were read, and what they look like.
#pragma once

#include "pictra/pictra.h"
#include "pictra/values.h"
#include "tests/fake_backend.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <bit>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace modules {

using Stream = std::unique_ptr<io_handle, decltype(&io_close)>;

constexpr img_format all_formats[] = {FMT_PAL1,       FMT_PAL4,       FMT_PAL8,       FMT_G8,         FMT_RGB888,
                                      FMT_BGR888,     FMT_XRGB1555HE, FMT_XRGB1555OE, FMT_ARGB1555HE, FMT_ARGB1555OE,
                                      FMT_RGB565HE,   FMT_RGB565OE,   FMT_XRGB8888HE, FMT_XRGB8888OE, FMT_XBGR8888HE,
                                      FMT_XBGR8888OE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_ABGR8888HE, FMT_ABGR8888OE};

// The format of words that lie in memory as this one's do on a little-endian machine.
constexpr img_format little_endian(img_format format) {
    const bool swapped = std::endian::native == std::endian::big;
    return swapped ? format ^ (IMG_FMT_HE | IMG_FMT_OE) : format;
}

inline std::string big_endian(uint32_t value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
    return bytes;
}
uint32_t crc(const std::string &bytes);
std::string sealed_chunks(std::string png); // with right checksums for whatever its chunks hold

// A module as the tests see it: what its format can hold, which the defaults say of one that holds everything.
struct Module {
    const char *extension;
    const char *option = nullptr; // with this value when writing
    int32_t value = 0;
    double loss = 0;           // how far a channel of a smooth picture may be off, on average
    bool indices = true;       // come back as indices of the same format, if nothing is transparent
    bool transparent = true;   // takes alpha in pixels
    bool colors = true;        // takes more than indices and grey
    bool pixel_alpha = true;   // alpha in pixels comes back
    bool palette_alpha = true; // and that of palette entries
    bool half_alpha = false;   // or only whether it is above a half, and no colour below
    bool key = true;           // and a transparent colour
    bool seen = false;         // pictures of which nothing would be seen come back opaque
    bool frames = false;       // several pictures between one begin and one finish
    bool follows = false;      // a file may follow another in a stream
    bool scales = false;       // decodes at smaller sizes
    bool frail = false;        // its codec library crashes and leaks when there is no memory
    bool early_rows = true;    // a file that is cut still gives rows, and right ones
    uint32_t most_side = 1'000'000;
    size_t silent_end = 0;                        // bytes at a file's end that nobody needs
    std::string (*sealed)(std::string) = nullptr; // with right checksums for whatever the file holds
    std::string (*sample)() = nullptr;            // a file, of those that do not write
    img_codec *codec = nullptr;

    bool takes(img_format format) const {
        return (colors || (format & IMG_FMT_PAL) || format == FMT_G8) && (transparent || !(format & IMG_FMT_ALPHA));
    }
};

// A record with the memory behind it: noise, or a smooth picture for those that lose a little.
struct Image {
    img_record record{};
    std::vector<uint8_t> pixels{};
    std::vector<uint32_t> palette{};

    Image(img_format format, uint32_t width, uint32_t height, uint32_t ncolors = 0, img_flags flags = 0,
          bool smooth = false) {
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
        if (!(format & IMG_FMT_PAL)) {
            std::vector<uint32_t> line(width);
            for (uint32_t y = 0; smooth && y < height; y++) {
                for (uint32_t x = 0; x < width; x++)
                    line[x] = (255 - x % 128) << 24 | x % 256 << 16 | y % 256 << 8 | (x + y) / 2 % 256;
                img_convert_data(FMT_ARGB8888HE, line.data(), format, &pixels[size_t{y} * stride], width);
            }
            // A key whose channels differ, so that their order is seen, and one pixel of it.
            const uint32_t key = 0xff102030;
            uint8_t pixel[4] = {};
            img_convert_data(FMT_ARGB8888HE, &key, format, pixel, 1);
            memcpy(&record.transparency, bits > 16 ? static_cast<const void *>(&key) : pixel, 4);
            if (flags & IMG_F_TRANSP) memcpy(pixels.data(), pixel, bits / 8);
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

// What a reader was told of the file. Every byte of it is looked at.
struct Values {
    std::map<uintptr_t, std::vector<std::string>> told{};
    bool strict = false;
    uint64_t max_memory = 0; // the answer; 0 leaves the module's own
    uint32_t memory_asked = 0;
    std::string limit{}; // "name needed allowed"
    img_decode_callouts callouts{};
    Values() {
        callouts.data = this;
        callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
            Values &values = *static_cast<Values *>(data);
            if (key == IMG_VALUE_OPTION) {
                auto &option = *reinterpret_cast<img_option *>(value);
                if (option.name == std::string_view("strict")) option.value = values.strict;
            } else if (key == IMG_VALUE_MAX_MEMORY) {
                values.memory_asked++;
                if (values.max_memory) *reinterpret_cast<uint64_t *>(value) = values.max_memory;
            } else if (key == IMG_VALUE_LIMIT) {
                const auto &limit = *reinterpret_cast<img_limit *>(value);
                values.limit = limit.name + (" " + std::to_string(limit.needed)) + " " + std::to_string(limit.allowed);
            } else {
                values.told[key].emplace_back(reinterpret_cast<const char *>(value), size);
            }
            return img_status{IMG_ST_OK};
        };
    }
    Values(const Values &) = delete;
    Values &operator=(const Values &) = delete;
};
template <typename T> std::string bytes_of(T value) { return {reinterpret_cast<const char *>(&value), sizeof value}; }

// Metadata that goes into every file that is written, if its format has a place for it: turned by a quarter.
const std::string exif("II*\0\x8\0\0\0\1\0\x12\1\3\0\1\0\0\0\6\0\0\0\0\0\0\0", 26), xmp = "<x/>",
                                                                                    comment("Comment\0na\xc3\xafve",
                                                                                            14),
                                                                                    author("Author\0A. Pixel", 15);
constexpr uint32_t orientation = 6;
constexpr img_resolution resolution = {3000, 2000};

// Collects rows through an access function, those of a picture that fails as well.
struct Rows {
    img_record record{};
    std::map<uint32_t, std::string> bytes{};
    explicit Rows(img_format format) {
        record.format = format;
        record.flags = IMG_F_FORMAT | IMG_F_ACCESS | (format & IMG_FMT_ALPHA ? IMG_F_WANT_ALPHA : 0);
        record.access_arg = this;
        record.access = [](void *arg, uint32_t, uint32_t y, uint32_t count, void *line) {
            Rows &rows = *static_cast<Rows *>(arg);
            rows.bytes[y].assign(static_cast<char *>(line), count * ((rows.record.format & IMG_FMT_BPP_MASK) / 8));
            return 0;
        };
    }
    Rows(const Rows &) = delete;
    Rows &operator=(const Rows &) = delete;
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

// Channels differ by so much on average.
inline double difference(const std::vector<uint32_t> &a, const std::vector<uint32_t> &b) {
    if (a.size() != b.size()) return 1000;
    double sum = 0;
    for (size_t i = 0; i < a.size(); i++)
        for (const uint32_t shift : {0u, 8u, 16u, 24u}) sum += abs(int(a[i] >> shift & 255) - int(b[i] >> shift & 255));
    return sum / (static_cast<double>(a.size()) * 4);
}

class Fixture : public testing::Test {
protected:
    Fixture();
    ~Fixture() override { img_lib_detach(library); }

    img_status load(FakeBackend &source, img_record &record, const img_decode_callouts *callouts = nullptr) {
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        return stream ? img_load(library, stream.get(), callouts, &record) : img_status{IMG_ST_NOMEM};
    }
    img_status load(const std::string &bytes, img_record &record, const img_decode_callouts *callouts = nullptr) {
        FakeBackend source{.data = bytes, .buffer_size = 2048};
        return load(source, record, callouts);
    }
    // With answers: the module's option, and metadata.
    img_status write(const Module &module, img_record &image, std::string &bytes, uint32_t most = UINT32_MAX,
                     uint32_t limit = UINT32_MAX);
    img_status write(img_codec *codec, img_record &image, std::string &bytes, uint32_t most = UINT32_MAX,
                     uint32_t limit = UINT32_MAX, const img_encode_callouts *callouts = nullptr);
    template <typename Writer> std::string written(const Writer &writer, Image &&image) {
        std::string bytes;
        EXPECT_EQ(write(writer, image.record, bytes), IMG_ST_OK);
        return bytes;
    }
    bool has(std::string_view extension) const;
    const Module &module(const std::string &extension) const;
    // Small files that each module writes, and the examples up to a size.
    struct Sample {
        const Module &module;
        std::string bytes, name;
    };
    std::vector<Sample> files(size_t most);

    img_lib_handle *library = nullptr;
    std::vector<Module> all{}, writers{}; // those that were built
    std::vector<img_option> asked{};      // during the last write
    std::set<uintptr_t> asked_for{};      // keys of values, likewise
};

} // namespace modules
