// SPDX-License-Identifier: MIT
#include "tools/terminal/terminal.h"

#include "tools/text.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace tool {

namespace {

bool has(const char *variable, const char *part) {
    const char *value = getenv(variable);
    return value && strstr(value, part);
}

// The terminal's answer to "what are you": numbers between semicolons, of which 4 announces sixel graphics.
bool announces_sixel() {
    termios before;
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &before) != 0) return false;
    termios raw = before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    std::string answer;
    constexpr char question[] = "\033[c";
    if (write(STDOUT_FILENO, question, sizeof question - 1) > 0) {
        constexpr int patience = 200; // milliseconds
        pollfd input{STDIN_FILENO, POLLIN, 0};
        char c;
        while (answer.find('c') == std::string::npos && answer.size() < 64 && poll(&input, 1, patience) > 0 &&
               read(STDIN_FILENO, &c, 1) == 1)
            answer += c;
    }
    tcsetattr(STDIN_FILENO, TCSANOW, &before);
    std::replace(answer.begin(), answer.end(), 'c', ';');
    return answer.find(";4;") != std::string::npos;
}

Screen::Way find_way() {
    if (!isatty(STDOUT_FILENO) || (getenv("NO_COLOR") && *getenv("NO_COLOR")) || has("TERM", "dumb"))
        return Screen::Way::text;
    if (getenv("KITTY_WINDOW_ID") || has("TERM", "kitty") || has("TERM_PROGRAM", "WezTerm") || has("TERM", "ghostty"))
        return Screen::Way::kitty;
    if (announces_sixel()) return Screen::Way::sixel;
    return has("COLORTERM", "truecolor") || has("COLORTERM", "24bit") ? Screen::Way::blocks : Screen::Way::few;
}

const uint32_t *row_of(const img_record &picture, uint32_t y) {
    return reinterpret_cast<const uint32_t *>(static_cast<const uint8_t *>(picture.data) + size_t{y} * picture.stride);
}

uint32_t channel(uint32_t argb, uint32_t shift) { return argb >> shift & 0xff; }
bool is_seen(uint32_t argb) { return argb >> 31; }

std::string base64(const std::string &bytes) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = 0;
        for (size_t k = 0; k < 3; k++)
            group = group << 8 | (i + k < bytes.size() ? static_cast<uint8_t>(bytes[i + k]) : 0);
        for (size_t k = 0; k < 4; k++) out += i + k <= bytes.size() ? digits[group >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

// https://sw.kovidgoyal.net/kitty/graphics-protocol: RGBA in chunks of at most 4096 characters.
std::string as_kitty(const img_record &picture) {
    std::string pixels;
    for (uint32_t y = 0; y < picture.height; y++)
        for (const uint32_t *at = row_of(picture, y), *end = at + picture.width; at < end; at++)
            for (const uint32_t shift : {16u, 8u, 0u, 24u}) pixels += static_cast<char>(*at >> shift);
    const std::string data = base64(pixels);
    constexpr size_t most = 4096;
    std::string out;
    for (size_t at = 0; at < data.size(); at += most) {
        out += "\033_G";
        if (at == 0)
            out += "a=T,f=32,s=" + std::to_string(picture.width) + ",v=" + std::to_string(picture.height) + ",";
        out += at + most < data.size() ? "m=1;" : "m=0;";
        out += data.substr(at, most) + "\033\\";
    }
    return out + "\n";
}

// An ordered dither to six levels a channel: the threshold of a pixel, 0 to 15.
uint32_t threshold(uint32_t x, uint32_t y) {
    constexpr uint8_t bayer[] = {0, 8, 2, 10, 12, 4, 14, 6, 3, 11, 1, 9, 15, 7, 13, 5};
    return bayer[y % 4 * 4 + x % 4];
}
uint32_t level_of(uint32_t value, uint32_t x, uint32_t y) {
    return (value * 5 * 16 + threshold(x, y) * 255) / (255 * 16);
}
uint32_t cube_index(uint32_t argb, uint32_t x, uint32_t y) {
    return level_of(channel(argb, 16), x, y) * 36 + level_of(channel(argb, 8), x, y) * 6 +
           level_of(channel(argb, 0), x, y);
}

// Bands of six rows; in each band a line of sixels for every colour that occurs.
std::string as_sixel(const img_record &picture) {
    std::string out = "\033P0;1q\"1;1;" + std::to_string(picture.width) + ";" + std::to_string(picture.height);
    for (uint32_t i = 0; i < 216; i++)
        out += "#" + std::to_string(i) + ";2;" + std::to_string(i / 36 * 20) + ";" + std::to_string(i / 6 % 6 * 20) +
               ";" + std::to_string(i % 6 * 20);
    for (uint32_t top = 0; top < picture.height; top += 6) {
        std::array<std::string, 216> lines;
        for (uint32_t y = top; y < std::min(top + 6, picture.height); y++)
            for (uint32_t x = 0; x < picture.width; x++) {
                const uint32_t argb = row_of(picture, y)[x];
                if (!is_seen(argb)) continue;
                std::string &line = lines[cube_index(argb, x, y)];
                line.resize(picture.width, '?');
                line[x] = static_cast<char>(((line[x] - '?') | 1 << (y - top)) + '?');
            }
        for (uint32_t i = 0; i < lines.size(); i++)
            if (!lines[i].empty()) out += "#" + std::to_string(i) + lines[i] + "$";
        out += "-";
    }
    return out + "\033\\\n";
}

std::string color_of(uint32_t argb, bool background, bool few) {
    std::string out = background ? "48;" : "38;";
    if (few) return out + "5;" + std::to_string(16 + cube_index(argb, 1, 1));
    out += "2";
    for (const uint32_t shift : {16u, 8u, 0u}) out += ";" + std::to_string(channel(argb, shift));
    return out;
}

std::string cell_of(uint32_t above, uint32_t below, bool few) {
    const bool top = is_seen(above), bottom = is_seen(below);
    if (!top && !bottom) return "\033[0m ";
    if (!bottom) return "\033[0;" + color_of(above, false, few) + "m▀";
    if (!top) return "\033[0;" + color_of(below, false, few) + "m▄";
    return "\033[" + color_of(above, false, few) + ";" + color_of(below, true, few) + "m▀";
}

std::string as_blocks(const img_record &picture, bool few) {
    std::string out;
    for (uint32_t y = 0; y < picture.height; y += 2) {
        for (uint32_t x = 0; x < picture.width; x++)
            out += cell_of(row_of(picture, y)[x], y + 1 < picture.height ? row_of(picture, y + 1)[x] : 0, few);
        out += "\033[0m\n";
    }
    return out;
}

std::string as_text(const img_record &picture) {
    constexpr char shades[] = " .:-=+*#%@";
    std::string out;
    for (uint32_t y = 0; y < picture.height; y++) {
        for (uint32_t x = 0; x < picture.width; x++) {
            const uint32_t argb = row_of(picture, y)[x];
            const uint32_t luma = (77 * channel(argb, 16) + 151 * channel(argb, 8) + 28 * channel(argb, 0)) >> 8;
            out += is_seen(argb) ? shades[luma * 9 / 255] : ' ';
        }
        out.erase(out.find_last_not_of(' ') + 1);
        out += '\n';
    }
    return out;
}

constexpr struct {
    const char *name;
    Screen::Way way;
} ways[] = {{"kitty", Screen::Way::kitty},
            {"sixel", Screen::Way::sixel},
            {"blocks", Screen::Way::blocks},
            {"256", Screen::Way::few},
            {"text", Screen::Way::text}};

} // namespace

Screen find_screen() {
    Screen screen{find_way(), 80, 24, 8, 16};
    winsize size;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || !size.ws_col || !size.ws_row) return screen;
    screen.columns = size.ws_col;
    screen.lines = size.ws_row;
    if (size.ws_xpixel) screen.cell_width = std::max(1u, uint32_t{size.ws_xpixel} / size.ws_col);
    if (size.ws_ypixel) screen.cell_height = std::max(1u, uint32_t{size.ws_ypixel} / size.ws_row);
    return screen;
}

Screen::Way way_of(const std::string &name) {
    for (const auto &[known, way] : ways)
        if (name == known) return way;
    throw Failure("--as " + name + ": write kitty, sixel, blocks, 256 or text", usage);
}

std::string drawn(const img_record &picture, Screen::Way way) {
    switch (way) {
    case Screen::Way::kitty:
        return as_kitty(picture);
    case Screen::Way::sixel:
        return as_sixel(picture);
    case Screen::Way::text:
        return as_text(picture);
    default:
        return as_blocks(picture, way == Screen::Way::few);
    }
}

} // namespace tool
