// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/fake_codec.h"
#include "tests/image.h"
#include "tests/memory.h"

#include <gtest/gtest.h>

#include <random>

namespace {

class LoadResize : public testing::Test {
protected:
    LoadResize() {
        script = {};
        img_codec_register(&handle, fake_codec, nullptr, nullptr);
    }
    ~LoadResize() override { img_codec_deregister(&handle, handle.head); }

    void picture(img_format format, uint32_t width, uint32_t height) {
        script.formats = {format};
        script.width = width;
        script.height = height;
        script.pixels.resize(size_t{tight_row(format, width)} * height);
        for (size_t i = 0; i < script.pixels.size(); i++) script.pixels[i] = static_cast<uint8_t>(i * 37 % 251);
    }
    img_status load(img_record &dst, const img_decode_callouts *callouts = nullptr) {
        script.log.clear();
        return img_load_resize(&handle, nullptr, callouts, &dst);
    }
    img_lib_handle handle{};
};

constexpr img_flags both_sides = IMG_F_WIDTH | IMG_F_HEIGHT;

// Whatever the order in which rows come, the result is that of a load and a resize after it.
TEST_F(LoadResize, EqualsLoadThenResize) {
    std::mt19937 random{3};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 1500; round++) {
        const img_format formats[] = {FMT_G8, FMT_RGB888, FMT_RGB565OE, FMT_ARGB8888HE, FMT_PAL8};
        const img_format from = formats[pick(5)], to = formats[pick(4)];
        picture(from, 1 + pick(30), 1 + pick(30));
        script.palette.clear();
        for (uint32_t i = 0; from == FMT_PAL8 && i < 256; i++) script.palette.push_back(i * 0x01030507);
        const uint32_t orders[] = {IMG_SETUP_TOPDOWN, IMG_SETUP_BOTTOMUP, 0};
        script.setup_flags = orders[pick(3)];
        script.run = pick(3) ? 0 : 1 + pick(9);
        script.empty_runs = pick(2) != 0;
        script.reports_rows = pick(2) != 0;
        const uint32_t width = pick(4) ? 1 + pick(30) : script.width, height = pick(4) ? 1 + pick(30) : script.height;
        const img_flags asked = (pick(2) ? IMG_F_FORMAT : 0) | both_sides;

        img_record whole = a_record(asked & IMG_F_FORMAT, to), expected = a_record(asked, to, width, height);
        const uint32_t order = script.setup_flags, run = script.run;
        script.setup_flags = 0;
        ASSERT_EQ(img_load(&handle, nullptr, nullptr, &whole), IMG_ST_OK);
        const bool upward = order == IMG_SETUP_BOTTOMUP;
        ASSERT_EQ(upward ? img_flip_vertical(&whole) : 0, 0u); // rows as they come
        img_record source = whole;
        if (order) { // rows that stream are fetched from the first on, and never walked backward
            source.flags = (source.flags & ~img_flags{IMG_F_DIRECT}) | IMG_F_ACCESS;
            source.access = [](void *arg, uint32_t, uint32_t y, uint32_t count, void *line) {
                const auto &image = *static_cast<img_record *>(arg);
                memcpy(line, img::row_at(image, y), img::run_bytes(image.format, count));
                return 0;
            };
            source.access_arg = &whole;
        }
        const img_status resized = (upward ? img_resize_fsbu : img_resize_fs)(&source, &expected);
        script.setup_flags = order;
        script.run = run;

        Image target{to, width, height, true};
        target.receives = true;
        img_record dst =
            pick(2) && order && (asked & IMG_F_FORMAT) ? target.record : a_record(asked, to, width, height);
        const bool to_function = dst.flags & IMG_F_ACCESS;
        ASSERT_EQ(load(dst), resized) << round;
        if (resized == IMG_ST_OK) {
            ASSERT_EQ(dst.format, expected.format);
            // Nothing is resized between functions at the picture's own size: the last row is asked for first.
            const bool last_only = to_function && width == script.width && height == script.height;
            for (uint32_t y = 0; y < height && !(last_only && from != dst.format); y++) {
                const uint8_t *row = to_function ? &target.pixels[y * target.stride] : img::row_at(dst, y);
                const uint8_t *want = img::row_at(expected, !last_only ? y : upward ? 0 : height - 1);
                ASSERT_EQ(memcmp(row, want, img::run_bytes(dst.format, width)), 0)
                    << "round " << round << std::hex << " " << from << " to " << dst.format << std::dec << " "
                    << script.width << "x" << script.height << " to " << width << "x" << height << " order " << order
                    << " run " << run << " row " << y;
            }
            if (!to_function) free(dst.data);
            free(expected.data);
        }
        free(whole.data);
    }
}

TEST_F(LoadResize, SizesFollowTheDecodedPicture) {
    picture(FMT_G8, 30, 20);
    for (auto [dst, width, height] :
         {std::tuple{a_record(IMG_F_WIDTH, 0, 15, 99), 15u, 10u}, std::tuple{a_record(IMG_F_HEIGHT, 0, 99, 4), 6u, 4u},
          std::tuple{a_record(0), 30u, 20u}}) {
        ASSERT_EQ(load(dst), IMG_ST_OK);
        EXPECT_EQ(std::pair(dst.width, dst.height), std::pair(width, height));
        free(dst.data);
    }
    // A caller that chooses the format sees its own record, and the codec is asked to decode at that size.
    img_decode_callouts callouts = logging_decode_callouts();
    callouts.choose_format = [](void *, img_record *d, const img_format *, uint32_t) -> uint32_t {
        script.note("chooses for " + std::to_string(d->width) + "x" + std::to_string(d->height));
        return 0;
    };
    img_record dst = a_record(both_sides, 0, 7, 5);
    script.setup_status = 31;
    EXPECT_EQ(load(dst, &callouts), 31u);
    EXPECT_EQ(script.image.width, 7u);
    EXPECT_TRUE(script.log.starts_with("validate begin frame chooses for 7x5 setup(2)")) << script.log;
}

// How callers bound what follows from the proportions of a file.
TEST_F(LoadResize, SetupSeesTheSizeBeforeItIsAllocated) {
    picture(FMT_G8, 1, 100000);
    img_decode_callouts callouts{};
    img_record dst{};
    callouts.data = &dst;
    callouts.setup = [](void *data, img_record *, uint32_t) -> img_status {
        const auto &record = *static_cast<img_record *>(data);
        return uint64_t{record.width} * record.height > 1000000 ? IMG_ST_LIMIT : IMG_ST_OK;
    };
    for (const uint32_t order : {0u, uint32_t{IMG_SETUP_TOPDOWN}}) {
        script.setup_flags = order;
        dst = a_record(IMG_F_WIDTH, 0, 40000);
        script.setup_status = IMG_ST_LIMIT; // as the codec hears it
        const memory::Watch watch;
        EXPECT_EQ(load(dst, &callouts), IMG_ST_LIMIT);
        EXPECT_EQ(dst.height, 4000000000u);
        EXPECT_FALSE(dst.flags & IMG_F_DIRECT);
        EXPECT_EQ(watch.live(), 0u);
    }
}

TEST_F(LoadResize, CalloutsGetTheCallersData) {
    picture(FMT_PAL8, 4, 2);
    script.palette.assign(256, 0xff000000);
    script.key = 1;
    const img_decode_callouts callouts = logging_decode_callouts();
    img_record dst = a_record(both_sides | IMG_F_FORMAT, FMT_RGB888, 2, 2);
    ASSERT_EQ(load(dst, &callouts), IMG_ST_OK);
    EXPECT_EQ(script.log, "validate begin frame setup(2) key(ff000000) value(1,2,3,4) =9 "
                          "scanline(2,2,0,ffffffffffffffff) done finish");
    free(dst.data);
}

// Failures and requests to stop at any row, from either side: the status of the one that failed. A picture that was
// complete before the load failed is the caller's.
TEST_F(LoadResize, StopsAtAnyRow) {
    std::mt19937 random{5};
    img_decode_callouts stopping{};
    static uint32_t stop_at;
    stopping.scanline = [](void *, img_record *, uintptr_t row, uintptr_t, uintptr_t, uintptr_t) -> img_status {
        return row == stop_at ? 50 : 0;
    };
    for (int round = 0; round < 2000; round++) {
        picture(FMT_RGB888, 5, 12);
        script.setup_flags = random() % 2 ? IMG_SETUP_TOPDOWN : IMG_SETUP_BOTTOMUP;
        script.reports_rows = true;
        const auto kind = random() % 3;
        const uint32_t at = static_cast<uint32_t>(random() % 12);
        const uint32_t height = 1 + static_cast<uint32_t>(random() % 30);
        script.fail_after = kind == 0 ? at : UINT32_MAX;
        script.frame = kind == 0 ? 4 : 0;
        stop_at = kind == 1 ? at + 1 : UINT32_MAX;
        img_record dst = a_record(both_sides, 0, 7, height);
        const memory::Watch watch;
        if (kind == 2) { // the resize cannot be done
            dst.format = FMT_PAL8;
            dst.flags |= IMG_F_FORMAT;
            script.formats = {FMT_PAL8};
            script.palette.assign(2, 0);
        }
        const img_status status = load(dst, &stopping);
        EXPECT_EQ(status, kind == 0 ? 4u : kind == 1 ? 50u : 5u) << round;
        EXPECT_FALSE(kind == 2 && (dst.flags & IMG_F_DIRECT)) << round;
        if (dst.flags & IMG_F_DIRECT) free(dst.data);
        script.palette.clear();
        EXPECT_EQ(watch.live(), 0u) << round;
    }
}

TEST_F(LoadResize, FailingAllocationsAndThreads) {
    picture(FMT_PAL8, 6, 40);
    script.palette.assign(256, 0xff112233);
    for (const uint32_t order : {uint32_t{IMG_SETUP_TOPDOWN}, 0u}) {
        script.setup_flags = order;
        memory::for_each_failure([&](size_t n, const memory::Watch &watch) {
            img_record dst = a_record(both_sides | IMG_F_FORMAT, FMT_RGB888, 3, 5);
            const img_status status = load(dst);
            EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK) << n;
            if (dst.flags & IMG_F_DIRECT) free(dst.data);
            EXPECT_EQ(watch.live(), 0u);
        });
    }
    script.setup_flags = IMG_SETUP_TOPDOWN;
    for (const size_t n : {1u, 2u, 3u}) // condition, mutex, thread
        for (const bool reports : {true, false}) {
            script.reports_rows = reports;
            const memory::ThreadFailure failure(n);
            img_record dst = a_record(both_sides | IMG_F_FORMAT, FMT_RGB888, 3, 5);
            EXPECT_EQ(load(dst), IMG_ST_NOMEM) << n;
            EXPECT_FALSE(dst.flags & IMG_F_DIRECT);
        }
}

} // namespace
