// SPDX-License-Identifier: MIT
#include "core/record.h"
#include "tests/memory.h"

#include <gtest/gtest.h>

namespace {

img_record record(img_format format, uint32_t width, uint32_t height, img_flags flags = 0) {
    img_record r{};
    r.format = format;
    r.width = width;
    r.height = height;
    r.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | flags;
    return r;
}

TEST(Alloc, RowsArePaddedToFourBytes) {
    struct Case {
        img_format format;
        uint32_t width, stride;
    };
    for (const auto &[format, width, stride] : {Case{FMT_PAL1, 9, 4}, Case{FMT_PAL4, 9, 8}, Case{FMT_G8, 1, 4},
                                                Case{FMT_RGB888, 5, 16}, Case{FMT_ARGB8888HE, 3, 12}}) {
        img_record r = record(format, width, 2, IMG_F_PALETTE);
        img_alloc_result made = 7;
        ASSERT_EQ(img_alloc(&r, &made), IMG_ST_OK);
        EXPECT_EQ(made, IMG_ALLOC_PIXELS);
        EXPECT_EQ(r.stride, stride);
        EXPECT_TRUE(img::has(r, IMG_F_DIRECT));
        free(r.data);
    }
}

TEST(Alloc, PaletteSharesTheBlockOrStandsAlone) {
    img_record r = record(FMT_PAL8, 10, 2);
    r.ncolors = 256;
    img_alloc_result made;
    ASSERT_EQ(img_alloc(&r, &made), IMG_ST_OK);
    EXPECT_EQ(made, IMG_ALLOC_PIXELS | IMG_ALLOC_PALETTE);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(r.palette), static_cast<uint8_t *>(r.data) + 24);
    img::Storage::release(r, made);
    EXPECT_EQ(r.flags, IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT);

    uint8_t pixels[8] = {};
    r.flags |= IMG_F_DIRECT;
    r.data = pixels;
    r.stride = 4;
    ASSERT_EQ(img_alloc(&r, &made), IMG_ST_OK);
    EXPECT_EQ(made, IMG_ALLOC_PALETTE);
    EXPECT_EQ(r.data, pixels);
    EXPECT_EQ(r.stride, 4u);
    img::Storage::release(r, made);
    EXPECT_TRUE(img::has(r, IMG_F_DIRECT));
    EXPECT_FALSE(img::has(r, IMG_F_PALETTE));
}

TEST(Alloc, NothingToAllocateAndTooMuch) {
    img_alloc_result made = 7;
    img_record empty = record(FMT_G8, 0, 5);
    EXPECT_EQ(img_alloc(&empty, &made), IMG_ST_OK);
    EXPECT_EQ(made, 0u);
    EXPECT_FALSE(img::has(empty, IMG_F_DIRECT));

    img_record huge = record(FMT_ARGB8888HE, 0x10000, 0x4000);
    const memory::Watch watch;
    EXPECT_EQ(img_alloc(&huge, &made), IMG_ST_NOMEM);
    EXPECT_EQ(made, 0u);
    img_record pixels_and_palette = record(FMT_PAL8, 0xfffc, 0x10004); // 4 GiB - 16 of pixels
    pixels_and_palette.ncolors = 4;
    EXPECT_EQ(img_alloc(&pixels_and_palette, &made), IMG_ST_NOMEM);
    img_record wrapping = record(FMT_ARGB8888HE, 0x08000001, 1); // the row's bits wrap to 32
    EXPECT_EQ(img_alloc(&wrapping, &made), IMG_ST_OK);
    EXPECT_EQ(wrapping.stride, 4u);
    EXPECT_EQ(watch.live(), 1u);
    free(wrapping.data);
}

TEST(Alloc, FailureLeavesTheRecord) {
    const memory::Watch watch(1);
    img_record r = record(FMT_PAL8, 4, 4);
    r.ncolors = 2;
    const img_flags before = r.flags;
    img_alloc_result made = 7;
    EXPECT_EQ(img_alloc(&r, &made), IMG_ST_NOMEM);
    EXPECT_EQ(made, 0u);
    EXPECT_EQ(r.flags, before);
    EXPECT_EQ(r.data, nullptr);
}

TEST(FieldMerge, TakesOnlyWhatIsAskedForAndMissing) {
    uint8_t pixels[4];
    img_record src = record(FMT_G8, 7, 9, IMG_F_DIRECT | IMG_F_CODEC_MARK | IMG_F_TRANSP | IMG_F_PALETTE);
    src.data = pixels;
    src.stride = 8;
    src.ncolors = 3;
    src.transparency = 5;

    img_record dst{};
    img::imgcpy(dst, src, 0);
    EXPECT_EQ(dst.flags, 0u);

    dst.flags = IMG_F_WIDTH;
    dst.width = 1;
    img::imgcpy(dst, src, ~img_flags{0});
    EXPECT_EQ(dst.width, 1u);
    EXPECT_EQ(dst.height, 9u);
    EXPECT_EQ(dst.format, img_format{FMT_G8});
    EXPECT_EQ(dst.data, pixels);
    EXPECT_EQ(dst.stride, 8u);
    EXPECT_EQ(dst.ncolors, 0u);
    EXPECT_EQ(dst.transparency, 0u);
    EXPECT_EQ(dst.flags, IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_FORMAT | IMG_F_CODEC_MARK | IMG_F_DIRECT);

    img_record other{};
    other.flags = IMG_F_ACCESS;
    img::imgcpy(other, src, IMG_F_DIRECT | IMG_F_ACCESS);
    EXPECT_EQ(other.data, nullptr) << "storage of either kind keeps the other out";
}

} // namespace
