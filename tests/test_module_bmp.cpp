// SPDX-License-Identifier: MIT
//
// BMP files of all headers, depths and masks against their pixels; what the writer says in which header; icons.
#include "tests/module_fixture.h"

#include "pictra/values.h"

#include <map>

using namespace modules;
using namespace std::literals;

namespace {

using Pixels = std::vector<uint32_t>;

std::string little(uint32_t value, int bytes = 4) {
    std::string out;
    for (int i = 0; i < bytes; i++) out += static_cast<char>(value >> 8 * i);
    return out;
}

// A header of 40 bytes or more, filled up with zeros behind its masks.
std::string dib(uint32_t size, uint32_t width, uint32_t height, uint32_t depth, uint32_t compression = 0,
                uint32_t colors = 0, const std::string &masks = "") {
    std::string out = little(size) + little(width) + little(height) + little(1, 2) + little(depth, 2) +
                      little(compression) + little(0) + little(3780) + little(3780) + little(colors) + little(0) +
                      masks;
    return out + std::string(size > out.size() ? size - out.size() : 0, '\0');
}

// gap: bytes between what comes before the pixels and the pixels.
std::string bmp(const std::string &before, const std::string &pixels, uint32_t gap = 0) {
    return "BM" + little(0) + little(0) + little(static_cast<uint32_t>(14 + before.size()) + gap) + before +
           std::string(gap, 'g') + pixels;
}

constexpr uint32_t red = 0xffff0000, green = 0xff00ff00, blue = 0xff0000ff, black = 0xff000000;
const std::string palette = "\0\0\xff\0\0\xff\0\0\xff\0\0\0"s; // red, green, blue

// The values that a load reports, the last one of each key.
struct Values {
    std::map<uintptr_t, std::string> seen{};
    img_decode_callouts callouts{};
    Values() {
        callouts.data = this;
        callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
            static_cast<Values *>(data)->seen[key].assign(reinterpret_cast<const char *>(value), size);
            return img_status{0};
        };
    }
    uint32_t number(uintptr_t key) const {
        uint32_t value = 0;
        if (seen.count(key)) memcpy(&value, seen.at(key).data(), sizeof value);
        return value;
    }
};

class ModuleBmp : public Fixture {
protected:
    ModuleBmp() { EXPECT_EQ(img_codec_list_byext(library, "a.bmp", &codec, 1), 1u); }
    img_codec *codec = nullptr;
};

TEST_F(ModuleBmp, EveryHeaderAndDepthGivesItsPixels) {
    const std::string core = little(12) + little(2, 2) + little(2, 2) + little(1, 2);
    const std::string runs8 = "\1\1\0\0\0\3\1\2\1\0\0\0\0\2\0\1\4\2\0\0\0\1"s; // a row is jumped over, one overfull
    const std::string runs4 = "\1\x10\0\0\0\3\x12\x10\0\0\0\2\0\1\4\x22\0\0\0\1"s;
    const Pixels run = {blue, blue, blue, red, red, red, green, blue, green, green, red, red};
    const struct {
        std::string bytes;
        img_format format;
        Pixels pixels;
    } cases[] = {
        {bmp(core + little(1, 2) + "\0\0\xff\xff\0\0"s, "\x40\0\0\0\x80\0\0\0"s), FMT_PAL1, {blue, red, red, blue}},
        {bmp(core + little(24, 2), "\0\0\xff\0\xff\0\0\0"
                                   "\xff\0\0\0\0\0\0\0"s),
         FMT_BGR888,
         {blue, black, red, green}},
        {bmp(little(16) + little(2) + little(1) + little(1, 2) + little(4, 2) + palette, "\x12\0\0\0"s),
         FMT_PAL4,
         {green, blue}},
        // Fewer entries than the depth has, and more than it can use; indices without an entry are black.
        {bmp(dib(40, 2, 1, 8, 0, 3) + palette, "\1\xff\0\0"s, 5), FMT_PAL8, {green, black}},
        {bmp(dib(64, 2, 1, 8) + palette, "\1\3\0\0"s), FMT_PAL8, {green, black}},
        {bmp(dib(40, 2, 1, 1, 0, 3) + palette, "\x40\0\0\0"s), FMT_PAL1, {red, green}},
        {bmp(dib(40, 5, 1, 2) + palette, "\x1b\x40\0\0"s, 4), FMT_PAL4, {red, green, blue, 0xff676767, green}},
        {bmp(dib(40, 1, ~1u, 8, 0, 3) + palette, "\1\0\0\0\2\0\0\0"s), FMT_PAL8, {green, blue}},
        {bmp(dib(40, 3, 4, 8, 1, 3) + palette, runs8), FMT_PAL8, run},
        {bmp(dib(40, 3, 4, 4, 2, 3) + palette, runs4), FMT_PAL4, run},
        {bmp(dib(40, 2, 1, 16), "\0\xfc\x1f\0"s), little_endian(FMT_XRGB1555HE), {red, blue}},
        {bmp(dib(40, 2, 1, 16, 3, 0, little(0xf800) + little(0x7e0) + little(0x1f)), "\0\xf8\xe0\7"s),
         little_endian(FMT_RGB565HE),
         {red, green}},
        {bmp(dib(108, 2, 1, 16, 3, 0, little(0x7c00) + little(0x3e0) + little(0x1f) + little(0x8000)), "\0\xfc\0\x7c"s),
         little_endian(FMT_ARGB1555HE),
         {red, 0x00ff0000}},
        {bmp(dib(52, 2, 1, 16, 3, 0, little(0xf00) + little(0xf0) + little(0xf)), "\x21\xf3\xff\x0f"s),
         FMT_XRGB8888HE,
         {0xff332211, 0xffffffff}},
        {bmp(dib(40, 1, 1, 32), "\xff\0\0\x80"s), little_endian(FMT_XRGB8888HE), {blue}},
        {bmp(dib(56, 1, 1, 32, 3, 0, little(0xff0000) + little(0xff00) + little(0xff) + little(0xff000000)),
             "\xff\0\0\x80"s),
         little_endian(FMT_ARGB8888HE),
         {0x800000ff}},
        {bmp(dib(40, 1, 1, 32, 6, 0, little(0xff00) + little(0xff0000) + little(0xff000000) + little(0xff)),
             "\x80\xff\0\0"s),
         little_endian(FMT_ARGB8888OE),
         {0x80ff0000}},
        {bmp(dib(124, 1, 1, 32, 3, 0, little(0x3ff00000) + little(0xffc00) + little(0x3ff) + little(0xc0000000)),
             little(0xbfe80000)),
         FMT_ARGB8888HE,
         {0xaaff8000}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        Loaded loaded;
        ASSERT_EQ(load(c.bytes, loaded.record), IMG_ST_OK);
        EXPECT_EQ(loaded.record.format, c.format);
        EXPECT_EQ(look(loaded.record), c.pixels);
    }
}

TEST_F(ModuleBmp, WhatIsRefusedAndHow) {
    const std::string pixels(8, '\0');
    const std::string holes = little(0xf0f00000) + little(0xff00) + little(0xff);
    const struct {
        std::string bytes;
        img_status status;
    } cases[] = {
        {bmp(dib(40, 1, 1, 0, 5), pixels), 5}, // a PNG inside
        {bmp(dib(64, 1, 1, 1, 3), pixels), 5}, // a fax code
        {bmp(dib(40, 1, 1, 32, 3, 0, holes), pixels), 5},
        {bmp(dib(40, 1, 1, 24, 3, 0, holes), pixels), 4},
        {bmp(dib(40, 1, 1, 4, 1, 3) + palette, pixels), 4},
        {bmp(dib(40, 2, 1, 8, 1, 3) + palette, "\1\1"s), 4}, // half a row
        {bmp(dib(40, 1, 2, 8, 1, 3) + palette, "\1\1\0\0"s), 4},
        {bmp(dib(40, 0x80000001, 1, 24), pixels), 4},
        {bmp(dib(40, 1, 0x80000000, 24), pixels), 10},
        {bmp(dib(40, 1, 1, 5), pixels), 1},
        {bmp(dib(41 + 24, 1, 1, 24), pixels), 1},
    };
    for (const auto &c : cases) {
        img_record record{};
        EXPECT_EQ(load(c.bytes, record), c.status) << &c - cases;
    }
}

// Runs that stop without a mark, or go on after the last row, with all rows in them.
TEST_F(ModuleBmp, RunsMayEndAnywhereAfterTheLastPixel) {
    for (const std::string &runs :
         {"\1\1\1\2"s, "\2\2\0\0"s, "\2\2\0"s, "\2\2\0\0\1\1\0\1"s, "\2\2\0\0\0\3\1\1\1\0"s}) {
        Values values;
        Loaded loaded;
        ASSERT_EQ(load(bmp(dib(40, 2, 1, 8, 1, 3) + palette, runs), loaded.record, &values.callouts), IMG_ST_OK);
        EXPECT_EQ(look(loaded.record), (Pixels{runs[0] == 1 ? green : blue, blue}));
        EXPECT_TRUE(values.seen.count(IMG_VALUE_WARNING));
    }
}

// A picture whose writer is asked for resolution and profile.
img_status answer(void *, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value) {
    if (key == IMG_VALUE_RESOLUTION) *reinterpret_cast<img_resolution *>(value) = {3779.6, 2000};
    if (key == IMG_VALUE_ICC) *reinterpret_cast<img_bytes *>(value) = {"profile", 7};
    return 0;
}

TEST_F(ModuleBmp, ProfileAndResolutionComeBack) {
    for (const img_format format : {FMT_PAL4, FMT_RGB565HE, FMT_ARGB8888HE}) {
        Image image(format, 5, 3, format == FMT_PAL4 ? 7 : 0, IMG_F_ANSWERS);
        img_encode_callouts callouts{};
        callouts.scanline = answer;
        FakeBackend sink{};
        {
            const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
            ASSERT_EQ(img_write(library, stream.get(), &callouts, &image.record, &codec), IMG_ST_OK);
        }
        Values values;
        Loaded loaded;
        FakeBackend source{.data = sink.data};
        ASSERT_EQ(load(source, loaded.record, &values.callouts), IMG_ST_OK);
        EXPECT_EQ(look(loaded.record), look(image.record));
        EXPECT_EQ(values.seen[IMG_VALUE_ICC], "profile");
        img_resolution resolution{};
        memcpy(&resolution, values.seen[IMG_VALUE_RESOLUTION].data(), sizeof resolution);
        EXPECT_TRUE(resolution.x == 3780 && resolution.y == 2000);
        EXPECT_EQ(values.number(IMG_VALUE_DEPTH), format == FMT_PAL4 ? 4u : format == FMT_RGB565HE ? 6u : 8u);
    }
}

// ---- Icons ----

std::string icon(int type, const std::vector<std::string> &pictures) {
    std::string directory = little(0, 2) + little(static_cast<uint32_t>(type), 2) +
                            little(static_cast<uint32_t>(pictures.size()), 2),
                data;
    for (const std::string &picture : pictures) {
        const size_t at = 6 + 16 * pictures.size() + data.size();
        const bool png = picture[0] == '\x89';
        directory +=
            (png ? picture.substr(19, 1) + picture[23] : picture.substr(4, 1) + static_cast<char>(picture[8] / 2)) +
            "\0\0\1\0\5\0"s + little(static_cast<uint32_t>(picture.size())) + little(static_cast<uint32_t>(at));
        data += picture;
    }
    return directory + data;
}

TEST_F(ModuleBmp, IconsComeLargestFirstWithTheirMask) {
    const std::string small = dib(40, 1, 2, 24) + "\0\0\xff\0"
                                                  "\0\0\0\0"s;
    const std::string masked = dib(40, 2, 4, 4, 0, 3) + palette +
                               "\x01\0\0\0"
                               "\x21\0\0\0"
                               "\x40\0\0\0"
                               "\0\0\0\0"s;
    const std::string alpha = dib(40, 2, 2, 32) +
                              "\xff\0\0\x40"
                              "\xff\0\0\0"s +
                              "\x80\0\0\0"s;
    const std::string no_alpha = dib(40, 1, 4, 32) +
                                 "\xff\0\0\0"
                                 "\xff\0\0\0"s +
                                 "\x80\0\0\0"
                                 "\0\0\0\0"s;
    // PNG files of all kinds; the directory has no room for the first one's width.
    Image wide(FMT_ARGB8888HE, 513, 1), indices(FMT_PAL4, 3, 2, 9, IMG_F_PAL_ALPHA), opaque(FMT_RGB888, 1, 5);
    std::string wide_png, indices_png, opaque_png;
    EXPECT_EQ(write(module("png"), wide.record, wide_png), IMG_ST_OK);
    EXPECT_EQ(write(module("png"), indices.record, indices_png), IMG_ST_OK);
    EXPECT_EQ(write(module("png"), opaque.record, opaque_png), IMG_ST_OK);
    const Pixels expected[] = {look(wide.record),
                               look(indices.record),
                               look(opaque.record),
                               {blue, green, red, 0x0000ff00},
                               {0x400000ff, 0x000000ff},
                               {blue, 0x000000ff},
                               {red}};

    FakeBackend source{.data = icon(2, {small, opaque_png, alpha, no_alpha, indices_png, wide_png, masked}) + "rest"};
    const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
    img_codec *ico = nullptr;
    ASSERT_EQ(img_codec_list_byext(library, "a.cur", &ico, 1), 1u);
    void *state = nullptr;
    ASSERT_EQ(img_decode_begin(ico, stream.get(), &state), IMG_ST_OK);
    Values values;
    for (const Pixels &pixels : expected) {
        Loaded loaded;
        ASSERT_EQ(img_decode_frame(ico, stream.get(), &values.callouts, &loaded.record, &state), IMG_ST_OK);
        EXPECT_EQ(look(loaded.record), pixels);
    }
    EXPECT_EQ(values.number(IMG_VALUE_FRAMES), 7u);
    EXPECT_FALSE(values.seen.count(IMG_VALUE_WARNING));
    EXPECT_EQ(values.seen[IMG_VALUE_TEXT], "hotspot\0"
                                           "1,5"s);
    img_record none{};
    EXPECT_EQ(img_decode_frame(ico, stream.get(), nullptr, &none, &state), 1u);
    img_decode_finish(ico, stream.get(), &state);
    char rest[5] = {};
    EXPECT_EQ(stream->read(stream->self, rest, 4), 4u);
    EXPECT_STREQ(rest, "rest");

    // What an interlaced picture holds is given back before the next one.
    const std::string interlaced = picture("interlaced.png"), twice = icon(1, {interlaced, interlaced});
    FakeBackend pair{.data = twice};
    const Stream icons(io_open(FakeBackend::make, IO_READ, &pair), io_close);
    modules::Values limited;
    limited.max_memory = twice.size() + 97 * 61 * 3;
    ASSERT_EQ(img_decode_begin(ico, icons.get(), &state), IMG_ST_OK);
    for (int i = 0; i < 2; i++) {
        Rows rows(FMT_RGB888);
        EXPECT_EQ(img_decode_frame(ico, icons.get(), &limited.callouts, &rows.record, &state), IMG_ST_OK) << i;
    }
    img_decode_finish(ico, icons.get(), &state);

    EXPECT_EQ(load(icon(1, {wide_png.substr(0, wide_png.size() - 1)}), none), 4u);
    std::string cut = icon(1, {indices_png});
    EXPECT_EQ(load(cut.substr(0, cut.size() - 20), none), 4u);
    EXPECT_EQ(load(icon(1, {masked.substr(0, masked.size() - 1)}), none), 4u) << "without all of its mask";
}

} // namespace
