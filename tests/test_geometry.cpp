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
    const char *down = "0,0:10 0,1:10 ", *up = "0,1:10 0,0:10 ";
    for (const auto &[op, handed] :
         {std::pair{hflip, up}, std::pair{vflip, up}, std::pair{crop, down}, std::pair{rot180, up},
          std::pair{rot90, "2,0:8 2,1:8 0,0:2 0,1:2 "}, std::pair{rot270, "0,0:8 0,1:8 8,0:2 8,1:2 "}}) {
        const bool turns = op == rot90 || op == rot270;
        Image src{FMT_G8, turns ? 2u : 10u, turns ? 10u : 2u, !turns}, dst{FMT_RGB888, 10, 2, true};
        dst.receives = true;
        ASSERT_EQ(run(op, src.record, dst.record), IMG_ST_OK);
        EXPECT_EQ(src.calls, turns ? "" : down);
        EXPECT_EQ(dst.calls, handed);
    }
}

TEST(Geometry, NothingInCommonCallsNothing) {
    for (const Op op : {hflip, vflip, crop, rot180})
        for (const bool no_width : {false, true}) {
            Image src{FMT_G8, 4, 4, true}, dst{FMT_RGB888, no_width ? 0u : 4u, no_width ? 4u : 0u, true};
            EXPECT_EQ(run(op, src.record, dst.record), IMG_ST_OK);
            EXPECT_EQ(src.calls + dst.calls, "");
        }
}

// A cut that starts inside a byte is read from the next byte on. What would lie after the row is 0, and is not read.
TEST(Geometry, CutsInsideAByteEndWithTheRow) {
    const runs::Fenced memory(32);
    for (const img_format format : {FMT_PAL1, FMT_PAL4})
        for (uint32_t width = 1; width <= 17; width++)
            for (uint32_t w = 1; w <= width; w++)
                for (const Op op : {hflip, vflip, crop, rot180, rot270}) {
                    const auto row = static_cast<uint32_t>(img::run_bytes(format, width));
                    const uint32_t bits = img::bits_per_pixel(format), per_byte = 8 / bits;
                    const uint32_t skipped = (width - w + per_byte - 1) / per_byte * per_byte, there = row * per_byte;
                    img_record src =
                        a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT, format, width, 2);
                    src.data = memory.before_end(2 * row);
                    src.stride = row;
                    memset(src.data, 0xff, 2 * row);
                    const bool turned = op == rot270, mirrored = op == hflip || op == rot180 || turned;
                    img_record dst =
                        a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT, FMT_PAL8, turned ? 2 : w, turned ? w : 2);
                    ASSERT_EQ(run(op, src, dst, width - w), IMG_ST_OK);
                    for (uint32_t k = 0; k < 2 * w; k++) {
                        const uint32_t i = mirrored ? w - 1 - k % w : k % w, y = k / w;
                        const uint8_t *at = turned ? img::row_at(dst, k % w) + y : img::row_at(dst, y) + k % w;
                        ASSERT_EQ(*at, skipped + i < there ? (1 << bits) - 1 : 0)
                            << std::hex << format << std::dec << " op " << op << " " << w << " of " << width << " "
                            << k;
                    }
                    free(dst.data);
                }
}

TEST(Geometry, InPlace) {
    const auto image = [](img_format format, uint32_t width, uint32_t height, Bytes *pixels) {
        img_record r = a_record(pixels ? IMG_F_DIRECT : 0, format, width, height);
        if (!pixels) return r;
        r.data = pixels->data();
        r.stride = height ? static_cast<uint32_t>(pixels->size()) / height : 0;
        return r;
    };
    struct Row {
        img_format format;
        uint32_t width;
        Bytes row, flipped;
    };
    for (auto &[format, width, row, flipped] : {
             Row{FMT_PAL1, 10, {0x80, 0x00}, {0x00, 0x40}},
             Row{FMT_PAL1, 16, {0x81, 0x03}, {0xc0, 0x81}},
             Row{FMT_PAL1, 3, {0x3f}, {0x80}},
             Row{FMT_PAL1, 17, {0x00, 0x01, 0xff}, {0xc0, 0x00, 0x00}},
             Row{FMT_G8, 3, {1, 2, 3, 9}, {3, 2, 1, 9}},
             Row{FMT_RGB565HE, 2, {1, 2, 3, 4}, {3, 4, 1, 2}},
             Row{FMT_RGB888, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, {7, 8, 9, 4, 5, 6, 1, 2, 3}},
             Row{FMT_XBGR8888OE, 2, {1, 2, 3, 4, 5, 6, 7, 8}, {5, 6, 7, 8, 1, 2, 3, 4}},
         }) {
        Bytes pixels = row;
        img_record r = image(format, width, 1, &pixels);
        EXPECT_EQ(img_flip_horizontal(&r), IMG_ST_OK);
        EXPECT_EQ(pixels, flipped);
    }
    Bytes rows{1, 2, 3, 4, 5, 6};
    img_record r = image(0, 0, 3, &rows);
    EXPECT_EQ(img_flip_vertical(&r), IMG_ST_OK);
    EXPECT_EQ(rows, (Bytes{5, 6, 3, 4, 1, 2}));

    const memory::Watch watch(1);
    EXPECT_EQ(img_flip_vertical(&r), IMG_ST_NOMEM);
    struct Case {
        img_status (*flip)(img_record *);
        img_record record;
        img_status status;
    };
    for (auto [flip, record, status] : {
             Case{img_flip_horizontal, image(0, 1, 1, nullptr), IMG_ST_OK},
             Case{img_flip_horizontal, image(0, 2, 0, nullptr), IMG_ST_BADFMT},
             Case{img_flip_horizontal, image(0, 2, 0, &rows), IMG_ST_OK},
             Case{img_flip_horizontal, image(0x100, 2, 1, &rows), IMG_ST_NOCODEC},
             Case{img_flip_horizontal, image(FMT_PAL4, 2, 1, &rows), IMG_ST_BADFMT},
             Case{img_flip_vertical, image(0, 2, 0, &rows), IMG_ST_OK},
             Case{img_flip_vertical, image(0, 2, 0, nullptr), IMG_ST_BADFMT},
         })
        EXPECT_EQ(flip(&record), status);
}

TEST(Geometry, RefusalsAndWhatTheyLeave) {
    Image src{FMT_PAL8, 4, 3, false};
    src.give_palette(palette, 4);
    src.record.flags |= IMG_F_PAL_ALPHA;
    img_record dst{}, incomplete = src.record, nowhere = src.record;
    incomplete.flags &= ~img_flags{IMG_F_HEIGHT};
    nowhere.flags &= ~img_flags{IMG_F_DIRECT};
    for (const Op op : {hflip, crop, rot90}) EXPECT_EQ(run(op, incomplete, dst), IMG_ST_BADARG);
    EXPECT_EQ(run(crop, src.record, dst), IMG_ST_BADARG) << "no size";
    EXPECT_EQ(dst.flags, 0u);
    // The format is taken before the direction is looked at.
    EXPECT_EQ(img_flip(&src.record, &dst, 2), IMG_ST_BADFMT);
    EXPECT_EQ(std::pair(dst.flags, dst.ncolors), std::pair(img_flags{IMG_F_FORMAT}, 4u));
    dst = {};
    EXPECT_EQ(img_rotate_ortho(&src.record, &dst, 90), IMG_ST_BADFMT);
    EXPECT_EQ(dst.flags, IMG_F_FORMAT);
    for (const img_format format : {FMT_PAL4, FMT_A8, FMT_XBGR8888HE, FMT_ABGR8888OE}) {
        dst = a_record(IMG_F_FORMAT, format);
        EXPECT_EQ(run(rot90, src.record, dst), IMG_ST_BADFMT);
        EXPECT_EQ(std::pair(dst.flags, dst.width), std::pair(img_flags{IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT}, 3u));
    }
    dst = {};
    EXPECT_EQ(run(vflip, nowhere, dst), IMG_ST_BADARG);
    EXPECT_FALSE(dst.flags & IMG_F_DIRECT);
    dst = {};
    ASSERT_EQ(img_rotate_ortho(&src.record, &dst, IMG_ANGLE_0), IMG_ST_OK);
    EXPECT_EQ(dst.width, 4u);
    EXPECT_TRUE(dst.flags & IMG_F_PAL_ALPHA);
    free(dst.data);

    struct Cut {
        uint32_t x, y, size;
        img_status status;
    };
    for (const auto &[x, y, size, status] :
         {Cut{2, 1, 2, IMG_ST_OK}, Cut{3, 1, 2, IMG_ST_BADARG}, Cut{4, 3, 0, IMG_ST_OK},
          Cut{0xffffffff, 0, 2, IMG_ST_BADARG}, Cut{2, 2, 2, IMG_ST_BADARG}}) {
        img_record part = a_record(IMG_F_WIDTH | IMG_F_HEIGHT, 0, size, size);
        EXPECT_EQ(run(crop, src.record, part, x, y), status);
        // Whether the palette is opaque is not taken.
        EXPECT_EQ(part.flags & (IMG_F_PALETTE | IMG_F_PAL_ALPHA), status ? img_flags{0} : img_flags{IMG_F_PALETTE});
        free(part.flags & IMG_F_DIRECT ? part.data : part.palette);
    }
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
            img::geometry_kernels.best().mirror[bytes - 1](src, 0, dst, 0, w * h, 1);
            ASSERT_EQ(Bytes(dst, dst + all), want) << name << " " << bytes << " " << w * h;

            const bool up = random() % 2; // the source from below, the destination from above, or the other way round
            for (size_t y = 0; y < h; y++)
                for (size_t x = 0; x < w; x++)
                    memcpy(&want[((up ? x : w - 1 - x) * h + y) * bytes], src + ((up ? h - 1 - y : y) * w + x) * bytes,
                           bytes);
            img::geometry_kernels.best().transpose[bytes - 1](up ? src + (h - 1) * step : src, up ? -step : step,
                                                              up ? dst : dst + (w - 1) * dst_step,
                                                              up ? dst_step : -dst_step, w, h);
            ASSERT_EQ(Bytes(dst, dst + all), want) << name << " " << bytes << " " << w << "x" << h;
        }
    });
}

TEST(Geometry, TheFirstRowOfACropIsCountedIn32Bits) {
    Image src{FMT_G8, 8, 1, false}, dst{FMT_G8, 8, 1, false};
    src.fill();
    src.record.height = 3;
    src.record.stride = 0x80000000;
    ASSERT_EQ(img_crop(&src.record, &dst.record, 0, 2), IMG_ST_OK);
    EXPECT_EQ(memcmp(dst.record.data, src.record.data, 8), 0);
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

// Rows that begin anywhere in a cache line, and are longer than what is mirrored together; 16 MB at two bytes a pixel.
TEST(Geometry, HugeImagesAreMirroredAndCopied) {
    constexpr size_t width = 2051, height = 4100, gap = 5;
    runs::for_each_variant([&](const char *variant) {
        for (const size_t bytes : {2u, 3u}) {
            const size_t stride = width * bytes + gap;
            Bytes pixels(stride * height), out(stride * height, 0xee);
            for (size_t i = 0; i < pixels.size(); i++) pixels[i] = static_cast<uint8_t>(i * 37 % 251);
            const img::GeometryKernels &kernels = img::geometry_kernels.best();
            const auto step = static_cast<ptrdiff_t>(stride);
            kernels.mirror[bytes - 1](pixels.data(), step, &out[stride * (height - 1)], -step, width, height);
            size_t wrong = 0;
            for (size_t y = 0; y < height; y++) {
                const uint8_t *from = &pixels[y * stride], *to = &out[(height - 1 - y) * stride];
                for (size_t x = 0; x < width; x++)
                    wrong += memcmp(from + x * bytes, to + (width - 1 - x) * bytes, bytes) != 0;
                wrong += to[width * bytes] != 0xee;
            }
            kernels.copy(pixels.data(), step, out.data(), step, width * bytes, height);
            for (size_t y = 0; y < height; y++)
                wrong += memcmp(&pixels[y * stride], &out[y * stride], width * bytes) ||
                         out[y * stride + stride - 1] != 0xee;
            EXPECT_EQ(wrong, 0u) << variant << " " << bytes;
        }
    });
}

} // namespace
