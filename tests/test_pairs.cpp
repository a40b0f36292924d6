// SPDX-License-Identifier: MIT
#include "tests/reference.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace {

// For each destination the routines that serve the 21 sources, in the order of the formats in the public header.
// Destinations that are not here have none.
constexpr char matrix[] = R"(
    pal8: pal1_pal8 pal4_pal8 copy8 - - - - - - - - - - - - - - - - - -
    g8: - - - copy8 - argb1555he_g8 argb1555oe_g8 argb1555he_g8 argb1555oe_g8 rgb565he_g8 rgb565oe_g8 bgr888_g8
        rgb888_g8 argb8888he_g8 argb8888oe_g8 argb8888he_g8 argb8888oe_g8 abgr8888he_g8 abgr8888oe_g8 abgr8888he_g8
        abgr8888oe_g8
    a8: - - - - - - - argb1555he_a8 argb1555oe_a8 - - - - - - argb8888he_a8 argb8888oe_a8 - - argb8888he_a8
        argb8888oe_a8
    xrgb1555he: - - - g8_argb1555he - copy16 swab16 xrgb1555he_argb1555he xrgb1555oe_argb1555he rgb565he_argb1555he
        rgb565oe_argb1555he bgr888_argb1555he rgb888_argb1555he xrgb8888he_argb1555he xrgb8888oe_argb1555he
        xrgb8888he_argb1555he xrgb8888oe_argb1555he xbgr8888he_argb1555he xbgr8888oe_argb1555he xbgr8888he_argb1555he
        xbgr8888oe_argb1555he
    xrgb1555oe: - - - g8_argb1555oe - swab16 copy16 xrgb1555he_argb1555oe xrgb1555oe_argb1555oe rgb565he_argb1555oe
        rgb565oe_argb1555oe bgr888_argb1555oe rgb888_argb1555oe xrgb8888he_argb1555oe xrgb8888oe_argb1555oe
        xrgb8888he_argb1555oe xrgb8888oe_argb1555oe xbgr8888he_argb1555oe xbgr8888oe_argb1555oe xbgr8888he_argb1555oe
        xbgr8888oe_argb1555oe
    argb1555he: - - - g8_argb1555he - xrgb1555he_argb1555he xrgb1555oe_argb1555he copy16 swab16 rgb565he_argb1555he
        rgb565oe_argb1555he bgr888_argb1555he rgb888_argb1555he xrgb8888he_argb1555he xrgb8888oe_argb1555he
        argb8888he_argb1555he argb8888oe_argb1555he xbgr8888he_argb1555he xbgr8888oe_argb1555he abgr8888he_argb1555he
        abgr8888oe_argb1555he
    argb1555oe: - - - g8_argb1555oe - xrgb1555he_argb1555oe xrgb1555oe_argb1555oe swab16 copy16 rgb565he_argb1555oe
        rgb565oe_argb1555oe bgr888_argb1555oe rgb888_argb1555oe xrgb8888he_argb1555oe xrgb8888oe_argb1555oe
        argb8888he_argb1555oe argb8888oe_argb1555oe xbgr8888he_argb1555oe xbgr8888oe_argb1555oe abgr8888he_argb1555oe
        abgr8888oe_argb1555oe
    rgb565he: - - - g8_rgb565he - argb1555he_rgb565he argb1555oe_rgb565he argb1555he_rgb565he argb1555oe_rgb565he
        copy16 swab16 bgr888_rgb565he rgb888_rgb565he argb8888he_rgb565he argb8888oe_rgb565he argb8888he_rgb565he
        argb8888oe_rgb565he abgr8888he_rgb565he abgr8888oe_rgb565he abgr8888he_rgb565he abgr8888oe_rgb565he
    rgb565oe: - - - g8_rgb565oe - argb1555he_rgb565oe argb1555oe_rgb565oe argb1555he_rgb565oe argb1555oe_rgb565oe
        swab16 copy16 bgr888_rgb565oe rgb888_rgb565oe argb8888he_rgb565oe argb8888oe_rgb565oe argb8888he_rgb565oe
        argb8888oe_rgb565oe abgr8888he_rgb565oe abgr8888oe_rgb565oe abgr8888he_rgb565oe abgr8888oe_rgb565oe
    bgr888: - - - g8_bgr888 - argb1555he_bgr888 argb1555oe_bgr888 argb1555he_bgr888 argb1555oe_bgr888 rgb565he_bgr888
        rgb565oe_bgr888 copy24 swab24 argb8888he_bgr888 argb8888oe_bgr888 argb8888he_bgr888 argb8888oe_bgr888
        abgr8888he_bgr888 abgr8888oe_bgr888 abgr8888he_bgr888 abgr8888oe_bgr888
    rgb888: - - - g8_rgb888 - argb1555he_rgb888 argb1555oe_rgb888 argb1555he_rgb888 argb1555oe_rgb888 rgb565he_rgb888
        rgb565oe_rgb888 swab24 copy24 argb8888he_rgb888 argb8888oe_rgb888 argb8888he_rgb888 argb8888oe_rgb888
        abgr8888he_rgb888 abgr8888oe_rgb888 abgr8888he_rgb888 abgr8888oe_rgb888
    xrgb8888he: - - - g8_argb8888he - xrgb1555he_argb8888he xrgb1555oe_argb8888he xrgb1555he_argb8888he
        xrgb1555oe_argb8888he rgb565he_argb8888he rgb565oe_argb8888he bgr888_argb8888he rgb888_argb8888he copy32
        swab32 msb32 xrgb8888oe_argb8888he xbgr8888he_argb8888he xbgr8888oe_argb8888he xbgr8888he_argb8888he
        xbgr8888oe_argb8888he
    xrgb8888oe: - - - g8_argb8888oe - xrgb1555he_argb8888oe xrgb1555oe_argb8888oe xrgb1555he_argb8888oe
        xrgb1555oe_argb8888oe rgb565he_argb8888oe rgb565oe_argb8888oe bgr888_argb8888oe rgb888_argb8888oe swab32
        copy32 xrgb8888he_argb8888oe lsb32 xbgr8888he_argb8888oe xbgr8888oe_argb8888oe xbgr8888he_argb8888oe
        xbgr8888oe_argb8888oe
    argb8888he: - - - g8_argb8888he - xrgb1555he_argb8888he xrgb1555oe_argb8888he argb1555he_argb8888he
        argb1555oe_argb8888he rgb565he_argb8888he rgb565oe_argb8888he bgr888_argb8888he rgb888_argb8888he msb32
        xrgb8888oe_argb8888he copy32 swab32 xbgr8888he_argb8888he xbgr8888oe_argb8888he abgr8888he_argb8888he
        abgr8888oe_argb8888he
    argb8888oe: - - - g8_argb8888oe - xrgb1555he_argb8888oe xrgb1555oe_argb8888oe argb1555he_argb8888oe
        argb1555oe_argb8888oe rgb565he_argb8888oe rgb565oe_argb8888oe bgr888_argb8888oe rgb888_argb8888oe
        xrgb8888he_argb8888oe lsb32 swab32 copy32 xbgr8888he_argb8888oe xbgr8888oe_argb8888oe abgr8888he_argb8888oe
        abgr8888oe_argb8888oe
    xbgr8888he: - - - g8_abgr8888he - xrgb1555he_abgr8888he xrgb1555oe_abgr8888he xrgb1555he_abgr8888he
        xrgb1555oe_abgr8888he rgb565he_abgr8888he rgb565oe_abgr8888he bgr888_abgr8888he rgb888_abgr8888he
        xrgb8888he_abgr8888he xrgb8888oe_abgr8888he xrgb8888he_abgr8888he xrgb8888oe_abgr8888he copy32 swab32 msb32
        xbgr8888oe_abgr8888he
    xbgr8888oe: - - - g8_abgr8888oe - xrgb1555he_abgr8888oe xrgb1555oe_abgr8888oe xrgb1555he_abgr8888oe
        xrgb1555oe_abgr8888oe rgb565he_abgr8888oe rgb565oe_abgr8888oe bgr888_abgr8888oe rgb888_abgr8888oe
        xrgb8888he_abgr8888oe xrgb8888oe_abgr8888oe xrgb8888he_abgr8888oe xrgb8888oe_abgr8888oe swab32 copy32
        xbgr8888he_abgr8888oe lsb32
    abgr8888he: - - - g8_abgr8888he - xrgb1555he_abgr8888he xrgb1555oe_abgr8888he argb1555he_abgr8888he
        argb1555oe_abgr8888he rgb565he_abgr8888he rgb565oe_abgr8888he bgr888_abgr8888he rgb888_abgr8888he
        xrgb8888he_abgr8888he xrgb8888oe_abgr8888he argb8888he_abgr8888he argb8888oe_abgr8888he msb32
        xbgr8888oe_abgr8888he copy32 swab32
    abgr8888oe: - - - g8_abgr8888oe - xrgb1555he_abgr8888oe xrgb1555oe_abgr8888oe argb1555he_abgr8888oe
        argb1555oe_abgr8888oe rgb565he_abgr8888oe rgb565oe_abgr8888oe bgr888_abgr8888oe rgb888_abgr8888oe
        xrgb8888he_abgr8888oe xrgb8888oe_abgr8888oe argb8888he_abgr8888oe argb8888oe_abgr8888oe xbgr8888he_abgr8888oe
        lsb32 swab32 copy32
)";

TEST(Pairs, WholeMatrix) {
    std::map<std::string, std::vector<std::string>> rows;
    std::string current;
    std::stringstream words(matrix);
    for (std::string word; words >> word;) {
        if (word.back() == ':')
            current = word.substr(0, word.size() - 1);
        else
            rows[current].push_back(word);
    }
    size_t pairs = 0;
    for (const reference::Format &dst : reference::formats) {
        const std::vector<std::string> none(reference::formats.size(), "-");
        const auto &row = rows.count(dst.name) ? rows[dst.name] : none;
        ASSERT_EQ(row.size(), reference::formats.size()) << dst.name;
        for (size_t s = 0; s < row.size(); s++) {
            void *wanted = row[s] == "-" ? nullptr : dlsym(RTLD_DEFAULT, ("img_cvt_" + row[s]).c_str());
            const img_cvt_func got = img_convert_getfunc(reference::formats[s].code, dst.code);
            EXPECT_EQ(reinterpret_cast<void *>(got), wanted) << reference::formats[s].name << " to " << dst.name;
            pairs += got != nullptr;
        }
    }
    EXPECT_EQ(pairs, 298u);
}

TEST(Pairs, UnknownFormatsHaveNone) {
    for (const img_format unknown : {img_format{0}, img_format{0x1720}, img_format{0x1001310}, ~img_format{0}}) {
        EXPECT_EQ(img_convert_getfunc(unknown, FMT_ARGB8888HE), nullptr);
        EXPECT_EQ(img_convert_getfunc(FMT_ARGB8888HE, unknown), nullptr);
    }
}

TEST(Pairs, OneShotConversion) {
    const uint16_t src[2] = {0xf800, 0x001f};
    uint32_t dst[2] = {7, 7};
    EXPECT_EQ(img_convert_data(FMT_PAL8, src, FMT_ARGB8888HE, dst, 2), img_status{IMG_ST_BADFMT});
    EXPECT_EQ(dst[0], 7u);
    EXPECT_EQ(img_convert_data(FMT_RGB565HE, src, FMT_ARGB8888HE, dst, 2), img_status{IMG_ST_OK});
    EXPECT_EQ(dst[0], 0xffff0000u);
    EXPECT_EQ(dst[1], 0xff0000ffu);
}

} // namespace
