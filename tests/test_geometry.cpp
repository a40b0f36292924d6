// SPDX-License-Identifier: MIT
#include "geometry/kernels.h"
#include "tests/image.h"
#include "tests/memory.h"
#include "tests/runs.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Bytes = std::vector<uint8_t>;
const uint32_t palette[] = {0xff102030, 0x80405060, 0xff00ff00, 0x00000000};

enum Op { hflip, vflip, crop, rot90, rot180, rot270, op_count };

img_status run(Op op, const img_record &src, img_record &dst, uint32_t x = 0, uint32_t y = 0) {
    switch (op) {
    case hflip:
        return img_flip(&src, &dst, IMG_FLIP_HORIZONTAL);
    case vflip:
        return img_flip(&src, &dst, IMG_FLIP_VERTICAL);
    case crop:
        return img_crop(&src, &dst, x, y);
    case rot90:
        return img_rotate_ortho(&src, &dst, IMG_ANGLE_90);
    case rot180:
        return img_rotate_ortho(&src, &dst, IMG_ANGLE_180);
    default:
        return img_rotate_ortho(&src, &dst, IMG_ANGLE_270);
    }
}

// Where pixel (x, y) of the result comes from, for a result of w x h pixels and a source of sw x sh.
std::pair<uint32_t, uint32_t> origin(Op op, bool to_function, uint32_t x, uint32_t y, uint32_t w, uint32_t h,
                                     uint32_t sw, uint32_t sh, uint32_t cx, uint32_t cy) {
    const uint32_t x0 = sw - w, y0 = sh - h; // a smaller result has the right and bottom part
    switch (op) {
    case hflip:
        return {x0 + w - 1 - x, y0 + (to_function ? h - 1 - y : y)};
    case vflip:
        return {x0 + x, y0 + h - 1 - y};
    case crop:
        return {cx + x, cy + y};
    case rot90:
        return {y, sh - 1 - x};
    case rot180:
        return {x0 + w - 1 - x, y0 + h - 1 - y};
    default:
        return {sw - 1 - y, x};
    }
}

TEST(Geometry, EveryPixelComesFromItsPlace) {
    std::mt19937 random{7};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const std::pair<img_format, img_format> formats[] = {{FMT_G8, FMT_G8},         {FMT_RGB565HE, FMT_RGB565HE},
                                                         {FMT_RGB888, FMT_RGB888}, {FMT_PAL8, FMT_PAL8},
                                                         {FMT_G8, FMT_ARGB8888HE}, {FMT_ARGB8888HE, FMT_RGB565OE},
                                                         {FMT_PAL8, FMT_BGR888},   {FMT_ARGB8888HE, FMT_ARGB8888HE}};
    for (int round = 0; round < 4000; round++) {
        const Op op = Op(pick(op_count));
        const auto [from, to] = formats[pick(8)];
        const uint32_t sw = 1 + pick(round % 50 ? 20 : 150), sh = 1 + pick(round % 50 ? 20 : 150);
        const bool turned = op == rot90 || op == rot270;
        uint32_t w = turned ? sh : sw, h = turned ? sw : sh;
        if (pick(3) == 0) w = 1 + pick(op == crop ? w : 25);
        if (pick(3) == 0) h = 1 + pick(op == crop ? h : 25);
        Image src{from, sw, sh, pick(2) != 0}, dst{to, w, h, pick(2) != 0, 0xee};
        src.fill();
        src.give_palette(palette, 4);
        if (from == FMT_PAL8)
            for (uint8_t &b : src.pixels) b &= 3;
        dst.receives = true;
        const uint32_t cx = op == crop ? pick(sw - w + 1) : 0, cy = op == crop ? pick(sh - h + 1) : 0;
        ASSERT_EQ(run(op, src.record, dst.record, cx, cy), IMG_ST_OK);

        Image converted{to, sw, sh, false};
        img_record plain = src.record;
        plain.flags = (plain.flags & ~img_flags{IMG_F_ACCESS}) | IMG_F_DIRECT;
        plain.data = src.pixels.data();
        plain.stride = src.stride;
        ASSERT_EQ(img_dtransform(&plain, &converted.record), IMG_ST_OK);
        const size_t bytes = img::bits_per_pixel(to) / 8;
        const uint32_t cw = std::min(w, turned ? sh : sw), ch = std::min(h, turned ? sw : sh);
        Bytes want(dst.pixels.size(), 0xee);
        for (uint32_t y = 0; y < ch; y++)
            for (uint32_t x = 0; x < cw; x++) {
                const auto [u, v] = origin(op, dst.record.flags & IMG_F_ACCESS, x, y, cw, ch, sw, sh, cx, cy);
                memcpy(&want[y * dst.stride + x * bytes], &converted.pixels[v * converted.stride + u * bytes], bytes);
            }
        ASSERT_EQ(dst.pixels, want) << "round " << round << " op " << op << std::hex << " " << from << " " << to
                                    << std::dec << " " << sw << "x" << sh << " to " << w << "x" << h;
    }
}

TEST(Geometry, AccessFunctionsAreCalledInOrder) {
    struct Case {
        Op op;
        const char *fetched, *handed;
    };
    for (const auto &[op, fetched, handed] :
         {Case{hflip, "0,0:10 0,1:10 ", "0,1:10 0,0:10 "}, Case{vflip, "0,0:10 0,1:10 ", "0,1:10 0,0:10 "},
          Case{crop, "0,0:10 0,1:10 ", "0,0:10 0,1:10 "}, Case{rot180, "0,0:10 0,1:10 ", "0,1:10 0,0:10 "}}) {
        Image src{FMT_G8, 10, 2, true}, dst{FMT_RGB888, 10, 2, true};
        dst.receives = true;
        ASSERT_EQ(run(op, src.record, dst.record), IMG_ST_OK);
        EXPECT_EQ(src.calls, fetched);
        EXPECT_EQ(dst.calls, handed);
    }
    for (const auto &[op, handed] :
         {std::pair{rot90, "2,0:8 2,1:8 0,0:2 0,1:2 "}, std::pair{rot270, "0,0:8 0,1:8 8,0:2 8,1:2 "}}) {
        Image src{FMT_G8, 2, 10, false}, dst{FMT_RGB888, 10, 2, true};
        dst.receives = true;
        ASSERT_EQ(run(op, src.record, dst.record), IMG_ST_OK);
        EXPECT_EQ(dst.calls, handed);
    }
}

TEST(Geometry, InPlace) {
    const auto flipped = [](img_format format, uint32_t width, Bytes row) {
        img_record image{};
        image.data = row.data();
        image.stride = static_cast<uint32_t>(row.size());
        image.width = width;
        image.height = 1;
        image.format = format;
        image.flags = IMG_F_DIRECT;
        EXPECT_EQ(img_flip_horizontal(&image), IMG_ST_OK);
        return row;
    };
    EXPECT_EQ(flipped(FMT_PAL1, 10, {0x80, 0x00}), (Bytes{0x00, 0x40}));
    EXPECT_EQ(flipped(FMT_PAL1, 16, {0x81, 0x03}), (Bytes{0xc0, 0x81}));
    EXPECT_EQ(flipped(FMT_PAL1, 3, {0x3f}), (Bytes{0x80}));
    EXPECT_EQ(flipped(FMT_PAL1, 17, {0x00, 0x01, 0xff}), (Bytes{0xc0, 0x00, 0x00}));
    EXPECT_EQ(flipped(FMT_G8, 3, {1, 2, 3, 9}), (Bytes{3, 2, 1, 9}));
    EXPECT_EQ(flipped(FMT_RGB565HE, 2, {1, 2, 3, 4}), (Bytes{3, 4, 1, 2}));
    EXPECT_EQ(flipped(FMT_RGB888, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}), (Bytes{7, 8, 9, 4, 5, 6, 1, 2, 3}));
    EXPECT_EQ(flipped(FMT_XBGR8888OE, 2, {1, 2, 3, 4, 5, 6, 7, 8}), (Bytes{5, 6, 7, 8, 1, 2, 3, 4}));

    Bytes rows{1, 2, 3, 4, 5, 6};
    img_record image{};
    image.data = rows.data();
    image.stride = 2;
    image.height = 3;
    image.flags = IMG_F_DIRECT;
    EXPECT_EQ(img_flip_vertical(&image), IMG_ST_OK);
    EXPECT_EQ(rows, (Bytes{5, 6, 3, 4, 1, 2}));
    const memory::Watch watch(1);
    EXPECT_EQ(img_flip_vertical(&image), IMG_ST_NOMEM);

    struct Case {
        uint32_t width, height;
        img_format format;
        img_flags flags;
        img_status status;
    };
    for (const auto &[width, height, format, flags, status] :
         {Case{1, 1, 0, 0, IMG_ST_OK}, Case{2, 0, 0, 0, IMG_ST_BADFMT}, Case{2, 0, 0, IMG_F_DIRECT, IMG_ST_OK},
          Case{2, 1, 0x100, IMG_F_DIRECT, IMG_ST_NOCODEC}, Case{2, 1, FMT_PAL4, IMG_F_DIRECT, IMG_ST_BADFMT}}) {
        image.width = width;
        image.height = height;
        image.format = format;
        image.flags = flags;
        EXPECT_EQ(img_flip_horizontal(&image), status);
    }
    image.height = 0;
    image.flags = IMG_F_DIRECT;
    EXPECT_EQ(img_flip_vertical(&image), IMG_ST_OK);
    image.flags = 0;
    EXPECT_EQ(img_flip_vertical(&image), IMG_ST_BADFMT);
}

TEST(Geometry, RefusalsAndWhatTheyLeave) {
    Image src{FMT_PAL8, 4, 3, false};
    src.give_palette(palette, 4);
    src.record.flags |= IMG_F_PAL_ALPHA;
    img_record dst{};
    img_record incomplete = src.record;
    incomplete.flags &= ~img_flags{IMG_F_HEIGHT};
    for (const Op op : {hflip, crop, rot90}) EXPECT_EQ(run(op, incomplete, dst), IMG_ST_BADARG);
    EXPECT_EQ(run(crop, src.record, dst), IMG_ST_BADARG) << "no size";
    EXPECT_EQ(dst.flags, 0u);
    EXPECT_EQ(img_flip(&src.record, &dst, 2), IMG_ST_BADFMT);
    EXPECT_EQ(dst.flags, IMG_F_FORMAT) << "taken before the direction was looked at";
    EXPECT_EQ(dst.ncolors, 4u);
    dst = {};
    EXPECT_EQ(img_rotate_ortho(&src.record, &dst, 90), IMG_ST_BADFMT);
    EXPECT_EQ(dst.flags, IMG_F_FORMAT);

    const auto cut = [&](uint32_t x, uint32_t y, uint32_t w, uint32_t h) {
        img_record part{};
        part.width = w;
        part.height = h;
        part.flags = IMG_F_WIDTH | IMG_F_HEIGHT;
        const img_status status = img_crop(&src.record, &part, x, y);
        EXPECT_EQ(bool(part.flags & IMG_F_PALETTE), status == IMG_ST_OK);
        EXPECT_FALSE(part.flags & IMG_F_PAL_ALPHA) << "crop does not take it";
        if (part.flags & IMG_F_DIRECT)
            free(part.data);
        else if (part.flags & IMG_F_PALETTE)
            free(part.palette);
        return status;
    };
    EXPECT_EQ(cut(2, 1, 2, 2), IMG_ST_OK);
    EXPECT_EQ(cut(3, 1, 2, 2), IMG_ST_BADARG);
    EXPECT_EQ(cut(4, 3, 0, 0), IMG_ST_OK);
    EXPECT_EQ(cut(0xffffffff, 0, 2, 2), IMG_ST_BADARG);

    for (const img_format format : {FMT_PAL4, FMT_A8, FMT_XBGR8888HE, FMT_ABGR8888OE}) {
        dst = {};
        dst.format = format;
        dst.flags = IMG_F_FORMAT;
        EXPECT_EQ(run(rot90, src.record, dst), IMG_ST_BADFMT);
        EXPECT_EQ(dst.flags, IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT);
        EXPECT_EQ(dst.width, 3u);
    }
    img_record nowhere = src.record;
    nowhere.flags &= ~img_flags{IMG_F_DIRECT};
    dst = {};
    EXPECT_EQ(run(vflip, nowhere, dst), IMG_ST_BADARG);
    EXPECT_FALSE(dst.flags & IMG_F_DIRECT);
    dst = {};
    ASSERT_EQ(img_rotate_ortho(&src.record, &dst, IMG_ANGLE_0), IMG_ST_OK);
    EXPECT_EQ(dst.width, 4u);
    EXPECT_TRUE(dst.flags & IMG_F_PAL_ALPHA);
    free(dst.data);
}

TEST(Geometry, FailingAllocations) {
    for (int op = 0; op < op_count; op++) {
        for (const bool access : {false, true}) {
            Image src{FMT_PAL8, 4, 3, true}, target{FMT_RGB888, 4, 3, true};
            src.give_palette(palette, 4);
            target.receives = true;
            memory::for_each_failure([&](size_t, const memory::Watch &watch) {
                img_record dst = target.record;
                if (!access) dst.flags &= ~img_flags{IMG_F_ACCESS};
                const img_status status = run(Op(op), src.record, dst);
                EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK);
                EXPECT_EQ(bool(dst.flags & IMG_F_DIRECT), !access && !status);
                if (dst.flags & IMG_F_DIRECT) free(dst.data);
                EXPECT_EQ(watch.live(), 0u);
            });
        }
    }
}

// Rows without gaps that end, or begin, where memory does.
TEST(Geometry, KernelsOfAllVariantsStayWithinTheImages) {
    const runs::Fenced from(150 * 300 * 4), to(150 * 300 * 4);
    for (size_t i = 0; i < from.size(); i++) from.first()[i] = static_cast<uint8_t>(i * 37 % 251);
    std::mt19937 random{3};
    runs::for_each_variant([&](const char *name) {
        for (uint32_t round = 0; round < 1200; round++) {
            const size_t bytes = 1 + round % 4;
            const auto w = static_cast<uint32_t>(1 + random() % (round % 10 ? 40 : 150));
            const auto h = static_cast<uint32_t>(1 + random() % (round % 10 ? 70 : 300));
            const size_t all = w * h * bytes;
            const uint8_t *src = round % 8 < 4 ? from.before_end(all) : from.first();
            uint8_t *dst = round % 8 < 4 ? to.before_end(all) : to.first();
            const auto step = static_cast<ptrdiff_t>(w * bytes), dst_step = static_cast<ptrdiff_t>(h * bytes);
            Bytes want(all);
            for (size_t i = 0; i < w * h; i++) memcpy(&want[(w * h - 1 - i) * bytes], src + i * bytes, bytes);
            img::active_geometry().mirror[bytes - 1](src, dst, w * h);
            ASSERT_EQ(Bytes(dst, dst + all), want) << name << " " << bytes << " " << w * h;

            const bool up = random() % 2; // the source from below, the destination from above, or the other way round
            for (size_t y = 0; y < h; y++)
                for (size_t x = 0; x < w; x++)
                    memcpy(&want[((up ? x : w - 1 - x) * h + y) * bytes], src + ((up ? h - 1 - y : y) * w + x) * bytes,
                           bytes);
            img::active_geometry().turn[bytes - 1](up ? src + (h - 1) * step : src, up ? -step : step,
                                                   up ? dst : dst + (w - 1) * dst_step, up ? dst_step : -dst_step, w,
                                                   h);
            ASSERT_EQ(Bytes(dst, dst + all), want) << name << " " << bytes << " " << w << "x" << h;
        }
    });
}

// Larger than the caches, where lines may go past them; the last rows fill no whole vector.
TEST(Geometry, HugeImagesAreTurned) {
    for (const img_format format : {FMT_ARGB8888HE, FMT_G8}) {
        const uint32_t bytes = img::bits_per_pixel(format) / 8, w = 2050 * 4 / bytes, h = 2063;
        img_record src{}, dst{};
        Bytes pixels(size_t{w} * h * bytes), turned(size_t{w} * 2112 * bytes + 64, 0xee);
        for (size_t i = 0; i < pixels.size(); i++) pixels[i] = static_cast<uint8_t>(i * 37 % 251);
        src.data = pixels.data();
        src.stride = w * bytes;
        dst.data = &turned[-reinterpret_cast<uintptr_t>(turned.data()) % 64];
        dst.stride = 2112 * bytes;
        src.width = dst.height = w;
        src.height = dst.width = h;
        src.format = dst.format = format;
        src.flags = dst.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT;
        ASSERT_EQ(img_rotate_ortho(&src, &dst, IMG_ANGLE_90), IMG_ST_OK);
        size_t wrong = 0;
        for (size_t x = 0; x < w; x++) {
            const uint8_t *row = img::row_at(dst, x);
            for (size_t y = 0; y < h; y++)
                wrong += memcmp(row + (h - 1 - y) * bytes, &pixels[(y * w + x) * bytes], bytes) != 0;
            wrong += row[h * bytes] != 0xee;
        }
        EXPECT_EQ(wrong, 0u) << std::hex << format;
    }
}

} // namespace
