// SPDX-License-Identifier: MIT
//
// The PNG module: what chunks of a file mean.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

// The file with another content of one chunk.
std::string with_chunk(std::string bytes, const std::string &name, const std::string &content) {
    const size_t at = bytes.find(name) - 4;
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
    const size_t old = size_t{byte(2)} << 8 | byte(3);
    const std::string chunk = big_endian(static_cast<uint32_t>(content.size())) + name + content;
    return bytes.replace(at, old + 12, chunk + big_endian(crc(name + content)));
}

class Png : public Fixture {};

TEST_F(Png, WhatIsRefusedAndHow) {
    const std::string dot = picture("dot.png"), indexed = picture("palette-key.png");
    const auto sized = [&](uint32_t width, uint32_t height) {
        return with_chunk(dot, "IHDR", big_endian(width) + big_endian(height) + std::string("\x08\x02\0\0\0", 5));
    };
    const struct {
        std::string bytes;
        img_status status;
    } cases[] = {
        {sized(1'000'001, 1), 10}, {sized(1, 1'000'001), 10},
        {sized(16385, 16384), 10}, {sized(0x7fffffff, 0x7fffffff), 10},
        {sized(0, 1), 4},          {with_chunk(indexed, "PLTE", "abcdef"), 4}, // pixels have indices beyond it
    };
    for (const auto &[bytes, status] : cases) {
        img_record record{};
        EXPECT_EQ(load(bytes, record), status);
        EXPECT_FALSE(record.flags & IMG_F_DIRECT);
    }
}

} // namespace
