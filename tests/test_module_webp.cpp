// SPDX-License-Identifier: MIT
//
// WebP: animations, metadata and damage, with lossless pictures of single colours that are made here bit by bit.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

std::string little(uint32_t value, int bytes) {
    const std::string big = big_endian(value);
    return {big.rbegin(), big.rbegin() + bytes};
}
std::string chunk(const std::string &name, const std::string &content) {
    return name + little(static_cast<uint32_t>(content.size()), 4) + content + std::string(content.size() % 2, '\0');
}
std::string riff(const std::string &chunks) { return chunk("RIFF", "WEBP" + chunks); }

// Five codes of one symbol each, which take no bits in the pixels.
std::string solid(uint32_t width, uint32_t height, uint32_t argb) {
    std::string out = "\x2f";
    uint32_t at = 0;
    const auto put = [&](uint32_t value, uint32_t count) {
        for (const uint32_t end = at + count; at < end; at++, value >>= 1) {
            out.resize(1 + at / 8 + 1);
            out.back() |= static_cast<char>((value & 1) << at % 8);
        }
    };
    put((width - 1) | (height - 1) << 14, 28);
    put(argb >> 24 != 0xff, 1 + 6); // and version, no transform, no cache, one group of codes
    for (const int shift : {8, 16, 0, 24}) put(5 | (argb >> shift & 0xff) << 3, 11); // simple, one symbol of eight bits
    put(1, 12);                                                                      // no distances
    return chunk("VP8L", out);
}

enum { animated = 2, has_alpha = 16, replace = 2, dispose = 1 };
std::string extended(char flags, uint32_t width, uint32_t height) {
    return chunk("VP8X", flags + std::string(3, '\0') + little(width - 1, 3) + little(height - 1, 3));
}
std::string frame(uint32_t x, uint32_t width, uint32_t height, uint32_t delay, char how, uint32_t argb) {
    return chunk("ANMF", little(x / 2, 3) + little(0, 3) + little(width - 1, 3) + little(height - 1, 3) +
                             little(delay, 3) + how + solid(width, height, argb));
}

constexpr uint32_t red = 0xffff0000, blue = 0xff0000ff, none = 0;
const std::string head = extended(animated | has_alpha, 4, 2) + chunk("ANIM", little(0, 4) + little(5, 2));
const std::string frames = frame(0, 2, 2, 100, replace | dispose, red) + chunk("junk", "x") +
                           frame(2, 2, 1, 70, 0, blue) + frame(2, 1, 2, 30, 0, none);

class ModuleWebp : public Fixture {};

// A file that is cut gives the frames before the cut, one that is not may be followed by another.
TEST_F(ModuleWebp, AnimationsAreComposed) {
    const std::string whole = riff(head + frames);
    img_codec *const webp = module("webp").codec;
    for (const bool cut : {false, true}) {
        FakeBackend source{.data = cut ? whole.substr(0, whole.size() - 3) : whole + riff(solid(4, 2, red))};
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        void *state = nullptr;
        ASSERT_EQ(img_decode_begin(webp, stream.get(), &state), 0u);
        const std::tuple<img_status, std::vector<uint32_t>, std::string> expected[] = {
            {0, {red, red, none, none, red, red, none, none}, bytes_of(cut ? 2u : 3u) + bytes_of(5u) + bytes_of(100u)},
            {0, {none, none, blue, blue, none, none, none, none}, bytes_of(70u)},
            {cut ? 4u : 0u, {none, none, blue, blue, none, none, none, none}, bytes_of(30u)},
            {cut ? 4u : 0u, std::vector<uint32_t>(8, red), ""}};
        for (const auto &[status, seen, told] : expected) {
            Loaded loaded(FMT_ARGB8888HE);
            Values values;
            ASSERT_EQ(img_decode_frame(webp, stream.get(), &values.callouts, &loaded.record, &state), status) << cut;
            if (status) continue;
            EXPECT_EQ(look(loaded.record), seen);
            std::string heard;
            for (const uint32_t key : {IMG_VALUE_FRAMES, IMG_VALUE_LOOPS, IMG_VALUE_DELAY})
                for (const std::string &value : values.told[key]) heard += value;
            EXPECT_EQ(heard, told);
        }
        img_decode_finish(webp, stream.get(), &state);
    }
}

// Canvases, and what libwebp keeps of a lossless picture, count before they are allocated, and after setup: who stops there
// learns what the picture is.
TEST_F(ModuleWebp, LimitsAreNamedAndMemoryCounts) {
    std::string many = head;
    for (int i = 0; i < 10'001; i++) many += frame(0, 1, 1, 1, 0, none);
    const std::string large = riff(extended(animated, 4000, 1000) + head.substr(18) + frames);
    const struct {
        std::string bytes;
        uint64_t memory;
        std::string limit;
    } cases[] = {
        {riff(many), 0, "frames 10001 10000"},
        {riff(extended(animated, 1 << 15, 1 << 14) + head.substr(18) + frames), 0, "pixels 536870912 268435456"},
        {"RIFF" + little(1u << 31, 4) + "WEBPVP8L", 0, "file size 2147483656 1073741824"},
        {large, 40'000'000, "memory 48000" + std::to_string(large.size()) + " 40000000"},
        {large, 60'000'000, ""},
        {riff(solid(2000, 1000, red)), 8'000'000, "memory 8000034 8000000"},
        {riff(solid(2000, 1000, red)), 8'000'034, ""},
    };
    for (const auto &[bytes, memory, limit] : cases) {
        Loaded loaded;
        Values told;
        told.max_memory = memory;
        EXPECT_EQ(load(bytes, loaded.record, &told.callouts), limit.empty() ? 0u : 10u) << limit;
        EXPECT_EQ(told.limit, limit);
    }
}

TEST_F(ModuleWebp, CutFramesAreRefused) {
    img_record record{};
    EXPECT_EQ(load(riff(head + frames.substr(0, frames.size() - 4)), record), 4u) << "the last frame is cut";
}

} // namespace
