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

TEST_F(Png, ValuesAreReported) {
    const std::string dot = picture("dot.png");
    const std::string early = chunk("pHYs", big_endian(3000) + big_endian(2000) + '\1') +
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
    EXPECT_EQ(values.told[IMG_VALUE_RESOLUTION], Texts{bytes_of(resolution)});
    EXPECT_EQ(values.told[IMG_VALUE_TEXT],
              (Texts{std::string("Title\0caf\xc3\xa9", 11), std::string("Author\0caf\xc3\xa9", 12),
                     std::string("When\0late", 9)}));
    EXPECT_EQ(values.told[IMG_VALUE_XMP], Texts{"<x/>"});
    EXPECT_EQ(values.told[IMG_VALUE_EXIF], Texts{exif});
    EXPECT_EQ(values.told[IMG_VALUE_ORIENTATION], Texts{bytes_of(orientation)});
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

// A profile that is none does not keep a picture from being written, but is not lost without a word.
TEST_F(Png, MetadataLeftOutIsWarnedOf) {
    img_codec *codec = nullptr;
    ASSERT_EQ(img_codec_list_byext(library, "a.png", &codec, 1), 1u);
    img_encode_callouts callouts{};
    std::string warning;
    callouts.data = &warning;
    callouts.scanline = [](void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value) {
        auto *bytes = reinterpret_cast<img_bytes *>(value);
        if (key == IMG_VALUE_ICC) *bytes = {"profile", 7};
        if (key == IMG_VALUE_WARNING)
            static_cast<std::string *>(data)->assign(static_cast<const char *>(bytes->data), bytes->size);
        return img_status{IMG_ST_OK};
    };
    Image image(FMT_G8, 3, 2, 0, IMG_F_ANSWERS);
    std::string bytes;
    EXPECT_EQ(write(codec, image.record, bytes, UINT32_MAX, UINT32_MAX, &callouts), IMG_ST_OK);
    EXPECT_EQ(bytes.find("iCCP"), std::string::npos);
    EXPECT_NE(warning.find("ICC"), std::string::npos) << warning;
}

// Of grey with fewer than 8 bits the transparent one is scaled as the pixels are.
TEST_F(Png, TransparentGreyIsScaled) {
    const std::string grey = picture("grey-2bit.png"), key = chunk("tRNS", std::string("\0\2", 2));
    Loaded without, with, alpha(FMT_ARGB8888HE);
    ASSERT_EQ(load(grey, without.record), IMG_ST_OK);
    ASSERT_EQ(load(grey.substr(0, 33) + key + grey.substr(33), with.record), IMG_ST_OK);
    ASSERT_EQ(load(grey.substr(0, 33) + key + grey.substr(33), alpha.record), IMG_ST_OK);
    EXPECT_EQ(with.record.format, img_format{FMT_G8});
    EXPECT_TRUE((with.record.flags & IMG_F_TRANSP) && with.record.transparency8 == 0xaa);
    std::vector<uint32_t> expected = look(without.record);
    EXPECT_GT(std::count(expected.begin(), expected.end(), 0xffaaaaaa), 0);
    std::replace(expected.begin(), expected.end(), 0xffaaaaaa, 0x00aaaaaau);
    EXPECT_EQ(look(with.record), expected);
    EXPECT_EQ(look(alpha.record), expected);
}

// Rows of an interlaced picture wait for the last pass, in memory that is asked for unless it is the caller's.
TEST_F(Png, InterlacedRowsAreAskedFor) {
    const std::string bytes = picture("interlaced.png");
    Loaded own;
    ASSERT_EQ(load(bytes, own.record), IMG_ST_OK);
    const uint64_t held = uint64_t{own.record.width} * own.record.height * 3;
    for (const uint64_t most : {held, held - 1}) {
        Values in_place, waiting;
        in_place.max_memory = waiting.max_memory = most;
        Loaded direct;
        Rows rows(FMT_RGB888);
        EXPECT_EQ(load(bytes, direct.record, &in_place.callouts), IMG_ST_OK);
        EXPECT_EQ(load(bytes, rows.record, &waiting.callouts), most == held ? 0u : 10u);
        EXPECT_EQ(waiting.limit, most == held ? "" : "memory " + std::to_string(held) + " " + std::to_string(most));
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
