// SPDX-License-Identifier: MIT
//
// Texts out of hostile files and names, as the program prints them.
#include "tools/text.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>

namespace {

// Length of the well-formed UTF-8 character at a place, or 0. Its first two bytes decide, by the table of the Unicode
// standard.
size_t character_at(const std::string &text, size_t at) {
    constexpr struct {
        uint8_t first, last, low, high;
        size_t length;
    } rows[] = {{0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3}, {0xe1, 0xec, 0x80, 0xbf, 3},
                {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4},
                {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4}};
    const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<uint8_t>(text[at + i]) : uint8_t{0}; };
    if (byte(0) < 0x80) return 1;
    for (const auto &row : rows) {
        if (byte(0) < row.first || byte(0) > row.last) continue;
        bool formed = byte(1) >= row.low && byte(1) <= row.high;
        for (size_t i = 2; i < row.length; i++) formed = formed && (byte(i) & 0xc0) == 0x80;
        return formed ? row.length : 0;
    }
    return 0;
}

const std::string replacement = "\xef\xbf\xbd";

// The text with each byte that belongs to no character replaced; what a reader of the JSON has to get.
std::string repaired(const std::string &text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t length = character_at(text, at);
        out += length ? text.substr(at, length) : replacement;
        at += length ? length : 1;
    }
    return out;
}

// What a JSON string stands for; nothing if it is not one.
std::string read_json(const std::string &json) {
    if (json.size() < 2 || json.front() != '"' || json.back() != '"') return "no quotes";
    std::string out;
    for (size_t i = 1; i + 1 < json.size(); i++) {
        if (static_cast<uint8_t>(json[i]) < 0x20 || json[i] == '"') return "a bare " + std::to_string(json[i]);
        if (json[i] != '\\') {
            out += json[i];
            continue;
        }
        const unsigned long code = strtoul(json.substr(i + 2, 4).c_str(), nullptr, 16);
        out += code == 0xfffd ? replacement : std::string(1, static_cast<char>(code));
        i += 5;
    }
    return out;
}

// Calls a function with each sequence of at most so many of these bytes, which are at the borders of all classes.
void each_sequence(size_t most, const std::function<void(const std::string &)> &call, const std::string &begun = "") {
    static const std::string bytes(
        "\0\t\n\x1b\x1f \"A\\~\x7f\x80\x85\x8f\x90\x9f\xa0\xbf\xc0\xc2\xdf\xe0\xe1\xe2\xed\xef\xf0"
        "\xf1\xf4\xf5\xf8\xff",
        32);
    call(begun);
    if (begun.size() == most) return;
    for (const char byte : bytes) each_sequence(most, call, begun + byte);
}

TEST(ToolText, JsonHoldsEveryText) {
    size_t wrong = 0;
    each_sequence(4, [&](const std::string &text) {
        const std::string json = tool::json(text);
        if (read_json(json) == repaired(text) && repaired(json) == json) return;
        if (wrong++ < 5) ADD_FAILURE() << testing::PrintToString(text) << " became " << testing::PrintToString(json);
    });
    EXPECT_EQ(wrong, 0u);
}

TEST(ToolText, JsonNumbersAreFinite) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double number : {infinity, -infinity, std::nan("")}) EXPECT_EQ(tool::json(number), "null");
    for (const double number : {0.0, -0.5, 2834.645669291339, 1e300, 5e-324}) {
        const std::string json = tool::json(number);
        EXPECT_EQ(strtod(json.c_str(), nullptr), number) << json;
        EXPECT_EQ(json.find_first_not_of("-+.0123456789e"), std::string::npos) << json;
    }
}

TEST(ToolText, NothingDrivesTheTerminal) {
    size_t wrong = 0;
    each_sequence(4, [&](const std::string &text) {
        const std::string shown = tool::visible(text);
        bool harmless = repaired(shown) == shown;
        for (size_t i = 0; i < shown.size(); i++) {
            const auto byte = static_cast<uint8_t>(shown[i]), next = static_cast<uint8_t>(shown[i + 1]);
            harmless = harmless && byte >= 0x20 && byte != 0x7f && !(byte == 0xc2 && next < 0xa0);
        }
        const bool plain = text.find_first_not_of(" \"A\\~") == std::string::npos;
        if (harmless && (!plain || shown == text)) return;
        if (wrong++ < 5) ADD_FAILURE() << testing::PrintToString(text) << " is shown as " << shown;
    });
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(tool::visible("gr\u00fc\u00dfe \u753b\u50cf \U0001f5bc"), "gr\u00fc\u00dfe \u753b\u50cf \U0001f5bc");
    EXPECT_EQ(tool::visible("a\n\x1b[2J\xff"), "a\\n\\x1b[2J\\xff");
    EXPECT_EQ(tool::visible("\u202egpj.\u2066x\u2028\u0085"), "\\u{202e}gpj.\\u{2066}x\\u{2028}\\x85");
}

TEST(ToolText, OnlySuccessIsZero) {
    for (uint32_t status = 1; status < 1000; status++) {
        const int code = tool::exit_code(status) & 0xff;
        EXPECT_TRUE(code > 0 && code < 126) << status;
    }
    EXPECT_EQ(tool::exit_code(0), 0);
    EXPECT_EQ(tool::exit_code(UINT32_MAX), tool::failed);
}

} // namespace
