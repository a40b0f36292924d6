// SPDX-License-Identifier: MIT
#include "convert/expand.h"
#include "tests/reference.h"
#include "tests/runs.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr struct {
    uint32_t index_bits;
    img_expand_func to[4]; // 8, 16, 24, 32 bits
} routines[] = {
    {1, {img_expand_1_8, img_expand_1_16, img_expand_1_24, img_expand_1_32}},
    {4, {img_expand_4_8, img_expand_4_16, img_expand_4_24, img_expand_4_32}},
    {8, {img_expand_8_8, img_expand_8_16, img_expand_8_24, img_expand_8_32}},
};

TEST(Expand, OnlyTheDepthsChoose) {
    for (const auto &[bits, to] : routines)
        for (uint32_t bytes = 1; bytes <= 4; bytes++) {
            EXPECT_EQ(img_expand_getfunc(bits, bytes * 8), to[bytes - 1]);
            EXPECT_EQ(img_expand_getfunc(FMT_G8 - 8 + bits, FMT_ABGR8888OE - 32 + bytes * 8), to[bytes - 1]);
        }
    for (const uint32_t bits : {0u, 2u, 16u, 24u, 32u}) EXPECT_EQ(img_expand_getfunc(bits, FMT_G8), nullptr);
    for (const uint32_t bits : {0u, 1u, 4u, 12u, 40u, 64u}) EXPECT_EQ(img_expand_getfunc(FMT_PAL8, bits), nullptr);
}

// The palette ends with the highest entry that is named, and beyond it memory cannot be read.
TEST(Expand, EveryRoutineIsExactAndReadsNamedEntriesOnly) {
    const runs::Fenced memory(1024);
    runs::for_each_variant([&](const char *variant) {
        for (const auto &[bits, to] : routines)
            for (uint32_t bytes = 1; bytes <= 4; bytes++)
                for (const uint32_t colours : {1u, 2u, 3u, 16u, 17u, 64u, 65u, 128u, 200u, 256u}) {
                    if (colours > 1u << bits) continue;
                    uint8_t *palette = memory.before_end(colours * bytes);
                    for (uint32_t i = 0; i < colours * bytes; i++) palette[i] = uint8_t(i * 89 + 3);
                    runs::Routine routine{bits, bytes * 8, bits < 8,
                                          [&, expand = to[bytes - 1]](auto src, auto dst, auto count) {
                                              expand(src, dst, count, palette);
                                          },
                                          [&, depth = bits, size = bytes](auto src, auto dst, auto count) {
                                              for (size_t i = 0; i < count; i++)
                                                  memcpy(dst + i * size,
                                                         palette + reference::index_at(depth, src, i) * size, size);
                                          }};
                    for (uint8_t &byte : routine.source)
                        byte = uint8_t(bits == 8   ? byte % colours
                                       : bits == 4 ? byte % 16 % colours | byte / 16 % colours << 4
                                                   : byte & (colours - 1) * 0xff);
                    EXPECT_EQ(runs::first_fault(routine), "")
                        << bits << " to " << bytes * 8 << ", " << colours << " colours, " << variant;
                }
    });
}

// The table that a run needs is found from all of its indices.
TEST(Expand, OneHighIndexAnywhere) {
    uint8_t palette[256] = {};
    for (const int last : {1, 15, 255}) palette[last] = uint8_t(last);
    runs::for_each_variant([&](const char *variant) {
        for (const auto &[bits, to] : routines)
            for (uint32_t at = 0; at < 131; at++) {
                uint8_t src[131] = {}, got[131];
                src[at * bits / 8] = uint8_t(((1u << bits) - 1) << (8 - bits - at * bits % 8));
                to[0](src, got, 131, palette);
                EXPECT_EQ(got[at], (1u << bits) - 1) << bits << " at " << at << " " << variant;
                EXPECT_EQ(std::count(got, got + 131, 0), 130);
            }
    });
}

TEST(Expand, HugeRunsAreExact) {
    constexpr uint32_t piece = 1000, count = piece * 17000;
    std::vector<uint8_t> src(count), palette(1024), got(size_t{count} * 4 + 64), want(got);
    for (size_t i = 0; i < src.size(); i++) src[i] = uint8_t(i * i >> 7);
    for (size_t i = 0; i < palette.size(); i++) palette[i] = uint8_t(i * 89 + 3);
    const size_t aligned = -reinterpret_cast<uintptr_t>(got.data()) % 32;
    runs::for_each_variant([&](const char *variant) {
        for (const auto &[bits, to] : routines)
            for (const uint32_t bytes : {1u, 3u, 4u})
                for (const size_t offset : {aligned, aligned + 20}) {
                    to[bytes - 1](src.data(), got.data() + offset, count, palette.data());
                    for (size_t i = 0; i < count; i += piece)
                        to[bytes - 1](src.data() + i * bits / 8, want.data() + offset + i * bytes, piece,
                                      palette.data());
                    EXPECT_TRUE(got == want) << bits << " to " << bytes << " at +" << offset << " " << variant;
                }
    });
}

TEST(Expand, KnownPixels) {
    const uint32_t words[] = {0xff000000, 0xffffffff};
    const uint8_t bits = 0x80;
    uint32_t got[8];
    img_expand_1_32(&bits, got, 8, words);
    EXPECT_EQ(got[0], words[1]);
    EXPECT_EQ(std::count(got + 1, got + 8, words[0]), 7);

    const uint8_t bytes[] = {0, 0, 0, 11, 12, 13, 21, 22, 23}, nibbles = 0x21;
    uint8_t pixels[6];
    img_expand_4_24(&nibbles, pixels, 2, bytes);
    EXPECT_EQ(memcmp(pixels, bytes + 6, 3), 0);
    EXPECT_EQ(memcmp(pixels + 3, bytes + 3, 3), 0);
}

} // namespace
