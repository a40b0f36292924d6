// SPDX-License-Identifier: MIT
#include "pictra/kit.h"
#include "tests/image.h"
#include "tests/kit/profiles.h"
#include "tests/memory.h"

#include <gtest/gtest.h>
#include <lcms2.h>

#include <cmath>
#include <functional>
#include <random>

namespace {

using profiles::Bytes;

struct Colour {
    Colour(const Bytes &profile, uint32_t intent = 0, uint32_t flags = 0) {
        const pictra_colour_options options{sizeof options, intent, flags};
        status = pictra_colour_create(profile.data(), profile.size(), &options, &handle);
    }
    Colour(const Colour &) = delete;
    ~Colour() { pictra_colour_free(handle); }
    pictra_colour *handle = nullptr;
    img_status status;
};

Bytes noise(size_t count) {
    std::mt19937 random(5);
    Bytes bytes(count);
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
}

// The colour library in double precision and without shortcuts, from samples of 16 bits.
std::vector<double> exact(const Bytes &profile, const std::vector<uint16_t> &samples, uint32_t channels,
                          uint32_t intent, uint32_t flags) {
    cmsHPROFILE from = cmsOpenProfileFromMem(profile.data(), static_cast<cmsUInt32Number>(profile.size()));
    cmsHPROFILE to = cmsCreate_sRGBProfile();
    const uint32_t layout = channels == 1 ? TYPE_GRAY_16 : channels == 3 ? TYPE_RGB_16 : TYPE_CMYK_16;
    cmsHTRANSFORM transform =
        cmsCreateTransform(from, layout, to, TYPE_RGB_DBL, intent ? INTENT_RELATIVE_COLORIMETRIC : INTENT_PERCEPTUAL,
                           cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE | (flags ? cmsFLAGS_BLACKPOINTCOMPENSATION : 0));
    const size_t count = samples.size() / channels;
    std::vector<double> result(count * 3);
    cmsDoTransform(transform, samples.data(), result.data(), static_cast<cmsUInt32Number>(count));
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
    for (double &value : result) value = std::min(std::max(value, 0.0), 1.0) * 255;
    return result;
}

void expect_close(const Bytes &made, const std::vector<double> &wanted, const std::string &what) {
    double worst = 0, sum = 0;
    for (size_t i = 0; i < made.size(); i++) {
        worst = std::max(worst, std::abs(made[i] - wanted[i]));
        sum += std::abs(made[i] - wanted[i]);
    }
    EXPECT_LE(worst, 2.0) << what;
    EXPECT_LE(sum / static_cast<double>(made.size()), 1.0) << what;
}

TEST(KitColour, EveryKindOfProfileIsWithinTwoLevelsOfTheExactConversion) {
    const struct {
        const char *name;
        Bytes profile;
        uint32_t channels;
    } kinds[] = {{"wide gamut", profiles::wide_gamut(), 3},
                 {"P3", profiles::screen_p3(), 3},
                 {"photographic", profiles::photographic(), 3},
                 {"table", profiles::rgb_by_table(), 3},
                 {"grey", profiles::grey(1.8), 1},
                 {"printing", profiles::printing(), 4}};
    constexpr uint32_t count = 3000;
    for (const auto &kind : kinds)
        for (const uint32_t intent : {PICTRA_INTENT_PERCEPTUAL, PICTRA_INTENT_RELATIVE})
            for (const uint32_t flags : {0u, uint32_t{PICTRA_COLOUR_BLACK_POINT}}) {
                const Colour colour(kind.profile, intent, flags);
                ASSERT_EQ(colour.status, 0u) << kind.name;
                EXPECT_EQ(pictra_colour_channels(colour.handle), kind.channels);
                EXPECT_EQ(pictra_colour_is_srgb(colour.handle), 0u);
                for (const uint32_t bits : {8u, 16u})
                    for (const bool inverted : {false, true}) {
                        // Pixels with a sample of something else after the colour.
                        const Bytes stored = noise(count * (kind.channels + 1) * bits / 8);
                        std::vector<uint16_t> samples;
                        for (size_t i = 0; i < count * (kind.channels + 1); i++) {
                            uint16_t sample = static_cast<uint16_t>(stored[i] * 257);
                            if (bits == 16) memcpy(&sample, &stored[i * 2], 2);
                            if (i % (kind.channels + 1) < kind.channels)
                                samples.push_back(inverted ? static_cast<uint16_t>(65535 - sample) : sample);
                        }
                        const pictra_samples layout{sizeof layout, bits, 1,
                                                    inverted ? uint32_t{PICTRA_SAMPLES_INVERTED} : 0u};
                        Bytes made(count * 3);
                        ASSERT_EQ(pictra_colour_convert_samples(colour.handle, &layout, stored.data(), FMT_RGB888,
                                                                made.data(), count),
                                  0u);
                        expect_close(made, exact(kind.profile, samples, kind.channels, intent, flags),
                                     kind.name + std::to_string(bits));
                    }
            }
}

TEST(KitColour, PixelsOfAllFormatsBecomeTheSameColours) {
    const Colour colour(profiles::wide_gamut());
    constexpr uint32_t count = 2500; // more than a block
    const Bytes rgb = noise(count * 3);
    Bytes expected(count * 3);
    ASSERT_EQ(pictra_colour_convert(colour.handle, FMT_RGB888, rgb.data(), expected.data(), count), 0u);
    for (const img_format format : {FMT_BGR888, FMT_XRGB8888HE, FMT_ARGB8888HE, FMT_ARGB8888OE, FMT_XBGR8888OE,
                                    FMT_ABGR8888HE, FMT_ABGR8888OE, FMT_RGB565HE, FMT_ARGB1555OE}) {
        const uint32_t bytes = img::bits_per_pixel(format) / 8;
        Bytes pixels(count * 4), colours(count * 3), wanted(count * 3);
        ASSERT_EQ(img_convert_data(FMT_RGB888, rgb.data(), format, pixels.data(), count), 0u);
        // Some are transparent, and stay so.
        std::vector<uint32_t> alphas;
        for (uint32_t i = 0; i < count && bytes == 4 && (format & IMG_FMT_ALPHA); i++) {
            uint32_t argb;
            img_convert_data(format, &pixels[i * 4], FMT_ARGB8888HE, &argb, 1);
            argb = (argb & 0xffffff) | i % 256 << 24;
            img_convert_data(FMT_ARGB8888HE, &argb, format, &pixels[i * 4], 1);
            alphas.push_back(i % 256);
        }
        img_convert_data(format, pixels.data(), FMT_RGB888, wanted.data(), count);
        ASSERT_EQ(pictra_colour_convert(colour.handle, FMT_RGB888, wanted.data(), wanted.data(), count), 0u);
        ASSERT_EQ(pictra_colour_convert(colour.handle, format, pixels.data(), pixels.data(), count), 0u);
        img_convert_data(format, pixels.data(), FMT_RGB888, colours.data(), count);
        const int step = bytes == 2 ? 9 : 1; // 5 bits a channel, rounded down
        for (size_t i = 0; i < colours.size(); i++)
            ASSERT_LE(std::abs(colours[i] - wanted[i]), step) << std::hex << format << " at " << i;
        for (size_t i = 0; i < alphas.size(); i++) {
            uint32_t argb;
            img_convert_data(format, &pixels[i * 4], FMT_ARGB8888HE, &argb, 1);
            ASSERT_EQ(argb >> 24, alphas[i]) << std::hex << format;
        }
    }
    uint8_t index = 0;
    EXPECT_EQ(pictra_colour_convert(colour.handle, FMT_PAL8, &index, &index, 1), uint32_t{IMG_ST_BADFMT});
    EXPECT_EQ(pictra_colour_convert(colour.handle, FMT_A8, &index, &index, 1), uint32_t{IMG_ST_BADFMT});
    EXPECT_EQ(pictra_colour_convert(Colour(profiles::printing()).handle, FMT_RGB888, rgb.data(), expected.data(), 1),
              uint32_t{IMG_ST_BADFMT});
}

TEST(KitColour, ImagesTakeTheirPalettesAndKeysAlong) {
    const Colour colour(profiles::photographic());
    const uint32_t entry = 0x40c08040;
    uint32_t expected = entry;
    ASSERT_EQ(pictra_colour_convert(colour.handle, FMT_ARGB8888HE, &entry, &expected, 1), 0u);
    EXPECT_NE(expected, entry);
    EXPECT_EQ(expected >> 24, 0x40u);

    uint32_t entries[] = {entry, entry};
    Image indices(FMT_PAL8, 3, 2, false, 1);
    indices.give_palette(entries, 2);
    ASSERT_EQ(pictra_colour_convert_image(colour.handle, &indices.record), 0u);
    EXPECT_EQ(entries[1], expected);
    EXPECT_EQ(indices.pixels[0], 1);

    Image keyed(FMT_RGB888, 3, 2, false);
    for (uint32_t y = 0; y < 2; y++)
        for (uint32_t x = 0; x < 3; x++)
            img_convert_data(FMT_ARGB8888HE, &entry, FMT_RGB888, &keyed.pixels[y * keyed.stride + x * 3], 1);
    keyed.record.flags |= IMG_F_TRANSP;
    keyed.record.transparency = entry;
    ASSERT_EQ(pictra_colour_convert_image(colour.handle, &keyed.record), 0u);
    uint32_t last = 0;
    img_convert_data(FMT_RGB888, &keyed.pixels[keyed.stride + 6], FMT_ARGB8888HE, &last, 1);
    EXPECT_EQ((last ^ keyed.record.transparency) & 0xffffff, 0u) << "the key is no longer the pixels' colour";
    EXPECT_EQ((last ^ expected) & 0xffffff, 0u);
}

TEST(KitColour, SrgbIsKnownAndChangesNothing) {
    const Colour colour(profiles::srgb());
    EXPECT_EQ(pictra_colour_is_srgb(colour.handle), 1u);
    const Bytes pixels = noise(300);
    Bytes made(300);
    ASSERT_EQ(pictra_colour_convert(colour.handle, FMT_RGB888, pixels.data(), made.data(), 100), 0u);
    EXPECT_EQ(made, pixels);
    char name[8];
    pictra_colour_name(colour.handle, name, sizeof name);
    EXPECT_STREQ(name, "sRGB bu");
}

// ---- Hostile profiles ------------------------------------------------------------------------------------------------

void put_word(Bytes &bytes, size_t at, uint32_t word) {
    for (size_t i = 0; i < 4; i++) bytes[at + i] = static_cast<uint8_t>(word >> (24 - 8 * i));
}
uint32_t word_at(const Bytes &bytes, size_t at) {
    return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}
// Where a tag's entry in the table is.
size_t entry_of(const Bytes &profile, const char *signature) {
    for (size_t at = 132; at < 132 + size_t{12} * word_at(profile, 128); at += 12)
        if (!memcmp(&profile[at], signature, 4)) return at;
    return 0;
}

TEST(KitColour, DamagedProfilesAreRefused) {
    const Bytes good = profiles::wide_gamut(), table = profiles::printing();
    const size_t red = entry_of(good, "rXYZ"), curve = entry_of(good, "rTRC"), forth = entry_of(table, "A2B0");
    const struct {
        const char *what;
        uint32_t status;
        std::function<void(Bytes &)> change;
    } damages[] = {
        {"cut", IMG_ST_DAMAGED, [](Bytes &p) { p.erase(p.end() - 20, p.end()); }},
        {"no mark", IMG_ST_DAMAGED, [](Bytes &p) { p[36] = 'x'; }},
        {"version", IMG_ST_BADFMT, [](Bytes &p) { p[8] = 5; }},
        {"space", IMG_ST_BADFMT, [](Bytes &p) { memcpy(&p[16], "LUV ", 4); }},
        {"kind", IMG_ST_BADFMT, [](Bytes &p) { memcpy(&p[12], "link", 4); }},
        {"many tags", IMG_ST_DAMAGED, [](Bytes &p) { put_word(p, 128, 0x15555556); }},
        {"offset", IMG_ST_DAMAGED, [=](Bytes &p) { put_word(p, red + 4, 0xfffffff0); }},
        {"length", IMG_ST_DAMAGED, [=](Bytes &p) { put_word(p, red + 8, 0xfffffff0); }},
        {"type", IMG_ST_DAMAGED, [=](Bytes &p) { memcpy(&p[word_at(p, red + 4)], "curv", 4); }},
        {"a long curve", IMG_ST_DAMAGED,
         [=](Bytes &p) {
             memcpy(&p[word_at(p, curve + 4)], "curv", 4);
             put_word(p, word_at(p, curve + 4) + 8, 0x7fffffff);
         }},
        {"no primary", IMG_ST_DAMAGED, [=](Bytes &p) { memcpy(&p[red], "none", 4); }},
        {"too large", IMG_ST_LIMIT, [](Bytes &p) { p.resize((4 << 20) + 1); }},
    };
    for (const auto &damage : damages) {
        Bytes bytes = good;
        damage.change(bytes);
        EXPECT_EQ(Colour(bytes).status, damage.status) << damage.what;
    }
    Bytes huge = table; // a grid that would be 255^4
    huge[word_at(huge, forth + 4) + 10] = 255;
    EXPECT_EQ(Colour(huge).status, uint32_t{IMG_ST_DAMAGED});
    Bytes other = table; // for other channels than the space has
    other[word_at(other, forth + 4) + 8] = 3;
    EXPECT_EQ(Colour(other).status, uint32_t{IMG_ST_DAMAGED});
    EXPECT_EQ(Colour(Bytes()).status, uint32_t{IMG_ST_BADARG});
}

TEST(KitColour, FailingAllocationsLeaveNothing) {
    for (const Bytes &profile : {profiles::wide_gamut(), profiles::printing(), profiles::grey(2.2)}) {
        const pictra_samples layout{sizeof layout, 16, 0, 0};
        const Bytes samples = noise(64);
        Bytes made(64);
        const size_t tried = memory::for_each_failure([&](size_t n, memory::Watch &watch) {
            {
                const Colour colour(profile);
                img_status status = colour.status;
                if (!status)
                    status = pictra_colour_convert_samples(colour.handle, &layout, samples.data(), FMT_RGB888,
                                                           made.data(), 4);
                EXPECT_EQ(status, watch.failed() ? uint32_t{IMG_ST_NOMEM} : 0u) << n;
            }
            EXPECT_EQ(watch.live(), 0u) << n;
        });
        EXPECT_GT(tried, 20u);
    }
}

} // namespace
