// SPDX-License-Identifier: MIT
//
// The PNG module: what chunks of a file mean.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

std::string chunk(const std::string &name, const std::string &content) {
    return big_endian(static_cast<uint32_t>(content.size())) + name + content + big_endian(crc(name + content));
}

// The file with another content of one chunk.
std::string with_chunk(std::string bytes, const std::string &name, const std::string &content) {
    const size_t at = bytes.find(name) - 4;
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
    const size_t old = size_t{byte(2)} << 8 | byte(3);
    return bytes.replace(at, old + 12, chunk(name, content));
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

// What a reader was told, and answers to its question.
struct Values {
    std::map<uintptr_t, std::vector<std::string>> told{};
    bool strict = false;
    img_decode_callouts callouts{};
    Values() {
        callouts.data = this;
        callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
            Values &values = *static_cast<Values *>(data);
            if (key == IMG_VALUE_OPTION) reinterpret_cast<img_option *>(value)->value = values.strict;
            values.told[key].emplace_back(reinterpret_cast<const char *>(value), size);
            return img_status{IMG_ST_OK};
        };
    }
    Values(const Values &) = delete;
    Values &operator=(const Values &) = delete;
};
template <typename T> std::string bytes_of(T value) { return {reinterpret_cast<const char *>(&value), sizeof value}; }

const std::string exif("II*\0\x8\0\0\0\1\0\x12\1\3\0\1\0\0\0\6\0\0\0\0\0\0\0", 26);

TEST_F(Png, ValuesAreReported) {
    const std::string dot = picture("dot.png");
    const std::string early = chunk("pHYs", big_endian(2835) + big_endian(5670) + '\1') +
                              chunk("tEXt", std::string("Title\0caf\xe9", 10)) + // Latin-1
                              chunk("iTXt", std::string("Author\0\0\0de\0\0caf\xc3\xa9", 18)) +
                              chunk("iTXt", std::string("XML:com.adobe.xmp\0\0\0\0\0<x/>", 26));
    const std::string late = chunk("eXIf", exif) + chunk("tEXt", std::string("When\0late", 9));
    const size_t end = dot.size() - 12;
    const std::string full = dot.substr(0, 33) + early + dot.substr(33, end - 33) + late + dot.substr(end);
    Values values;
    Loaded loaded;
    ASSERT_EQ(load(full, loaded.record, &values.callouts), IMG_ST_OK);
    using Texts = std::vector<std::string>;
    const img_resolution resolution = {2835, 5670};
    EXPECT_EQ(values.told[IMG_VALUE_RESOLUTION], Texts{bytes_of(resolution)});
    EXPECT_EQ(values.told[IMG_VALUE_TEXT],
              (Texts{std::string("Title\0caf\xc3\xa9", 11), std::string("Author\0caf\xc3\xa9", 12),
                     std::string("When\0late", 9)}));
    EXPECT_EQ(values.told[IMG_VALUE_XMP], Texts{"<x/>"});
    EXPECT_EQ(values.told[IMG_VALUE_EXIF], Texts{exif});
    EXPECT_EQ(values.told[IMG_VALUE_ORIENTATION], Texts{bytes_of(6u)});
    EXPECT_EQ(values.told[IMG_VALUE_DEPTH], Texts{bytes_of(8u)});
    EXPECT_TRUE(values.told[IMG_VALUE_WARNING].empty());

    // What is damaged or a profile that is none is warned of, and refused if asked to; what is too large is warned of.
    std::string bad_sum = chunk("tEXt", "x");
    bad_sum.back() ^= 1;
    const std::string large = chunk("eXIf", "II*" + std::string(5 << 20, '\0'));
    for (const std::string &bad : {bad_sum, chunk("iCCP", "nothing"), large})
        for (const bool strict : {false, true}) {
            const std::string bytes = dot.substr(0, 33) + bad + dot.substr(33);
            Values heard;
            heard.strict = strict;
            Loaded heard_of, silent;
            const bool refused = strict && bad != large;
            EXPECT_EQ(load(bytes, silent.record), IMG_ST_OK);
            EXPECT_EQ(load(bytes, heard_of.record, &heard.callouts), refused ? 4u : 0u) << bad.substr(4, 4);
            EXPECT_EQ(heard.told[IMG_VALUE_WARNING].size(), refused ? 0u : 1u);
        }
}

TEST_F(Png, MetadataComesBack) {
    Image image(FMT_RGB888, 3, 3);
    image.record.flags |= IMG_F_ANSWERS;
    struct Answer {
        std::string xmp;
        bool with_exif;
    } answer{"<x/>", true};
    img_encode_callouts callouts{};
    callouts.data = &answer;
    callouts.scanline = [](void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t pointer) {
        const Answer &its = *static_cast<Answer *>(data);
        auto *bytes = reinterpret_cast<img_bytes *>(pointer);
        if (key == IMG_VALUE_XMP) *bytes = {its.xmp.data(), its.xmp.size()};
        if (key == IMG_VALUE_EXIF && its.with_exif) *bytes = {exif.data(), exif.size()};
        if (key == IMG_VALUE_ICC) *bytes = {"no profile", 10}; // and so left out
        if (key == IMG_VALUE_ORIENTATION) *reinterpret_cast<uint32_t *>(pointer) = 8;
        if (key == IMG_VALUE_RESOLUTION) *reinterpret_cast<img_resolution *>(pointer) = {3000.4, 2999.6};
        return img_status{IMG_ST_OK};
    };
    for (const bool with_exif : {true, false}) {
        answer.with_exif = with_exif;
        FakeBackend sink;
        const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
        img_codec *codec = module("png").codec;
        ASSERT_EQ(img_write(library, stream.get(), &callouts, &image.record, &codec), IMG_ST_OK);
        io_ostream_flush(stream->self);
        Values values;
        Loaded loaded;
        ASSERT_EQ(load(sink.data, loaded.record, &values.callouts), IMG_ST_OK);
        const img_resolution resolution = {3000, 3000};
        EXPECT_EQ(values.told[IMG_VALUE_RESOLUTION].at(0), bytes_of(resolution));
        EXPECT_EQ(values.told[IMG_VALUE_XMP].at(0), answer.xmp);
        EXPECT_EQ(values.told[IMG_VALUE_EXIF].at(0) == std::string(exif).replace(18, 1, "\x8"), with_exif);
        EXPECT_EQ(values.told[IMG_VALUE_ORIENTATION].at(0), bytes_of(8u));
        EXPECT_TRUE(values.told[IMG_VALUE_ICC].empty());
    }
}

// The passes that came before the cut show all of the picture.
TEST_F(Png, CutInterlacedPicturesAreHandedOver) {
    const std::string bytes = picture("interlaced.png");
    Rows whole(FMT_RGB888), part(FMT_RGB888);
    EXPECT_EQ(load(bytes, whole.record), IMG_ST_OK);
    EXPECT_EQ(load(bytes.substr(0, bytes.size() / 2), part.record), 4u);
    ASSERT_EQ(part.bytes.size(), whole.bytes.size());
    uint64_t off = 0, pixels = 0;
    for (const auto &[y, row] : whole.bytes)
        for (size_t i = 0; i < row.size(); i++, pixels++)
            off += static_cast<uint64_t>(abs(static_cast<uint8_t>(row[i]) - static_cast<uint8_t>(part.bytes[y][i])));
    EXPECT_LT(off, pixels * 16);
}

} // namespace
