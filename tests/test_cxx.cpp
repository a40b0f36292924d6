// SPDX-License-Identifier: MIT
//
// The C++ header: what it takes off its users' hands.
#include "pictra/pictra.hpp"
#include "tests/module_fixture.h"
#include "tests/temp.h"

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

namespace {

using modules::Image, modules::look;
using pictra::extent, pictra::image, pictra::image_view, pictra::input, pictra::output;
using Bytes = std::vector<uint8_t>;
using Argb = std::vector<uint32_t>;

static_assert(!std::is_copy_constructible_v<image> && std::is_nothrow_move_assignable_v<image>);
static_assert(!std::is_copy_constructible_v<pictra::library> && std::is_move_constructible_v<pictra::frames>);

// Pictures of every format that has colours, with every kind of transparency.
struct Kind {
    img_format format;
    uint32_t ncolors;
    img_flags flags;
};
std::vector<Kind> kinds() {
    std::vector<Kind> all;
    for (const img_format format : modules::all_formats)
        for (const img_flags flags : {img_flags{0}, img_flags{IMG_F_TRANSP}, img_flags{IMG_F_PAL_ALPHA}}) {
            const bool indexed = format & IMG_FMT_PAL;
            if ((format & IMG_FMT_ALPHA && flags) || (!indexed && flags == IMG_F_PAL_ALPHA)) continue;
            all.push_back({format, indexed ? 1u << std::min(format & IMG_FMT_BPP_MASK, 7u) : 0, flags});
        }
    return all;
}

template <typename T> T must(pictra::result<T> &&result) {
    EXPECT_TRUE(result.has_value()) << (result ? "" : result.error().text);
    return std::move(result).value();
}
template <typename T> img_status status(const pictra::result<T> &result) {
    return result ? img_status{IMG_ST_OK} : result.error().status;
}

// What a picture looks like when the pixel at (x, y) of the result comes from place(x, y).
template <typename Place> Argb moved(const Argb &pixels, uint32_t width, extent size, const Place &place) {
    Argb out;
    for (uint32_t y = 0; y < size.height; y++)
        for (uint32_t x = 0; x < size.width; x++) {
            const auto [from_x, from_y] = place(x, y);
            out.push_back(pixels[size_t{from_y} * width + from_x]);
        }
    return out;
}

TEST(Cxx, MovesPixelsOfEveryFormatWithTheirTransparency) {
    constexpr uint32_t w = 13, h = 6;
    using At = std::pair<uint32_t, uint32_t>;
    for (const Kind &kind : kinds()) {
        const img_format format = kind.format;
        const uint32_t ncolors = kind.ncolors;
        const img_flags flags = kind.flags;
        SCOPED_TRACE(testing::Message() << std::hex << format << " " << flags);
        const Image from(format, w, h, ncolors, flags);
        const image_view view(from.record);
        const Argb pixels = look(from.record);
        const auto expect = [&](pictra::result<image> result, extent size, auto place) {
            const image made = must(std::move(result));
            EXPECT_EQ(made.size(), size);
            EXPECT_EQ(made.format(), from.record.format);
            EXPECT_EQ(look(made.record()), moved(pixels, w, size, place));
        };
        expect(pictra::crop(view, 3, 1, {9, 4}), {9, 4}, [](auto x, auto y) { return At{x + 3, y + 1}; });
        expect(pictra::rotate(view, pictra::turn::half), {w, h}, [](auto x, auto y) { return At{12 - x, 5 - y}; });
        const auto across = [](auto x, auto y) { return At{12 - x, y}; };
        expect(pictra::flip(view, pictra::side::left_right), {w, h}, across);
        expect(pictra::upright(view, 2), {w, h}, across);
        expect(pictra::upright(view, 4), {w, h}, [](auto x, auto y) { return At{x, 5 - y}; });
        expect(pictra::upright(view, 5), {h, w}, [](auto x, auto y) { return At{y, x}; });
        expect(pictra::upright(view, 6), {h, w}, [](auto x, auto y) { return At{y, 5 - x}; });
        expect(pictra::upright(view, 7), {h, w}, [](auto x, auto y) { return At{12 - y, 5 - x}; });
        expect(pictra::upright(view, 8), {h, w}, [](auto x, auto y) { return At{12 - y, x}; });
        expect(image::copy_of(view), {w, h}, [](auto x, auto y) { return At{x, y}; });
        EXPECT_EQ(status(pictra::crop(view, 5, 0, {9, 4})), IMG_ST_BADARG);
    }
    const Image mask(FMT_A8, 5, 2);
    const image turned = must(pictra::rotate(image_view(mask.record), pictra::turn::quarter));
    EXPECT_EQ(turned.format(), FMT_A8);
    EXPECT_EQ(turned.row(4)[1], mask.pixels[4]);
    EXPECT_EQ(status(pictra::flip(image_view(), pictra::side::left_right)), IMG_ST_BADARG);
}

TEST(Cxx, ConvertsAllTransparencyIntoAlpha) {
    for (const auto &[format, ncolors, flags] : kinds()) {
        const Image from(format, 9, 5, ncolors, flags);
        const Argb pixels = look(from.record);
        for (const img_format to : modules::all_formats) {
            SCOPED_TRACE(testing::Message() << std::hex << format << " " << flags << " to " << to);
            const auto made = pictra::convert(image_view(from.record), to);
            if (to & IMG_FMT_PAL) {
                const bool fits = format & IMG_FMT_PAL && ncolors <= 1u << (to & IMG_FMT_BPP_MASK);
                ASSERT_EQ(made.has_value(), fits);
                if (fits) {
                    EXPECT_EQ(look(made->record()), pixels);
                }
                continue;
            }
            const Argb got = look(must(pictra::convert(image_view(from.record), to)).record());
            const uint32_t opaque_bits = (to & IMG_FMT_BPP_MASK) == 32 ? 24 : 31;
            for (size_t i = 0; i < got.size() && (to & IMG_FMT_ALPHA); i++) {
                ASSERT_EQ(got[i] >> opaque_bits, pixels[i] >> opaque_bits);
            }
            const bool keeps = (to & IMG_FMT_BPP_MASK) > 16 && (format & IMG_FMT_BPP_MASK) > 16;
            if (keeps && !(format & IMG_FMT_ALPHA)) {
                EXPECT_EQ(got, pixels);
            }
        }
    }
}

TEST(Cxx, ResizesEveryFormatAsTheColoursItShows) {
    for (const Kind &kind : kinds()) {
        const img_format format = kind.format;
        const uint32_t ncolors = kind.ncolors;
        const img_flags flags = kind.flags;
        SCOPED_TRACE(testing::Message() << std::hex << format << " " << flags);
        const Image from(format, 31, 22, ncolors, flags);
        const image made = must(pictra::resize(image_view(from.record), {.width = 10}));
        EXPECT_EQ(made.size(), (extent{10, 7}));
        const bool becomes_alpha = flags != 0, expands = format & IMG_FMT_PAL;
        EXPECT_EQ(made.format(), becomes_alpha ? img_format{FMT_ARGB8888HE}
                                 : expands     ? img_format{FMT_RGB888}
                                               : format);
        if (!becomes_alpha && !expands) continue;
        const image colours = must(pictra::convert(image_view(from.record), made.format()));
        EXPECT_EQ(look(made.record()), look(must(pictra::resize(colours, {.width = 10})).record()));
    }
    // Formats without loops of their own are scaled as those that differ in names.
    const Image even(FMT_A8, 8, 8);
    EXPECT_EQ(must(pictra::resize(image_view(even.record), pictra::within(4))).format(), FMT_A8);
    EXPECT_EQ(status(pictra::resize(image_view(even.record), {})), IMG_ST_BADARG);
    EXPECT_EQ(pictra::within(100).of({3000, 1}), (extent{100, 1}));
    EXPECT_EQ(pictra::within(100).of({70, 80}), (extent{70, 80}));
    EXPECT_EQ((pictra::scale{.height = 3'000'000'000}.of({9, 3})), (extent{0, 3'000'000'000}));
}

TEST(Cxx, ValuesThatCannotBeAreNotTaken) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    pictra::values taken;
    for (const img_resolution &told : {img_resolution{infinity, 1}, {1, std::nan("")}, {-1, 1}}) {
        taken.resolution = {1, 2};
        pictra::take_value(taken, IMG_VALUE_RESOLUTION, &told, sizeof told);
        EXPECT_EQ(taken.resolution.x + taken.resolution.y, 0);
    }
    const uint32_t nine = 9, five = 5;
    pictra::take_value(taken, IMG_VALUE_ORIENTATION, &nine, sizeof nine);
    EXPECT_EQ(taken.orientation, 0u);
    pictra::take_value(taken, IMG_VALUE_ORIENTATION, &five, sizeof five);
    pictra::take_value(taken, IMG_VALUE_TEXT, "no zero", 7);
    EXPECT_EQ(taken.texts.at(0), std::pair(std::string("no zero"), std::string()));
    taken.resolution = {1, 2};
    pictra::mark_upright(taken);
    EXPECT_EQ(taken.orientation, 1u);
    EXPECT_EQ(taken.resolution.x, 2) << "5 exchanges the sides";
}

TEST(Cxx, OptionsHaveTheValuesOfTheirTexts) {
    img_option option{"name", "meaning", "slow:fast", IMG_OPTION_SWITCH, -3, 100, 0};
    const auto value = [&](const char *text) { return pictra::option_value(option, text).value_or(-99); };
    EXPECT_EQ(value("on") + value("yes") + value("true") + value("1"), 4);
    EXPECT_EQ(value("off") + value("no") + value("false") + value("0"), 0);
    EXPECT_EQ(value("2"), -99);
    option.type = IMG_OPTION_CHOICE;
    EXPECT_EQ(value("fast"), 1);
    EXPECT_EQ(value("slo") + value("slow:fast") + value(""), 3 * -99);
    option.type = IMG_OPTION_NUMBER;
    EXPECT_EQ(value("-3"), -3);
    for (const char *text : {"-4", "101", "1x", " 1", "", "4294967297"}) EXPECT_EQ(value(text), -99) << text;
}

TEST(Cxx, ImagesMoveAndTheirSizesAreTested) {
    image a = must(image::create(FMT_PAL8, {3, 2}, 4));
    a.palette()[3] = 7;
    a.row(1)[2] = 3;
    image b = std::move(a);
    EXPECT_TRUE(a.empty() && a.palette().empty() && a.rows().begin() == a.rows().end());
    a = must(b.clone());
    b = image();
    EXPECT_EQ(a.palette()[a.row(1)[2]], 7u);
    EXPECT_EQ(std::distance(a.rows().begin(), a.rows().end()), 2);
    EXPECT_EQ(status(image::create(FMT_ARGB8888HE, {0x8000001, 1})), IMG_ST_NOMEM); // 2^32 + 32 bits
    EXPECT_EQ(status(image::create(FMT_ARGB8888HE, {65536, 65536})), IMG_ST_NOMEM);
    EXPECT_EQ(status(image::create(FMT_PAL4, {1, 1})), IMG_ST_BADARG);
}

class CxxLibrary : public testing::Test {
protected:
    CxxLibrary() { setenv("PICTRA_CFGFILE", PICTRA_BUILD_CONFIG, 1); }
    static std::string picture(const std::string &name) { return PICTRA_PICTURES "/" + name; }
    Bytes saved(const image_view &view, const std::string &codec) {
        Bytes bytes;
        output stream = must(output::memory(bytes));
        EXPECT_EQ(status(library().save(view, stream, {.codec = codec})), IMG_ST_OK);
        return bytes;
    }
    const pictra::library &library() {
        if (!library_) library_ = must(pictra::library::attach());
        return *library_;
    }

private:
    std::optional<pictra::library> library_{};
};

TEST_F(CxxLibrary, ConfigurationsThatWouldNeverBeReadAreRefused) {
    const TempFile keyed("\n no entry\n  ext = png\n[x.so]\n"), broken("[/nowhere.so]\next = a:b\nmime = c/d\n");
    EXPECT_EQ(status(pictra::library::attach(keyed.path())), IMG_ST_CONFIG);
    setenv("PICTRA_CFGFILE", keyed.path(), 1);
    EXPECT_EQ(status(pictra::library::attach()), IMG_ST_CONFIG);
    setenv("PICTRA_CFGFILE", "/nowhere", 1);
    EXPECT_EQ(status(pictra::library::attach()), IMG_ST_CONFIG);
    const auto codecs = must(pictra::library::attach(broken.path())).codecs();
    ASSERT_EQ(codecs.size(), 1u);
    EXPECT_EQ(codecs[0].opened, IMG_ST_MODULE);
    EXPECT_EQ(codecs[0].extensions, (std::vector<std::string>{"a", "b"}));
}

TEST_F(CxxLibrary, LoadsInEveryFormatWithTheTransparencyOfTheFile) {
    std::vector<std::pair<std::string, Bytes>> files;
    for (const char *name : {"alpha.png", "grey-alpha.png", "palette-alpha.png", "palette-key.png", "rgb-key.png",
                             "photo.png", "bilevel.pbm", "deep.png"}) {
        const std::string bytes = modules::file(picture(name));
        files.emplace_back(name, Bytes(bytes.begin(), bytes.end()));
    }
    const Image keyed(FMT_PAL8, 20, 10, 100, IMG_F_TRANSP);
    for (const char *codec : {"png", "gif"}) files.emplace_back(codec, saved(image_view(keyed.record), codec));
    for (const auto &[name, bytes] : files) {
        input own = must(input::memory(bytes));
        const image natural = must(library().load(own));
        const Argb pixels = look(natural.record());
        for (const img_format format : modules::all_formats) {
            if (format & IMG_FMT_PAL) continue;
            SCOPED_TRACE(testing::Message() << name << " " << std::hex << format);
            input again = must(input::memory(bytes));
            const image made = must(library().load(again, {.format = format}));
            ASSERT_EQ(made.format(), format);
            const Argb got = look(made.record());
            const uint32_t bits = format & IMG_FMT_BPP_MASK, opaque_bits = bits == 32 ? 24 : 31;
            for (size_t i = 0; i < got.size() && (format & IMG_FMT_ALPHA); i++)
                ASSERT_EQ(got[i] >> opaque_bits, pixels[i] >> opaque_bits) << i;
            for (size_t i = 0; i < got.size() && bits > 16; i++)
                if (pixels[i] >= 0xff000000) {
                    ASSERT_EQ(got[i] & 0xffffff, pixels[i] & 0xffffff) << i;
                }
        }
    }
    EXPECT_EQ(status(library().load(picture("palette-key.png"), {.format = FMT_A8})), IMG_ST_OK);
    EXPECT_EQ(status(library().load(picture("photo.png"), {.format = FMT_PAL8})), IMG_ST_NOCONV);
}

TEST_F(CxxLibrary, LoadsResized) {
    const struct {
        const char *name;
        img_format format;
    } rows[] = {{"photo.png", FMT_RGB888},
                {"grey.png", FMT_G8},
                {"palette-key.png", FMT_ARGB8888HE},
                {"rgb-key.png", FMT_ARGB8888HE},
                {"bilevel.png", FMT_RGB888}};
    for (const auto &[name, format] : rows) {
        const image whole = must(library().load(picture(name)));
        const image small = must(library().load_resized(picture(name), pictra::within(10)));
        EXPECT_EQ(small.size(), pictra::within(10).of(whole.size())) << name;
        EXPECT_EQ(small.format(), format) << name;
        const image same =
            must(library().load_resized(picture(name), {.width = whole.width()}, {.format = FMT_ARGB8888OE}));
        EXPECT_EQ(look(same.record()), look(must(library().load(picture(name), {.format = FMT_ARGB8888OE})).record()));
    }
    EXPECT_EQ(status(library().load_resized(picture("photo.png"), {})), IMG_ST_BADARG);
    EXPECT_EQ(status(library().load_resized(picture("bilevel.png"), {.width = 1}, {.format = FMT_PAL1})),
              IMG_ST_BADFMT);
}

TEST_F(CxxLibrary, StreamsOfAllKindsGiveAndTakeTheSame) {
    const std::string path = picture("photo.png"), text = modules::file(path);
    const Bytes bytes(text.begin(), text.end());
    const image whole = must(library().load(path));
    const Argb pixels = look(whole.record());
    size_t at = 0, step = 0;
    const auto dribble = [&](std::span<uint8_t> dst) {
        const size_t count = std::min({dst.size(), bytes.size() - at, ++step % 7 + 1});
        memcpy(dst.data(), bytes.data() + at, count);
        at += count;
        return count;
    };
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread feeder([&] {
        for (size_t i = 0; i < bytes.size(); i += 5)
            ASSERT_GT(write(ends[1], &bytes[i], std::min<size_t>(5, bytes.size() - i)), 0);
        close(ends[1]);
    });
    std::vector<pictra::result<input>> inputs;
    inputs.push_back(input::file(path));
    inputs.push_back(input::memory(bytes));
    inputs.push_back(input::chain({{bytes.data(), 3}, {}, {bytes.data() + 3, 90}, {&bytes[93], bytes.size() - 93}}));
    inputs.push_back(input::from(dribble));
    inputs.push_back(input::descriptor(ends[0]));
    for (auto &stream : inputs) EXPECT_EQ(look(must(library().load(*stream)).record()), pixels);
    feeder.join();
    close(ends[0]);

    const Bytes expected = saved(whole, "ppm");
    Bytes fixed(expected.size()), collected;
    size_t used = 0;
    output to_fixed = must(output::memory(fixed, used));
    EXPECT_EQ(status(library().save(whole, to_fixed, {.codec = "ppm"})), IMG_ST_OK);
    EXPECT_EQ(fixed, expected);
    output to_function = must(output::to([&](std::span<const uint8_t> src) {
        const size_t count = std::min<size_t>(src.size(), 4000);
        collected.insert(collected.end(), src.begin(), src.begin() + static_cast<ptrdiff_t>(count));
        return count;
    }));
    EXPECT_EQ(status(library().save(whole, to_function, {.codec = "ppm"})), IMG_ST_OK);
    EXPECT_EQ(collected, expected);
    output too_small = must(output::memory(std::span(fixed).first(fixed.size() - 1), used));
    EXPECT_EQ(status(library().save(whole, too_small, {.codec = "ppm"})), IMG_ST_FILE);
    EXPECT_EQ(used, fixed.size() - 1);
    output seeking = must(output::memory(collected));
    EXPECT_EQ(io_ostream_seek(seeking.handle()->self, -2, SEEK_END), static_cast<int64_t>(expected.size() - 2));
}

TEST_F(CxxLibrary, FramesFollowEachOtherUntilTheEndOrAFailure) {
    const Image first(FMT_RGB888, 3, 2), second(FMT_G8, 5, 4);
    Bytes bytes = saved(image_view(first.record), "ppm"), more = saved(image_view(second.record), "pgm");
    bytes.insert(bytes.end(), more.begin(), more.end());
    const auto walk = [&](const Bytes &from) {
        std::string seen;
        auto range = must(library().frames(must(input::memory(from)), {.format = FMT_ARGB8888HE}));
        for (auto &frame : range) {
            seen += frame ? std::to_string(frame->width()) : "!" + std::to_string(frame.error().status);
            const image kept = frame ? *std::move(frame) : image();
        }
        return seen;
    };
    EXPECT_EQ(walk(bytes), "35");
    bytes.pop_back();
    EXPECT_EQ(walk(bytes), "3!4");
    EXPECT_EQ(status(library().frames("/nowhere")), IMG_ST_FILE);
    EXPECT_EQ(status(library().frames(must(input::memory(Bytes(20))))), IMG_ST_RESERVED1);
    EXPECT_EQ(status(library().frames(must(input::memory({})))), IMG_ST_RESERVED1);
}

TEST_F(CxxLibrary, ValuesSettingsAndProgress) {
    const pictra::values told{.orientation = 6, .resolution = {3000, 2000}, .icc = {}, .exif = {}, .xmp = "<x/>"};
    const image photo = must(library().load(picture("photo.png")));
    const TempFile target({}, ".png");
    std::vector<uint32_t> rows;
    const auto note = [&](uint32_t done, uint32_t) { return rows.push_back(done), done < 5; };
    ASSERT_EQ(status(library().save(photo, target.path(), {.values = &told})), IMG_ST_OK);
    pictra::values heard{.orientation = 3, .resolution = {}, .icc = {1}};
    ASSERT_EQ(status(library().load(target.path(), {.values = &heard})), IMG_ST_OK);
    EXPECT_EQ(heard.orientation, 6u);
    EXPECT_EQ(heard.resolution.y, 2000);
    EXPECT_EQ(heard.xmp, "<x/>");
    EXPECT_TRUE(heard.icc.empty());
    EXPECT_EQ(heard.depth, 8u);

    EXPECT_EQ(status(library().load(target.path(), {.progress = note})), pictra::stopped);
    EXPECT_EQ(rows, (std::vector<uint32_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(status(library().load_resized(target.path(), {.width = 9}, {.progress = note})), pictra::stopped);
    const auto unknown = library().load(target.path(), {.settings = {{"sharpness", "9"}}});
    EXPECT_NE(unknown.error().text.find("no option sharpness"), std::string::npos) << unknown.error().text;
    const auto wrong = library().save(photo, target.path(), {.settings = {{"level", "lots"}}});
    EXPECT_NE(wrong.error().text.find("cannot be lots"), std::string::npos) << wrong.error().text;
    EXPECT_FALSE(target.exists());
}

TEST_F(CxxLibrary, FailuresSayWhatAndWhy) {
    const auto missing = library().load("/nowhere.png");
    EXPECT_EQ(status(missing), IMG_ST_FILE);
    EXPECT_EQ(missing.error().text.find("/nowhere.png: "), 0u);
    EXPECT_THROW((void)missing.value(), pictra::bad_result);
    const image photo = must(library().load(picture("photo.png")));
    EXPECT_EQ(status(library().save(photo, "/dev/full", {.codec = "png"})), IMG_ST_FILE);
    EXPECT_EQ(access("/dev/full", F_OK), 0);
    EXPECT_EQ(status(library().save(photo, "x.unknown")), IMG_ST_NOCODEC);
    EXPECT_EQ(status(library().save(photo, "/nowhere/x.png")), IMG_ST_FILE);
}

TEST_F(CxxLibrary, LoadsInThreadsAreNotDisturbedByOnesThatFail) {
    const std::string damaged = modules::file(picture("photo.png"));
    const TempFile cut(damaged.substr(0, damaged.size() / 2), ".png");
    const pictra::library &shared = library();
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&, i] {
            for (int k = 0; k < 20; k++) {
                const bool whole = i > 0;
                const auto made = shared.load_resized(whole ? picture("photo.png") : cut.path(), {.width = 50});
                if (made.has_value() != whole) failures++;
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

} // namespace
