// SPDX-License-Identifier: MIT
//
// QOI byte by byte: every kind of tag both ways, and what may follow a picture.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

std::string header(uint32_t width, uint32_t height, int channels) {
    return "qoif" + big_endian(width) + big_endian(height) + static_cast<char>(channels) + '\0';
}
const std::string end("\0\0\0\0\0\0\0\1", 8);

class ModuleQoi : public Fixture {};

// Black as at the start, white by a difference that wraps, a luma, a repetition across rows, the full forms, an index.
const uint32_t colors[] = {0xff000000, 0xffffffff, 0xff0d1313, 0xff0d1313, 0xff0d1313,
                           0xff808080, 0x40102030, 0x40102031, 0xffffffff};
const std::string tags("\xc0\x55\xb4\x28\xc1\xfe\x80\x80\x80\xff\x10\x20\x30\x40\x6b\x26", 16);

TEST_F(ModuleQoi, EveryTagBothWays) {
    const std::string bytes = header(3, 3, 4) + tags + end;
    Loaded loaded(FMT_ARGB8888HE);
    ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK);
    EXPECT_EQ(look(loaded.record), std::vector<uint32_t>(std::begin(colors), std::end(colors)));
    std::string again;
    ASSERT_EQ(write(module("qoi"), loaded.record, again), IMG_ST_OK);
    EXPECT_EQ(again, bytes);

    Image black(FMT_RGB888, 63, 1);
    std::fill(black.pixels.begin(), black.pixels.end(), 0);
    ASSERT_EQ(write(module("qoi"), black.record, again), IMG_ST_OK);
    EXPECT_EQ(again, header(63, 1, 3) + "\xfd\xc0" + end) << "the longest run";
}

TEST_F(ModuleQoi, NothingIsTakenBehindThePicture) {
    const std::string one = header(3, 3, 4) + tags + end, two = header(200, 2, 3) + std::string(7, '\xfd') + end;
    FakeBackend source{.data = two + one + "rest"};
    const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
    for (const uint32_t width : {200u, 3u}) {
        Loaded loaded;
        ASSERT_EQ(img_load(library, stream.get(), nullptr, &loaded.record), IMG_ST_OK);
        EXPECT_EQ(loaded.record.width, width);
    }
    char rest[8] = {};
    EXPECT_EQ(stream->read(stream->self, rest, 4), 4u);
    EXPECT_STREQ(rest, "rest");

    img_record record{};
    EXPECT_EQ(load(header(3, 3, 4) + tags + std::string(8, '\0'), record), 4u) << "another end marker";
    EXPECT_EQ(load(header(3, 3, 5) + tags + end, record), 1u);
}

} // namespace
