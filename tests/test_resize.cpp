// SPDX-License-Identifier: MIT
#include "scale/params.h"
#include "tests/image.h"
#include "tests/memory.h"
#include "tests/runs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using Bytes = std::vector<uint8_t>;
const img_format scalable[] = {FMT_G8,         FMT_BGR888,     FMT_RGB888,     FMT_XRGB1555HE, FMT_XRGB1555OE,
                               FMT_ARGB1555HE, FMT_ARGB1555OE, FMT_RGB565HE,   FMT_RGB565OE,   FMT_XRGB8888HE,
                               FMT_XRGB8888OE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_ABGR8888HE};
const uint32_t palette[] = {0xff102030, 0x80405060, 0xff00ff00, 0x00000000};

// ---- A plain model: one pixel a word, lines of their own, no reuse of memory -------------------------------------------

using Line = std::vector<uint32_t>;

uint32_t pixel_bytes(img_format f) { return img::bits_per_pixel(f) / 8; }

// Where the value of a pixel begins in a word: that of 16 bits is the word's.
template <typename Word> auto *value_in(Word &word, img_format f) {
    using Byte = std::conditional_t<std::is_const_v<Word>, const uint8_t, uint8_t>;
    const bool last = std::endian::native == std::endian::big && pixel_bytes(f) == 2;
    return reinterpret_cast<Byte *>(&word) + (last ? 2 : 0);
}

Line unpack(img_format f, const uint8_t *at, uint32_t n) {
    Line line(n);
    for (uint32_t i = 0; i < n; i++) memcpy(value_in(line[i], f), at + i * pixel_bytes(f), pixel_bytes(f));
    return line;
}
Bytes pack(img_format f, const Line &line) {
    Bytes bytes(line.size() * pixel_bytes(f));
    for (size_t i = 0; i < line.size(); i++) memcpy(&bytes[i * pixel_bytes(f)], value_in(line[i], f), pixel_bytes(f));
    return bytes;
}

uint32_t forced(img_format f) {
    if (f & IMG_FMT_ALPHA) return 0;
    if (pixel_bytes(f) == 4) return f & IMG_FMT_HE ? 0xff000000 : 0xff;
    return pixel_bytes(f) == 2 && !(f & IMG_FMT_ALT) ? (f & IMG_FMT_HE ? 0x8000 : 0x80) : 0;
}

// Channel by channel, in host order.
uint32_t mean(img_format f, uint32_t a, uint32_t b) {
    const bool swap = pixel_bytes(f) == 2 && (f & IMG_FMT_OE);
    if (swap) a = __builtin_bswap16(static_cast<uint16_t>(a)), b = __builtin_bswap16(static_cast<uint16_t>(b));
    std::vector<std::pair<int, int>> fields{{0, 8}, {8, 8}, {16, 8}, {24, 8}};
    if (pixel_bytes(f) == 2)
        fields = f & IMG_FMT_ALT ? std::vector<std::pair<int, int>>{{0, 5}, {5, 6}, {11, 5}}
                                 : std::vector<std::pair<int, int>>{{0, 5}, {5, 5}, {10, 5}};
    uint32_t result = pixel_bytes(f) == 2 && !(f & IMG_FMT_ALT) ? a & b & 0x8000 : 0;
    for (const auto &[shift, bits] : fields) {
        const uint32_t mask = (1u << bits) - 1;
        result |= ((a >> shift & mask) + (b >> shift & mask)) / 2 << shift;
    }
    return swap ? __builtin_bswap16(static_cast<uint16_t>(result)) : result;
}

Line mean(img_format f, const Line &a, const Line &b) {
    Line line(a.size());
    for (size_t i = 0; i < a.size(); i++) line[i] = mean(f, a[i], b[i]) | forced(f);
    return line;
}

uint32_t halvings(uint32_t from, uint32_t to) {
    uint32_t n = 0;
    if (from > to)
        for (uint32_t ratio = (from << 16) / to; ratio > 0x20000; ratio >>= 1) n++;
    return n;
}

Line scaled(img_format f, Line line, uint32_t width) {
    const bool one = line.size() == 1;
    auto src = static_cast<uint32_t>(line.size());
    for (uint32_t n = halvings(src, width); n; n--) { // what follows the halved line stays
        src /= 2;
        for (size_t i = 0; i < src; i++) line[i] = mean(f, line[2 * i], line[2 * i + 1]);
    }
    const bool grows = src < width;
    if (grows) std::reverse(line.begin(), line.end());
    const uint32_t edge = grows ? width / (2 * src) + 1 : 0;
    Line out;
    uint32_t p = 0, fraction = 0;
    for (uint32_t i = 0; i < width; i++) {
        uint32_t v = line[p];
        if (i < width - edge) {
            if (fraction >= width / 2 && !one) v = mean(f, v, line.at(p + 1));
            p += src / width;
            fraction += src % width;
            if (fraction >= width) fraction -= width, p++;
        }
        out.push_back(v | forced(f));
    }
    if (grows) std::reverse(out.begin(), out.end());
    return out;
}

img_format working(img_format d, img_format s) {
    const uint32_t db = img::bits_per_pixel(d), sb = img::bits_per_pixel(s);
    if (db != sb) return db > sb ? d : s;
    return db == 16 && (d & IMG_FMT_ALPHA) && !(s & IMG_FMT_ALPHA) ? s : d;
}

// The rows of the result in the order in which they are made, for a source given as rows in its own format.
std::vector<Bytes> model(const img_record &src, const img_record &dst, std::vector<Bytes> source, bool backward) {
    const img_format work = working(dst.format, src.format);
    img_dtransform_state *state;
    EXPECT_EQ(img_dtransform_create(&src, &dst, &state), IMG_ST_OK);
    const auto convert = [&](const Bytes &from, img_format to, uint32_t n) {
        Bytes out(n * pixel_bytes(to));
        img_dtransform_apply(state, from.data(), out.data(), n);
        return out;
    };
    std::vector<Line> rows;
    for (const Bytes &row : source)
        rows.push_back(unpack(work, (work == src.format ? row : convert(row, work, src.width)).data(), src.width));
    for (uint32_t n = halvings(src.height, dst.height); n; n--) {
        for (size_t i = 0; i < rows.size() / 2; i++) rows[i] = mean(work, rows[2 * i], rows[2 * i + 1]);
        rows.resize(rows.size() / 2);
    }
    const auto sh = static_cast<uint32_t>(rows.size()), dh = dst.height;
    if (backward) std::reverse(rows.begin(), rows.end());
    const uint32_t tail = sh < dh ? dh / (2 * sh) + 1 : 0;
    const bool converts = work != dst.format;
    std::vector<Bytes> result;
    Line current, other;
    Bytes output;
    int64_t in_current = -1, in_other = -1;
    uint32_t row = 0, fraction = 0;
    for (uint32_t i = 0; i < dh; i++) {
        bool fresh = false;
        if (row == in_other && row != in_current) {
            std::swap(current, other);
        } else if (row != in_current) {
            current = scaled(work, rows[row], dst.width);
            fresh = true;
        }
        in_current = row;
        const bool stepping = i < dh - tail;
        if (stepping && fraction >= dh / 2 && row + 1 < sh && row + 1 != in_other) {
            other = scaled(work, rows[row + 1], dst.width);
            current = mean(work, current, other);
            in_other = row + 1;
            fresh = true;
        }
        if (converts && fresh) output = convert(pack(work, current), dst.format, dst.width);
        result.push_back(converts ? output : pack(dst.format, current));
        if (!stepping) continue;
        row += sh / dh;
        fraction += sh % dh;
        if (fraction >= dh) fraction -= dh, row++;
    }
    img_dtransform_free(state);
    return result;
}

void compare_with_the_model(const char *variant) {
    std::mt19937 random{11};
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 4000; round++) {
        const uint32_t most = round % 20 ? 24 : 200;
        img_format from = scalable[pick(14)];
        const img_format to = scalable[pick(14)];
        if (pick(8) == 0) from = FMT_PAL8;
        if (pick(3) == 0 && from != FMT_PAL8) from = to;
        Image src{from, 1 + pick(most), 1 + pick(most), pick(2) != 0};
        Image dst{to, 1 + pick(most), 1 + pick(most), pick(2) != 0};
        if (dst.record.width == src.record.width && dst.record.height == src.record.height) continue;
        src.fill();
        src.give_palette(palette, 4);
        if (from == FMT_PAL8)
            for (uint8_t &b : src.pixels) b &= 3;
        dst.receives = true;
        const bool up = pick(2) != 0;
        ASSERT_EQ((up ? img_resize_fsbu : img_resize_fs)(&src.record, &dst.record), IMG_ST_OK);

        std::vector<Bytes> rows;
        for (uint32_t y = 0; y < src.record.height; y++)
            rows.emplace_back(&src.pixels[y * src.stride],
                              &src.pixels[y * src.stride] + img::run_bytes(from, src.record.width));
        const bool folded = halvings(src.record.height, dst.record.height) != 0;
        const bool both = (src.record.flags & dst.record.flags & IMG_F_DIRECT) && !folded;
        const bool backward = both && src.record.height * src.stride < dst.record.height * dst.stride;
        const auto want = model(src.record, dst.record, rows, backward);
        for (uint32_t i = 0; i < dst.record.height; i++) {
            const uint32_t y = backward != up ? dst.record.height - 1 - i : i;
            const uint8_t *at = &dst.pixels[y * dst.stride];
            ASSERT_EQ(Bytes(at, at + want[i].size()), want[i])
                << variant << " round " << round << std::hex << " " << from << " to " << to << std::dec << " "
                << src.record.width << "x" << src.record.height << " to " << dst.record.width << "x"
                << dst.record.height << " up " << up << " row " << y;
        }
    }
}

TEST(Resize, EqualsThePlainModel) { runs::for_each_variant(compare_with_the_model); }

// Lines that end, or begin, where memory does; apart and in place.
TEST(Resize, LinesAreScaledWithinTheirMemory) {
    const runs::Fenced from(4 * 600), beside(4 * 600), to(4 * 600);
    std::mt19937 random{5};
    runs::for_each_variant([&](const char *name) {
        for (uint32_t round = 0; round < 3000; round++) {
            const img_format f = scalable[round % 14];
            const auto pick = [&] { return static_cast<uint32_t>(1 + random() % (random() % 4 ? 60 : 600)); };
            const uint32_t sw = pick(), dw = random() % 3 ? pick() : std::min(600u, random() % 2 ? sw * 2 : sw / 2 + 1);
            const size_t in = sw * pixel_bytes(f), out = dw * pixel_bytes(f), both = std::max(in, out);
            Bytes line(in), room(in), second(in);
            for (uint8_t &byte : line) byte = static_cast<uint8_t>(random());
            for (uint8_t &byte : second) byte = static_cast<uint8_t>(random());
            const uint8_t *under = random() % 2 ? second.data() : nullptr;
            Line source = unpack(f, line.data(), sw);
            if (under) source = mean(f, source, unpack(f, under, sw));
            const Bytes want = pack(f, scaled(f, source, dw));
            img::img_scl_parms parms;
            ASSERT_EQ(img::img_scl_calc_parms(f, sw, dw, &parms), 0);
            std::vector<uint32_t> plan(img::plan_words(dw));
            if (parms.planner && round % 7 && parms.planner(parms, plan.data())) parms.plan = plan.data();
            const bool back = random() % 2;
            uint8_t *src = back ? from.before_end(in) : from.first(), *dst = back ? to.before_end(out) : to.first();
            memcpy(src, line.data(), in);
            uint8_t *below = !under ? nullptr : back ? beside.before_end(in) : beside.first();
            if (below) memcpy(below, under, in);
            parms.scaler(src, below, room.data(), dst, &parms);
            ASSERT_EQ(Bytes(dst, dst + out), want)
                << name << std::hex << " " << f << std::dec << " " << sw << " " << dw;
            uint8_t *shared = back ? to.before_end(both) : to.first();
            memcpy(shared, line.data(), in);
            parms.scaler(shared, below, shared, shared, &parms);
            ASSERT_EQ(Bytes(shared, shared + out), want)
                << name << std::hex << " " << f << std::dec << " " << sw << " " << dw << " in place";
        }
    });
}

TEST(Resize, OntoItsOwnBuffer) {
    for (const auto &[sw, sh, dw, dh] :
         {std::tuple{7u, 5u, 13u, 11u}, std::tuple{13u, 11u, 7u, 5u}, std::tuple{9u, 4u, 9u, 7u}}) {
        Image src{FMT_ARGB8888HE, sw, sh, false}, dst{FMT_ARGB8888HE, dw, dh, false};
        src.fill();
        ASSERT_EQ(img_resize_fs(&src.record, &dst.record), IMG_ST_OK);
        src.pixels.resize(std::max(src.pixels.size(), dst.pixels.size()));
        src.record.data = src.pixels.data();
        img_record onto = dst.record;
        onto.data = src.record.data;
        ASSERT_EQ(img_resize_fs(&src.record, &onto), IMG_ST_OK);
        for (uint32_t y = 0; y < dh; y++)
            EXPECT_EQ(memcmp(img::row_at(onto, y), img::row_at(dst.record, y), dw * 4), 0) << sw << " to " << dw;
    }
}

TEST(Resize, SizesAndStatuses) {
    struct Case {
        img_flags flags;
        uint32_t width, height;
        img_format format;
        std::tuple<img_status, uint32_t, uint32_t> result;
        uint32_t source_height = 20;
        img_flags source_storage = IMG_F_DIRECT;
    };
    for (const auto &[flags, width, height, format, result, source_height, storage] : {
             Case{0, 0, 0, 0, {IMG_ST_OK, 30, 20}},
             Case{IMG_F_WIDTH, 10, 99, 0, {IMG_ST_OK, 10, 6}},
             Case{IMG_F_HEIGHT, 99, 5, 0, {IMG_ST_OK, 7, 5}},
             Case{IMG_F_WIDTH, 1, 0, 0, {IMG_ST_OK, 1, 1}},
             Case{IMG_F_HEIGHT, 5, 0, 0, {IMG_ST_BADARG, 5, 0}},
             Case{IMG_F_WIDTH | IMG_F_FORMAT, 10, 0, FMT_PAL8, {IMG_ST_BADFMT, 10, 0}},
             Case{IMG_F_WIDTH | IMG_F_FORMAT, 10, 0, FMT_A8, {IMG_ST_BADFMT, 10, 6}},
             Case{IMG_F_WIDTH | IMG_F_FORMAT, 10, 0, FMT_XBGR8888HE, {IMG_ST_BADFMT, 10, 6}},
             Case{IMG_F_WIDTH | IMG_F_FORMAT, 10, 0, FMT_ABGR8888OE, {IMG_ST_BADFMT, 10, 6}},
             Case{0, 0, 0, 0, {IMG_ST_BADARG, 0, 0}, 0},
             Case{IMG_F_WIDTH, 10, 0, 0, {IMG_ST_BADARG, 10, 6}, 20, 0},
         }) {
        Image src{FMT_RGB888, 30, 20, false};
        src.record.height = source_height;
        src.record.flags = (src.record.flags & ~img_flags{IMG_F_DIRECT}) | storage;
        img_record dst = a_record(flags, format, width, height);
        const img_status status = img_resize_fs(&src.record, &dst);
        EXPECT_EQ(std::tuple(status, dst.width, dst.height), result) << std::hex << format;
        if (dst.flags & IMG_F_DIRECT) free(dst.data);
    }
    img::img_scl_parms parms;
    EXPECT_EQ(img::img_scl_calc_parms(FMT_ABGR8888OE, 5, 5, &parms), -1);
    EXPECT_EQ(parms.dir, 1);
    EXPECT_EQ(img::img_scl_calc_parms(FMT_BGR888, 2, 10, &parms), 0);
    EXPECT_EQ(
        std::tuple(parms.dir, parms.src_start, parms.dst_start, parms.edge_count, parms.main_count, parms.int_step),
        std::tuple(-3, 3u, 27u, 3u, 7u, 0));
}

// Twice the smaller side does not fit in 32 bits.
TEST(Resize, SidesBeyondTwoBillion) {
    img::img_scl_parms parms;
    ASSERT_EQ(img::img_scl_calc_parms(FMT_RGB888, 0x80000000, 0x80000001, &parms), 0);
    EXPECT_EQ(std::tuple(parms.edge_count, parms.main_count), std::tuple(1u, 0x80000000u));
    EXPECT_EQ(std::tuple(parms.src_start, parms.dst_start), std::tuple(0x17ffffffdu, 0x180000000u));

    static uint32_t rows;
    rows = 0;
    const auto pass = [](void *, uint32_t, uint32_t, uint32_t, void *) -> int {
        img_resize_set_abort(++rows == 9);
        return 0;
    };
    img_record src = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_ACCESS, FMT_G8, 1, 0x80000000);
    src.access = pass;
    img_record dst = src;
    dst.height++;
    EXPECT_EQ(img_resize_fs(&src, &dst), IMG_ST_NOMEM) << "stopped on the way";
    EXPECT_EQ(rows, 9u);
}

TEST(Resize, AbortEndsARunAndFailuresReleaseEverything) {
    static uint32_t rows;
    rows = 0;
    Image src{FMT_RGB888, 20, 20, true};
    src.record.access = [](void *, uint32_t, uint32_t, uint32_t, void *) {
        if (++rows == 3) img_resize_set_abort(1);
        return 0;
    };
    img_record dst = a_record(IMG_F_WIDTH, 0, 30);
    {
        const memory::Watch watch;
        EXPECT_EQ(img_resize_fs(&src.record, &dst), IMG_ST_NOMEM);
        EXPECT_EQ(watch.live(), 0u);
    }
    EXPECT_LE(rows, 4u);
    EXPECT_FALSE(dst.flags & IMG_F_DIRECT);
    for (const uint32_t width : {30u, 3u}) { // the next ones start without the request
        const size_t count = memory::for_each_failure([&](size_t, const memory::Watch &watch) {
            dst = a_record(IMG_F_WIDTH | IMG_F_FORMAT, FMT_RGB565HE, width);
            const img_status status = img_resize_fs(&src.record, &dst);
            EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK);
            if (!status) free(dst.data);
            EXPECT_EQ(watch.live(), 0u);
        });
        EXPECT_EQ(count, width == 30 ? 3u : 4u) << "transform, image, lines, and lines to fold";
    }
}

TEST(Average, LinesOfAnyAlignmentAndDestination) {
    Bytes a(700), b(700);
    for (size_t i = 0; i < 700; i++) {
        a[i] = static_cast<uint8_t>(i * 7);
        b[i] = static_cast<uint8_t>(i * 13 + 5);
    }
    runs::for_each_variant([&](const char *) {
        for (const img_format f : scalable)
            for (uint32_t n = 0; n <= 150; n += n < 40 ? 1 : 37)
                for (uint32_t at = 0; at < 4; at++) {
                    const Bytes mixed = pack(f, mean(f, unpack(f, &a[at], n), unpack(f, &b[at], n)));
                    Bytes want = a, line = a;
                    std::copy(mixed.begin(), mixed.end(), &want[at]);
                    img_avg_getfunc(f)(&a[at], &b[at], &line[at], n);
                    ASSERT_EQ(line, want) << std::hex << f << " " << n;
                    line = a;
                    img_avg_getfunc(f)(&line[at], &b[at], &line[at], n);
                    ASSERT_EQ(line, want) << std::hex << f << " " << n << " in place";
                }
    });
    for (const img_format f : {FMT_PAL8, FMT_A8, FMT_XBGR8888HE, FMT_XBGR8888OE, FMT_ABGR8888OE})
        EXPECT_EQ(img_avg_getfunc(f), nullptr);
}

} // namespace
