// SPDX-License-Identifier: MIT
#include "core/cpu.h"
#include "pictra/kit.h"
#include "tests/image.h"
#include "tests/memory.h"
#include "tests/models/resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <thread>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr img_format bgra = std::endian::native == std::endian::little ? FMT_ARGB8888HE : FMT_ARGB8888OE;
constexpr uint32_t filters[] = {PICTRA_FILTER_LANCZOS3, PICTRA_FILTER_NEAREST, PICTRA_FILTER_AREA,
                                PICTRA_FILTER_BILINEAR, PICTRA_FILTER_BICUBIC};
const img_format direct_formats[] = {FMT_G8,         FMT_XRGB1555HE, FMT_XRGB1555OE, FMT_ARGB1555HE, FMT_ARGB1555OE,
                                     FMT_RGB565HE,   FMT_RGB565OE,   FMT_BGR888,     FMT_RGB888,     FMT_XRGB8888HE,
                                     FMT_XRGB8888OE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_XBGR8888HE, FMT_XBGR8888OE,
                                     FMT_ABGR8888HE, FMT_ABGR8888OE};
const uint32_t palette[] = {0xff102030, 0x80e0c0a0, 0xff00ff00, 0x20ffffff, 0xffff0010};

pictra_resample_options with(uint32_t filter, uint32_t flags = 0) {
    pictra_resample_options options{};
    options.size = sizeof options;
    options.filter = filter;
    options.flags = flags;
    return options;
}

// What alpha a picture has.
enum class Alpha { opaque, some, all };

// Noise, which no filter forgives anything, in the format; every fourth row opaque, some transparent.
struct Noise : Image {
    Noise(img_format format, uint32_t width, uint32_t height, Alpha alpha = Alpha::all)
        : Image(format, width, height, false) {
        std::mt19937 random(width * 1000 + height);
        for (uint8_t &byte : pixels) byte = static_cast<uint8_t>(random());
        if (img::is_palette(format)) give_palette(palette, std::size(palette));
        if (format != bgra) return;
        for (uint32_t y = 0; y < height; y++)
            for (uint32_t x = 0; x < width; x++) {
                uint8_t &a = pixels[y * stride + x * 4 + 3];
                if (alpha == Alpha::opaque || (alpha == Alpha::some && y % 4 < 3) || a > 200) a = 255;
                if (a < 40 && a % 2) a = 0;
            }
    }
};

// The pixels as the model takes them.
models::Picture picture_of(const img_record &image) {
    models::Picture picture{image.width, image.height, {}};
    for (uint32_t y = 0; y < image.height; y++) {
        Bytes line(image.width * 4);
        const auto *row = static_cast<const uint8_t *>(image.data) + size_t{y} * image.stride;
        if (img::is_palette(image.format)) {
            std::vector<uint32_t> entries(256, 0xff000000);
            for (uint32_t i = 0; i < image.ncolors; i++)
                entries[i] = image.palette[i] | (image.flags & IMG_F_PAL_ALPHA ? 0 : 0xff000000);
            if (image.flags & IMG_F_TRANSP) entries[image.transparency8] &= 0xffffff;
            img_convert_data(FMT_ARGB8888HE, entries.data(), bgra, entries.data(), 256);
            img_expand_getfunc(image.format, bgra)(row, line.data(), image.width, entries.data());
        } else {
            img_convert_data(image.format, row, bgra, line.data(), image.width);
        }
        for (uint32_t x = 0; x < image.width; x++) {
            const uint8_t *p = &line[x * 4];
            picture.pixels.push_back({double(p[0]), double(p[1]), double(p[2]), double(p[3])});
        }
    }
    return picture;
}

Bytes scaled(const img_record &source, uint32_t width, uint32_t height, pictra_resample_options options,
             img_format format = bgra) {
    img_record target = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT, format, width, height);
    EXPECT_EQ(pictra_resample(&source, &target, &options), 0u);
    Bytes bytes;
    const size_t row = img::run_bytes(format, width);
    for (uint32_t y = 0; y < height && target.data; y++) {
        const auto *at = static_cast<uint8_t *>(target.data) + size_t{y} * target.stride;
        bytes.insert(bytes.end(), at, at + row);
    }
    free(target.data);
    return bytes;
}

// The largest difference of a channel to the model; of colours where there is something to see.
double difference(const Bytes &bytes, const models::Picture &model, bool alpha = true) {
    double worst = 0;
    for (size_t i = 0; i < model.pixels.size(); i++) {
        const models::Pixel &pixel = model.pixels[i];
        const bool visible = bytes[i * 4 + 3];
        for (size_t c = 0; c < 4; c++)
            if (c == 3 ? alpha : visible) worst = std::max(worst, std::abs(bytes[i * 4 + c] - pixel[c]));
    }
    return worst;
}

// ---- How exact -------------------------------------------------------------------------------------------------------

TEST(KitResample, EveryFilterIsWithinALevelOfTheModelAtTwoHundredRatios) {
    std::mt19937 engine(7);
    const auto random = [&] { return static_cast<uint32_t>(engine()); };
    for (int round = 0; round < 200; round++) {
        const uint32_t width = 1 + random() % 90, height = 1 + random() % 60;
        const uint32_t to_width = 1 + random() % (round % 2 ? width : 200), to_height = 1 + random() % 80;
        const auto alpha = static_cast<Alpha>(round % 3);
        const Noise source(bgra, width, height, alpha);
        const models::Picture picture = picture_of(source.record);
        for (const uint32_t filter : filters) {
            const auto options = with(filter, round % 5 == 4 ? PICTRA_RESAMPLE_LINEAR : 0);
            const Bytes made = scaled(source.record, to_width, to_height, options);
            const models::Picture model = models::resample(picture, to_width, to_height, options);
            // A level from the model's, which is rounded.
            ASSERT_LT(difference(made, model), 1.5) << width << "x" << height << " to " << to_width << "x" << to_height
                                                    << ", filter " << filter << ", alpha " << int(alpha);
        }
    }
}

TEST(KitResample, PartsOfASourceAreWhatTheModelCutsOut) {
    const Noise source(bgra, 50, 40);
    const models::Picture picture = picture_of(source.record);
    const double parts[][4] = {
        {0, 0, 50, 40}, {3.25, 7.5, 21.3, 30.1}, {49, 39, 1, 1}, {10.7, 0, 0, 0.3}, {49.99, 2, 0, 0}};
    for (const auto &part : parts)
        for (const uint32_t filter : filters) {
            auto options = with(filter);
            options.x = part[0], options.y = part[1], options.width = part[2], options.height = part[3];
            const models::Picture model = models::resample(picture, 17, 23, options);
            EXPECT_LT(difference(scaled(source.record, 17, 23, options), model), 1.5)
                << part[0] << ", filter " << filter;
        }
}

TEST(KitResample, LongReductionsKeepEveryPixel) {
    const Noise opaque(bgra, 5000, 3, Alpha::opaque), transparent(bgra, 3, 5000);
    for (const Noise *source : {&opaque, &transparent})
        for (const uint32_t filter : {PICTRA_FILTER_LANCZOS3, PICTRA_FILTER_AREA}) {
            const models::Picture model = models::resample(picture_of(source->record), 2, 3, with(filter));
            EXPECT_LT(difference(scaled(source->record, 2, 3, with(filter)), model), 1.5);
        }
}

TEST(KitResample, FlatStaysFlatAndItsOwnSizeStaysItself) {
    for (const uint32_t level : {0u, 1u, 77u, 254u, 255u})
        for (const uint32_t filter : filters)
            for (const uint32_t flags : {0u, uint32_t{PICTRA_RESAMPLE_LINEAR}}) {
                const Image flat(FMT_XRGB8888HE, 37, 29, false, static_cast<uint8_t>(level));
                const Bytes made = scaled(flat.record, 64, 13, with(filter, flags), FMT_G8);
                EXPECT_EQ(made, Bytes(made.size(), static_cast<uint8_t>(level))) << level << ", filter " << filter;
            }
    for (const img_format format : direct_formats)
        for (const uint32_t filter : filters) {
            const Noise source(format, 13, 7);
            const Bytes made = scaled(source.record, 13, 7, with(filter, PICTRA_RESAMPLE_LINEAR), format);
            Bytes expected;
            for (size_t y = 0; y < 7; y++) {
                Bytes line(&source.pixels[y * source.stride],
                           &source.pixels[y * source.stride] + img::run_bytes(format, 13));
                expected.insert(expected.end(), line.begin(), line.end());
            }
            Bytes through(13 * 7 * 4), back(expected.size());
            img_convert_data(format, expected.data(), bgra, through.data(), 13 * 7);
            img_convert_data(bgra, through.data(), format, back.data(), 13 * 7);
            EXPECT_EQ(made, back) << std::hex << format;
        }
}

Bytes mirrored(const Bytes &pixels, uint32_t width) {
    Bytes result;
    for (size_t row = 0; row < pixels.size(); row += size_t{width} * 4)
        for (size_t x = width; x-- > 0;) result.insert(result.end(), &pixels[row + x * 4], &pixels[row + x * 4] + 4);
    return result;
}

TEST(KitResample, MirroredSourcesGiveMirroredResults) {
    for (const uint32_t filter :
         {PICTRA_FILTER_LANCZOS3, PICTRA_FILTER_AREA, PICTRA_FILTER_BILINEAR, PICTRA_FILTER_BICUBIC})
        for (const uint32_t to : {5u, 20u, 29u, 44u, 45u, 100u, 131u}) {
            const Noise source(bgra, 45, 17, Alpha::opaque);
            img_record turned = a_record(IMG_F_FORMAT, bgra);
            ASSERT_EQ(img_flip(&source.record, &turned, IMG_FLIP_HORIZONTAL), 0u);
            EXPECT_EQ(scaled(turned, to, 11, with(filter)), mirrored(scaled(source.record, to, 11, with(filter)), to))
                << to << ", filter " << filter;
            free(turned.data);
        }
}

TEST(KitResample, EveryVariantGivesTheSameBits) {
    const img::cpu::Variant best = img::cpu::choose();
    for (const uint32_t width : {1u, 3u, 31u, 200u})
        for (const uint32_t to : {1u, 2u, 7u, 33u, 150u})
            for (const Alpha alpha : {Alpha::opaque, Alpha::some, Alpha::all})
                for (const uint32_t flags : {0u, uint32_t{PICTRA_RESAMPLE_LINEAR}}) {
                    const Noise source(bgra, width, 40, alpha), grey(FMT_G8, width, 40);
                    img::cpu::force(img::cpu::Variant{});
                    const Bytes plain = scaled(source.record, to, 21, with(PICTRA_FILTER_LANCZOS3, flags));
                    const Bytes plain_grey = scaled(grey.record, to, 21, with(PICTRA_FILTER_BICUBIC, flags), FMT_G8);
                    for (int v = 1; v < int(img::cpu::Variant::count); v++) {
                        if (!img::cpu::runs(img::cpu::Variant(v))) continue;
                        img::cpu::force(img::cpu::Variant(v));
                        EXPECT_EQ(scaled(source.record, to, 21, with(PICTRA_FILTER_LANCZOS3, flags)), plain) << v;
                        EXPECT_EQ(scaled(grey.record, to, 21, with(PICTRA_FILTER_BICUBIC, flags), FMT_G8), plain_grey)
                            << v;
                    }
                }
    img::cpu::force(best);
}

// ---- Formats and transparency ----------------------------------------------------------------------------------------

TEST(KitResample, AllPairsOfFormatsThatConvertScale) {
    constexpr img_format sources[] = {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_A8};
    std::vector<img_format> all(std::begin(direct_formats), std::end(direct_formats));
    all.insert(all.end(), std::begin(sources), std::end(sources));
    for (const img_format from : all) {
        Noise source(from, 37, 11);
        if (from == FMT_PAL4 || from == FMT_PAL1) source.record.flags |= IMG_F_PAL_ALPHA;
        if (from == FMT_PAL8) source.record.flags |= IMG_F_TRANSP, source.record.transparency8 = 2;
        for (const img_format to : all) {
            img_record target = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT, to, 16, 5);
            const bool known = !img::is_palette(to) && (img::is_palette(from) || img_convert_getfunc(from, to));
            const img_status status = pictra_resample(&source.record, &target, nullptr);
            EXPECT_EQ(status, known ? 0u : uint32_t{IMG_ST_BADFMT}) << std::hex << from << " to " << to;
            if (status || from == FMT_A8) {
                EXPECT_EQ(bool(target.flags & IMG_F_DIRECT), !status);
                free(status ? nullptr : target.data);
                continue;
            }
            // The model's pixels, rounded and converted as those of the result are.
            const models::Picture model = models::resample(picture_of(source.record), 16, 5, with(0));
            for (uint32_t i = 0; i < 16 * 5; i++) {
                uint8_t exact[4], low[4], high[4], got[4] = {};
                for (size_t c = 0; c < 4; c++) exact[c] = static_cast<uint8_t>(std::lround(model.pixels[i][c]));
                if (!exact[3]) continue;
                for (size_t c = 0; c < 4; c++) {
                    low[c] = exact[c] ? static_cast<uint8_t>(exact[c] - 1) : exact[c];
                    high[c] = exact[c] < 255 ? static_cast<uint8_t>(exact[c] + 1) : exact[c];
                }
                if (exact[3] == 255) low[3] = 255;
                const auto *at =
                    static_cast<uint8_t *>(target.data) + i / 16 * target.stride + img::run_bytes(to, i % 16);
                if (to == FMT_A8 || to == FMT_G8) {
                    uint8_t bounds[2];
                    img_convert_data(bgra, low, to, bounds, 1);
                    img_convert_data(bgra, high, to, bounds + 1, 1);
                    EXPECT_TRUE(*at >= bounds[0] && *at <= bounds[1]) << std::hex << from << " to " << to << std::dec
                                                                      << ": " << int(*at) << " not " << int(bounds[0]);
                    continue;
                }
                for (uint8_t *bound : {low, high}) {
                    uint32_t pixel = 0;
                    img_convert_data(bgra, bound, to, &pixel, 1);
                    img_convert_data(to, &pixel, bgra, bound, 1);
                }
                img_convert_data(to, at, bgra, got, 1);
                for (size_t c = 0; c < 4; c++)
                    EXPECT_TRUE(got[c] >= std::min(low[c], high[c]) && got[c] <= std::max(low[c], high[c]))
                        << std::hex << from << " to " << to << std::dec << ": " << int(got[c]) << " not "
                        << int(exact[c]);
            }
            free(target.data);
        }
    }
}

TEST(KitResample, TransparentPixelsLeaveNoRim) {
    Image source(bgra, 40, 40, false);
    for (size_t y = 0; y < 40; y++)
        for (size_t x = 0; x < 40; x++) {
            const bool inside = std::hypot(double(x) - 19.5, double(y) - 19.5) < 15;
            const uint8_t pixel[] = {0, uint8_t(inside ? 0 : 255), uint8_t(inside ? 255 : 0),
                                     uint8_t(inside ? 255 : 0)};
            memcpy(&source.pixels[y * source.stride + x * 4], pixel, 4);
        }
    Image keyed(FMT_RGB888, 40, 40, false); // the same with a key
    for (size_t y = 0; y < 40; y++)
        img_convert_data(bgra, &source.pixels[y * source.stride], FMT_RGB888, &keyed.pixels[y * keyed.stride], 40);
    keyed.record.flags |= IMG_F_TRANSP;
    keyed.record.transparency = 0xff00ff00;
    for (const uint32_t filter : filters)
        for (const uint32_t to : {9u, 80u}) {
            const Bytes made = scaled(source.record, to, to, with(filter));
            for (size_t i = 0; i < made.size(); i += 4) {
                if (!made[i + 3]) continue;
                EXPECT_EQ(made[i + 1], 0) << "green, filter " << filter;
                EXPECT_EQ(made[i + 2], 255) << "red, filter " << filter;
            }
            EXPECT_EQ(scaled(keyed.record, to, to, with(filter)), made);
        }
}

TEST(KitResample, ABackgroundShowsThroughAsMuchAsThereIsTransparency) {
    for (const uint32_t filter : {uint32_t{PICTRA_FILTER_NEAREST}, uint32_t{PICTRA_FILTER_LANCZOS3}}) {
        const Noise source(bgra, 30, 20);
        auto options = with(filter);
        const Bytes plain = scaled(source.record, 21, 14, options);
        options.flags = PICTRA_RESAMPLE_BACKGROUND;
        options.background = 0x00204080;
        const Bytes made = scaled(source.record, 21, 14, options);
        const double background[] = {0x80, 0x40, 0x20};
        for (size_t i = 0; i < made.size(); i += 4) {
            const double a = plain[i + 3] / 255.0;
            EXPECT_EQ(made[i + 3], 255);
            for (size_t c = 0; c < 3; c++) EXPECT_NEAR(made[i + c], plain[i + c] * a + background[c] * (1 - a), 1.6);
        }
    }
}

// ---- Rows ------------------------------------------------------------------------------------------------------------

TEST(KitResample, RowsPushedInRunsAndFromBelowMakeTheSamePicture) {
    const Noise source(FMT_ARGB8888HE, 33, 50);
    for (const uint32_t filter : filters) {
        const Bytes expected = scaled(source.record, 20, 31, with(filter), FMT_RGB888);
        for (const bool upward : {false, true}) {
            Image target(FMT_RGB888, 20, 31, true);
            target.receives = true;
            const auto options = with(filter, upward ? PICTRA_RESAMPLE_UPWARD : 0);
            pictra_resampler *resampler = nullptr;
            ASSERT_EQ(pictra_resampler_create(&source.record, &target.record, &options, &resampler), 0u);
            std::string calls;
            for (uint32_t i = 0; i < 31; i++) calls += "0," + std::to_string(upward ? 30 - i : i) + ":20 ";
            for (uint32_t i = 0; i < 50; i++) {
                const uint32_t y = upward ? 49 - i : i;
                auto *row = const_cast<uint8_t *>(&source.pixels[size_t{y} * source.stride]);
                EXPECT_EQ(pictra_resampler_end(resampler), uint32_t{IMG_ST_BADARG});
                pictra_resampler_access(resampler, 0, y, 10, row);
                pictra_resampler_access(resampler, 10, y, 23, row + 40);
            }
            EXPECT_EQ(pictra_resampler_end(resampler), 0u);
            EXPECT_EQ(target.calls, calls);
            for (size_t y = 0; y < 31; y++)
                EXPECT_EQ(memcmp(&target.pixels[y * target.stride], &expected[y * 60], 60), 0) << y;
            EXPECT_EQ(pictra_resampler_row(resampler, source.pixels.data()), uint32_t{IMG_ST_BADARG}) << "one too many";
            pictra_resampler_free(resampler);
        }
    }
}

TEST(KitResample, RowsOutOfOrderAndRunsThatReachOutAreRefused) {
    const Noise source(FMT_RGB888, 10, 10);
    Image target(FMT_RGB888, 5, 5, false);
    const uint32_t wrong[][3] = {{0, 1, 10}, {1, 0, 9}, {0, 0, 11}, {0xffffffff, 0, 2}, {0, 10, 10}};
    for (const auto &[x, y, count] : wrong) {
        pictra_resampler *resampler = nullptr;
        ASSERT_EQ(pictra_resampler_create(&source.record, &target.record, nullptr, &resampler), 0u);
        Bytes row(64);
        EXPECT_NE(pictra_resampler_access(resampler, x, y, count, row.data()), 0);
        for (uint32_t i = 0; i < 10; i++) pictra_resampler_access(resampler, 0, i, 10, row.data());
        EXPECT_EQ(pictra_resampler_end(resampler), uint32_t{IMG_ST_BADARG});
        pictra_resampler_free(resampler);
    }
}

TEST(KitResample, WrongArgumentsAreRefused) {
    const Noise source(FMT_RGB888, 10, 10);
    const auto status = [&](auto change) {
        img_record from = source.record, to = a_record(IMG_F_WIDTH | IMG_F_HEIGHT, 0, 4, 4);
        auto options = with(0);
        change(from, to, options);
        const img_status result = pictra_resample(&from, &to, &options);
        EXPECT_FALSE(result && (to.flags & IMG_F_DIRECT));
        if (!result) free(to.data);
        return result;
    };
    using Record = img_record;
    using Options = pictra_resample_options;
    EXPECT_EQ(status([](Record &, Record &, Options &) {}), 0u);
    const std::function<void(Record &, Record &, Options &)> wrong[] = {
        [](auto &, auto &, auto &o) { o.filter = 5; },
        [](auto &, auto &, auto &o) { o.flags = 0x8; },
        [](auto &, auto &, auto &o) { o.flags = PICTRA_RESAMPLE_UPWARD; },
        [](auto &, auto &, auto &o) { o.size = 3; },
        [](auto &, auto &, auto &o) { o.x = -1; },
        [](auto &, auto &, auto &o) { o.x = 10; },
        [](auto &, auto &, auto &o) { o.y = NAN; },
        [](auto &, auto &, auto &o) { o.width = 10.5; },
        [](auto &, auto &, auto &o) { o.height = INFINITY; },
        [](auto &, auto &to, auto &) { to.width = 0; },
        [](auto &from, auto &, auto &) { from.height = 0; },
        [](auto &from, auto &, auto &) { from.flags &= ~img_flags{IMG_F_FORMAT}; },
        [](auto &from, auto &, auto &) { from.flags &= ~img_flags{IMG_F_DIRECT}; },
        [](auto &from, auto &, auto &) { from.format = FMT_PAL8; }, // without a palette
    };
    for (const auto &change : wrong) EXPECT_EQ(status(change), uint32_t{IMG_ST_BADARG}) << &change - wrong;

    struct Later { // options of a later release
        Options options;
        uint32_t more[2];
    } later{with(0), {}};
    later.options.size = sizeof later;
    img_record to = a_record(IMG_F_WIDTH | IMG_F_HEIGHT, 0, 4, 4);
    EXPECT_EQ(pictra_resample(&source.record, &to, &later.options), 0u);
    free(to.data);
    later.more[1] = 1;
    EXPECT_EQ(pictra_resample(&source.record, &to, &later.options), uint32_t{IMG_ST_BADARG});
}

// ---- Memory and threads ----------------------------------------------------------------------------------------------

TEST(KitResample, FailingAllocationsLeaveNothing) {
    const Noise opaque(FMT_PAL8, 40, 30), transparent(bgra, 40, 30);
    for (const Noise *source : {&opaque, &transparent})
        for (const uint32_t flags : {0u, uint32_t{PICTRA_RESAMPLE_LINEAR | PICTRA_RESAMPLE_BACKGROUND}}) {
            Image target(FMT_RGB565HE, 11, 12, false);
            const auto options = with(0, flags);
            const size_t failures = memory::for_each_failure([&](size_t n, memory::Watch &watch) {
                const img_status status = pictra_resample(&source->record, &target.record, &options);
                EXPECT_EQ(status, watch.failed() ? uint32_t{IMG_ST_NOMEM} : 0u) << n;
                EXPECT_EQ(watch.live(), 0u) << n;
            });
            EXPECT_GT(failures, 8u);
        }
}

TEST(KitResample, AtOnceInEightThreads) {
    const Noise source(bgra, 120, 90);
    const Bytes expected = scaled(source.record, 50, 40, with(0, PICTRA_RESAMPLE_LINEAR));
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; t++)
        threads.emplace_back([&] {
            for (int round = 0; round < 5; round++)
                EXPECT_EQ(scaled(source.record, 50, 40, with(0, PICTRA_RESAMPLE_LINEAR)), expected);
        });
    for (std::thread &thread : threads) thread.join();
}

} // namespace
