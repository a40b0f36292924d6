// SPDX-License-Identifier: MIT
//
// What is special to JPEG: sizes while decoding, inks, metadata, ends that come too early. WebP decodes at other sizes, too.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

struct Wish {
    uint32_t wanted_width, wanted_height, width, height;
};

class ModuleJpeg : public Fixture {
protected:
    std::string smooth(const char *extension, uint32_t width, uint32_t height) {
        return written(module(extension), Image(FMT_RGB888, width, height, 0, 0, true));
    }
    void expect_sizes(const std::string &bytes, std::initializer_list<Wish> wishes) {
        for (const Wish &wish : wishes) {
            Loaded loaded;
            loaded.record.flags = IMG_F_SIZE_HINT;
            loaded.record.width = wish.wanted_width;
            loaded.record.height = wish.wanted_height;
            ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK);
            EXPECT_EQ(loaded.record.width, wish.width) << wish.wanted_width << ' ' << wish.wanted_height;
            EXPECT_EQ(loaded.record.height, wish.height) << wish.wanted_width << ' ' << wish.wanted_height;
        }
    }
};

// JPEG in eighths, WebP as it is wanted.
TEST_F(ModuleJpeg, TheSmallestSizeThatIsEnough) {
    expect_sizes(smooth("jpg", 83, 45), {{0, 0, 83, 45},
                                         {1, 1, 11, 6},
                                         {11, 0, 11, 6},
                                         {12, 0, 21, 12},
                                         {0, 6, 11, 6},
                                         {0, 7, 21, 12},
                                         {11, 7, 21, 12},
                                         {42, 23, 42, 23},
                                         {43, 1, 52, 29},
                                         {83, 45, 83, 45},
                                         {999, 1, 83, 45}});
    expect_sizes(smooth("webp", 83, 45),
                 {{0, 0, 83, 45}, {20, 20, 20, 20}, {20, 0, 20, 11}, {0, 20, 37, 20}, {99, 99, 83, 45}});
}

// One block of 8 x 8 pixels, all of them 0 in each of four channels of ink: without Adobe's marker that is white paper, with
// it, which counts the other way, black.
TEST_F(ModuleJpeg, InksByAdobesRule) {
    const std::string tables =
        "\xff\xdb" + std::string("\0\x43\0", 3) + std::string(64, '\1') + // quantisation
        "\xff\xc0" + std::string("\0\x14\x08\0\x08\0\x08\x04\x01\x11\0\x02\x11\0\x03\x11\0\x04\x11\0", 20) +
        "\xff\xc4" + std::string("\0\x14\0\x01", 4) + std::string(15, '\0') + "\x0b" + // DC: one code, of 11 bits
        "\xff\xc4" + std::string("\0\x14\x10\x01", 4) + std::string(15, '\0') + std::string(1, '\0') + "\xff\xda" +
        std::string("\0\x0e\x04\x01\0\x02\0\x03\0\x04\0\0\x3f\0", 14);
    // Each block: the code 0, then -1024 in 11 bits, then the end of the block, 0. A zero follows each byte 0xff.
    const std::string pixels = std::string("\x3f\xf1\xff\0\x8f\xfc\x7f\xef", 8);
    const std::string adobe = "\xff\xee" + std::string("\0\x0e"
                                                       "Adobe\0\x64\0\0\0\0\0",
                                                       14);
    for (const bool marked : {false, true}) {
        Loaded loaded;
        ASSERT_EQ(load("\xff\xd8" + (marked ? adobe : "") + tables + pixels + "\xff\xd9", loaded.record), IMG_ST_OK);
        EXPECT_EQ(look(loaded.record)[0], marked ? 0xff000000 : 0xffffffff);
    }
}

TEST_F(ModuleJpeg, EndsThatComeTooEarly) {
    const std::string bytes = smooth("jpg", 64, 64);
    Loaded whole, open;
    EXPECT_EQ(load(bytes, whole.record), IMG_ST_OK);
    EXPECT_EQ(load(bytes.substr(0, bytes.size() - 2), open.record), IMG_ST_OK) << "only the end marker is missing";
    EXPECT_EQ(look(whole.record), look(open.record));
    img_record record{};
    EXPECT_EQ(load("\xff\xd8\xff\xd9", record), 4u);
    std::string deep = bytes;
    deep[deep.find("\xff\xc0") + 4] = 12;
    EXPECT_EQ(load(deep, record), 5u);
}

} // namespace
