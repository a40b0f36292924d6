// SPDX-License-Identifier: MIT
//
// Loading at another size with the kit's filters.
#include "core/registry.h"
#include "pictra/kit.h"
#include "tests/fake_codec.h"
#include "tests/image.h"
#include "tests/memory.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace {

constexpr img_flags shape = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;

class KitLoad : public testing::Test {
protected:
    KitLoad() {
        script = {};
        img_codec_register(&handle, fake_codec, nullptr, nullptr);
    }
    ~KitLoad() override { img_codec_deregister(&handle, handle.head); }

    void picture(img_format format, uint32_t width, uint32_t height) {
        script.formats = {format};
        script.width = width;
        script.keeps_size = true;
        script.height = height;
        script.pixels.resize(size_t{tight_row(format, width)} * height);
        for (size_t i = 0; i < script.pixels.size(); i++) script.pixels[i] = static_cast<uint8_t>(i * 37 % 251);
        script.palette.clear();
        for (uint32_t i = 0; format == FMT_PAL8 && i < 256; i++) script.palette.push_back(i * 0x01030507);
    }
    img_lib_handle handle{};
};

bool same_pixels(const img_record &a, const img_record &b) {
    if (a.width != b.width || a.height != b.height || a.format != b.format) return false;
    for (uint32_t y = 0; y < a.height; y++)
        if (memcmp(static_cast<uint8_t *>(a.data) + y * a.stride, static_cast<uint8_t *>(b.data) + y * b.stride,
                   img::run_bytes(a.format, a.width)))
            return false;
    return true;
}

TEST_F(KitLoad, EqualsLoadThenResample) {
    std::mt19937 engine{3};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(engine() % n); };
    for (int round = 0; round < 300; round++) {
        const img_format formats[] = {FMT_G8, FMT_RGB888, FMT_RGB565OE, FMT_ARGB8888HE, FMT_PAL8};
        const img_format from = formats[pick(5)], to = formats[pick(4)];
        picture(from, 1 + pick(30), 1 + pick(30));
        if (pick(2)) script.flags = IMG_F_PAL_ALPHA;
        if (pick(3) == 0) script.key = pick(200);
        script.run = pick(3) ? 0 : 1 + pick(9);
        script.reports_rows = pick(2) != 0;
        pictra_resample_options options{};
        options.size = sizeof options;
        options.filter = pick(5);
        options.x = pick(script.width), options.y = pick(script.height);

        img_record whole{}, expected = a_record(shape, to, 1 + pick(20), 1 + pick(20)), made = expected;
        script.setup_flags = 0;
        ASSERT_EQ(img_load(&handle, nullptr, nullptr, &whole), IMG_ST_OK);
        const img_status status = pictra_resample(&whole, &expected, &options);
        for (const uint32_t order : {uint32_t{IMG_SETUP_TOPDOWN}, uint32_t{IMG_SETUP_BOTTOMUP}, 0u}) {
            script.setup_flags = order;
            made = a_record(shape, to, expected.width, expected.height);
            ASSERT_EQ(pictra_load_resampled(&handle, nullptr, nullptr, &made, &options), status) << order;
            ASSERT_TRUE(status || same_pixels(made, expected))
                << std::hex << from << " to " << to << ", order " << order;
            free(made.data);
        }
        free(expected.data);
        free(whole.data);
        script = {};
    }
}

TEST_F(KitLoad, ASizeThatIsMissingFollowsAndTheCodecIsAskedForTwice) {
    picture(FMT_RGB888, 400, 300);
    img_record made = a_record(IMG_F_WIDTH, 0, 50);
    img_decode_callouts callouts{};
    script.keeps_size = false; // so that the size that it was asked for stays, which rows then exceed
    pictra_load_resampled(&handle, nullptr, &callouts, &made, nullptr);
    script.keeps_size = true;
    EXPECT_EQ(script.image.width * 1000 + script.image.height, 100076u);
    made = a_record(IMG_F_WIDTH, 0, 50);
    ASSERT_EQ(pictra_load_resampled(&handle, nullptr, nullptr, &made, nullptr), 0u);
    EXPECT_EQ(made.height, 38u); // 37.5
    EXPECT_EQ(made.format, uint32_t{FMT_RGB888});
    free(made.data);

    // The caller who looks at the picture first.
    callouts.choose_format = [](void *, img_record *target, const img_format *, uint32_t) -> uint32_t {
        EXPECT_EQ(target->width, 400u);
        EXPECT_EQ(target->height, 300u);
        target->width = 5, target->height = 7, target->format = FMT_G8;
        target->flags |= shape;
        return UINT32_MAX;
    };
    made = {};
    ASSERT_EQ(pictra_load_resampled(&handle, nullptr, &callouts, &made, nullptr), 0u);
    EXPECT_EQ(made.width * 100 + made.height, 507u);
    EXPECT_EQ(made.format, uint32_t{FMT_G8});
    free(made.data);
}

TEST_F(KitLoad, FailuresEndTheLoadAndLeaveNothing) {
    picture(FMT_RGB888, 20, 20);
    script.reports_rows = true;
    script.frame = IMG_ST_RESERVED4;
    script.fail_after = 10;
    img_record made = a_record(IMG_F_WIDTH, 0, 7);
    EXPECT_EQ(pictra_load_resampled(&handle, nullptr, nullptr, &made, nullptr), uint32_t{IMG_ST_RESERVED4});
    EXPECT_FALSE(made.flags & IMG_F_DIRECT);

    picture(FMT_ARGB8888HE, 20, 20);
    script.frame = 0;
    script.fail_after = UINT32_MAX;
    Image target(FMT_RGB888, 5, 5, false);
    memory::for_each_failure([&](size_t n, memory::Watch &watch) {
        const img_status status = pictra_load_resampled(&handle, nullptr, nullptr, &target.record, nullptr);
        EXPECT_EQ(status, watch.failed() ? uint32_t{IMG_ST_NOMEM} : 0u) << n;
        EXPECT_EQ(watch.live(), 0u) << n;
    });
}

// ---- Threads ---------------------------------------------------------------------------------------------------------

// A codec without state: its files are one byte, which is 'd' in damaged ones.
img_status decode_stripes(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **) {
    char kind = 0;
    stream->read(stream->self, &kind, 1);
    const img_format format = FMT_RGB888;
    record->width = record->height = 64;
    record->flags = IMG_F_WIDTH | IMG_F_HEIGHT;
    callouts->choose_format(callouts->data, record, &format, 1);
    record->format = format;
    record->flags |= IMG_F_FORMAT;
    if (const img_status status = callouts->setup(callouts->data, record, IMG_SETUP_TOPDOWN)) return status;
    for (uint32_t y = 0; y < 64; y++) {
        if (kind == 'd' && y == 40) return IMG_ST_RESERVED4;
        uint8_t row[64 * 3];
        memset(row, static_cast<int>(y * 4), sizeof row);
        record->access(record->access_arg, 0, y, 64, row);
    }
    return IMG_ST_OK;
}

TEST(KitLoadThreads, DamagedFilesInOtherThreadsDoNotMatter) {
    img_lib_handle handle{};
    const auto functions = [](img_codec_funcs *table, size_t) -> img_status {
        *table = {};
        table->decode_validate = [](io_handle *) -> img_status { return IMG_ST_OK; };
        table->decode_frame = decode_stripes;
        return IMG_ST_OK;
    };
    img_codec *codec = img_codec_register(&handle, functions, nullptr, nullptr);
    ASSERT_EQ(codec_init(codec), IMG_ST_OK); // before threads share it
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; t++)
        threads.emplace_back([&handle, t] {
            for (int round = 0; round < 50; round++) {
                const bool damaged = (t + round) % 3 == 0;
                io_handle *stream = io_open(IO_MEM, IO_READ, uint32_t{1}, damaged ? "d" : "g");
                img_record made = a_record(IMG_F_WIDTH, 0, 11);
                EXPECT_EQ(pictra_load_resampled(&handle, stream, nullptr, &made, nullptr),
                          damaged ? uint32_t{IMG_ST_RESERVED4} : 0u);
                if (made.flags & IMG_F_DIRECT) free(made.data);
                io_close(stream);
            }
        });
    for (std::thread &thread : threads) thread.join();
    img_codec_deregister(&handle, codec);
}

} // namespace
