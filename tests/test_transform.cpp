// SPDX-License-Identifier: MIT
#include "convert/transform.h"
#include "tests/image.h"
#include "tests/memory.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const uint32_t palette[] = {0xff102030, 0x80405060, 0xff00ff00, 0x00000000};

// Every combination of storage gives the same rows, in the order that is kept for it.
TEST(Transform, AllPathsAndBothOrders) {
    const std::pair<img_format, img_format> formats[] = {
        {FMT_G8, FMT_RGB888}, {FMT_ARGB8888HE, FMT_G8}, {FMT_PAL4, FMT_RGB565HE}, {FMT_PAL1, FMT_PAL8}};
    for (int bits = 0; bits < 32; bits++) {
        const auto [from, to] = formats[bits >> 3];
        const bool up = bits & 1, src_access = bits & 2, dst_access = bits & 4;
        Image src{from, 5, 4, src_access}, dst{to, 4, 3, dst_access, 0xee};
        dst.receives = true;
        src.fill();
        if (from == FMT_PAL4)
            for (uint8_t &b : src.pixels) b &= 0x33;
        src.give_palette(palette, 4);
        ASSERT_EQ((up ? img_dtransform_bu : img_dtransform)(&src.record, &dst.record), IMG_ST_OK);

        img_dtransform_state *state;
        ASSERT_EQ(img_dtransform_create(&src.record, &dst.record, &state), IMG_ST_OK);
        for (uint32_t y = 0; y < 3; y++) {
            Bytes row(dst.stride, 0xee);
            img_dtransform_apply(state, &src.pixels[y * src.stride], row.data(), 4);
            EXPECT_EQ(memcmp(row.data(), &dst.pixels[(up ? 2 - y : y) * dst.stride], dst.stride), 0)
                << std::hex << from << " " << to << " " << up << src_access << dst_access << " row " << y;
        }
        img_dtransform_free(state);
        const bool both = src_access && dst_access;
        const std::string down = "0,0:4 0,1:4 0,2:4 ", upward = "0,2:4 0,1:4 0,0:4 ";
        EXPECT_EQ(src.calls, !src_access ? "" : both ? upward : down);
        EXPECT_EQ(dst.calls, !dst_access ? "" : both != up ? upward : down);
    }
}

TEST(Transform, PalettesInTheDestinationsFormat) {
    img_record src = a_record(IMG_F_FORMAT | IMG_F_PALETTE, FMT_PAL8), dst = a_record(IMG_F_FORMAT);
    src.palette = const_cast<uint32_t *>(palette);
    src.ncolors = 4;
    const auto expand = [&](img_format to, Bytes indices) {
        dst.format = to;
        img_dtransform_state *state;
        EXPECT_EQ(img_dtransform_create(&src, &dst, &state), IMG_ST_OK);
        Bytes out(indices.size() * img::bits_per_pixel(to) / 8);
        img_dtransform_apply(state, indices.data(), out.data(), static_cast<uint32_t>(indices.size()));
        img_dtransform_free(state);
        return out;
    };
    EXPECT_EQ(expand(FMT_RGB565HE, {0, 1, 2}), as_here(FMT_RGB565HE, {0x06, 0x11, 0x8c, 0x42, 0xe0, 0x07}));
    EXPECT_EQ(expand(FMT_G8, {0, 2}), (Bytes{28, 150}));
    EXPECT_EQ(expand(FMT_RGB565HE, {200}), (Bytes{0, 0})) << "no such entry";
    src.format = FMT_PAL1;
    EXPECT_EQ(expand(FMT_A8, {0x60}), (Bytes{0xff}));
    src.ncolors = 1;
    dst.format = FMT_ARGB8888HE;
    img_dtransform_state *state;
    ASSERT_EQ(img_dtransform_create(&src, &dst, &state), IMG_ST_OK);
    EXPECT_EQ(state->palette, palette) << "the record's own";
    img_dtransform_free(state);
}

TEST(Transform, Refusals) {
    struct Case {
        img_format from, to;
        img_flags from_flags, to_flags;
        img_status status;
    };
    for (const auto &[from, to, from_flags, to_flags, status] :
         {Case{FMT_G8, FMT_G8, 0, IMG_F_FORMAT, IMG_ST_BADARG}, Case{FMT_G8, FMT_G8, IMG_F_FORMAT, 0, IMG_ST_BADARG},
          Case{FMT_RGB888, FMT_PAL8, IMG_F_FORMAT, IMG_F_FORMAT, IMG_ST_BADFMT},
          Case{FMT_PAL8, FMT_RGB888, IMG_F_FORMAT, IMG_F_FORMAT, IMG_ST_BADARG},
          Case{FMT_PAL8, 0x1, IMG_F_FORMAT | IMG_F_PALETTE, IMG_F_FORMAT, IMG_ST_BADFMT},
          Case{FMT_PAL8, 0x20, IMG_F_FORMAT | IMG_F_PALETTE, IMG_F_FORMAT, IMG_ST_BADFMT},
          Case{FMT_PAL4, FMT_PAL4, IMG_F_FORMAT, IMG_F_FORMAT, IMG_ST_BADFMT},
          Case{FMT_G8, FMT_A8, IMG_F_FORMAT, IMG_F_FORMAT, IMG_ST_BADFMT}}) {
        const img_record src = a_record(from_flags, from), dst = a_record(to_flags, to);
        auto *state = reinterpret_cast<img_dtransform_state *>(1);
        EXPECT_EQ(img_dtransform_create(&src, &dst, &state), status) << std::hex << from << " " << to;
        EXPECT_EQ(state, nullptr);
    }
    Image src{FMT_G8, 2, 2, false};
    img_record dst{};
    for (const img_flags lacking : {IMG_F_FORMAT, IMG_F_WIDTH, IMG_F_HEIGHT}) {
        img_record incomplete = src.record;
        incomplete.flags &= ~lacking;
        EXPECT_EQ(img_dtransform(&incomplete, &dst), IMG_ST_BADARG);
        EXPECT_EQ(dst.flags, 0u);
    }
    src.record.flags &= ~img_flags{IMG_F_DIRECT};
    const memory::Watch watch;
    EXPECT_EQ(img_dtransform(&src.record, &dst), IMG_ST_BADARG) << "no pixels to copy";
    EXPECT_EQ(dst.flags, IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT);
    EXPECT_EQ(watch.live(), 0u);
}

TEST(Transform, FillsWhatIsMissingAndThePaletteAsFarAsItReaches) {
    Image src{FMT_PAL8, 3, 2, false};
    src.pixels = {0, 1, 2, 9, 9, 9, 3, 2, 1, 9, 9, 9};
    src.give_palette(palette, 4);
    src.record.flags |= IMG_F_PAL_ALPHA | IMG_F_TRANSP;
    img_record dst{};
    ASSERT_EQ(img_dtransform(&src.record, &dst), IMG_ST_OK);
    EXPECT_EQ(dst.flags, IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT | IMG_F_PALETTE | IMG_F_PAL_ALPHA);
    EXPECT_EQ(dst.ncolors, 4u);
    EXPECT_EQ(memcmp(dst.palette, palette, sizeof palette), 0);
    EXPECT_EQ(memcmp(img::row_at(dst, 1), "\3\2\1", 3), 0);
    free(dst.data);

    for (const uint32_t ncolors : {2u, 6u}) { // of its own: as far as it reaches
        dst = a_record(IMG_F_FORMAT, FMT_PAL8);
        dst.ncolors = ncolors;
        ASSERT_EQ(img_dtransform(&src.record, &dst), IMG_ST_OK);
        EXPECT_EQ(dst.palette[1], palette[1]);
        EXPECT_EQ(dst.palette[ncolors - 1], ncolors == 2 ? palette[1] : 0u);
        free(dst.data);
    }
    src.record.flags &= ~img_flags{IMG_F_PALETTE};
    dst = a_record(IMG_F_FORMAT, FMT_PAL8);
    dst.ncolors = 2;
    ASSERT_EQ(img_dtransform(&src.record, &dst), IMG_ST_OK);
    EXPECT_EQ(dst.palette[0] | dst.palette[1], 0u) << "nothing to copy";
    free(dst.data);
}

TEST(Transform, NothingToMove) {
    Image src{FMT_PAL4, 4, 0, true}, dst{FMT_RGB888, 0, 3, true};
    src.give_palette(palette, 4);
    EXPECT_EQ(img_dtransform(&src.record, &dst.record), IMG_ST_OK);
    EXPECT_EQ(src.calls + dst.calls, "");
    img_record empty{};
    EXPECT_EQ(img_dtransform_bu(&src.record, &empty), IMG_ST_BADFMT) << "4-bit indices do not convert to themselves";
}

TEST(Transform, FailingAllocations) {
    for (int bits = 0; bits < 4; bits++) {
        Image src{FMT_PAL8, 3, 2, (bits & 1) != 0};
        src.give_palette(palette, 4);
        const size_t count = memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
            Image given{FMT_RGB565HE, 3, 2, true};
            given.receives = true;
            img_record empty{}, &dst = bits & 2 ? given.record : empty;
            if (!(bits & 2)) empty.format = bits ? FMT_G8 : FMT_PAL8, empty.flags = IMG_F_FORMAT, empty.ncolors = 4;
            const img_status status = img_dtransform(&src.record, &dst);
            EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK) << n;
            EXPECT_EQ(bool(empty.flags & IMG_F_DIRECT), !watch.failed() && !(bits & 2));
            EXPECT_FALSE(status && (empty.flags & IMG_F_PALETTE));
            if (empty.flags & IMG_F_DIRECT) free(empty.data);
            EXPECT_EQ(watch.live(), 0u);
        });
        EXPECT_EQ(count, 2u);
    }
}

// For the thread sanitizer: the choice of the inner loops at first use is all that the threads share.
TEST(Transform, RecordsOfTheirOwnMayBeUsedAtOnce) {
    const auto convert = [] {
        for (const img_format format : {FMT_RGB565HE, FMT_ARGB8888OE, FMT_G8}) {
            Image src{FMT_RGB888, 100, 20, false, 0xff};
            img_record dst = a_record(IMG_F_FORMAT, format);
            ASSERT_EQ(img_dtransform(&src.record, &dst), IMG_ST_OK);
            EXPECT_EQ(*img::row_at(dst, 19), 0xff);
            free(dst.data);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) threads.emplace_back(convert);
    for (std::thread &thread : threads) thread.join();
}

} // namespace
