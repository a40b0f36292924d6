// SPDX-License-Identifier: MIT
#include "core/record.h"
#include "tests/reference.h"
#include "tests/runs.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

namespace {

// The names declared in the public header, without img_cvt_.
std::set<std::string> declared() {
    std::ifstream file(PICTRA_SOURCE_DIR "/include/pictra/routines.h");
    std::stringstream text;
    text << file.rdbuf();
    std::string words = text.str();
    std::set<std::string> names;
    for (size_t at = 0; (at = words.find("IMG_API ", at)) != words.npos;) {
        std::stringstream declaration(words.substr(at, words.find(';', at) - at));
        at++;
        for (std::string word; declaration >> word;)
            if (word.starts_with("img_cvt_") && word != "img_cvt_routine")
                names.insert(word.substr(8, word.find(',') - 8));
    }
    return names;
}

img_cvt_func exported(const std::string &name) {
    return reinterpret_cast<img_cvt_func>(dlsym(RTLD_DEFAULT, ("img_cvt_" + name).c_str()));
}

TEST(Convert, HeaderDeclaresTheTable) {
    std::set<std::string> names = {"pal1_pal8", "pal4_pal8", "copy8", "copy16", "copy24", "copy32"};
#define ROUTINE(name, source, destination, rule) names.insert(#name);
#include "convert/routines.inc"
    EXPECT_EQ(names.size(), 147u);
    EXPECT_EQ(declared(), names);
}

TEST(Convert, EveryRoutineIsExact) {
    runs::for_each_variant([](const char *variant) {
        for (const std::string &name : declared()) {
            const reference::Conversion c = reference::conversion(name);
            const img_cvt_func run = exported(name);
            ASSERT_NE(run, nullptr) << name;
            const uint32_t least = reference::bits(c.src) < 8 ? 1 : 0;
            EXPECT_EQ(runs::first_fault({reference::bits(c.src), reference::bits(c.dst), least, run,
                                         [&](auto src, auto dst, auto count) { c.run(src, dst, count); }}),
                      "")
                << name << " " << variant;
        }
    });
}

// Runs of many megabytes are written past the caches; shorter ones, which the test above holds, must agree.
TEST(Convert, HugeRunsAreExact) {
    constexpr uint32_t piece = 1024, count = piece * 16500; // whole chunks from an aligned start, and not so
    std::vector<uint8_t> src(size_t{count} * 4 + 1), got(size_t{count} * 4 + 64), want(got);
    const size_t aligned = -reinterpret_cast<uintptr_t>(got.data()) % 32;
    for (size_t i = 0; i < src.size(); i++) src[i] = uint8_t(i * i >> 7);
    runs::for_each_variant([&](const char *variant) {
        for (const char *name : {"bgr888_g8", "rgb565he_argb1555oe", "argb8888he_rgb888", "rgb888_argb8888he"}) {
            const reference::Conversion c = reference::conversion(name);
            const size_t src_bytes = reference::bits(c.src) / 8, dst_bytes = reference::bits(c.dst) / 8;
            for (const size_t offset : {aligned, aligned + 1, aligned + 12}) {
                exported(name)(src.data() + 1, got.data() + offset, count);
                for (size_t i = 0; i < count; i += piece)
                    exported(name)(src.data() + 1 + i * src_bytes, want.data() + offset + i * dst_bytes, piece);
                EXPECT_TRUE(got == want) << name << " at +" << offset << " " << variant;
            }
        }
    });
}

// Values worked out by hand, which hold the reference as well.
TEST(Convert, KnownPixels) {
    const struct {
        const char *name;
        uint32_t src, dst; // host order
    } cases[] = {
        {"rgb565he_argb8888he", 0xffff, 0xffffffff},
        {"rgb565he_argb8888he", 0x0821, 0xff080408},
        {"argb1555he_argb8888he", 0x7fff, 0x00ffffff},
        {"argb1555he_argb8888he", 0x8000, 0xff000000},
        {"argb8888he_argb1555he", 0x7fffffff, 0x7fff},
        {"argb8888he_argb1555he", 0x80000000, 0x8000},
        {"argb8888he_argb1555he", 0x00070707, 0},
        {"argb1555he_rgb565he", 0x03e0, 0x07e0},
        {"rgb565he_argb1555he", 0x07e0, 0x83e0},
        {"argb8888he_g8", 0xffffffff, 255},
        {"abgr8888he_g8", 0xffffffff, 150},
        {"rgb565he_g8", 0xffff, 250},
        {"argb8888oe_abgr8888he", 0x11223344, 0x44112233},
    };
    runs::for_each_variant([&](const char *variant) {
        for (const auto &[name, src, dst] : cases) {
            const reference::Conversion c = reference::conversion(name);
            const img::KeyPixel from = img::key_pixel(c.src, src), to = img::key_pixel(c.dst, dst);
            const size_t bytes = img::bits_per_pixel(c.dst) / 8;
            uint8_t got[4], wanted[4];
            exported(name)(from.bytes, got, 1);
            c.run(from.bytes, wanted, 1);
            EXPECT_EQ(memcmp(got, to.bytes, bytes), 0) << name << " " << variant;
            EXPECT_EQ(memcmp(wanted, to.bytes, bytes), 0) << name;
        }
    });
}

} // namespace
