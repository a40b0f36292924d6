// SPDX-License-Identifier: MIT
//
// The PNM module: what texts and bytes mean, and what is refused.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

class Pnm : public Fixture {};

TEST_F(Pnm, Variants) {
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
    ASSERT_EQ(write(module("pnm"), bits.record, bytes), IMG_ST_OK);
    EXPECT_EQ(bytes, "P4\n3 1\n\xa0");
}

TEST_F(Pnm, WhatIsRefusedAndHow) {
    const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
    const struct {
        std::string bytes;
        img_status status;
    } cases[] = {
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
        {"GIF", 1},
        {"", 1},
    };
    for (const auto &[bytes, status] : cases) {
        img_record record{};
        EXPECT_EQ(load(bytes, record), status) << bytes.substr(0, 40);
        EXPECT_FALSE(record.flags & IMG_F_DIRECT);
    }
}

} // namespace
