// SPDX-License-Identifier: MIT
#include "tests/reference.h"

#include <ctype.h>
#include <string.h>

#include <stdexcept>

namespace reference {

namespace {

Format format(std::string name, img_format code) {
    for (char &c : name) c = char(tolower(c));
    return {name, code};
}

} // namespace

#define F(name) format(#name, FMT_##name)
const std::vector<Format> formats = {
    F(PAL1),       F(PAL4),       F(PAL8),       F(G8),         F(A8),         F(XRGB1555HE), F(XRGB1555OE),
    F(ARGB1555HE), F(ARGB1555OE), F(RGB565HE),   F(RGB565OE),   F(BGR888),     F(RGB888),     F(XRGB8888HE),
    F(XRGB8888OE), F(ARGB8888HE), F(ARGB8888OE), F(XBGR8888HE), F(XBGR8888OE), F(ABGR8888HE), F(ABGR8888OE)};

uint32_t bits(img_format format) { return format & IMG_FMT_BPP_MASK; }

uint32_t index_at(uint32_t index_bits, const uint8_t *packed, size_t i) {
    switch (index_bits) {
    case 1:
        return packed[i / 8] >> (7 - i % 8) & 1;
    case 4:
        return i % 2 == 0 ? packed[i / 2] >> 4 : packed[i / 2] & 15;
    default:
        return packed[i];
    }
}

namespace {

struct Pixel {
    uint32_t r, g, b, a;
};

uint32_t w5(uint32_t c) { return (c << 3) | (c >> 2); }
uint32_t w6(uint32_t c) { return (c << 2) | (c >> 4); }

uint32_t word16(img_format format, const uint8_t *p) {
    uint16_t w;
    memcpy(&w, p, 2);
    return format & IMG_FMT_OE ? uint32_t((w & 0xff) << 8 | w >> 8) : w;
}

Pixel load(img_format format, const uint8_t *p) {
    const bool alt = format & IMG_FMT_ALT, alpha = format & IMG_FMT_ALPHA;
    switch (bits(format)) {
    case 8:
        return {p[0], p[0], p[0], 0xff};
    case 16: {
        const uint32_t w = word16(format, p);
        if (alt) return {w5(w >> 11), w6(w >> 5 & 63), w5(w & 31), 0xff};
        return {w5(w >> 10 & 31), w5(w >> 5 & 31), w5(w & 31), !alpha || w & 0x8000 ? 0xffu : 0};
    }
    case 24:
        return alt ? Pixel{p[0], p[1], p[2], 0xff} : Pixel{p[2], p[1], p[0], 0xff};
    default: {
        uint32_t w;
        memcpy(&w, p, 4);
        if (format & IMG_FMT_OE) w = w << 24 | (w << 8 & 0xff0000) | (w >> 8 & 0xff00) | w >> 24;
        const uint32_t top = w >> 16 & 0xff, bottom = w & 0xff, a = alpha ? w >> 24 : 0xff;
        return alt ? Pixel{bottom, w >> 8 & 0xff, top, a} : Pixel{top, w >> 8 & 0xff, bottom, a};
    }
    }
}

void store(img_format format, uint8_t *p, const Pixel &c) {
    const bool alt = format & IMG_FMT_ALT;
    switch (bits(format)) {
    case 8:
        *p = uint8_t(c.a);
        break;
    case 16: {
        auto w = uint16_t(alt ? c.r >> 3 << 11 | c.g >> 2 << 5 | c.b >> 3
                              : c.a >> 7 << 15 | c.r >> 3 << 10 | c.g >> 3 << 5 | c.b >> 3);
        if (format & IMG_FMT_OE) w = uint16_t(w << 8 | w >> 8);
        memcpy(p, &w, 2);
        break;
    }
    case 24:
        p[alt ? 0 : 2] = uint8_t(c.r), p[1] = uint8_t(c.g), p[alt ? 2 : 0] = uint8_t(c.b);
        break;
    default: {
        uint32_t w = c.a << 24 | (alt ? c.b : c.r) << 16 | c.g << 8 | (alt ? c.r : c.b);
        if (format & IMG_FMT_OE) w = w << 24 | (w << 8 & 0xff0000) | (w >> 8 & 0xff00) | w >> 24;
        memcpy(p, &w, 4);
    }
    }
}

uint32_t grey(img_format format, const uint8_t *p) {
    if (bits(format) == 16) {
        const uint32_t w = word16(format, p);
        return format & IMG_FMT_ALT ? (616 * (w >> 11) + 604 * (w >> 5 & 63) + 224 * (w & 31)) >> 8
                                    : (616 * (w >> 10 & 31) + 1208 * (w >> 5 & 31) + 224 * (w & 31)) >> 8;
    }
    const Pixel c = load(format, p);
    if (bits(format) == 32 && format & IMG_FMT_ALT) return 151 * c.g >> 8;
    return (77 * c.r + 151 * c.g + 28 * c.b) >> 8;
}

img_format code(const std::string &name) {
    for (const Format &f : formats)
        if (f.name == name) return f.code;
    throw std::invalid_argument(name);
}

} // namespace

Conversion conversion(const std::string &name) {
    const size_t split = name.find('_');
    if (split != name.npos) return {code(name.substr(0, split)), code(name.substr(split + 1)), name};
    const uint32_t any[] = {FMT_G8, FMT_RGB565HE, FMT_RGB888, FMT_ARGB8888HE};
    const img_format format = any[std::stoul(name.substr(name.find_first_of("123468"))) / 8 - 1];
    return {format, format, name};
}

void Conversion::run(const uint8_t *from, uint8_t *to, size_t count) const {
    const size_t from_bytes = bits(src) / 8, to_bytes = bits(dst) / 8;
    for (size_t i = 0; i < count; i++) {
        const uint8_t *p = from + i * from_bytes;
        uint8_t *q = to + i * to_bytes;
        if (name.find('_') == name.npos) {
            const bool reversed = name.starts_with("swab");
            for (size_t k = 0; k < to_bytes; k++) q[k] = p[reversed ? to_bytes - 1 - k : k];
            uint32_t w;
            if (name == "msb32") memcpy(&w, q, 4), w |= 0xff000000, memcpy(q, &w, 4);
            if (name == "lsb32") memcpy(&w, q, 4), w |= 0xff, memcpy(q, &w, 4);
        } else if (dst == FMT_PAL8) {
            *q = uint8_t(index_at(bits(src), from, i));
        } else if (dst == FMT_G8) {
            *q = uint8_t(grey(src, p));
        } else {
            store(dst, q, load(src, p));
        }
    }
}

} // namespace reference
