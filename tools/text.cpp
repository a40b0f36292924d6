// SPDX-License-Identifier: MIT
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>
#include <stdio.h>
#include <strings.h>

namespace tool {

namespace {

// By the status, from IMG_ST_OK on.
constexpr const char *remedies[] = {"nothing to do",
                                    "'pictra codecs' lists what can be read",
                                    "choose another with --format",
                                    "'pictra codecs' lists what there is",
                                    "get the file again",
                                    "convert it with the program that made it",
                                    "free memory, or reduce the picture",
                                    "check the file that PICTRA_CFGFILE names",
                                    "'pictra codecs --check' tells why",
                                    "check name, rights and free space",
                                    "reduce the picture with another program",
                                    "convert it with --format first",
                                    "'pictra codecs --check' tells which"};

struct FormatName {
    img_format format;
    const char *name;
};

constexpr FormatName format_names[] = {
    {FMT_PAL1, "pal1"},
    {FMT_PAL4, "pal4"},
    {FMT_PAL8, "pal8"},
    {FMT_G8, "g8"},
    {FMT_A8, "a8"},
    {FMT_XRGB1555HE, "xrgb1555he"},
    {FMT_XRGB1555OE, "xrgb1555oe"},
    {FMT_ARGB1555HE, "argb1555he"},
    {FMT_ARGB1555OE, "argb1555oe"},
    {FMT_RGB565HE, "rgb565he"},
    {FMT_RGB565OE, "rgb565oe"},
    {FMT_BGR888, "bgr888"},
    {FMT_RGB888, "rgb888"},
    {FMT_XRGB8888HE, "xrgb8888he"},
    {FMT_XRGB8888OE, "xrgb8888oe"},
    {FMT_ARGB8888HE, "argb8888he"},
    {FMT_ARGB8888OE, "argb8888oe"},
    {FMT_XBGR8888HE, "xbgr8888he"},
    {FMT_XBGR8888OE, "xbgr8888oe"},
    {FMT_ABGR8888HE, "abgr8888he"},
    {FMT_ABGR8888OE, "abgr8888oe"},
};

} // namespace

std::string explain(const std::string &name, img_status status) {
    if (status >= std::size(remedies)) return name + ": its codec reports status " + std::to_string(status);
    return name + ": " + pictra::status_text(status) + "; " + remedies[status];
}

namespace {

const FormatName *find_format(img_format format) {
    const auto *found = std::find_if(std::begin(format_names), std::end(format_names),
                                     [format](const FormatName &entry) { return entry.format == format; });
    return found != std::end(format_names) ? found : nullptr;
}

} // namespace

std::string format_name(img_format format) {
    const FormatName *found = find_format(format);
    return found ? found->name : "format " + std::to_string(format);
}

std::optional<img_format> format_of(const std::string &name) {
    const char *bare = name.c_str();
    if (strncasecmp(bare, "FMT_", 4) == 0) bare += 4;
    for (const FormatName &entry : format_names)
        if (strcasecmp(bare, entry.name) == 0) return entry.format;
    return std::nullopt;
}

std::vector<img_format> all_formats() {
    std::vector<img_format> formats;
    for (const FormatName &entry : format_names) formats.push_back(entry.format);
    return formats;
}

std::string all_format_names() {
    std::string names;
    for (const FormatName &entry : format_names) names += (names.empty() ? "" : ", ") + std::string(entry.name);
    return names;
}

namespace {

// A character of UTF-8 text, or a byte that begins none.
struct Character {
    uint32_t code;
    size_t length;
    bool valid;
};

// Overlong forms, surrogates and codes above U+10FFFF are not characters.
Character character_at(const std::string &text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint32_t first = byte(at);
    if (first < 0x80) return {first, 1, true};
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    constexpr uint32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000};
    const Character none{first, 1, false};
    if (first < 0xc0 || first > 0xf7 || length > text.size() - at) return none;
    uint32_t code = first & (0x7f >> length);
    for (size_t i = 1; i < length; i++) {
        if ((byte(at + i) & 0xc0) != 0x80) return none;
        code = code << 6 | (byte(at + i) & 0x3f);
    }
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    return code < lowest[length] || code > 0x10ffff || surrogate ? none : Character{code, length, true};
}

std::string hex(uint32_t value, int digits) {
    char text[9];
    snprintf(text, sizeof text, "%0*x", digits, value);
    return text;
}

// Line separators, and marks that make a terminal show text in another order than it is stored in.
bool misleads(uint32_t code) {
    return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string shown(const std::string &text, size_t at, const Character &character) {
    if (character.code == '\n') return "\\n";
    if (!character.valid || character.code < 0x20 || (character.code >= 0x7f && character.code < 0xa0))
        return "\\x" + hex(character.code, 2);
    if (misleads(character.code)) return "\\u{" + hex(character.code, 4) + "}";
    return text.substr(at, character.length);
}

std::string quoted(const std::string &text, size_t at, const Character &character) {
    if (!character.valid) return "\\ufffd";
    const bool escaped = character.code < 0x20 || character.code == '"' || character.code == '\\';
    return escaped ? "\\u" + hex(character.code, 4) : text.substr(at, character.length);
}

template <typename Form> std::string each_character(const std::string &text, const Form &form) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const Character character = character_at(text, at);
        out += form(text, at, character);
        at += character.length;
    }
    return out;
}

} // namespace

std::string visible(const std::string &text) { return each_character(text, shown); }

size_t columns_of(const std::string &text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string json(const std::string &text) { return '"' + each_character(text, quoted) + '"'; }

std::string json(double number) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    return std::isfinite(number) && error == std::errc() ? std::string(text, end) : "null";
}

void complain(const std::string &message) { std::cerr << "pictra: " + visible(message) + '\n'; }

} // namespace tool
