// SPDX-License-Identifier: MIT
//
// All codec modules at their work, each as its row in the table of the fixture says. What they refuse is in
// test_module_damage.cpp, what is special to a format in a file of its own.
#include "tests/module_fixture.h"

using namespace modules;

namespace {

class Modules : public Fixture {
protected:
    // Writes the picture, reads it again and compares.
    void there_and_back(const Module &module, Image &&image) {
        const img_record &from = image.record;
        const bool indexed = from.format & IMG_FMT_PAL;
        std::string bytes;
        const img_status status = write(module, image.record, bytes);
        ASSERT_EQ(status, module.takes(from.format) ? IMG_ST_OK : IMG_ST_NOCONV);
        if (status) return;
        Loaded loaded;
        ASSERT_EQ(load(bytes, loaded.record), IMG_ST_OK);
        const bool kept = from.format & IMG_FMT_ALPHA    ? module.pixel_alpha
                          : from.flags & IMG_F_TRANSP    ? module.key
                          : from.flags & IMG_F_PAL_ALPHA ? module.palette_alpha
                                                         : true;
        std::vector<uint32_t> expected = look(from), back = look(loaded.record);
        for (uint32_t &argb : expected)
            argb = !kept ? argb | 0xff000000 : !module.half_alpha ? argb : argb >> 31 ? argb | 0xff000000 : 0;
        for (uint32_t &argb : back)
            if (module.half_alpha && !(argb >> 24)) argb = 0;
        const bool clear = std::all_of(expected.begin(), expected.end(), [](uint32_t argb) { return !(argb >> 24); });
        ASSERT_LE(clear && module.seen ? 0 : difference(expected, back), module.loss);
        if (!module.indices || !indexed || from.flags & (IMG_F_TRANSP | IMG_F_PAL_ALPHA)) return;
        EXPECT_EQ(loaded.record.format, from.format);
        EXPECT_GE(loaded.record.ncolors, from.ncolors);
    }
};

TEST_F(Modules, EachHasARow) {
    img_codec *codecs[64];
    const uint32_t count = img_codec_list(library, codecs, 64, nullptr, 0);
    std::set<img_codec *> known;
    for (const Module &module : all) known.insert(module.codec);
    for (uint32_t i = 0; i < count; i++) {
        const char *extensions;
        img_codec_get_criteria(codecs[i], &extensions, nullptr);
        EXPECT_TRUE(known.contains(codecs[i])) << extensions;
    }
}

TEST_F(Modules, EveryFormatComesBackAsItWas) {
    constexpr struct { uint32_t width, height; } sizes[] = {{1, 1}, {1, 7}, {13, 1}, {17, 11}, {101, 3}};
    for (const Module &module : writers) {
        for (const img_format format : all_formats)
            for (const auto &[width, height] : sizes)
                for (const img_flags flags : {img_flags{0}, img_flags{IMG_F_TRANSP}, img_flags{IMG_F_PAL_ALPHA}})
                    for (const uint32_t ncolors : {0u, 1u, 2u, 3u, 16u, 256u}) {
                        const bool indexed = format & IMG_FMT_PAL;
                        if ((ncolors > 0) != indexed || ncolors > uint64_t{1} << (format & IMG_FMT_BPP_MASK)) continue;
                        if (module.loss > 0 && (flags || ncolors > 1)) continue; // nothing smooth
                        there_and_back(module, Image(format, width, height, ncolors, flags, module.loss > 0));
                        ASSERT_FALSE(HasFailure()) << module.extension << std::hex << ' ' << format << ' ' << flags
                                                   << ' ' << std::dec << width << 'x' << height << ' ' << ncolors;
                    }
        Image mask(FMT_A8, 2, 2), wide(FMT_PAL8, module.most_side + 1, 1, 2);
        std::string bytes;
        EXPECT_EQ(write(module, mask.record, bytes), IMG_ST_NOCONV) << module.extension;
        EXPECT_TRUE(bytes.empty()) << "a refused picture leaves nothing";
        EXPECT_EQ(write(module, wide.record, bytes), 10u) << module.extension;
        EXPECT_TRUE(bytes.empty());
    }
}

// What a module asks for when it writes is what it tells when it reads.
TEST_F(Modules, MetadataComesBack) {
    for (const Module &module : writers) {
        SCOPED_TRACE(module.extension);
        const std::string bytes = written(module, Image(FMT_PAL8, 3, 3, 2));
        Values values;
        Loaded loaded;
        ASSERT_EQ(load(bytes, loaded.record, &values.callouts), IMG_ST_OK);
        const std::pair<uintptr_t, std::string> expected[] = {
            {IMG_VALUE_EXIF, exif}, {IMG_VALUE_XMP, xmp}, {IMG_VALUE_ORIENTATION, bytes_of(orientation)}};
        for (const auto &[key, value] : expected)
            EXPECT_TRUE(!asked_for.contains(key) || values.told[key] == std::vector{value}) << key;
        EXPECT_EQ(asked_for.contains(IMG_VALUE_TEXT), !values.told[IMG_VALUE_TEXT].empty());
        for (const std::string &text : values.told[IMG_VALUE_TEXT])
            EXPECT_TRUE(text == comment || text == author) << text;
        if (!asked_for.contains(IMG_VALUE_RESOLUTION)) continue;
        ASSERT_EQ(values.told[IMG_VALUE_RESOLUTION].size(), 1u);
        img_resolution read;
        memcpy(&read, values.told[IMG_VALUE_RESOLUTION][0].data(), sizeof read);
        EXPECT_NEAR(read.x, resolution.x, 20); // some count by the inch
        EXPECT_NEAR(read.y, resolution.y, 20);
    }
}

// Each is refused outside its range, and inside it changes nothing about the picture.
TEST_F(Modules, Options) {
    static const img_option *wrong; // what is answered out of its range
    static std::vector<img_option> options;
    img_decode_callouts callouts{};
    callouts.set_value = [](void *, img_record *, uintptr_t key, uintptr_t, uintptr_t pointer, uintptr_t) {
        if (key != IMG_VALUE_OPTION) return img_status{IMG_ST_OK};
        auto &option = *reinterpret_cast<img_option *>(pointer);
        if (!wrong) options.push_back(option);
        if (wrong && !strcmp(wrong->name, option.name)) option.value = option.highest + 1;
        return img_status{IMG_ST_OK};
    };
    for (const Module &module : writers) {
        if (module.option) continue; // the module has another row
        const std::string file = written(module, Image(FMT_PAL8, 23, 19, 3));
        for (const img_option &option : std::vector(asked)) {
            Module with = module;
            with.option = option.name;
            if (with.loss > 0) with.loss = 1000; // which is what options are about
            for (with.value = option.lowest - 1; with.value <= std::min(option.highest, 10) + 1; with.value++) {
                SCOPED_TRACE(testing::Message() << module.extension << ' ' << option.name << ' ' << with.value);
                Image image(FMT_PAL8, 23, 19, 3);
                std::string bytes;
                if (with.value >= option.lowest && with.value <= option.highest)
                    there_and_back(with, Image(FMT_PAL8, 23, 19, 3));
                else
                    EXPECT_TRUE(write(with, image.record, bytes) == IMG_ST_BADARG && bytes.empty());
            }
        }
        Loaded right;
        wrong = nullptr;
        options.clear();
        EXPECT_EQ(load(file, right.record, &callouts), IMG_ST_OK);
        for (const img_option &option : options) {
            Loaded loaded;
            wrong = &option;
            EXPECT_EQ(load(file, loaded.record, &callouts), IMG_ST_BADARG) << module.extension << ' ' << option.name;
        }
    }
}

// What a module offers must be what the library would have converted to.
TEST_F(Modules, EveryFormatCanBeAskedFor) {
    for (const auto &[module, bytes, name] : files(100'000)) {
        SCOPED_TRACE(name);
        Loaded own, full(FMT_ARGB8888HE);
        ASSERT_EQ(load(bytes, own.record), IMG_ST_OK);
        ASSERT_EQ(load(bytes, full.record), IMG_ST_OK);
        ASSERT_EQ(look(full.record), look(own.record));
        for (const img_format format : all_formats) {
            if (format & IMG_FMT_PAL) continue;
            Loaded asked_for(format);
            ASSERT_EQ(load(bytes, asked_for.record), IMG_ST_OK) << std::hex << format;
            ASSERT_EQ((format ^ asked_for.record.format) & ~img_format{IMG_FMT_ALPHA}, 0u);
            asked_for.record.flags &= ~img_flags{IMG_F_TRANSP};
            Loaded converted(asked_for.record.format);
            ASSERT_EQ(img_dtransform(&full.record, &converted.record), IMG_ST_OK);
            // Grey of a palette entry, or grey that never was a colour, may differ by rounding.
            const bool rounded = module.loss > 0 || (format == FMT_G8 && (own.record.flags & IMG_F_PALETTE));
            EXPECT_LE(difference(look(asked_for.record), look(converted.record)), rounded) << std::hex << format;
        }
    }
}

TEST_F(Modules, PicturesFollowEachOther) {
    for (const Module &module : writers) {
        SCOPED_TRACE(module.extension);
        Image pictures[] = {Image(FMT_PAL8, 7, 5, 2), Image(FMT_PAL8, 7, 5, 3)};
        const uint32_t count = module.frames ? 2 : 1;
        FakeBackend sink;
        {
            const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
            void *state = nullptr;
            ASSERT_EQ(img_encode_begin(module.codec, stream.get(), &state), IMG_ST_OK);
            for (uint32_t n = 0; n < count; n++)
                ASSERT_EQ(img_encode_frame(module.codec, stream.get(), nullptr, &pictures[n].record, &state), 0u);
            ASSERT_EQ(img_encode_finish(module.codec, stream.get(), &state), IMG_ST_OK);
            io_ostream_flush(stream->self);
        }
        // Frames between one begin and one finish, and loads of what is left of a stream. What follows stays in it.
        const std::string tail = module.follows ? "\xff\xd8, something else" : "";
        const std::string files = module.follows ? sink.data + sink.data + sink.data : sink.data;
        for (const bool loads : {false, true})
            for (const uint32_t most : {5u, 1000u, 100'000u}) {
                if (loads && !module.follows) continue;
                FakeBackend source{.data = files + tail, .most = most, .buffer_size = 100};
                const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
                const uint32_t pictures_in_all = module.follows ? 3 * count : count;
                void *state = nullptr;
                EXPECT_TRUE(loads || !img_decode_begin(module.codec, stream.get(), &state));
                for (uint32_t n = 0; n <= pictures_in_all; n++) {
                    Loaded loaded;
                    const img_status status =
                        loads ? img_load(library, stream.get(), nullptr, &loaded.record)
                              : img_decode_frame(module.codec, stream.get(), nullptr, &loaded.record, &state);
                    ASSERT_EQ(status, n < pictures_in_all ? 0u : 1u) << n << ' ' << loads << ' ' << most;
                    EXPECT_TRUE(status || module.loss > 0 || module.option ||
                                look(loaded.record) == look(pictures[n % count].record))
                        << n;
                }
                EXPECT_TRUE(loads || !img_decode_finish(module.codec, stream.get(), &state));
                std::string rest(100, '\0');
                size_t length = 0;
                while (const uint32_t got = stream->read(stream->self, &rest[length], 9)) length += got;
                EXPECT_TRUE(!module.follows || rest.substr(0, length) == tail) << loads << ' ' << most;
            }
    }
}

TEST_F(Modules, RowsOfTheCallersOwn) {
    for (const auto &[module, bytes, name] : files(100'000)) {
        SCOPED_TRACE(name);
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        const img_record &own = whole.record;
        const size_t row = (own.width * (own.format & IMG_FMT_BPP_MASK) + 7) / 8;

        // A buffer that is larger than the picture: nothing but its pixels is touched.
        std::vector<uint8_t> pixels((row + 9) * (own.height + 2), 0xa5);
        img_record larger = own;
        larger.data = pixels.data();
        larger.stride = static_cast<uint32_t>(row + 9);
        larger.width += 8;
        larger.height += 2;
        ASSERT_EQ(load(bytes, larger), IMG_ST_OK);
        for (size_t at = 0; at < pixels.size(); at++) {
            const size_t x = at % (row + 9), y = at / (row + 9);
            const bool inside = x < row && y < own.height;
            if (inside && x + 1 == row) continue; // may share its byte with pixels to the right
            ASSERT_EQ(pixels[at], inside ? static_cast<uint8_t *>(own.data)[y * own.stride + x] : 0xa5) << at;
        }

        // An access function on both sides.
        Loaded rgb(FMT_RGB888);
        Rows rows(FMT_RGB888);
        ASSERT_EQ(load(bytes, rgb.record), IMG_ST_OK);
        ASSERT_EQ(load(bytes, rows.record), IMG_ST_OK);
        for (const auto &[y, line] : rows.bytes)
            ASSERT_FALSE(
                memcmp(line.data(), static_cast<char *>(rgb.record.data) + y * rgb.record.stride, line.size()));
        EXPECT_EQ(rows.bytes.size(), own.height);
        if (module.sample || !img_convert_getfunc(own.format, own.format)) continue; // 1- and 4-bit indices
        img_record image = own;
        image.access = [](void *arg, uint32_t, uint32_t y, uint32_t count, void *line) {
            const auto &from = *static_cast<const img_record *>(arg);
            memcpy(line, static_cast<const uint8_t *>(from.data) + size_t{y} * from.stride,
                   (count * (from.format & IMG_FMT_BPP_MASK) + 7) / 8);
            return 0;
        };
        image.access_arg = &whole.record;
        image.flags = (image.flags & ~img_flags{IMG_F_DIRECT}) | IMG_F_ACCESS;
        std::string direct, accessed;
        ASSERT_EQ(write(module, whole.record, direct), IMG_ST_OK);
        ASSERT_EQ(write(module, image, accessed), IMG_ST_OK);
        EXPECT_EQ(direct, accessed);
    }
}

// Progress comes in order, and stops; so does a value that the caller refuses. A size that cannot be had is not given.
TEST_F(Modules, CalloutsAreToldAndStop) {
    struct Told {
        uintptr_t last = 0, stop_at = UINTPTR_MAX;
        img_status refusal = 0, expected = 0;
        bool depth = false;
    };
    img_decode_callouts callouts{};
    callouts.scanline = [](void *data, img_record *record, uintptr_t done, uintptr_t rows, uintptr_t, uintptr_t) {
        Told &told = *static_cast<Told *>(data);
        EXPECT_TRUE(done >= told.last && done <= rows && rows == record->height);
        told.last = done;
        return img_status{done >= told.stop_at ? 77u : 0u};
    };
    callouts.choose_format = [](void *, img_record *record, const img_format *, uint32_t) {
        record->width = 2;
        return 0u;
    };
    callouts.set_value = [](void *data, img_record *, uintptr_t key, uintptr_t, uintptr_t, uintptr_t) {
        Told &told = *static_cast<Told *>(data);
        told.depth |= key == IMG_VALUE_DEPTH;
        return told.refusal;
    };
    for (const auto &[module, bytes, name] : files(100'000)) {
        SCOPED_TRACE(name);
        Loaded own;
        ASSERT_EQ(load(bytes, own.record), IMG_ST_OK);
        for (Told told : {Told{}, Told{.stop_at = 1, .expected = 77}, Told{.refusal = 78, .expected = 78}}) {
            callouts.data = &told;
            Loaded wanted;
            wanted.record.width = wanted.record.height = 33;
            wanted.record.flags = IMG_F_SIZE_HINT | IMG_F_WIDTH | IMG_F_HEIGHT;
            ASSERT_EQ(load(bytes, wanted.record, &callouts), told.expected);
            if (told.expected) continue;
            EXPECT_TRUE(module.scales || wanted.record.width == own.record.width);
            EXPECT_EQ(told.last, wanted.record.height);
            EXPECT_TRUE(told.depth);
        }
    }
}

// In C by itself, and in C++ as in the source tree.
TEST_F(Modules, TheExamplesOfTheDocumentationAreModules) {
    const std::string bytes = "RAW8" + big_endian(3) + big_endian(2) + "abcdef";
    for (const char *path : {PICTRA_EXAMPLE_MODULE, PICTRA_EXAMPLE_MODULE_IN_TREE}) {
        img_codec *raw8 = img_codec_register_dll(library, path, "raw8", nullptr);
        ASSERT_TRUE(raw8);
        for (const img_format format : {FMT_G8, FMT_RGB888}) {
            FakeBackend source{.data = bytes, .most = 7, .buffer_size = 100, .unreads = true};
            Loaded loaded(format);
            ASSERT_EQ(load(source, loaded.record), IMG_ST_OK);
            const std::vector<uint32_t> pixels = look(loaded.record);
            for (uint32_t i = 0; i < 6; i++) EXPECT_EQ(pixels[i], 0xff000000 | (0x010101 * ('a' + i)));
        }
        img_record record{};
        EXPECT_EQ(load(bytes.substr(0, 17), record), 4u);
        EXPECT_EQ(load("RAW8" + big_endian(1 << 20) + big_endian(2), record), 10u);
        Image image(FMT_G8, 1, 1);
        std::string out;
        EXPECT_EQ(write(raw8, image.record, out), IMG_ST_NOTSUP);
        img_codec_deregister(library, raw8);
    }
}

} // namespace
