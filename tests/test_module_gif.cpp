// SPDX-License-Identifier: MIT
//
// GIF: the canvas that pictures are drawn on, what stands between them, and files of several pictures.
#include "pictra/values.h"
#include "tests/module_fixture.h"

using namespace modules;

namespace {

constexpr uint32_t clear = 0, red = 0xffff0000, green = 0xff00ff00, blue = 0xff0000ff, white = 0xffffffff;
using Pixels = std::vector<uint32_t>;

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (const int value : values) out += static_cast<char>(value);
    return out;
}

// A canvas of 3 by 2 whose colours are white, red, green and blue.
const std::string start = "GIF89a" + bytes({3, 0, 2, 0, 0x81, 0, 0, 255, 255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 255});
const std::string loops = "!\xff\x0bNETSCAPE2.0" + bytes({3, 1, 2, 0, 0});

std::string in_blocks(const std::string &data, size_t most) {
    std::string blocks;
    for (size_t at = 0; at < data.size(); at += most) {
        const std::string block = data.substr(at, most);
        blocks += static_cast<char>(block.size()) + block;
    }
    return blocks + '\0';
}

// Each index as a code of its own. Cleared: before each code, so that codes stay at one bit more than an index has. Else they
// grow by one bit whenever the reader's table of strings has doubled, up to 12.
std::string coded(const std::string &indices, uint32_t index_bits = 2, bool cleared = true) {
    std::string data;
    uint32_t bits = 0, count = 0, strings = (1u << index_bits) + 1;
    const auto put = [&](uint32_t code) {
        uint32_t width = index_bits + 1;
        while (width < 12 && strings >> width) width++;
        bits |= code << count;
        for (count += width; count >= 8; count -= 8, bits >>= 8) data += static_cast<char>(bits);
    };
    for (const char index : indices) {
        if (cleared) put(1u << index_bits);
        put(static_cast<uint32_t>(index - '0'));
        strings += !cleared;
    }
    put((1u << index_bits) + 1);
    if (count) data += static_cast<char>(bits);
    return static_cast<char>(index_bits) + in_blocks(data, cleared ? 3 : 255);
}

std::string control(int disposal, int hundredths, int transparent = -1) {
    return bytes({'!', 0xf9, 4, disposal << 2 | (transparent >= 0), hundredths, 0, std::max(transparent, 0), 0});
}

std::string drawn(int left, int top, int width, int height, const std::string &indices, int flags = 0) {
    return bytes({',', left, 0, top, 0, width, 0, height, 0, flags}) + coded(indices);
}

std::string application(const std::string &name, const std::string &data) { return "!\xff\x0b" + name + data; }

// What is not seen has any colour.
Pixels visible(Pixels pixels) {
    for (uint32_t &argb : pixels) argb = argb >> 24 ? argb : clear;
    return pixels;
}

class ModuleGif : public Fixture {
protected:
    ModuleGif() { EXPECT_EQ(img_codec_list_byext(library, "a.gif", &gif, 1), 1u); }

    struct Picture {
        img_format format;
        Pixels pixels;
    };

    // All pictures of a file, and the status that ends them.
    img_status read(const std::string &file, std::vector<Picture> &pictures, img_flags flags = 0, img_format format = 0,
                    const img_decode_callouts *others = nullptr) {
        FakeBackend source{.data = file, .most = 3};
        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
        img_decode_callouts callouts{};
        callouts.data = this;
        callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t) {
            auto &log = static_cast<ModuleGif *>(data)->values;
            const auto *text = reinterpret_cast<const char *>(value);
            if (key == IMG_VALUE_TEXT) log += "text " + std::string(text + strlen(text) + 1, text + size) + ", ";
            if (key == IMG_VALUE_LOOPS) log += "loops " + std::to_string(*reinterpret_cast<uint32_t *>(value)) + ", ";
            if (key == IMG_VALUE_DELAY) log += "delay " + std::to_string(*reinterpret_cast<uint32_t *>(value)) + ", ";
            return img_status{};
        };
        void *state = nullptr;
        if (const img_status status = img_decode_begin(gif, stream.get(), &state)) return status;
        for (;;) {
            Loaded loaded;
            loaded.record.flags = flags | (format ? IMG_F_FORMAT : 0);
            loaded.record.format = format;
            const img_status status =
                img_decode_frame(gif, stream.get(), others ? others : &callouts, &loaded.record, &state);
            if (status) {
                img_decode_finish(gif, stream.get(), &state);
                return status;
            }
            pictures.push_back({loaded.record.format, look(loaded.record)});
        }
    }

    img_codec *gif = nullptr;
    std::string values;
};

TEST_F(ModuleGif, PicturesAreDrawnOnTheCanvas) {
    const std::string file = start + loops + "!\xfe\x02\xe9!" + '\0' + control(1, 10, 3) + drawn(0, 0, 3, 2, "123012") +
                             control(3, 20) + drawn(1, 0, 1, 2, "33") + control(2, 0, 0) + drawn(2, 1, 2, 2, "3010") +
                             drawn(0, 0, 1, 1, "2") + ";";
    const Pixels canvas[] = {{red, green, clear, white, red, green},
                             {red, blue, clear, white, blue, green},
                             {red, green, clear, white, red, blue},     // the column is gone; clipped
                             {green, green, clear, white, red, clear}}; // and so is this corner
    for (const bool as_argb : {false, true}) {
        std::vector<Picture> pictures;
        ASSERT_EQ(read(file, pictures, IMG_F_WANT_ALPHA, as_argb ? img_format{FMT_ARGB8888HE} : 0), 1u);
        ASSERT_EQ(pictures.size(), 4u);
        for (size_t i = 0; i < 4; i++) EXPECT_EQ(visible(pictures[i].pixels), canvas[i]) << i;
        EXPECT_EQ(pictures[0].format, as_argb ? img_format{FMT_ARGB8888HE} : img_format{FMT_PAL8});
        EXPECT_EQ(pictures[1].format, img_format{FMT_ARGB8888HE});
    }
    EXPECT_EQ(values.substr(0, values.size() / 2), "loops 3, text \u00e9!, delay 100, delay 200, delay 0, ");
}

TEST_F(ModuleGif, PlacesOrdersAndEnds) {
    const std::string row = drawn(0, 1, 2, 1, "12");
    const std::string tall = start.substr(0, 6) + bytes({1, 0, 5, 0}) + start.substr(10);
    std::string open = start;
    open.replace(6, 4, 4, '\0');
    const struct {
        std::string file;
        img_format format;
        Pixels pixels;
    } stills[] = {
        {start + row + ";", FMT_ARGB8888HE, {clear, clear, clear, red, green, clear}},
        {start + row, FMT_ARGB8888HE, {clear, clear, clear, red, green, clear}},                     // no trailer
        {tall + drawn(0, 0, 1, 5, "01230", 0x40) + ";", FMT_PAL8, {white, blue, green, white, red}}, // interlaced
        {start + drawn(0, 0, 4, 3, "012301230123") + ";", FMT_PAL8, {white, red, green, white, red, green}},
        {open + row + ";", FMT_ARGB8888HE, {clear, clear, red, green}}, // a canvas of no size
    };
    for (const auto &[file, format, pixels] : stills) {
        std::vector<Picture> pictures;
        EXPECT_EQ(read(file, pictures), 1u);
        ASSERT_EQ(pictures.size(), 1u);
        EXPECT_EQ(pictures[0].format, format);
        EXPECT_EQ(pictures[0].pixels, pixels);
    }
    // Bytes of 0 between pictures, as many bits for an index as no palette uses, and a table of strings that is full.
    const std::string wide = bytes({',', 0, 0, 0, 0, 3, 0, 2, 0, 0}), zeros(2, '\0');
    for (const std::string &data : {coded("123012", 11), coded("123012", 8, false)}) {
        std::vector<Picture> pictures;
        EXPECT_EQ(read(start + zeros + wide + data + zeros + row + zeros + ";", pictures), 1u);
        ASSERT_EQ(pictures.size(), 2u);
        EXPECT_EQ(pictures[0].pixels, (Pixels{red, green, blue, white, red, green}));
        EXPECT_EQ(pictures[1].pixels, (Pixels{red, green, blue, red, green, green}));
    }
    std::string many;
    for (int i = 0; i < 70 * 70; i++) many += static_cast<char>('0' + i * i % 4 + i % 2);
    std::vector<Picture> full;
    const std::string large = start.substr(0, 6) + bytes({70, 0, 70, 0}) + start.substr(10);
    EXPECT_EQ(read(large + bytes({',', 0, 0, 0, 0, 70, 0, 70, 0, 0}) + coded(many, 2, false) + ";", full), 1u);
    ASSERT_EQ(full.size(), 1u);
    constexpr uint32_t colors[] = {white, red, green, blue};
    for (size_t i = 0; i < many.size(); i++) ASSERT_EQ(full[0].pixels[i], colors[many[i] - '0']) << i;

    std::vector<Picture> none;
    EXPECT_EQ(read(start + std::string(300, '\0') + row, none), 4u);
    EXPECT_EQ(read(start + wide + coded("123812", 11), none), 4u) << "an index without a colour";
    EXPECT_EQ(read(start + wide + bytes({2, 2, 0x5c, 0, 0}), none), 4u) << "a string that is not there yet";
    EXPECT_EQ(read(start + wide + bytes({12, 1, 0, 0}), none), 4u);
    const std::string colourless = start.substr(0, 10) + bytes({0, 0, 0});
    EXPECT_EQ(read(start + ";", none), 4u) << "no picture";
    EXPECT_EQ(read(colourless + row, none), 4u) << "no colours";
    EXPECT_EQ(read(start + drawn(0, 0, 0, 1, ""), none), 4u);
    EXPECT_EQ(read(start + "x", none), 4u);
}

// A packet of XMP is in blocks, or as it is with a tail that leads readers of blocks to the end from wherever they enter it.
// A blank reads as a block of 32 bytes.
TEST_F(ModuleGif, MetadataIsReported) {
    std::string tail = "\1";
    for (int i = 255; i >= 0; i--) tail += static_cast<char>(i);
    tail += '\0';
    const std::string profile(700, 'p'), packet = "<x:xmpmeta/>";
    for (const std::string &xmp : {packet, std::string(33, ' '), "\xff" + std::string(254, ' ')}) {
        for (const std::string &data : {xmp + tail, in_blocks(xmp, 255)}) {
            const std::string file = start + application("ICCRGBG1012", in_blocks(profile, 255)) +
                                     application("XMP DataXMP", data) + drawn(0, 0, 3, 2, "123012") + ";";
            Values heard;
            Loaded loaded, silent;
            ASSERT_EQ(load(file, loaded.record, &heard.callouts), IMG_ST_OK);
            EXPECT_EQ(heard.told[IMG_VALUE_ICC], std::vector{profile});
            EXPECT_EQ(heard.told[IMG_VALUE_XMP], std::vector{xmp});
            ASSERT_EQ(load(file, silent.record), IMG_ST_OK);
            EXPECT_EQ(look(silent.record), look(loaded.record));
        }
    }
}

// 35 bytes can ask for a canvas of 1 GB. What is held is asked for first, given back when it is not needed any more, and counted
// over all pictures.
TEST_F(ModuleGif, CanvasesAreAskedFor) {
    std::string file = start + drawn(1, 0, 2, 2, "1230");
    file.replace(6, 4, bytes({0xff, 0xff, 0, 0x10}));
    Values values;
    values.max_memory = 100'000'000;
    Rows rows(FMT_ARGB8888HE);
    EXPECT_EQ(load(file, rows.record, &values.callouts), IMG_ST_LIMIT);
    EXPECT_EQ(values.limit, "memory 1073725440 100000000");
    EXPECT_TRUE(rows.bytes.empty());

    // A byte a pixel of the first picture becomes a canvas; three pictures then hide a column in turn.
    std::string several = start + drawn(0, 0, 3, 2, "123012");
    for (int i = 0; i < 3; i++) several += control(3, 0) + drawn(1, 0, 1, 2, "33");
    for (const uint64_t most : {31u, 32u}) {
        Values limited;
        limited.max_memory = most;
        std::vector<Picture> pictures;
        EXPECT_EQ(read(several + ";", pictures, 0, 0, &limited.callouts), most == 31 ? 10u : 1u);
        EXPECT_EQ(pictures.size(), most == 31 ? 1u : 4u);
        EXPECT_EQ(limited.limit, most == 31 ? "memory 32 31" : "");
    }
}

// The rows before the damage have arrived.
TEST_F(ModuleGif, RowsBeforeACutArrive) {
    const std::string file = start + drawn(0, 0, 3, 2, "123012");
    for (const size_t missing : {1u, 3u}) {
        FakeBackend source{.data = file.substr(0, file.size() - missing)};
        Pixels out(6, clear);
        img_record record{};
        record.access = [](void *arg, uint32_t x, uint32_t y, uint32_t count, void *line) {
            memcpy(static_cast<uint32_t *>(arg) + y * 3 + x, line, count * 4);
            return 0;
        };
        record.access_arg = out.data();
        record.format = FMT_ARGB8888HE;
        record.flags = IMG_F_FORMAT | IMG_F_ACCESS;
        EXPECT_EQ(load(source, record), 4u);
        const Pixels first = {red, green, blue};
        EXPECT_EQ(Pixels(out.begin(), out.begin() + 3), first) << missing;
        EXPECT_EQ(out[3], missing == 1 ? white : clear);
    }
}

TEST_F(ModuleGif, SeveralPicturesAreWritten) {
    Image first(FMT_PAL4, 7, 5, 11, IMG_F_TRANSP), same(FMT_PAL4, 7, 5, 11), other(FMT_PAL8, 6, 4, 200),
        large(FMT_G8, 8, 5);
    FakeBackend sink;
    {
        const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
        void *state = nullptr;
        ASSERT_EQ(img_encode_begin(gif, stream.get(), &state), 0u);
        for (img_record *record : {&first.record, &same.record, &other.record})
            EXPECT_EQ(img_encode_frame(gif, stream.get(), nullptr, record, &state), 0u);
        EXPECT_EQ(img_encode_frame(gif, stream.get(), nullptr, &large.record, &state), IMG_ST_BADARG);
        EXPECT_EQ(img_encode_finish(gif, stream.get(), &state), 0u);
    }
    std::vector<Picture> pictures;
    ASSERT_EQ(read(sink.data, pictures), 1u);
    ASSERT_EQ(pictures.size(), 3u);
    EXPECT_EQ(visible(pictures[0].pixels), visible(look(first.record)));
    EXPECT_EQ(pictures[1].pixels, look(same.record));
    const Pixels small = look(other.record);
    for (size_t y = 0; y < 5; y++)
        for (size_t x = 0; x < 7; x++)
            ASSERT_EQ(pictures[2].pixels[y * 7 + x], x < 6 && y < 4 ? small[y * 6 + x] : clear) << x << ' ' << y;
}

} // namespace
