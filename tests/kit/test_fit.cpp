// SPDX-License-Identifier: MIT
#include "pictra/kit.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    uint32_t width, height, mode, flags, orientation, box_width, box_height; // asked
    uint32_t made_width, made_height;
    double x, y, part_width, part_height;
};

TEST(KitFit, SizesAndParts) {
    constexpr uint32_t inside = PICTRA_FIT_INSIDE, fill = PICTRA_FIT_FILL, stretch = PICTRA_FIT_STRETCH;
    constexpr uint32_t grow = PICTRA_FIT_ENLARGE;
    const Row rows[] = {
        {6000, 4000, inside, 0, 0, 256, 256, 256, 171, 0, 0, 6000, 4000}, // 170.67
        {4000, 6000, inside, 0, 1, 256, 256, 171, 256, 0, 0, 4000, 6000},
        {400, 300, inside, 0, 0, 50, 0, 50, 38, 0, 0, 400, 300}, // 37.5
        {400, 300, inside, 0, 0, 0, 100, 133, 100, 0, 0, 400, 300},
        {5000, 2, inside, 0, 0, 100, 100, 100, 1, 0, 0, 5000, 2}, // 0.04
        {100, 50, inside, 0, 0, 200, 200, 100, 50, 0, 0, 100, 50},
        {100, 50, inside, grow, 0, 200, 200, 200, 100, 0, 0, 100, 50},
        {100, 50, inside, grow, 0, 0, 0, 100, 50, 0, 0, 100, 50},
        {6000, 4000, inside, 0, 6, 100, 300, 150, 100, 0, 0, 6000, 4000}, // seen 4000 x 6000, as 100 x 150
        {6000, 4000, fill, 0, 0, 100, 100, 100, 100, 1000, 0, 4000, 4000},
        {6000, 4000, fill, 0, 0, 300, 100, 300, 100, 0, 1000, 6000, 2000},
        {6000, 4000, fill, 0, 8, 100, 300, 300, 100, 0, 1000, 6000, 2000},
        {100, 50, fill, 0, 0, 200, 20, 100, 10, 0, 20, 100, 10},
        {100, 50, fill, grow, 0, 200, 20, 200, 20, 0, 20, 100, 10},
        {100, 50, stretch, 0, 0, 200, 20, 100, 20, 0, 0, 100, 50},
        {100, 50, stretch, grow, 5, 200, 20, 20, 200, 0, 0, 100, 50},
    };
    for (const Row &row : rows) {
        const pictra_fit_options options{sizeof options,  row.mode,      row.flags,
                                         row.orientation, row.box_width, row.box_height};
        pictra_fitted fitted{};
        ASSERT_EQ(pictra_fit(row.width, row.height, &options, &fitted), 0u) << &row - rows;
        EXPECT_EQ(fitted.width, row.made_width) << &row - rows;
        EXPECT_EQ(fitted.height, row.made_height) << &row - rows;
        EXPECT_NEAR(fitted.x, row.x, 1e-9) << &row - rows;
        EXPECT_NEAR(fitted.y, row.y, 1e-9) << &row - rows;
        EXPECT_NEAR(fitted.part_width, row.part_width, 1e-9) << &row - rows;
        EXPECT_NEAR(fitted.part_height, row.part_height, 1e-9) << &row - rows;
    }
}

TEST(KitFit, WhatItMakesCanBeScaled) {
    for (uint32_t width = 1; width < 40; width += 3)
        for (uint32_t height = 1; height < 40; height += 2)
            for (uint32_t box = 1; box < 60; box += 7)
                for (const uint32_t flags : {0u, uint32_t{PICTRA_FIT_ENLARGE}}) {
                    const pictra_fit_options options{sizeof options, PICTRA_FIT_FILL, flags, 0, box, 60 - box};
                    pictra_fitted fitted{};
                    ASSERT_EQ(pictra_fit(width, height, &options, &fitted), 0u);
                    const pictra_resample_options scaling{
                        sizeof scaling, 0, 0, 0, fitted.x, fitted.y, fitted.part_width, fitted.part_height};
                    img_record source{}, target{};
                    source.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
                    source.format = FMT_G8, source.width = width, source.height = height;
                    target = source;
                    target.width = fitted.width, target.height = fitted.height;
                    target.flags |= IMG_F_ACCESS;
                    pictra_resampler *resampler = nullptr;
                    EXPECT_EQ(pictra_resampler_create(&source, &target, &scaling, &resampler), 0u)
                        << width << "x" << height << " in " << box;
                    pictra_resampler_free(resampler);
                }
}

TEST(KitFit, WrongArgumentsAreRefused) {
    pictra_fitted fitted{};
    pictra_fit_options options{sizeof options, 0, 0, 9, 10, 10};
    EXPECT_EQ(pictra_fit(10, 10, &options, &fitted), uint32_t{IMG_ST_BADARG});
    options = {sizeof options, PICTRA_FIT_FILL, 0, 0, 10, 0};
    EXPECT_EQ(pictra_fit(10, 10, &options, &fitted), uint32_t{IMG_ST_BADARG});
    options = {sizeof options, 0, PICTRA_FIT_ENLARGE, 0, UINT32_MAX, 0};
    EXPECT_EQ(pictra_fit(1, 10, &options, &fitted), uint32_t{IMG_ST_BADARG}) << "too high";
    EXPECT_EQ(pictra_fit(0, 10, nullptr, &fitted), uint32_t{IMG_ST_BADARG});
}

} // namespace
