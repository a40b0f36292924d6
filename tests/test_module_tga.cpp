// SPDX-License-Identifier: MIT
//
// TGA files of every type against their pixels: maps, packets, attribute bits, origins.
#include "tests/module_fixture.h"

using namespace modules;
using namespace std::literals;

namespace {

using Pixels = std::vector<uint32_t>;

struct Tga {
    int type, map_first, map_length, map_bits;
    int width, height, depth, descriptor;
    std::string_view body;

    std::string bytes() const {
        const auto two = [](int value) { return std::string{static_cast<char>(value), static_cast<char>(value >> 8)}; };
        return std::string{'\2', static_cast<char>(map_length > 0), static_cast<char>(type)} + two(map_first) +
               two(map_length) + static_cast<char>(map_bits) + std::string(4, '\0') + two(width) + two(height) +
               static_cast<char>(depth) + static_cast<char>(descriptor) + "ID" + std::string(body);
    }
};
constexpr uint32_t red = 0xffff0000, green = 0xff00ff00, blue = 0xff0000ff, black = 0xff000000;

class ModuleTga : public Fixture {
protected:
};

TEST_F(ModuleTga, EveryTypeGivesItsPixels) {
    const struct {
        Tga file;
        img_format format;
        Pixels pixels;
    } cases[] = {
        // A map from index 2 on; rows from the bottom.
        {{1, 2, 2, 16, 2, 2, 8, 0, "\0\x7c\xe0\3\2\3\1\2"sv}, FMT_PAL8, {black, red, red, green}},
        {{9, 0, 2, 32, 2, 1, 8, 0x28, "\0\0\xff\x80\xff\0\0\xff\1\0\1"sv}, FMT_PAL8, {0x80ff0000, blue}},
        {{2, 0, 0, 0, 3, 1, 15, 0x30, "\0\x7c\xe0\3\x1f\0"sv}, little_endian(FMT_XRGB1555HE), {blue, green, red}},
        {{10, 0, 0, 0, 2, 1, 16, 0x21, "\1\0\xfc\0\x7c"sv}, little_endian(FMT_ARGB1555HE), {red, 0x00ff0000}},
        {{2, 0, 1, 24, 1, 2, 24, 0x20, "map\0\0\xff\xff\0\0"sv}, FMT_BGR888, {red, blue}},
        // Both kinds of packets across rows.
        {{10, 0, 0, 0, 2, 3, 24, 0x20, "\x82\0\0\xff\2\0\xff\0\xff\0\0\0\0\0"sv},
         FMT_BGR888,
         {red, red, red, green, blue, black}},
        {{10, 0, 0, 0, 2, 1, 32, 0x20, "\x81\xff\0\0\0"sv}, little_endian(FMT_XRGB8888HE), {blue, blue}},
        {{2, 0, 0, 0, 1, 1, 32, 0x28, "\xff\0\0\x40"sv}, little_endian(FMT_ARGB8888HE), {0x400000ff}},
        // Counts of attribute bits that do not fit the depth: what is there is alpha unless none is said to be.
        {{2, 0, 0, 0, 1, 1, 32, 0x24, "\xff\0\0\x40"sv}, little_endian(FMT_ARGB8888HE), {0x400000ff}},
        {{2, 0, 0, 0, 1, 1, 24, 0x28, "\xff\0\0"sv}, FMT_BGR888, {blue}},
        {{2, 0, 0, 0, 1, 1, 15, 0x21, "\0\x7c"sv}, little_endian(FMT_XRGB1555HE), {red}},
        {{2, 0, 0, 0, 2, 1, 16, 0x28, "\0\xfc\0\x7c"sv}, little_endian(FMT_ARGB1555HE), {red, 0x00ff0000}},
        {{3, 0, 0, 0, 1, 1, 8, 0x28, "\x10"sv}, FMT_G8, {0xff101010}},
        {{3, 0, 0, 0, 1, 1, 16, 0x20, "\x10\0"sv}, FMT_ARGB8888HE, {0xff101010}},
        {{11, 0, 0, 0, 3, 1, 8, 0x20, "\1\x10\x20\x80\x30"sv}, FMT_G8, {0xff101010, 0xff202020, 0xff303030}},
        {{3, 0, 0, 0, 2, 1, 16, 0x28, "\x10\x80\x20\xff"sv}, FMT_ARGB8888HE, {0x80101010, 0xff202020}},
    };
    for (const auto &[file, format, pixels] : cases) {
        Loaded loaded;
        ASSERT_EQ(load(file.bytes(), loaded.record), IMG_ST_OK) << file.type << ' ' << file.depth;
        EXPECT_EQ(loaded.record.format, format);
        EXPECT_EQ(look(loaded.record), pixels) << file.type << ' ' << file.depth;
    }
    // One transparent entry is a key, but alpha where that is wanted.
    const Tga keyed{1, 0, 2, 32, 2, 1, 8, 0x28, "\0\0\xff\xff\0\xff\0\0\0\1"sv};
    Loaded key, alpha(FMT_ARGB8888OE);
    ASSERT_EQ(load(keyed.bytes(), key.record), IMG_ST_OK);
    EXPECT_TRUE((key.record.flags & IMG_F_TRANSP) && key.record.transparency8 == 1);
    ASSERT_EQ(load(keyed.bytes(), alpha.record), IMG_ST_OK);
    EXPECT_EQ(look(alpha.record), look(key.record));

    img_record record{};
    EXPECT_EQ(load(Tga{1, 0, 1, 24, 1, 1, 8, 0, "map\1"}.bytes(), record), 4u) << "an index beyond the map";
    for (const Tga &none : {Tga{0, 0, 0, 0, 1, 1, 8, 0, "a"}, Tga{2, 0, 0, 0, 1, 1, 24, 0x80, "abc"},
                            Tga{2, 0, 0, 0, 1, 1, 24, 9, "abc"}, Tga{1, 0, 0, 0, 1, 1, 8, 0, "a"}})
        EXPECT_EQ(load(none.bytes(), record), 1u);
}

TEST_F(ModuleTga, RunsAreWrittenOnceAndKeepTheirRow) {
    Image image(FMT_G8, 300, 2);
    std::fill(image.pixels.begin(), image.pixels.end(), 'a');
    for (const int x : {0, 1, 2, 299}) image.pixels[static_cast<size_t>(x)] = static_cast<uint8_t>('0' + x % 7);
    const std::string bytes = written(module("tga"), std::move(image));
    EXPECT_EQ(bytes.substr(18, 18), "\2"
                                    "012\xff"
                                    "a\xff"
                                    "a\xa7"
                                    "a\0"
                                    "5\xff"
                                    "a\xff"
                                    "a\xab"
                                    "a"sv);
    EXPECT_EQ(bytes.substr(bytes.size() - 18), "TRUEVISION-XFILE.\0"sv);
}

} // namespace
