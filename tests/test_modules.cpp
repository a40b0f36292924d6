// SPDX-License-Identifier: MIT
//
// The codec modules, opened by the library through the configuration of the build tree.
#include "pictra/pictra.h"
#include "tests/fake_backend.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <vector>

namespace {

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
std::vector<uint32_t> look(const img_record &record) {
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

std::string file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

uint32_t crc(const std::string &bytes) {
    uint32_t value = ~0u;
    for (const char byte : bytes) {
        value ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; bit++) value = value >> 1 ^ (value & 1 ? 0xedb88320 : 0);
    }
    return ~value;
}

std::string big_endian(uint32_t value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift);
    return bytes;
}

// The file with another content of one chunk.
std::string with_chunk(std::string bytes, const std::string &name, const std::string &content) {
    const size_t at = bytes.find(name) - 4;
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
    const size_t old = size_t{byte(2)} << 8 | byte(3);
    const std::string chunk = big_endian(static_cast<uint32_t>(content.size())) + name + content;
    return bytes.replace(at, old + 12, chunk + big_endian(crc(name + content)));
}

// The file with right checksums for whatever its chunks now hold, so that damage gets past them.
std::string sealed(std::string bytes) {
    for (size_t at = 8; at + 12 <= bytes.size();) {
        const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
        const size_t length = size_t{byte(2)} << 8 | byte(3);
        if (byte(0) || byte(1) || at + 12 + length > bytes.size()) break;
        bytes.replace(at + 8 + length, 4, big_endian(crc(bytes.substr(at + 4, length + 4))));
        at += 12 + length;
    }
    return bytes;
}

class Modules : public testing::Test {
protected:
    Modules() {
        setenv("PICTRA_CFGFILE", PICTRA_BUILD_CONFIG, 1);
        EXPECT_EQ(img_lib_attach(&library), IMG_ST_OK);
        EXPECT_EQ(img_codec_list_byext(library, "a.png", &png, 1), 1u);
        EXPECT_EQ(img_codec_list_byext(library, "a.PPM", &pnm, 1), 1u);
    }
    ~Modules() override { img_lib_detach(library); }

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
    // Small files of every kind that a truncation or a changed byte can hurt.
    std::vector<std::string> small_files() {
        std::vector<std::string> files = {file(PICTRA_PICTURES "/palette-key.png"),
                                          file(PICTRA_PICTURES "/rgb-key.png")};
        for (img_codec *codec : {png, pnm})
            for (const img_format format : {FMT_PAL1, FMT_G8, FMT_RGB888, FMT_ARGB8888HE})
                files.push_back(written(codec, Image(format, 5, 3, format == FMT_PAL1 ? 2 : 0)));
        files.push_back("P7\nWIDTH 3\nHEIGHT 2\nDEPTH 2\nMAXVAL 999\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" +
                        std::string(24, '\1'));
        return files;
    }

    img_lib_handle *library = nullptr;
    img_codec *png = nullptr, *pnm = nullptr;
};

TEST_F(Modules, EveryFormatComesBackAsItWas) {
    struct Size {
        uint32_t width, height;
    };
    for (img_codec *codec : {png, pnm})
        for (const img_format format : all_formats)
            for (const auto &[width, height] : {Size{1, 1}, Size{1, 7}, Size{13, 1}, Size{17, 11}, Size{101, 3}})
                for (const img_flags flags : {0, int{IMG_F_TRANSP}, int{IMG_F_PAL_ALPHA}})
                    for (const uint32_t ncolors : {1u, 2u, 3u, 16u, 256u}) {
                        const bool indexed = format & IMG_FMT_PAL;
                        if (indexed ? ncolors > 1u << (format & IMG_FMT_BPP_MASK) : ncolors > 1) continue;
                        Image image(format, width, height, indexed ? ncolors : 0, flags);
                        std::string bytes;
                        ASSERT_EQ(write(codec, image.record, bytes), IMG_ST_OK);
                        Loaded loaded;
                        ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK);
                        ASSERT_EQ(look(loaded.record), look(image.record))
                            << (codec == png ? "png " : "pnm ") << std::hex << format << ' ' << flags << ' ' << std::dec
                            << width << 'x' << height << ' ' << ncolors;
                        if (codec != png || !indexed) continue;
                        EXPECT_EQ(loaded.record.format, format);
                        EXPECT_EQ(loaded.record.ncolors, ncolors);
                    }
    Image mask(FMT_A8, 2, 2);
    std::string bytes;
    EXPECT_EQ(write(png, mask.record, bytes), IMG_ST_NOCONV);
    EXPECT_TRUE(bytes.empty()) << "a refused picture leaves nothing";
}

// What a module offers must be what the library would have converted to.
TEST_F(Modules, EveryFormatCanBeAskedFor) {
    for (const auto &entry : std::filesystem::directory_iterator(PICTRA_PICTURES)) {
        const std::string extension = entry.path().extension();
        if (extension == ".py" || extension == ".md") continue;
        const std::string bytes = file(entry.path());
        Loaded own, full(FMT_ARGB8888HE);
        ASSERT_EQ(load(bytes, own.record), IMG_ST_OK) << entry.path();
        ASSERT_EQ(load(bytes, full.record), IMG_ST_OK);
        ASSERT_EQ(look(full.record), look(own.record)) << entry.path();
        for (const img_format format : all_formats) {
            if (format & IMG_FMT_PAL) continue;
            Loaded asked(format);
            ASSERT_EQ(load(bytes, asked.record), IMG_ST_OK) << entry.path() << std::hex << format;
            ASSERT_TRUE(format == asked.record.format || (format & ~img_format{IMG_FMT_ALPHA}) == asked.record.format);
            asked.record.flags &= ~img_flags{IMG_F_TRANSP};
            Loaded expected(asked.record.format);
            ASSERT_EQ(img_dtransform(&full.record, &expected.record), IMG_ST_OK);
            if (format == FMT_G8 && (own.record.flags & IMG_F_PALETTE))
                continue; // grey by entry: may differ by rounding
            EXPECT_EQ(look(asked.record), look(expected.record)) << entry.path() << ' ' << std::hex << format;
        }
    }
}

TEST_F(Modules, ShortReadsAndSmallBuffers) {
    for (const char *name : {"photo.png", "interlaced.png", "palette-alpha.png", "bilevel.pbm", "text.pgm"}) {
        const std::string bytes = file(std::string(PICTRA_PICTURES "/") + name);
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        for (const uint32_t most : {1u, 2u, 3u, 5u, 7u, 100u})
            for (const uint32_t buffer : {0u, 1u, 7u, 8u, 2048u})
                for (const bool unreads : {false, true}) {
                    FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                    Loaded pieces;
                    ASSERT_EQ(load(source, pieces.record), IMG_ST_OK) << name << most << ' ' << buffer << unreads;
                    ASSERT_EQ(look(pieces.record), look(whole.record)) << name;
                }
    }
    Image image(FMT_RGB888, 31, 29);
    for (img_codec *codec : {png, pnm}) {
        std::string whole, pieces;
        ASSERT_EQ(write(codec, image.record, whole), IMG_ST_OK);
        for (const uint32_t most : {1u, 3u, 7u}) {
            ASSERT_EQ(write(codec, image.record, pieces, most), IMG_ST_OK);
            EXPECT_EQ(pieces, whole);
        }
    }
}

TEST_F(Modules, ValidationLeavesTheStreamWhereItWas) {
    img_codec *codecs[] = {png, pnm, png};
    const std::string picture = file(PICTRA_PICTURES "/dot.png");
    for (const std::string &bytes :
         {"0123456789ab" + picture, "0123456789ab" + std::string("P5"), std::string(300, 'x')})
        for (const uint32_t most : {1u, 3u, 40u, 64u, 1000u})
            for (const uint32_t buffer : {0u, 8u, 100u, 2048u})
                for (const bool unreads : {false, true})
                    for (const uint32_t consumed : {0u, 1u, 12u}) {
                        FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
                        char skipped[12];
                        for (uint32_t i = 0; i < consumed; i++) stream->read(stream->self, skipped + i, 1);
                        const bool ours = consumed == 12 && bytes.size() > 14 && bytes[0] == '0';
                        ASSERT_EQ(img_decode_validate(codecs, 3, stream.get(), nullptr), ours ? 0u : 1u);
                        std::string rest(bytes.size() + 10, '\0');
                        size_t length = 0;
                        while (uint32_t got = stream->read(stream->self, rest.data() + length, 9)) length += got;
                        rest.resize(length);
                        ASSERT_EQ(rest, bytes.substr(consumed)) << most << ' ' << buffer << ' ' << unreads << consumed;
                    }
}

TEST_F(Modules, CutFilesAreRefused) {
    for (const std::string &bytes : small_files())
        for (size_t length = 0; length < bytes.size(); length++) {
            img_record record{};
            ASSERT_NE(load(bytes.substr(0, length), record), IMG_ST_OK) << length << " of " << bytes.size();
            ASSERT_FALSE(record.flags & IMG_F_DIRECT);
        }
}

TEST_F(Modules, ChangedBytesDoNoHarm) {
    std::minstd_rand random(7);
    std::vector<std::string> files = small_files();
    files.push_back(file(PICTRA_PICTURES "/interlaced.png"));
    files.push_back(file(PICTRA_PICTURES "/text.pgm"));
    for (const std::string &bytes : files)
        for (int i = 0; i < 1000; i++) {
            std::string changed = bytes;
            for (int n = 0; n <= i % 3; n++) {
                // The headers matter most.
                const size_t range = random() % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 64);
                changed[random() % range] = static_cast<char>(random());
            }
            Loaded loaded(i % 2 ? img_format{FMT_ARGB8888HE} : img_format{FMT_RGB565HE});
            const img_status status = load(i % 4 < 2 ? changed : sealed(changed), loaded.record);
            ASSERT_EQ(status == IMG_ST_OK, (loaded.record.flags & IMG_F_DIRECT) != 0);
        }
}

TEST_F(Modules, WhatIsRefusedAndHow) {
    const std::string dot = file(PICTRA_PICTURES "/dot.png"), indexed = file(PICTRA_PICTURES "/palette-key.png");
    const auto sized = [&](uint32_t width, uint32_t height) {
        return with_chunk(dot, "IHDR", big_endian(width) + big_endian(height) + std::string("\x08\x02\0\0\0", 5));
    };
    const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
    const struct {
        std::string bytes;
        img_status status;
    } cases[] = {
        {sized(1'000'001, 1), 10},
        {sized(1, 1'000'001), 10},
        {sized(16385, 16384), 10},
        {sized(0x7fffffff, 0x7fffffff), 10},
        {sized(0, 1), 4},
        {with_chunk(indexed, "PLTE", "abcdef"), 4}, // pixels have indices beyond it
        {"P5 1000001 1 255\n", 10},
        {"P6\n16385 16384\n255\n", 10},
        {"P4 99999999999 1\n", 10},
        {"P5 0 1 255\n", 4},
        {"P5 1 1 0\na", 4},
        {"P5 1 1 65536\naa", 4},
        {"P5 1 1 100\n\x65", 4}, // a sample above the highest
        {"P2 1 1 15\n16\n", 4},
        {"P2 1 1 15\nx\n", 4},
        {"P1 2 1\n12\n", 4},
        {"P7 332\n80 60 255\n", 1},
        {pam + "DEPTH 1\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\na", 5},
        {pam + "DEPTH 5\nMAXVAL 255\nENDHDR\nabcde", 5},
        {pam + "DEPTH 3\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\nabc", 4},
        {pam + "DEPTH 1\nMAXVAL 255\n", 4},
        {"GIF89a", 1},
        {"", 1},
    };
    for (const auto &[bytes, status] : cases) {
        img_record record{};
        EXPECT_EQ(load(bytes, record), status) << bytes.substr(0, 40);
        EXPECT_FALSE(record.flags & IMG_F_DIRECT);
    }
    Image image(FMT_PAL8, 3, 3, 4);
    std::string bytes;
    image.pixels[1] = 4;
    EXPECT_EQ(write(png, image.record, bytes), IMG_ST_BADARG) << "an index without an entry";
    image.record.flags &= ~img_flags{IMG_F_PALETTE};
    for (img_codec *codec : {png, pnm}) EXPECT_EQ(write(codec, image.record, bytes), IMG_ST_BADARG);
}

TEST_F(Modules, VariantsOfPnm) {
    const struct {
        std::string bytes;
        std::vector<uint32_t> pixels;
    } cases[] = {
        {"P1#a\n#b\n3 1\n1#c\n01", {0xff000000, 0xffffffff, 0xff000000}},
        {"P4\n3 1\n\xa0", {0xff000000, 0xffffffff, 0xff000000}},
        {"P2\n3 1 4\n0 1\n4", {0xff000000, 0xff404040, 0xffffffff}}, // 63.75 rounds up
        {std::string("P5 2 1 65535\n\x7f\xff\x80\0", 17), {0xff7f7f7f, 0xff808080}},
        {"P3 1 1 255 1 2 3", {0xff010203}},
        {std::string("P6 1 1 1\n\1\0\1", 12), {0xffff00ff}},
        {std::string("P7\nWIDTH 2\nHEIGHT 1\n#\nDEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n\1\0", 71),
         {0xffffffff, 0xff000000}},
        {"P7\nHEIGHT 1\nWIDTH 1\nMAXVAL 255\nDEPTH 4\nENDHDR\nabcd", {0x64616263}},
        {"P7\nHEIGHT 1\nWIDTH 1\nMAXVAL 255\nDEPTH 2\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\nab", {0x62616161}},
    };
    for (const auto &[bytes, pixels] : cases) {
        Loaded loaded;
        ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK) << bytes;
        EXPECT_EQ(look(loaded.record), pixels) << bytes;
    }
}

TEST_F(Modules, PicturesFollowEachOther) {
    const std::string first = "P5 1 1 255\nA", second = "P6 1 1 255\nabc";
    for (const std::string &bytes :
         {first + second, file(PICTRA_PICTURES "/dot.png") + file(PICTRA_PICTURES "/line.png")}) {
        FakeBackend source{.data = bytes, .most = 5, .buffer_size = 100};
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        for (const img_status expected : {0u, 0u, 1u}) {
            Loaded loaded;
            EXPECT_EQ(img_load(library, stream.get(), nullptr, &loaded.record), expected);
        }
    }
}

TEST_F(Modules, FailingWritesAreReported) {
    Image image(FMT_RGB888, 40, 30);
    for (img_codec *codec : {png, pnm}) {
        std::string whole, part;
        ASSERT_EQ(write(codec, image.record, whole), IMG_ST_OK);
        for (uint32_t limit = 0; limit < whole.size(); limit += 13)
            ASSERT_EQ(write(codec, image.record, part, UINT32_MAX, limit), IMG_ST_FILE) << limit;
    }
}

TEST_F(Modules, RowsOfTheCallersOwn) {
    for (const char *name : {"photo.png", "interlaced.png", "bilevel.png", "text.pgm"}) {
        const std::string bytes = file(std::string(PICTRA_PICTURES "/") + name);
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        const img_record &own = whole.record;
        const size_t row = (own.width * (own.format & IMG_FMT_BPP_MASK) + 7) / 8;

        // A buffer that is larger than the picture: nothing but its pixels is touched.
        std::vector<uint8_t> pixels((row + 9) * (own.height + 2), 0xa5);
        img_record larger = own;
        larger.data = pixels.data();
        larger.stride = static_cast<uint32_t>(row + 9);
        larger.width += 8;
        larger.height += 2;
        ASSERT_EQ(load(bytes, larger), IMG_ST_OK);
        for (size_t at = 0; at < pixels.size(); at++) {
            const size_t x = at % (row + 9), y = at / (row + 9);
            const bool inside = x < row && y < own.height;
            if (inside && x + 1 == row) continue; // may share its byte with pixels to the right
            ASSERT_EQ(pixels[at], inside ? static_cast<uint8_t *>(own.data)[y * own.stride + x] : 0xa5) << name << at;
        }

        // An access function on both sides.
        struct Collector {
            std::string rows;
            size_t row;
        } collector{"", row};
        img_record by_row{};
        by_row.flags = IMG_F_ACCESS;
        by_row.access = [](void *arg, uint32_t, uint32_t, uint32_t, void *line) {
            auto &self = *static_cast<Collector *>(arg);
            self.rows.append(static_cast<char *>(line), self.row);
            return 0;
        };
        by_row.access_arg = &collector;
        if (img_convert_getfunc(own.format, own.format)) { // 1- and 4-bit indices do not convert to themselves
            by_row.format = FMT_RGB888;
            by_row.flags |= IMG_F_FORMAT;
            collector.row = own.width * 3;
            Loaded rgb(FMT_RGB888);
            ASSERT_EQ(load(bytes, rgb.record), IMG_ST_OK);
            ASSERT_EQ(load(bytes, by_row), IMG_ST_OK);
            ASSERT_EQ(collector.rows.size(), collector.row * own.height);
            for (size_t y = 0; y < own.height; y++)
                ASSERT_EQ(memcmp(collector.rows.data() + y * collector.row,
                                 static_cast<uint8_t *>(rgb.record.data) + y * rgb.record.stride, collector.row),
                          0);
        }
        img_record image = own;
        image.access = [](void *arg, uint32_t, uint32_t y, uint32_t count, void *line) {
            const auto &from = *static_cast<const img_record *>(arg);
            memcpy(line, static_cast<const uint8_t *>(from.data) + size_t{y} * from.stride,
                   (count * (from.format & IMG_FMT_BPP_MASK) + 7) / 8);
            return 0;
        };
        image.access_arg = &whole.record;
        image.flags = (image.flags & ~img_flags{IMG_F_DIRECT}) | IMG_F_ACCESS;
        for (img_codec *codec : {png, pnm}) {
            std::string direct, accessed;
            ASSERT_EQ(write(codec, whole.record, direct), IMG_ST_OK);
            ASSERT_EQ(write(codec, image, accessed), IMG_ST_OK);
            EXPECT_EQ(direct, accessed);
        }
    }
}

TEST_F(Modules, ProgressIsToldAndStops) {
    struct Progress {
        uintptr_t last = 0, rows = 0, stop_at = UINTPTR_MAX;
    } progress;
    img_decode_callouts callouts{};
    callouts.data = &progress;
    callouts.scanline = [](void *data, img_record *, uintptr_t done, uintptr_t rows, uintptr_t, uintptr_t) {
        auto &p = *static_cast<Progress *>(data);
        EXPECT_TRUE(done >= p.last && done <= rows);
        p.last = done;
        p.rows = rows;
        return img_status{done >= p.stop_at ? 77u : 0u};
    };
    for (const char *name : {"photo.png", "interlaced.png", "bilevel.pbm"}) {
        const std::string bytes = file(std::string(PICTRA_PICTURES "/") + name);
        for (const bool stop : {false, true}) {
            progress = {};
            if (stop) progress.stop_at = 9;
            FakeBackend source{.data = bytes};
            Loaded loaded;
            ASSERT_EQ(load(source, loaded.record, &callouts), stop ? 77u : 0u) << name;
            EXPECT_EQ(progress.rows, loaded.record.height);
            EXPECT_TRUE(stop || progress.last == progress.rows);
        }
    }
}

TEST_F(Modules, TheSizeIsTheFilesOwn) {
    img_decode_callouts callouts{};
    callouts.choose_format = [](void *, img_record *record, const img_format *, uint32_t) {
        record->width = 10; // a wish that neither format can grant
        return 0u;
    };
    for (const char *name : {"photo.png", "bilevel.pbm"}) {
        FakeBackend source{.data = file(std::string(PICTRA_PICTURES "/") + name)};
        Loaded wanted;
        wanted.record.width = wanted.record.height = 33;
        wanted.record.flags = IMG_F_SIZE_HINT | IMG_F_WIDTH | IMG_F_HEIGHT;
        ASSERT_EQ(load(source, wanted.record, &callouts), IMG_ST_OK);
        EXPECT_EQ(wanted.record.width, name[0] == 'p' ? 241u : 160u);
    }
}

TEST_F(Modules, TheExampleOfTheDocumentationIsOne) {
    ASSERT_TRUE(img_codec_register_dll(library, PICTRA_EXAMPLE_MODULE, "raw8", nullptr));
    const std::string bytes = "RAW8" + big_endian(3) + big_endian(2) + "abcdef";
    for (const img_format format : {FMT_G8, FMT_RGB888}) {
        FakeBackend source{.data = bytes, .most = 7, .buffer_size = 100, .unreads = true};
        Loaded loaded(format);
        ASSERT_EQ(load(source, loaded.record), IMG_ST_OK);
        const std::vector<uint32_t> pixels = look(loaded.record);
        for (uint32_t i = 0; i < 6; i++) EXPECT_EQ(pixels[i], 0xff000000 | (0x010101 * ('a' + i)));
    }
    img_record record{};
    EXPECT_EQ(load(bytes.substr(0, 17), record), 4u);
    EXPECT_EQ(load("RAW8" + big_endian(1 << 20) + big_endian(2), record), 10u);
    img_codec *raw8;
    ASSERT_EQ(img_codec_list_byext(library, "x.raw8", &raw8, 1), 1u);
    Image image(FMT_G8, 1, 1);
    std::string out;
    EXPECT_EQ(write(raw8, image.record, out), IMG_ST_NOTSUP);
}

} // namespace
