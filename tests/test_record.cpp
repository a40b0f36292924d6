// SPDX-License-Identifier: MIT
#include "core/record.h"
#include "tests/memory.h"

#include <gtest/gtest.h>

namespace {

constexpr img_flags described = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;

img_record record(img_format format, uint32_t width, uint32_t height, uint32_t ncolors = 0) {
    img_record r{};
    r.format = format;
    r.width = width;
    r.height = height;
    r.ncolors = ncolors;
    r.flags = described | (format & IMG_FMT_PAL && !ncolors ? IMG_F_PALETTE : 0);
    return r;
}

TEST(Alloc, RowsPalettesAndLimits) {
    struct Case {
        img_record record;
        img_status status;
        img_alloc_result made;
        uint32_t stride;
    };
    for (auto [r, status, made, stride] : {
             Case{record(FMT_PAL1, 9, 2), IMG_ST_OK, IMG_ALLOC_PIXELS, 4},
             Case{record(FMT_PAL4, 9, 2), IMG_ST_OK, IMG_ALLOC_PIXELS, 8},
             Case{record(FMT_G8, 1, 2), IMG_ST_OK, IMG_ALLOC_PIXELS, 4},
             Case{record(FMT_RGB888, 5, 2), IMG_ST_OK, IMG_ALLOC_PIXELS, 16},
             Case{record(FMT_ARGB8888HE, 3, 2), IMG_ST_OK, IMG_ALLOC_PIXELS, 12},
             Case{record(FMT_PAL8, 10, 2, 256), IMG_ST_OK, IMG_ALLOC_PIXELS | IMG_ALLOC_PALETTE, 12},
             Case{record(FMT_G8, 0, 5), IMG_ST_OK, 0, 0},
             Case{record(FMT_ARGB8888HE, 0x10000, 0x4000), IMG_ST_NOMEM, 0, 0},
             Case{record(FMT_PAL8, 0xfffc, 0x10004, 4), IMG_ST_NOMEM, 0, 0}, // the pixels alone are 4 GiB - 16
             Case{record(FMT_ARGB8888HE, 0x08000001, 1), IMG_ST_OK, IMG_ALLOC_PIXELS, 4}, // the row's bits wrap to 32
         }) {
        const memory::Watch watch;
        const img_flags before = r.flags;
        img_alloc_result result = 7;
        ASSERT_EQ(img_alloc(&r, &result), status);
        EXPECT_EQ(result, made);
        EXPECT_EQ(r.flags, before | (made & IMG_ALLOC_PIXELS ? IMG_F_DIRECT : 0) |
                               (made & IMG_ALLOC_PALETTE ? IMG_F_PALETTE : 0));
        EXPECT_EQ(r.stride, stride);
        const uint8_t *end = static_cast<uint8_t *>(r.data) + stride * r.height;
        EXPECT_EQ(reinterpret_cast<uint8_t *>(r.palette), made & IMG_ALLOC_PALETTE ? end : nullptr);
        img::Storage::release(r, result);
        EXPECT_EQ(r.flags, before);
        EXPECT_EQ(watch.live(), 0u);
    }
}

TEST(Alloc, PaletteBesidePixelsOfTheCallersOwn) {
    uint8_t pixels[8] = {};
    img_record r = record(FMT_PAL8, 10, 2, 256);
    r.flags |= IMG_F_DIRECT;
    r.data = pixels;
    r.stride = 4;
    img_alloc_result made;
    ASSERT_EQ(img_alloc(&r, &made), IMG_ST_OK);
    EXPECT_EQ(std::tuple(made, r.data, r.stride), std::tuple(IMG_ALLOC_PALETTE, static_cast<void *>(pixels), 4u));
    img::Storage::release(r, made);
    EXPECT_EQ(r.flags, described | IMG_F_DIRECT);
}

TEST(Alloc, FailureLeavesTheRecord) {
    const memory::Watch watch(1);
    img_record r = record(FMT_PAL8, 4, 4, 2);
    img_alloc_result made = 7;
    EXPECT_EQ(img_alloc(&r, &made), IMG_ST_NOMEM);
    EXPECT_EQ(std::tuple(made, r.flags, r.data), std::tuple(0u, described, nullptr));
}

TEST(FieldMerge, TakesOnlyWhatIsAskedForAndMissing) {
    uint8_t pixels[4];
    img_record src = record(FMT_G8, 7, 9, 3);
    src.flags |= IMG_F_DIRECT | IMG_F_CODEC_MARK | IMG_F_TRANSP | IMG_F_PALETTE;
    src.data = pixels;
    src.stride = 8;
    src.transparency = 5;

    const auto merged = [&](img_flags present, img_flags asked) {
        img_record dst{};
        dst.flags = present;
        img::imgcpy(dst, src, asked);
        EXPECT_EQ(dst.ncolors + dst.transparency, 0u);
        return std::tuple(dst.flags, dst.width, dst.height, dst.format, dst.data, dst.stride);
    };
    void *const none = nullptr, *const data = pixels;
    EXPECT_EQ(merged(0, 0), std::tuple(0u, 0u, 0u, img_format{0}, none, 0u));
    EXPECT_EQ(merged(IMG_F_WIDTH, ~img_flags{0}),
              std::tuple(described | IMG_F_CODEC_MARK | IMG_F_DIRECT, 0u, 9u, img_format{FMT_G8}, data, 8u));
    EXPECT_EQ(merged(IMG_F_ACCESS, IMG_F_DIRECT | IMG_F_ACCESS),
              std::tuple(img_flags{IMG_F_ACCESS}, 0u, 0u, img_format{0}, none, 0u))
        << "storage of either kind keeps the other out";
}

} // namespace
