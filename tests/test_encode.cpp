// SPDX-License-Identifier: MIT
#include "core/registry.h"
#include "tests/fake_codec.h"
#include "tests/image.h"
#include "tests/memory.h"
#include "tests/runs.h"

#include <gtest/gtest.h>

#include <bit>

namespace {

using Bytes = std::vector<uint8_t>;

class Encode : public testing::Test {
protected:
    Encode() { script = {}; }
    ~Encode() override { codec_release(codec); }

    // A 3x2 image in a buffer with padded rows.
    void use(img_format format, Bytes first, Bytes second) {
        pixels = first;
        pixels.resize(20);
        second.resize(20);
        pixels.insert(pixels.end(), second.begin(), second.end());
        image = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT, format, 3, 2);
        image.data = pixels.data();
        image.stride = 20;
    }
    // Indices into a palette.
    void use_indices() {
        use(FMT_PAL8, {0, 1, 0}, {1, 0, 1});
        image.palette = palette;
        image.ncolors = 2;
        image.flags |= IMG_F_PALETTE;
    }
    void use_access() {
        image.flags = (image.flags & ~img_flags{IMG_F_DIRECT}) | IMG_F_ACCESS;
        image.access = [](void *arg, uint32_t x, uint32_t y, uint32_t count, void *line) {
            auto &self = *static_cast<Encode *>(arg);
            script.note("row(" + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(count) + ")");
            const uint8_t *at = self.pixels.data() + 20 * y + tight_row(self.image.format, x);
            memcpy(line, at, tight_row(self.image.format, count));
            return 1;
        };
        image.access_arg = this;
    }
    img_status encode(std::vector<img_format> formats, const img_encode_callouts *table = nullptr) {
        script.formats = formats;
        script.log.clear();
        return img_encode_frame(codec, nullptr, table, &image, nullptr);
    }

    img_lib_handle handle{};
    img_codec *codec = img_codec_register(&handle, fake_codec, "fake", nullptr);
    img_record image{};
    Bytes pixels;
    const img_encode_callouts callouts = logging_encode_callouts();
    uint32_t palette[2] = {0xff102030, 0xff405060};
};

TEST_F(Encode, TheImagesOwnFormatIsReadInPlace) {
    use(FMT_G8, {1, 2, 3}, {4, 5, 6});
    ASSERT_EQ(encode({FMT_RGB888, FMT_G8}), IMG_ST_OK);
    EXPECT_EQ(script.chosen, 1u);
    EXPECT_EQ(script.image.data, pixels.data());
    EXPECT_EQ(script.written, (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(script.log, "frame palette=11 key=11");
    use_access();
    ASSERT_EQ(encode({FMT_G8}), IMG_ST_OK);
    EXPECT_EQ(script.log, "frame palette=11 key=11 row(0,0,3) row(0,1,3)");
    EXPECT_EQ(script.image.access_arg, this);
    EXPECT_EQ(script.written, (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST_F(Encode, ConvertsInEveryOrderFromEitherStorage) {
    for (const bool access : {false, true})
        for (const uint32_t flags : {uint32_t{IMG_SETUP_TOPDOWN}, uint32_t{IMG_SETUP_BOTTOMUP}, 0u, 6u})
            for (const uint32_t run : {0u, 2u}) {
                if (run && flags && !access) continue; // in order, rows are whole
                use(FMT_G8, {1, 2, 3}, {4, 5, 6});
                if (access) use_access();
                script.setup_flags = flags;
                script.run = run;
                ASSERT_EQ(encode({FMT_RGB888}), IMG_ST_OK);
                EXPECT_EQ(script.written, (Bytes{1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6}))
                    << access << flags << run;
            }
}

TEST_F(Encode, ChoosesTheClosestFormat) {
    use_indices();
    ASSERT_EQ(encode({FMT_G8, FMT_RGB565HE, FMT_RGB888}), IMG_ST_OK);
    EXPECT_EQ(script.chosen, 1u) << "palette against colour counts more than the depth; the first of equals";
    EXPECT_EQ(encode({FMT_PAL1, FMT_PAL4}), IMG_ST_NOCONV);
    EXPECT_EQ(script.chosen, 2u);
    EXPECT_EQ(encode({}), IMG_ST_NOCONV);
    EXPECT_EQ(script.chosen, 0u);

    script.choice = 1;
    image.flags &= ~img_flags{IMG_F_PALETTE};
    ASSERT_EQ(encode({FMT_RGB888, FMT_G8}, &callouts), IMG_ST_OK);
    EXPECT_EQ(script.chosen, 1u) << "the caller's choice, without conversion";
    EXPECT_EQ(script.written, (Bytes{0, 1, 0, 1, 0, 1}));
    script.choice = 2;
    EXPECT_EQ(encode({FMT_RGB888, FMT_G8}, &callouts), IMG_ST_BADARG) << "the library's choice needs the palette";
}

TEST_F(Encode, CalloutsComeInOrderWithTheCallersData) {
    use_indices();
    script.choice = 9;
    ASSERT_EQ(encode({FMT_RGB888}, &callouts), IMG_ST_OK);
    EXPECT_EQ(script.log, "frame choose(1) setup(2) palette(1520) key() palette=21 key=22 scanline(5,6,7,8) done");
    script.frame = IMG_ST_DAMAGED;
    EXPECT_EQ(encode({FMT_RGB888}, &callouts), IMG_ST_DAMAGED);
    EXPECT_TRUE(script.log.ends_with(" abort")) << script.log;
    script.setup_status = 33;
    EXPECT_EQ(encode({FMT_RGB888}, &callouts), 33u);
    EXPECT_EQ(script.log, "frame choose(1) setup(2)") << "not set up: no abort";
}

TEST_F(Encode, PaletteAndColourKey) {
    use_indices();
    image.flags |= IMG_F_TRANSP;
    image.transparency8 = 1;
    ASSERT_EQ(encode({FMT_PAL8}), IMG_ST_OK);
    EXPECT_EQ(script.log, "frame palette=0 key=0");
    EXPECT_EQ(script.written_palette, (std::vector<uint32_t>{0xff102030, 0xff405060}));
    EXPECT_EQ(script.written_key, word_of({1}));
    script.written_key = 0;
    ASSERT_EQ(encode({FMT_BGR888}), IMG_ST_OK);
    EXPECT_EQ(script.written_key, word_of({0x60, 0x50, 0x40})) << "in the format that is written";

    use(FMT_XBGR8888HE, {}, {});
    image.flags |= IMG_F_TRANSP;
    image.transparency = 0xff112233;
    // The last byte of the key as a word of the image, which comes by way of the destination.
    constexpr uint8_t fourth = std::endian::native == std::endian::little ? 0xff : 0x11;
    const std::pair<img_format, uint32_t> forms[] = {
        {FMT_XBGR8888HE, 0xff332211}, {FMT_RGB888, word_of({0x11, 0x22, 0x33, fourth})}, {FMT_ARGB8888OE, 0x332211ff}};
    for (const auto &[format, key] : forms) {
        script.written_key = 0;
        ASSERT_EQ(encode({format}), IMG_ST_OK);
        EXPECT_EQ(script.written_key, key);
    }
    for (const img_format format : {FMT_PAL1, FMT_PAL4, FMT_PAL8}) { // the key is an index whatever its depth
        use_indices();
        image.format = format;
        image.flags |= IMG_F_TRANSP;
        image.transparency8 = 1;
        const std::pair<img_format, uint32_t> outputs[] = {
            {FMT_PAL8, word_of({1})}, {FMT_BGR888, word_of({0x60, 0x50, 0x40})}, {format, word_of({1})}};
        for (const auto &[written, key] : outputs) {
            script.written_key = 0;
            ASSERT_EQ(encode({written}), IMG_ST_OK);
            EXPECT_EQ(script.written_key, key) << std::hex << format << " as " << written;
        }
    }
    image.format = FMT_A8;
    image.flags |= IMG_F_TRANSP;
    script.written_key = word_of({1, 2, 3, 4});
    image.transparency8 = 7;
    ASSERT_EQ(encode({FMT_A8}), IMG_ST_OK);
    EXPECT_EQ(script.written_key, word_of({7, 2, 3, 4})) << "no more than a pixel";
}

TEST_F(Encode, MissingStorageAndFunctions) {
    use(FMT_G8, {}, {});
    image.flags &= ~img_flags{IMG_F_DIRECT};
    for (const img_format format : {FMT_G8, FMT_RGB888}) {
        EXPECT_EQ(encode({format}, &callouts), IMG_ST_BADARG) << "no pixels to write";
        EXPECT_TRUE(script.log.ends_with("setup(2) abort")) << script.log;
        EXPECT_TRUE(script.written.empty());
    }
    image.height = 0;
    EXPECT_EQ(encode({FMT_RGB888}), IMG_ST_OK) << "an image without pixels needs no storage";
    image.height = 2;
    img_encode_callouts late{};
    late.data = pixels.data();
    late.setup = [](void *data, img_record *record, uint32_t) -> img_status {
        record->flags |= IMG_F_DIRECT;
        record->data = data;
        return IMG_ST_OK;
    };
    EXPECT_EQ(encode({FMT_RGB888}, &late), IMG_ST_OK) << "the setup callout may bring the pixels";

    img_codec *bare = img_codec_register(&handle, bare_codec, nullptr, nullptr);
    EXPECT_EQ(img_encode_begin(bare, nullptr, nullptr), IMG_ST_NOTSUP);
    EXPECT_EQ(img_encode_frame(bare, nullptr, nullptr, &image, nullptr), IMG_ST_NOTSUP);
    EXPECT_EQ(img_encode_finish(bare, nullptr, nullptr), IMG_ST_OK);
    codec_release(bare);
}

// A codec that asks for more than there is gets what the buffer holds.
TEST_F(Encode, PixelsOutsideTheBufferAreNotFetched) {
    img_codec *greedy = img_codec_register(
        &handle,
        [](img_codec_funcs *table, size_t) -> img_status {
            table->encode_frame = [](io_handle *, const img_encode_callouts *callouts, img_record *image, void **) {
                const img_format format = FMT_RGB888;
                callouts->choose_format(callouts->data, image, &format, 1);
                const img_status status = callouts->setup(callouts->data, image, script.setup_flags);
                uint8_t out[300] = {};
                for (uint32_t y = 0; y < 5; y++) image->access(image->access_arg, 1, y, 99, out);
                script.written.assign(out, out + 9);
                return status;
            };
            return IMG_ST_OK;
        },
        nullptr, nullptr);
    for (const uint32_t flags : {0u, uint32_t{IMG_SETUP_TOPDOWN}}) {
        use(FMT_G8, {1, 2, 3}, {4, 5, 6});
        std::fill(pixels.begin() + 23, pixels.end(), uint8_t{7}); // what follows the last row
        script.setup_flags = flags;
        EXPECT_EQ(img_encode_frame(greedy, nullptr, nullptr, &image, nullptr), IMG_ST_OK);
        EXPECT_EQ(script.written, (Bytes{5, 5, 5, 6, 6, 6, 7, 7, 7})) << "what follows a row is read in the last, too";
    }
    codec_release(greedy);
}

// Indices that start inside a byte are read from the next byte on, which may be the next row's; the byte that the last row
// then lacks is 0. An empty run takes its row like any other.
TEST_F(Encode, RunsInsideAByteEndWithTheBuffer) {
    static std::vector<std::pair<uint32_t, uint32_t>> runs; // columns and counts
    img_codec *asking = img_codec_register(
        &handle,
        [](img_codec_funcs *table, size_t) -> img_status {
            table->encode_frame = [](io_handle *, const img_encode_callouts *callouts, img_record *image, void **) {
                const img_format format = FMT_PAL8;
                callouts->choose_format(callouts->data, image, &format, 1);
                const img_status status = callouts->setup(callouts->data, image, script.setup_flags);
                for (const auto &[x, count] : runs) {
                    uint8_t out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
                    image->access(image->access_arg, x, 0, count, out);
                    script.written.insert(script.written.end(), out, out + 4);
                }
                return status;
            };
            return IMG_ST_OK;
        },
        nullptr, nullptr);
    const auto rows = [&](uint32_t flags, std::vector<std::pair<uint32_t, uint32_t>> asked) {
        const Bytes tight{0x12, 0x34, 0x56, 0x78}; // two rows without gaps, which end where memory does
        const ::runs::Fenced memory(tight.size());
        image = a_record(IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT, FMT_PAL4, 4, 2);
        image.data = memory.before_end(tight.size());
        memcpy(image.data, tight.data(), tight.size());
        image.stride = 2;
        script.setup_flags = flags;
        script.written.clear();
        runs = asked;
        EXPECT_EQ(img_encode_frame(asking, nullptr, nullptr, &image, nullptr), IMG_ST_OK);
        return script.written;
    };
    EXPECT_EQ(rows(IMG_SETUP_BOTTOMUP, {{1, 3}, {1, 3}}), (Bytes{7, 8, 0, 9, 3, 4, 5, 9}));
    EXPECT_EQ(rows(IMG_SETUP_TOPDOWN, {{0, 0}, {3, 1}}), (Bytes{9, 9, 9, 9, 0, 9, 9, 9}));
    EXPECT_EQ(rows(IMG_SETUP_TOPDOWN, {{0, 0}, {2, 2}}), (Bytes{9, 9, 9, 9, 7, 8, 9, 9}));
    codec_release(asking);
}

TEST_F(Encode, FailingAllocations) {
    script.choice = 9;
    use_indices();
    use_access();
    const size_t count = memory::for_each_failure([&](size_t, const memory::Watch &watch) {
        const img_status status = encode({FMT_RGB888}, &callouts);
        EXPECT_EQ(status, watch.failed() ? IMG_ST_NOMEM : IMG_ST_OK);
        EXPECT_TRUE(script.log.ends_with(watch.failed() ? " abort" : " done")) << script.log;
        EXPECT_EQ(watch.live(), 0u);
    });
    EXPECT_EQ(count, 2u) << "transform and line";
}

} // namespace
