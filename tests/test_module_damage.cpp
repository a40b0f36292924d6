// SPDX-License-Identifier: MIT
//
// The codec modules with streams that come in pieces, files that are damaged, and streams that take no more.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

uint32_t crc(const std::string &bytes) {
    uint32_t value = ~0u;
    for (const char byte : bytes) {
        value ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; bit++) value = value >> 1 ^ (value & 1 ? 0xedb88320 : 0);
    }
    return ~value;
}

// The file with another content of one chunk.
std::string with_chunk(std::string bytes, const std::string &name, const std::string &content) {
    const size_t at = bytes.find(name) - 4;
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
    const size_t old = size_t{byte(2)} << 8 | byte(3);
    const std::string chunk = big_endian(static_cast<uint32_t>(content.size())) + name + content;
    return bytes.replace(at, old + 12, chunk + big_endian(crc(name + content)));
}

// The file with right checksums for whatever its chunks now hold, so that damage gets past them.
std::string sealed(std::string bytes) {
    for (size_t at = 8; at + 12 <= bytes.size();) {
        const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
        const size_t length = size_t{byte(2)} << 8 | byte(3);
        if (byte(0) || byte(1) || at + 12 + length > bytes.size()) break;
        bytes.replace(at + 8 + length, 4, big_endian(crc(bytes.substr(at + 4, length + 4))));
        at += 12 + length;
    }
    return bytes;
}

class ModuleDamage : public Fixture {
protected:
    // Small files of every kind that a truncation or a changed byte can hurt.
    std::vector<std::string> small_files() {
        std::vector<std::string> files = {picture("palette-key.png"), picture("rgb-key.png")};
        for (img_codec *codec : {png, pnm})
            for (const img_format format : {FMT_PAL1, FMT_G8, FMT_RGB888, FMT_ARGB8888HE})
                files.push_back(written(codec, Image(format, 5, 3, format == FMT_PAL1 ? 2 : 0)));
        files.push_back("P7\nWIDTH 3\nHEIGHT 2\nDEPTH 2\nMAXVAL 999\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" +
                        std::string(24, '\1'));
        return files;
    }
};

TEST_F(ModuleDamage, ShortReadsAndSmallBuffers) {
    for (const char *name : {"photo.png", "interlaced.png", "palette-alpha.png", "bilevel.pbm", "text.pgm"}) {
        const std::string bytes = picture(name);
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        for (const uint32_t most : {1u, 2u, 3u, 5u, 7u, 100u})
            for (const uint32_t buffer : {0u, 1u, 7u, 8u, 2048u})
                for (const bool unreads : {false, true}) {
                    FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                    Loaded pieces;
                    ASSERT_EQ(load(source, pieces.record), IMG_ST_OK) << name << most << ' ' << buffer << unreads;
                    ASSERT_EQ(look(pieces.record), look(whole.record)) << name;
                }
    }
    // More than the buffer takes, also in writes that fill it exactly.
    for (const uint32_t width : {250u, 1u}) {
        Image image(FMT_G8, width, 70000 / width);
        for (img_codec *codec : {png, pnm}) {
            std::string whole, pieces;
            ASSERT_EQ(write(codec, image.record, whole), IMG_ST_OK);
            for (const uint32_t most : {1000u, 7777u}) {
                ASSERT_EQ(write(codec, image.record, pieces, most), IMG_ST_OK);
                EXPECT_EQ(pieces, whole);
            }
        }
    }
}

TEST_F(ModuleDamage, ValidationLeavesTheStreamWhereItWas) {
    img_codec *codecs[] = {png, pnm, png};
    const std::string dot = picture("dot.png");
    for (const std::string &bytes : {"0123456789ab" + dot, "0123456789ab" + std::string("P5"), std::string(300, 'x')})
        for (const uint32_t most : {1u, 3u, 40u, 64u, 1000u})
            for (const uint32_t buffer : {0u, 8u, 100u, 2048u})
                for (const bool unreads : {false, true})
                    for (const uint32_t consumed : {0u, 1u, 12u}) {
                        FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
                        char skipped[12];
                        for (uint32_t i = 0; i < consumed; i++) stream->read(stream->self, skipped + i, 1);
                        const bool ours = consumed == 12 && bytes.size() > 14 && bytes[0] == '0';
                        ASSERT_EQ(img_decode_validate(codecs, 3, stream.get(), nullptr), ours ? 0u : 1u);
                        std::string rest(bytes.size() + 10, '\0');
                        size_t length = 0;
                        while (uint32_t got = stream->read(stream->self, rest.data() + length, 9)) length += got;
                        rest.resize(length);
                        ASSERT_EQ(rest, bytes.substr(consumed)) << most << ' ' << buffer << ' ' << unreads << consumed;
                    }
}

TEST_F(ModuleDamage, CutFilesAreRefused) {
    for (const std::string &bytes : small_files())
        for (size_t length = 0; length < bytes.size(); length++) {
            img_record record{};
            ASSERT_NE(load(bytes.substr(0, length), record), IMG_ST_OK) << length << " of " << bytes.size();
            ASSERT_FALSE(record.flags & IMG_F_DIRECT);
        }
}

TEST_F(ModuleDamage, ChangedBytesDoNoHarm) {
    std::minstd_rand random(7);
    std::vector<std::string> files = small_files();
    files.push_back(picture("interlaced.png"));
    files.push_back(picture("text.pgm"));
    for (const std::string &bytes : files)
        for (int i = 0; i < 1000; i++) {
            std::string changed = bytes;
            for (int n = 0; n <= i % 3; n++) {
                // The headers matter most.
                const size_t range = random() % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 64);
                changed[random() % range] = static_cast<char>(random());
            }
            Loaded loaded(i % 2 ? img_format{FMT_ARGB8888HE} : img_format{FMT_RGB565HE});
            const img_status status = load(i % 4 < 2 ? changed : sealed(changed), loaded.record);
            ASSERT_EQ(status == IMG_ST_OK, (loaded.record.flags & IMG_F_DIRECT) != 0);
        }
}

TEST_F(ModuleDamage, WhatIsRefusedAndHow) {
    const std::string dot = picture("dot.png"), indexed = picture("palette-key.png");
    const auto sized = [&](uint32_t width, uint32_t height) {
        return with_chunk(dot, "IHDR", big_endian(width) + big_endian(height) + std::string("\x08\x02\0\0\0", 5));
    };
    const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
    const struct {
        std::string bytes;
        img_status status;
    } cases[] = {
        {sized(1'000'001, 1), 10},
        {sized(1, 1'000'001), 10},
        {sized(16385, 16384), 10},
        {sized(0x7fffffff, 0x7fffffff), 10},
        {sized(0, 1), 4},
        {with_chunk(indexed, "PLTE", "abcdef"), 4}, // pixels have indices beyond it
        {"P5 1000001 1 255\n", 10},
        {"P6\n16385 16384\n255\n", 10},
        {"P4 99999999999 1\n", 10},
        {"P5 0 1 255\n", 4},
        {"P5 1 1 0\na", 4},
        {"P5 1 1 65536\naa", 4},
        {"P5 1 1 100\n\x65", 4}, // a sample above the highest
        {"P2 1 1 15\n16\n", 4},
        {"P2 1 1 15\nx\n", 4},
        {"P1 2 1\n12\n", 4},
        {"P7 332\n80 60 255\n", 1},
        {pam + "DEPTH 1\nMAXVAL 255\nTUPLTYPE CMYK\nENDHDR\na", 5},
        {pam + "DEPTH 5\nMAXVAL 255\nENDHDR\nabcde", 5},
        {pam + "DEPTH 3\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\nabc", 4},
        {pam + "DEPTH 1\nMAXVAL 255\n", 4},
        {"GIF89a", 1},
        {"", 1},
    };
    for (const auto &[bytes, status] : cases) {
        img_record record{};
        EXPECT_EQ(load(bytes, record), status) << bytes.substr(0, 40);
        EXPECT_FALSE(record.flags & IMG_F_DIRECT);
    }
    Image image(FMT_PAL8, 3, 3, 4);
    std::string bytes;
    image.pixels[1] = 4;
    EXPECT_EQ(write(png, image.record, bytes), IMG_ST_BADARG) << "an index without an entry";
    image.record.flags &= ~img_flags{IMG_F_PALETTE};
    for (img_codec *codec : {png, pnm}) EXPECT_EQ(write(codec, image.record, bytes), IMG_ST_BADARG);
}

TEST_F(ModuleDamage, FailingWritesAreReported) {
    Image image(FMT_RGB888, 40, 30);
    for (img_codec *codec : {png, pnm}) {
        std::string whole, part;
        ASSERT_EQ(write(codec, image.record, whole), IMG_ST_OK);
        for (uint32_t limit = 0; limit < whole.size(); limit += 13)
            ASSERT_EQ(write(codec, image.record, part, UINT32_MAX, limit), IMG_ST_FILE) << limit;
    }
}

} // namespace
