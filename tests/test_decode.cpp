// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/fake_codec.h"
#include "tests/image.h"
#include "tests/memory.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using Bytes = std::vector<uint8_t>;

class Decode : public testing::Test {
protected:
    Decode() { script = {}; }
    ~Decode() override {
        renew();
        codec_release(codec);
    }

    img_status decode(const img_decode_callouts *table = nullptr) {
        return img_decode_frame(codec, nullptr, table, &record, nullptr);
    }
    // Another record, and another log.
    void renew() {
        if (record.flags & IMG_F_DIRECT && !own) free(record.data);
        record = {};
        own = false;
        script.log.clear();
    }
    void ask(img_format format, img_flags flags = 0) {
        renew();
        record.format = format;
        record.flags = IMG_F_FORMAT | flags;
    }
    // A 3x2 picture in one format.
    void picture(img_format format) {
        script.width = 3;
        script.height = 2;
        script.formats = {format};
        script.pixels.resize(tight_row(format, 3) * 2);
        for (size_t i = 0; i < script.pixels.size(); i++) script.pixels[i] = static_cast<uint8_t>(17 * i + 3);
    }
    Bytes all_rows() const {
        Bytes rows;
        for (uint32_t y = 0; y < record.height; y++) {
            const uint8_t *at = static_cast<uint8_t *>(record.data) + y * record.stride;
            rows.insert(rows.end(), at, at + tight_row(record.format, record.width));
        }
        return rows;
    }
    // Rows that an access function receives.
    void collect() {
        record.flags |= IMG_F_ACCESS;
        record.access = [](void *arg, uint32_t x, uint32_t y, uint32_t count, void *line) {
            auto &self = *static_cast<Decode *>(arg);
            const auto *at = static_cast<uint8_t *>(line);
            self.collected.insert(self.collected.end(), at, at + tight_row(self.record.format, count));
            script.note("row(" + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(count) + ")");
            return 1; // not examined
        };
        record.access_arg = this;
    }
    void provide(uint32_t width, uint32_t height, uint8_t *pixels, uint32_t stride) {
        own = true;
        record.width = width;
        record.height = height;
        record.data = pixels;
        record.stride = stride;
        record.flags |= IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT;
    }

    img_lib_handle handle{};
    img_codec *codec = img_codec_register(&handle, fake_codec, "fake", nullptr);
    img_record record{};
    bool own = false;
    Bytes collected;
    img_decode_callouts callouts = logging_decode_callouts();
};

TEST_F(Decode, ValidateAsksInOrderAndRemembersTheLastAnswer) {
    img_codec *bare = img_codec_register(&handle, bare_codec, nullptr, nullptr);
    img_codec *broken = img_codec_register_dll(&handle, "/nonexistent.so", nullptr, nullptr);
    uint32_t index = 99;
    const auto validate = [&](std::vector<img_codec *> c) {
        return img_decode_validate(c.data(), static_cast<uint32_t>(c.size()), nullptr, &index);
    };
    EXPECT_EQ(validate({}), IMG_ST_NOCODEC);
    EXPECT_EQ(validate({bare, broken}), IMG_ST_MODULE);
    EXPECT_EQ(validate({bare, broken}), IMG_ST_NOTSUP) << "opened once";
    script.validate = IMG_ST_DAMAGED;
    EXPECT_EQ(validate({bare, codec}), IMG_ST_DAMAGED);
    EXPECT_EQ(index, 99u);
    script.validate = 0;
    EXPECT_EQ(validate({bare, codec, codec}), IMG_ST_OK);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(img_decode_begin(bare, nullptr, nullptr), IMG_ST_NOTSUP);
    EXPECT_EQ(img_decode_frame(bare, nullptr, nullptr, &record, nullptr), IMG_ST_MODULE);
    EXPECT_EQ(img_decode_finish(bare, nullptr, nullptr), IMG_ST_OK);
    codec_release(bare);
    codec_release(broken);
}

TEST_F(Decode, AnEmptyRecordTakesThePictureAsItIs) {
    picture(FMT_RGB888);
    record.user = 0x123456789;
    script.flags = IMG_F_CODEC_MARK;
    ASSERT_EQ(decode(), IMG_ST_OK);
    EXPECT_EQ(record.flags, IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT | IMG_F_CODEC_MARK);
    EXPECT_EQ(script.image.data, record.data) << "the codec wrote there itself";
    EXPECT_EQ(script.image.user, 0x123456789u);
    EXPECT_EQ(all_rows(), script.pixels);
}

TEST_F(Decode, CalloutsComeInOrderWithTheCallersData) {
    picture(FMT_PAL8);
    script.palette = {0xff000000, 0xffffffff};
    script.key = 1;
    ASSERT_EQ(decode(&callouts), IMG_ST_OK);
    EXPECT_EQ(script.log, "frame choose(1) setup(2) palette(2,1520) key(1) value(1,2,3,4) =9 "
                          "scanline(2,2,0,ffffffffffffffff) done");

    renew();
    script.setup_status = 30;
    EXPECT_EQ(decode(&callouts), 30u);
    EXPECT_EQ(script.log, "frame choose(1) setup(2) setup(0)") << "not set up: no abort";
    EXPECT_FALSE(record.flags & IMG_F_DIRECT);
}

TEST_F(Decode, FormatChoice) {
    picture(FMT_RGB888);
    const auto choice = [&](img_format wanted, std::vector<img_format> offered) {
        script.formats = offered;
        ask(wanted, IMG_F_WANT_ALPHA);
        collect();
        return decode() == IMG_ST_NOCONV ? UINT32_MAX : script.chosen;
    };
    script.pixels.resize(24);
    EXPECT_EQ(choice(FMT_ARGB8888OE, {FMT_BGR888, FMT_XRGB8888HE, FMT_ARGB8888HE}), 2u);
    EXPECT_EQ(choice(FMT_RGB888, {FMT_BGR888, FMT_XRGB8888HE, FMT_RGB888}), 2u) << "exact";
    EXPECT_EQ(choice(FMT_RGB565HE, {FMT_XRGB8888HE, FMT_BGR888}), 0u) << "the first of equals";
    EXPECT_EQ(choice(FMT_RGB565HE, {FMT_ARGB8888HE, FMT_G8, FMT_XRGB8888HE}), 2u);
    EXPECT_EQ(choice(FMT_PAL8, {FMT_RGB888, FMT_G8}), UINT32_MAX);
    EXPECT_EQ(choice(FMT_ARGB8888HE, {}), UINT32_MAX);
    EXPECT_EQ(script.chosen, 0u) << "an empty offer is answered with 0";
    script.palette = {1, 2};
    EXPECT_EQ(choice(FMT_XRGB8888HE, {FMT_RGB888, FMT_PAL8, FMT_XRGB1555HE}), 0u);

    script.formats = {FMT_RGB888, FMT_G8};
    script.palette = {};
    script.choice = 7;
    renew();
    EXPECT_EQ(decode(&callouts), IMG_ST_NOCONV);
    EXPECT_EQ(script.chosen, 7u) << "the caller's index as it is";
    // A caller that picks nothing but sets a format means that one.
    callouts.choose_format = [](void *, img_record *r, const img_format *, uint32_t n) {
        r->format = FMT_G8;
        r->flags |= IMG_F_FORMAT;
        return n;
    };
    EXPECT_EQ(decode(&callouts), IMG_ST_OK);
    EXPECT_EQ(script.chosen, 1u);
}

TEST_F(Decode, SizeHints) {
    picture(FMT_G8);
    record.width = record.height = 9;
    record.flags = IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_SIZE_HINT;
    ASSERT_EQ(decode(), IMG_ST_OK);
    EXPECT_EQ(std::pair(record.width, record.height), std::pair(3u, 2u));

    renew();
    script.flags = IMG_F_SIZE_HINT;
    callouts.choose_format = [](void *, img_record *r, const img_format *, uint32_t) -> uint32_t {
        r->width = 1;
        return 0;
    };
    script.setup_status = 40;
    EXPECT_EQ(decode(&callouts), 40u);
    EXPECT_EQ(script.image.width, 1u) << "written back for the codec to decode at";
}

TEST_F(Decode, RunsAreClippedToTheCallersSize) {
    picture(FMT_G8);
    const Bytes &p = script.pixels;
    for (const uint32_t flags : {uint32_t{IMG_SETUP_TOPDOWN}, uint32_t{IMG_SETUP_BOTTOMUP}, 0u})
        for (const uint32_t width : {2u, 3u, 4u})
            for (const uint32_t height : {1u, 2u, 3u}) {
                Bytes pixels(12, 0xee), expected(12, 0xee);
                for (uint32_t i = 0; i < std::min(width, 3u); i++) {
                    expected[i] = p[i];
                    if (height > 1) expected[4 + i] = p[3 + i];
                }
                ask(FMT_G8);
                provide(width, height, pixels.data(), 4);
                script.setup_flags = flags;
                ASSERT_EQ(decode(), IMG_ST_OK);
                EXPECT_EQ(pixels, expected) << flags << " " << width << "x" << height;
            }
}

TEST_F(Decode, SequentialRowsStopAtTheEndOfTheImage) {
    picture(FMT_G8);
    uint8_t pixels[16] = {};
    script.extra_rows = 5;
    for (const uint32_t flags : {IMG_SETUP_TOPDOWN, IMG_SETUP_BOTTOMUP}) {
        ask(FMT_XRGB1555HE);
        provide(3, 2, pixels + 2, 6);
        script.setup_flags = flags;
        EXPECT_EQ(decode(), IMG_ST_OK);
        EXPECT_EQ(pixels[1] | pixels[14], 0);
    }
}

TEST_F(Decode, RunsWithinARow) {
    picture(FMT_G8);
    script.pixels = {8, 16, 24, 32, 40, 48};
    script.run = 2;
    script.setup_flags = 0;
    for (const bool access : {false, true}) {
        ask(FMT_XRGB1555HE);
        if (access) collect();
        ASSERT_EQ(decode(), IMG_ST_OK);
        EXPECT_EQ(access ? collected : all_rows(),
                  as_here(FMT_XRGB1555HE, {0x21, 0x84, 0x42, 0x88, 0x63, 0x8c, 0x84, 0x90, 0xa5, 0x94, 0xc6, 0x98}));
    }
    EXPECT_EQ(script.log, "frame row(0,0,2) row(2,0,1) row(0,1,2) row(2,1,1)");
}

// An empty run neither takes the place of a row nor reaches the caller.
TEST_F(Decode, EmptyRunsDoNothing) {
    picture(FMT_G8);
    script.pixels = {8, 16, 24, 32, 40, 48};
    script.empty_runs = true;
    for (const bool access : {false, true}) {
        ask(FMT_XRGB1555HE);
        if (access) collect();
        ASSERT_EQ(decode(), IMG_ST_OK);
        EXPECT_EQ(access ? collected : all_rows(),
                  as_here(FMT_XRGB1555HE, {0x21, 0x84, 0x42, 0x88, 0x63, 0x8c, 0x84, 0x90, 0xa5, 0x94, 0xc6, 0x98}));
    }
    EXPECT_EQ(script.log, "frame row(0,0,3) row(0,1,3)");
}

TEST_F(Decode, AlphaPalettesAndColourKeys) {
    const std::vector<uint32_t> colours{0xff102030, 0x80405060}, blues{0xff000010, 0xff000020};
    const img_flags want = IMG_F_WANT_ALPHA;
    struct Case {
        img_format codec, asked;
        img_flags flags;
        Bytes pixels;
        std::vector<uint32_t> palette;
        std::optional<uint32_t> key;
        img_format result;
        Bytes bytes;
    };
    for (const Case &c : {
             // Alpha goes unless it is wanted or on both sides.
             Case{FMT_RGB888, FMT_ARGB8888HE, 0, {1, 2, 3}, {}, {}, FMT_XRGB8888HE, {3, 2, 1, 0xff}},
             Case{FMT_RGB888, FMT_ARGB8888HE, want, {1, 2, 3}, {}, {}, FMT_ARGB8888HE, {3, 2, 1, 0xff}},
             Case{FMT_ARGB8888HE, FMT_ABGR8888OE, 0, {3, 2, 1, 9}, {}, {}, FMT_ABGR8888OE, {9, 3, 2, 1}},
             // An index without an entry is black.
             Case{FMT_PAL8, FMT_RGB888, 0, {0, 1, 255}, colours, {}, FMT_RGB888, {16, 32, 48, 64, 80, 96, 0, 0, 0}},
             Case{FMT_PAL1, FMT_PAL8, 0, {0xa0}, colours, {}, FMT_PAL8, {1, 0, 1, 0, 0, 0, 0, 0}},
             Case{FMT_XRGB8888OE,
                  FMT_ARGB8888HE,
                  want,
                  {0, 1, 2, 3, 0, 1, 2, 4},
                  {},
                  0xff010203,
                  FMT_ARGB8888HE,
                  {3, 2, 1, 0, 4, 2, 1, 255}},
             Case{FMT_XRGB8888HE, FMT_ARGB8888OE, want, {3, 2, 1, 0}, {}, 0xff010203, FMT_ARGB8888OE, {0, 1, 2, 3}},
             // At 16 bits the alpha stays.
             Case{FMT_G8, FMT_ARGB1555HE, want, {8, 16}, {}, 0x8421, FMT_ARGB1555HE, {0, 0x80, 0x42, 0x88}},
             Case{FMT_G8, FMT_ARGB1555OE, want, {8}, {}, 0x8421, FMT_ARGB1555OE, {0x80, 0}},
             Case{FMT_PAL8, FMT_ARGB8888HE, want, {0, 1}, blues, 1, FMT_ARGB8888HE, {16, 0, 0, 255, 32, 0, 0, 0}},
             Case{FMT_PAL8, FMT_ARGB1555HE, want, {0, 1}, blues, 1, FMT_ARGB1555HE, {2, 0x80, 4, 0}},
         }) {
        picture(c.codec);
        script.pixels = as_here(c.codec, c.pixels);
        script.width = static_cast<uint32_t>(c.pixels.size()) * 8 / depth(c.codec);
        script.height = 1;
        script.palette = c.palette;
        script.key = c.key;
        ask(c.asked, c.flags);
        ASSERT_EQ(decode(), IMG_ST_OK);
        EXPECT_EQ(record.flags & IMG_F_TRANSP, img_flags{0});
        EXPECT_EQ(std::pair(record.format, all_rows()), std::pair(c.result, as_here(c.result, c.bytes)));
    }
    // A depth that has no routine for the key hands nothing over.
    picture(FMT_ARGB8888HE);
    script.palette.clear();
    script.key = 1;
    ask(FMT_A8, want);
    collect();
    ASSERT_EQ(decode(), IMG_ST_OK);
    EXPECT_TRUE(collected.empty());

    picture(FMT_PAL8);
    ask(FMT_RGB888);
    EXPECT_EQ(decode(), IMG_ST_NOCONV) << "no colours";
    EXPECT_FALSE(record.flags & IMG_F_DIRECT);
}

TEST_F(Decode, PalettesAreKeptForPaletteFormats) {
    picture(FMT_PAL1);
    script.palette = {0xff102030, 0x80405060};
    script.flags = IMG_F_PAL_ALPHA;
    script.palette_status = 1; // not handled
    for (const img_decode_callouts *table :
         {static_cast<const img_decode_callouts *>(nullptr), &std::as_const(callouts)}) {
        ask(FMT_PAL8);
        ASSERT_EQ(decode(table), IMG_ST_OK);
        EXPECT_EQ(std::vector(record.palette, record.palette + record.ncolors), script.palette);
        EXPECT_TRUE(record.flags & IMG_F_PAL_ALPHA);
    }
}

TEST_F(Decode, ColourKeyIsStoredInTheRecordsForm) {
    struct Case {
        img_format codec, caller;
        uint32_t key, stored;
    };
    const uint32_t red = word_of({0xff}); // the bytes in memory, whatever their value as a word
    for (const auto &[from, to, key, stored] :
         {Case{FMT_G8, FMT_G8, 0x7f, 0x7f}, Case{FMT_G8, FMT_RGB888, 0x7f, 0xff7f7f7f},
          Case{FMT_RGB888, FMT_RGB565HE, red, 0xf800}, Case{FMT_RGB888, FMT_XBGR8888OE, red, 0xffff0000},
          Case{FMT_PAL1, FMT_PAL1, 1, 1}, Case{FMT_PAL1, FMT_PAL8, 1, 1}, Case{FMT_PAL4, FMT_PAL8, 2, 2},
          Case{FMT_PAL4, FMT_XRGB8888HE, 2, 0xff000022}, Case{FMT_PAL1, FMT_RGB565HE, 1, 0x0002},
          Case{FMT_PAL8, FMT_PAL8, 2, 2}}) {
        picture(from);
        if (from & IMG_FMT_PAL) script.palette = {0xff000000, 0xff000011, 0xff000022};
        script.key = key;
        ask(to);
        ASSERT_EQ(decode(), IMG_ST_OK);
        EXPECT_TRUE(record.flags & IMG_F_TRANSP);
        const uint32_t got = depth(to) >= 24   ? record.transparency
                             : depth(to) == 16 ? record.transparency16
                                               : record.transparency8;
        EXPECT_EQ(got, stored) << std::hex << from << " " << to;
    }
}

TEST_F(Decode, FailuresReleaseWhatWasMade) {
    picture(FMT_PAL8);
    script.palette = {1, 2};
    script.frame = IMG_ST_DAMAGED;
    for (const img_format format : {FMT_PAL8, FMT_RGB888}) {
        const memory::Watch watch;
        ask(format);
        EXPECT_EQ(decode(&callouts), IMG_ST_DAMAGED);
        EXPECT_TRUE(script.log.ends_with(" abort")) << script.log;
        EXPECT_FALSE(record.flags & (IMG_F_DIRECT | IMG_F_PALETTE));
        EXPECT_EQ(watch.live(), 0u);
    }
    uint8_t pixels[8] = {};
    ask(FMT_PAL8);
    provide(3, 2, pixels, 4);
    EXPECT_EQ(decode(), IMG_ST_DAMAGED);
    EXPECT_EQ(record.flags & (IMG_F_DIRECT | IMG_F_PALETTE), img_flags{IMG_F_DIRECT}) << "the caller's own stays";
}

TEST_F(Decode, FailingAllocations) {
    picture(FMT_PAL8);
    script.palette = {1, 2};
    for (const bool access : {false, true}) {
        const size_t count = memory::for_each_failure([&](size_t, const memory::Watch &watch) {
            ask(FMT_RGB888);
            if (access) collect();
            const img_status status = decode();
            EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK);
            renew();
            EXPECT_EQ(watch.live(), 0u);
        });
        EXPECT_EQ(count, access ? 1u : 2u) << "scratch, and the image";
    }
    script.width = 0x20000001; // the row's size would wrap at 32 bits
    ask(FMT_RGB888);
    EXPECT_EQ(decode(), IMG_ST_NOMEM);
}

} // namespace
