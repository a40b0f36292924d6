// SPDX-License-Identifier: MIT
//
// TIFF: samples of every kind, pages, values and options.
#include "pictra/values.h"
#include "tests/module_fixture.h"

using namespace modules;
using namespace std::string_literals;

namespace {

using Words = std::vector<uint32_t>;

// One directory entry: a tag, its type, and values.
struct Entry {
    uint16_t tag, type;
    Words values;
};

// A file of one page, its directory before its data, in either byte order.
class Tiff {
public:
    explicit Tiff(bool big) : big_(big) {}

    std::string make(std::vector<Entry> entries, const std::string &pixels) const {
        entries.push_back({279, 4, {static_cast<uint32_t>(pixels.size())}});
        entries.push_back({273, 4, {0}});
        std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.tag < b.tag; });
        const auto directory = static_cast<uint32_t>(8 + 2 + entries.size() * 12 + 4);
        std::string fields, beyond;
        uint32_t data = directory;
        for (const Entry &e : entries) data += size(e) > 4 ? size(e) : 0;
        for (const Entry &e : entries) {
            std::string value;
            for (const uint32_t v : e.tag == 273 ? Words{data} : e.values) value += number(v, unit(e));
            fields += number(e.tag, 2) + number(e.type, 2) +
                      number(static_cast<uint32_t>(e.values.size()) / (e.type == 5 ? 2 : 1), 4);
            fields += value.size() > 4 ? number(directory + static_cast<uint32_t>(beyond.size()), 4)
                                       : (value + "\0\0\0"s).substr(0, 4);
            if (value.size() > 4) beyond += value;
        }
        return (big_ ? "MM" : "II") + number(42, 2) + number(8, 4) + number(static_cast<uint32_t>(entries.size()), 2) +
               fields + number(0, 4) + beyond + pixels;
    }

    std::string number(uint32_t value, uint32_t bytes) const {
        std::string out;
        for (uint32_t i = 0; i < bytes; i++) out += static_cast<char>(value >> 8 * (big_ ? bytes - 1 - i : i));
        return out;
    }

private:
    static uint32_t unit(const Entry &e) { return e.type == 3 ? 2 : e.type == 4 || e.type == 5 ? 4 : 1; }
    static uint32_t size(const Entry &e) { return static_cast<uint32_t>(e.values.size()) * unit(e); }
    bool big_;
};

// The entries of a page of 2 by 2 pixels in one strip.
std::vector<Entry> page(uint32_t bits, uint32_t samples, uint32_t photometric, std::vector<Entry> more = {}) {
    std::vector<Entry> entries = {{256, 3, {2}},           {257, 3, {2}},       {258, 3, Words(samples, bits)},
                                  {262, 3, {photometric}}, {277, 3, {samples}}, {278, 3, {2}}};
    entries.insert(entries.end(), more.begin(), more.end());
    return entries;
}

class ModuleTiff : public Fixture {
protected:
    ModuleTiff() { EXPECT_EQ(img_codec_list_byext(library, "a.tif", &tiff, 1), 1u); }

    // Reads one picture and logs what was reported; page is the answer to the option.
    img_status read(const std::string &file, img_record &record, int32_t page = 0) {
        FakeBackend source{.data = file, .most = 1000};
        img_decode_callouts callouts{};
        first = page;
        callouts.data = this;
        callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
            auto &self = *static_cast<ModuleTiff *>(data);
            const auto *text = reinterpret_cast<const char *>(value);
            if (key == IMG_VALUE_OPTION) {
                auto &option = *reinterpret_cast<img_option *>(value);
                if (option.name == "page"s) option.value = self.first;
            }
            if (key == IMG_VALUE_ICC) self.values += "icc " + std::string(text, size) + ", ";
            if (key == IMG_VALUE_XMP) self.values += "xmp " + std::string(text, size) + ", ";
            if (key == IMG_VALUE_TEXT)
                self.values += text + "="s + std::string(text + strlen(text) + 1, text + size) + ", ";
            if (key == IMG_VALUE_ORIENTATION || key == IMG_VALUE_FRAMES || key == IMG_VALUE_DEPTH)
                self.values += std::to_string(key) + ":" + std::to_string(*reinterpret_cast<uint32_t *>(value)) + ", ";
            if (key == IMG_VALUE_RESOLUTION)
                self.values += std::to_string(reinterpret_cast<img_resolution *>(value)->x) + ", ";
            return img_status{};
        };
        return load(source, record, &callouts);
    }

    img_codec *tiff = nullptr;
    int32_t first = 0;
    std::string values;
};

TEST_F(ModuleTiff, SamplesOfEveryKind) {
    const Entry planes = {284, 3, {2}};
    for (const bool big : {false, true}) {
        const Tiff file(big);
        const auto wide = [&](std::initializer_list<uint32_t> samples) {
            std::string out;
            for (const uint32_t sample : samples) out += file.number(sample, 2);
            return out;
        };
        // Colours of 16 bits, and of 8 in the same place.
        const Words map16 = {0x1234, 0, 0, 0xff00, 0, 0, 0, 0xff00, 0, 0, 0, 0xff00};
        const Words map8 = {0x12, 0, 0, 0xff, 0, 0, 0, 0xff, 0, 0, 0, 0xff};
        const Words of_map = {0xff120000, 0xff000000, 0xff000000, 0xffffffff};
        Words map256(768);
        for (uint32_t i = 0; i < 768; i++) map256[i] = i % 256 * 0x101;
        const img_format argb = little_endian(FMT_ARGB8888HE);
        const struct {
            std::vector<Entry> entries;
            std::string pixels;
            img_format format;
            Words want;
        } cases[] = {
            {page(1, 1, 0), "\x80\x40", FMT_PAL1, {0xff000000, ~0u, ~0u, 0xff000000}},
            {page(1, 1, 1), "\x80\x40", FMT_PAL1, {~0u, 0xff000000, 0xff000000, ~0u}},
            {page(2, 1, 1), "\x10\xe0", FMT_G8, {0xff000000, 0xff555555, ~0u, 0xffaaaaaa}},
            {page(4, 1, 0), "\x0f\x12", FMT_G8, {~0u, 0xff000000, 0xffeeeeee, 0xffdddddd}},
            {page(16, 1, 1), wide({0x12ff, 0xffff, 0, 0x80}), FMT_G8, {0xff121212, ~0u, 0xff000000, 0xff000000}},
            {page(2, 1, 3, {{320, 3, map16}}), "\x10\xb0", FMT_PAL8, of_map},
            {page(2, 1, 3, {{320, 3, map8}}), "\x10\xb0", FMT_PAL8, of_map},
            {page(8, 3, 2), "abcdefghijkl", FMT_RGB888, {0xff616263, 0xff646566, 0xff676869, 0xff6a6b6c}},
            {page(8, 3, 2, {planes}), "", FMT_RGB888, {0xff616263, 0xff646566, 0xff676869, 0xff6a6b6c}},
            {page(8, 4, 2, {{338, 3, {2}}}),
             "abc\x80"
             "abc\0abc\xff"
             "abc\1"s,
             little_endian(FMT_ARGB8888HE),
             {0x80616263, 0x616263, 0xff616263, 0x1616263}},
            {page(8, 4, 2, {{338, 3, {1}}}),
             "\x40\x80\x20\x80"
             "\1\2\3\0\1\2\3\xff\x01\0\0\1"s,
             little_endian(FMT_ARGB8888HE),
             {0x8080ff40, 0, 0xff010203, 0x1ff0000}},
            // The fourth sample is alpha even if the file does not say so, a fifth is not.
            {page(8, 4, 2, {{338, 3, {0}}}), "abcxabcxabcxabcx", argb, Words(4, 0x78616263)},
            {page(8, 4, 2), "abcxabcxabcxabcx", argb, Words(4, 0x78616263)},
            {page(8, 5, 2, {{338, 3, {0, 0}}}), "abcxyabcxyabcxyabcxy", FMT_RGB888, Words(4, 0xff616263)},
            // A palette with alpha beside the index, and with something else.
            {page(8, 2, 3, {{320, 3, map256}, {338, 3, {2}}}),
             "a\x80"
             "b\xff"
             "c\xff"
             "d\1",
             argb,
             {0x80616161, 0xff626262, 0xff636363, 0x1646464}},
            {page(8, 2, 3, {{320, 3, map256}}), "axbxcxdx", FMT_PAL8, {0xff616161, 0xff626262, 0xff636363, 0xff646464}},
            // With a sign: the lowest level is black.
            {page(8, 1, 1, {{339, 3, {2}}}), "\x80\0\x7f\xff"s, FMT_G8, {0xff000000, 0xff808080, ~0u, 0xff7f7f7f}},
            {page(16, 1, 1, {{339, 3, {2}}}),
             wide({0x8000, 0, 0x7fff, 0xffff}),
             FMT_G8,
             {0xff000000, 0xff808080, ~0u, 0xff7f7f7f}},
            {page(8, 2, 1, {{338, 3, {2}}}),
             "a\x80"
             "b\xff"
             "c\xff"
             "d\xff",
             little_endian(FMT_ARGB8888HE),
             {0x80616161, 0xff626262, 0xff636363, 0xff646464}},
            {page(8, 4, 5),
             "\0\0\0\0\xff\0\0\0\0\xff\0\x80\0\0\0\xff"s,
             FMT_RGB888,
             {~0u, 0xff00ffff, 0xff7f007f, 0xff000000}},
        };
        for (const auto &c : cases) {

            std::string bytes = file.make(c.entries, c.pixels);
            if (c.pixels.empty()) { // three planes, each a strip of its own behind the other
                bytes = file.make(c.entries, "adgjbehkcfil");
                const size_t at = bytes.size() - 12;
                const auto at_end = static_cast<uint32_t>(bytes.size());
                const size_t strips = bytes.find(file.number(273, 2) + file.number(4, 2));
                const size_t counts = bytes.find(file.number(279, 2) + file.number(4, 2));
                bytes.replace(strips + 4, 8, file.number(3, 4) + file.number(at_end, 4));
                bytes.replace(counts + 4, 8, file.number(3, 4) + file.number(at_end + 12, 4));
                for (const uint32_t i : {0u, 4u, 8u}) bytes += file.number(static_cast<uint32_t>(at) + i, 4);
                for (int i = 0; i < 3; i++) bytes += file.number(4, 4);
            }
            Loaded loaded;
            ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK) << &c - cases;
            EXPECT_EQ(loaded.record.format, c.format) << &c - cases;
            Words got = look(loaded.record);
            for (size_t i = 0; i < 4; i++) // what is not seen has any colour
                EXPECT_EQ(got[i] >> 24 ? got[i] : 0, c.want[i] >> 24 ? c.want[i] : 0) << &c - cases << ' ' << i << big;
        }
    }
}

TEST_F(ModuleTiff, WhatIsRefusedAndRowsBeforeACut) {
    const Tiff file(false);
    const auto sized = [&](uint32_t width, uint32_t height, uint32_t bits) {
        std::vector<Entry> entries = page(bits, 1, 1);
        entries[0] = {256, 4, {width}};
        entries[1] = {257, 4, {height}};
        return file.make(entries, "abcd");
    };
    const std::pair<std::string, img_status> cases[] = {
        {sized(1'000'001, 1, 8), 10},
        {sized(16385, 16384, 8), 10},
        {sized(2, 2, 32), 5},
        {sized(2, 2, 12), 5},
        {file.make(page(16, 1, 1, {{339, 3, {3}}}), "abcdefgh"), 5}, // floating point
        {file.make(page(8, 1, 1, {{259, 3, {40000}}}), "abcd"), 5},  // a compression that nobody knows
        {file.make(page(4, 1, 3), "abcd"), 4},                       // no colour map
        {"II*"s + std::string("\0\xff\0\0\0", 5), 4},
    };
    for (const auto &[bytes, status] : cases) {
        img_record record{};
        EXPECT_EQ(load(bytes, record), status) << testing::PrintToString(bytes);
    }
    const std::string whole = file.make(page(8, 1, 1), "abcd");
    std::string rows;
    img_record record{};
    record.access = [](void *arg, uint32_t, uint32_t, uint32_t count, void *line) {
        static_cast<std::string *>(arg)->append(static_cast<char *>(line), count);
        return 0;
    };
    record.access_arg = &rows;
    record.format = FMT_G8;
    record.flags = IMG_F_FORMAT | IMG_F_ACCESS;
    EXPECT_EQ(load(whole.substr(0, whole.size() - 1), record), 4u);
    EXPECT_EQ(rows, "ab");
}

// What libtiff reports and goes on after is a warning, or a refusal where the caller is strict: fax rows that it made up,
// and a profile that is not there, of three gigabytes.
TEST_F(ModuleTiff, WhatLibtiffReportsIsSaid) {
    const Tiff file(false);
    const Entry fax = {259, 3, {4}};
    std::vector<Entry> profile = page(8, 1, 1);
    profile.push_back({34675, 7, Words(5, 'x')});
    std::string huge = file.make(profile, "abcd");
    huge.replace(huge.find(file.number(34675, 2)) + 4, 4, file.number(3u << 30, 4));
    const struct {
        std::string bytes;
        bool said;
    } cases[] = {
        {file.make(page(1, 1, 0, {fax}), "\xc0\x04\0\x40"s), false},        // two rows like the one above
        {file.make(page(1, 1, 0, {fax}), "\x30\x1b\xc0\x04\0\x40"s), true}, // three pixels in a row of two
        {huge, true},
        {file.make(page(8, 1, 1, {{40000, 3, {1}}}), "abcd"), false}, // a tag of others
    };
    for (const auto &[bytes, said] : cases)
        for (const bool strict : {false, true}) {
            Loaded loaded;
            Values told;
            told.strict = strict;
            EXPECT_EQ(load(bytes, loaded.record, &told.callouts), said && strict ? 4u : 0u) << &bytes - &cases[0].bytes;
            EXPECT_EQ(told.told[IMG_VALUE_WARNING].size(), said && !strict ? 1u : 0u) << testing::PrintToString(bytes);
        }
}

// Memory for rows is asked for once the page is set up, and no longer counts when the next page begins.
TEST_F(ModuleTiff, LimitsOfPages) {
    const Tiff file(false);
    const auto tiles = [&](uint32_t side) {
        return file.make(page(8, 1, 1, {{322, 4, {side}}, {323, 4, {side}}}), std::string(256, 'x'));
    };
    const struct {
        std::string bytes;
        uint64_t memory;
        std::string limit;
    } cases[] = {
        {tiles(16), 0, ""},
        {tiles(16), 70'000, ""},
        {tiles(1024), 1'000'000, "memory 2162696 1000000"}, // the file's 64 KiB, a tile, a row of tiles, a line
        {tiles(32768), 0, "tile 1073741824 268435456"},
    };
    for (const auto &[bytes, memory, limit] : cases) {
        Loaded loaded;
        Values told;
        told.max_memory = memory;
        EXPECT_EQ(load(bytes, loaded.record, &told.callouts), limit.empty() ? 0u : 10u) << limit;
        EXPECT_EQ(told.limit, limit);
    }
}

TEST_F(ModuleTiff, PagesValuesAndCompressions) {
    struct Answers {
        int32_t compression = 0;
    } answers;
    img_encode_callouts callouts{};
    callouts.data = &answers;
    callouts.scanline = [](void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value) {
        static constexpr char icc[] = "profile", xmp[] = "packet";
        if (key == IMG_VALUE_OPTION)
            reinterpret_cast<img_option *>(value)->value = static_cast<Answers *>(data)->compression;
        if (key == IMG_VALUE_ORIENTATION) *reinterpret_cast<uint32_t *>(value) = 6;
        if (key == IMG_VALUE_RESOLUTION) *reinterpret_cast<img_resolution *>(value) = {5000, 5000};
        if (key == IMG_VALUE_ICC) *reinterpret_cast<img_bytes *>(value) = {icc, 7};
        if (key == IMG_VALUE_XMP) *reinterpret_cast<img_bytes *>(value) = {xmp, 6};
        return img_status{};
    };
    Image pages[] = {{FMT_RGB888, 61, 47, 0, IMG_F_ANSWERS}, {FMT_PAL4, 9, 5, 7, IMG_F_ANSWERS}};
    for (answers.compression = 0; answers.compression < 4; answers.compression++) {
        FakeBackend sink;
        {
            const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
            void *state = nullptr;
            ASSERT_EQ(img_encode_begin(tiff, stream.get(), &state), 0u);
            for (Image &image : pages) {
                ASSERT_EQ(img_encode_frame(tiff, stream.get(), &callouts, &image.record, &state), 0u);
                EXPECT_EQ(sink.data.size(), 0u) << "the file goes out when it is finished";
            }
            ASSERT_EQ(img_encode_finish(tiff, stream.get(), &state), 0u);
        }
        for (const int32_t page : {0, 1}) {
            Loaded loaded;
            ASSERT_EQ(read(sink.data, loaded.record, page), IMG_ST_OK);
            EXPECT_EQ(look(loaded.record), look(pages[page].record)) << page << ' ' << answers.compression;
        }
        Loaded none;
        EXPECT_EQ(read(sink.data, none.record, 2), 1u);
    }
    EXPECT_EQ(values.substr(0, 45), "7:2, 10:8, 1:6, 5000.000000, icc profile, xmp") << values;
}

} // namespace
