// SPDX-License-Identifier: MIT
//
// The codec modules at their work. What they refuse is in test_module_damage.cpp.
#include "tests/module_fixture.h"

#include <filesystem>

using namespace modules;

namespace {

class Modules : public Fixture {};

TEST_F(Modules, EveryFormatComesBackAsItWas) {
    struct Size {
        uint32_t width, height;
    };
    for (img_codec *codec : {png, pnm})
        for (const img_format format : all_formats)
            for (const auto &[width, height] : {Size{1, 1}, Size{1, 7}, Size{13, 1}, Size{17, 11}, Size{101, 3}})
                for (const img_flags flags : {img_flags{0}, img_flags{IMG_F_TRANSP}, img_flags{IMG_F_PAL_ALPHA}})
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
    // A bitmap with black as index 0, and noise behind its last pixel.
    Image bits(FMT_PAL1, 3, 1, 2);
    bits.pixels[0] = 0x55;
    bits.palette[0] = 0xff000000;
    bits.palette[1] = 0xffffffff;
    std::string bytes;
    ASSERT_EQ(write(pnm, bits.record, bytes), IMG_ST_OK);
    EXPECT_EQ(bytes, "P4\n3 1\n\xa0");
}

TEST_F(Modules, PicturesFollowEachOther) {
    const std::string first = "P5 1 1 255\nA", second = "P6 1 1 255\nabc";
    for (const std::string &bytes : {first + second, picture("dot.png") + picture("line.png")}) {
        FakeBackend source{.data = bytes, .most = 5, .buffer_size = 100};
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        for (const img_status expected : {0u, 0u, 1u}) {
            Loaded loaded;
            EXPECT_EQ(img_load(library, stream.get(), nullptr, &loaded.record), expected);
        }
    }
}

TEST_F(Modules, RowsOfTheCallersOwn) {
    for (const char *name : {"photo.png", "interlaced.png", "bilevel.png", "text.pgm"}) {
        const std::string bytes = picture(name);
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
        if (img_convert_getfunc(own.format, own.format)) { // 1- and 4-bit indices do not convert to themselves
            Loaded rgb(FMT_RGB888), by_row(FMT_RGB888);
            ASSERT_EQ(load(bytes, rgb.record), IMG_ST_OK);
            static uint32_t equal_rows;
            equal_rows = 0;
            by_row.record.flags |= IMG_F_ACCESS;
            by_row.record.access = [](void *arg, uint32_t, uint32_t y, uint32_t, void *line) {
                const auto &r = *static_cast<img_record *>(arg);
                equal_rows += !memcmp(line, static_cast<uint8_t *>(r.data) + y * r.stride, r.width * 3);
                return 0;
            };
            by_row.record.access_arg = &rgb.record;
            ASSERT_EQ(load(bytes, by_row.record), IMG_ST_OK);
            EXPECT_EQ(equal_rows, own.height);
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

TEST_F(Modules, ProgressIsToldAndStopsAndTheSizeIsTheFilesOwn) {
    static uintptr_t last, stop_at;
    img_decode_callouts callouts{};
    callouts.scanline = [](void *, img_record *record, uintptr_t done, uintptr_t rows, uintptr_t, uintptr_t) {
        EXPECT_TRUE(done >= last && done <= rows && rows == record->height);
        last = done;
        return img_status{done >= stop_at ? 77u : 0u};
    };
    callouts.choose_format = [](void *, img_record *record, const img_format *, uint32_t) {
        record->width = 10; // a wish that neither format can grant
        return 0u;
    };
    for (const char *name : {"photo.png", "interlaced.png", "bilevel.pbm"})
        for (const uintptr_t stop : {uintptr_t{9}, UINTPTR_MAX}) {
            last = 0;
            stop_at = stop;
            FakeBackend source{.data = picture(name)};
            Loaded own, wanted;
            ASSERT_EQ(load(source.data, own.record), IMG_ST_OK);
            wanted.record.width = wanted.record.height = 33;
            wanted.record.flags = IMG_F_SIZE_HINT | IMG_F_WIDTH | IMG_F_HEIGHT;
            ASSERT_EQ(load(source, wanted.record, &callouts), stop == 9 ? 77u : 0u) << name;
            EXPECT_EQ(wanted.record.width, own.record.width);
            EXPECT_TRUE(stop == 9 || last == own.record.height);
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
