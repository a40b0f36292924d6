// SPDX-License-Identifier: MIT
//
// What is special to JPEG: sizes while decoding, inks, metadata, ends that come too early. WebP decodes at other sizes, too.
#include "tests/module_fixture.h"

#include <chrono>

using namespace modules;

namespace {

struct Wish {
    uint32_t wanted_width, wanted_height, width, height;
};

class ModuleJpeg : public Fixture {
protected:
    std::string smooth(const char *extension, uint32_t width, uint32_t height) {
        return written(module(extension), Image(FMT_RGB888, width, height, 0, 0, true));
    }
    void expect_sizes(const std::string &bytes, std::initializer_list<Wish> wishes) {
        for (const Wish &wish : wishes) {
            Loaded loaded;
            loaded.record.flags = IMG_F_SIZE_HINT;
            loaded.record.width = wish.wanted_width;
            loaded.record.height = wish.wanted_height;
            ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK);
            EXPECT_EQ(loaded.record.width, wish.width) << wish.wanted_width << ' ' << wish.wanted_height;
            EXPECT_EQ(loaded.record.height, wish.height) << wish.wanted_width << ' ' << wish.wanted_height;
        }
    }
};

// JPEG in eighths, WebP as it is wanted.
TEST_F(ModuleJpeg, TheSmallestSizeThatIsEnough) {
    expect_sizes(smooth("jpg", 83, 45), {{0, 0, 83, 45},
                                         {1, 1, 11, 6},
                                         {11, 0, 11, 6},
                                         {12, 0, 21, 12},
                                         {0, 6, 11, 6},
                                         {0, 7, 21, 12},
                                         {11, 7, 21, 12},
                                         {42, 23, 42, 23},
                                         {43, 1, 52, 29},
                                         {83, 45, 83, 45},
                                         {999, 1, 83, 45}});
    expect_sizes(smooth("webp", 83, 45),
                 {{0, 0, 83, 45}, {20, 20, 20, 20}, {20, 0, 20, 11}, {0, 20, 37, 20}, {99, 99, 83, 45}});
}

std::string segment(char marker, const std::string &content) {
    const size_t size = content.size() + 2;
    return std::string{'\xff', marker, static_cast<char>(size >> 8), static_cast<char>(size)} + content;
}

// A frame of 8-bit components without subsampling, each with the quantisation of all ones, which comes before it.
std::string frame(char kind, uint32_t width, uint32_t height, char components) {
    const auto half = [](uint32_t value) {
        return std::string{static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    std::string content = "\x08" + half(height) + half(width) + components;
    for (char i = 1; i <= components; i++) content += {i, 0x11, 0};
    return "\xff\xd8" + segment('\xdb', std::string(1, '\0') + std::string(64, '\1')) + segment(kind, content);
}

// A table with one code, of one bit.
std::string codes(char table, char symbol) { return segment('\xc4', table + ("\1" + std::string(15, '\0')) + symbol); }

// One block of 8 x 8 pixels, all of them 0 in each of four channels of ink, which is black with and without Adobe's marker.
TEST_F(ModuleJpeg, InksAreHowLittleThereIs) {
    const std::string scan = segment('\xda', std::string("\x04\x01\0\x02\0\x03\0\x04\0\0\x3f\0", 12));
    // Each block: the code 0, then -1024 in 11 bits, then the end of the block, 0. A zero follows each byte 0xff.
    const std::string pixels = std::string("\x3f\xf1\xff\0\x8f\xfc\x7f\xef", 8);
    const std::string picture = frame('\xc0', 8, 8, 4) + codes(0, 11) + codes(0x10, 0) + scan + pixels + "\xff\xd9";
    const std::string adobe = segment('\xee', std::string("Adobe\0\x64\0\0\0\0\0", 12));
    for (const std::string &marker : {adobe, std::string()}) {
        Loaded loaded;
        ASSERT_EQ(load("\xff\xd8" + marker + picture.substr(2), loaded.record), IMG_ST_OK);
        EXPECT_EQ(look(loaded.record)[0], 0xff000000);
    }
}

// A progressive grey picture. Its first scan finds one code for DC and then no more bytes, the others refine what is not
// there: large pictures out of few bytes.
std::string progressive(uint32_t width, uint32_t height, int scans) {
    const auto scan = [](int first, int bits) {
        const char last = static_cast<char>(first ? 63 : 0);
        return segment('\xda', std::string{1, 1, 0, static_cast<char>(first), last, static_cast<char>(bits)});
    };
    std::string bytes = frame('\xc2', width, height, 1) + codes(0, 0) + codes(0x10, '\xf0') + scan(0, 0);
    for (int i = 1; i < scans; i++) bytes += scan(1, 0);
    return bytes + "\xff\xd9";
}

// What a picture costs is tested before it is paid: memory before it is taken, work before each scan.
TEST_F(ModuleJpeg, LargePicturesOutOfFewBytes) {
    const struct {
        uint32_t side;
        int scans;
        uint64_t memory;
        const char *limit;
    } cases[] = {
        {4096, 1, 64 << 20, ""},
        {4096, 1, (32 << 20) - 1, "memory 33554432 33554431"},
        {64, 501, 0, "scans 501 500"},
        {8192, 400, 0, "blocks in all scans 135266304 134217728"}, // the 129th of 1 MiB each
    };
    for (const auto &[side, scans, memory, limit] : cases) {
        const std::string bytes = progressive(side, side, scans);
        Loaded loaded;
        Values values;
        values.max_memory = memory;
        EXPECT_EQ(load(bytes, loaded.record, &values.callouts), *limit ? 10u : 0u) << side << ' ' << scans;
        EXPECT_EQ(values.limit, limit);
    }
}

// While scans are read, which gives no rows, callers are asked again and again, and can stop.
TEST_F(ModuleJpeg, ScansCanBeStopped) {
    const std::string bytes = progressive(8192, 8192, 250);
    for (const int stop_at : {1, 3}) {
        struct Calls {
            int left;
            std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
            std::chrono::steady_clock::duration longest{};
        } calls{stop_at};
        img_decode_callouts callouts{};
        callouts.data = &calls;
        callouts.scanline = [](void *data, img_record *, uintptr_t rows, uintptr_t, uintptr_t, uintptr_t) {
            Calls &own = *static_cast<Calls *>(data);
            const auto now = std::chrono::steady_clock::now();
            own.longest = std::max(own.longest, now - own.last);
            own.last = now;
            EXPECT_EQ(rows, 0u);
            return img_status{--own.left ? 0u : 77u};
        };
        Loaded loaded;
        EXPECT_EQ(load(bytes, loaded.record, &callouts), 77u);
        EXPECT_LT(calls.longest, std::chrono::milliseconds(500)) << "100, and more where much else runs";
    }
}

TEST_F(ModuleJpeg, EndsThatComeTooEarly) {
    const std::string bytes = smooth("jpg", 64, 64);
    Loaded whole, open;
    EXPECT_EQ(load(bytes, whole.record), IMG_ST_OK);
    EXPECT_EQ(load(bytes.substr(0, bytes.size() - 2), open.record), IMG_ST_OK) << "only the end marker is missing";
    EXPECT_EQ(look(whole.record), look(open.record));
    img_record record{};
    EXPECT_EQ(load("\xff\xd8\xff\xd9", record), 4u);
    std::string deep = bytes;
    deep[deep.find("\xff\xc0") + 4] = 12;
    EXPECT_EQ(load(deep, record), 5u);
}

} // namespace
