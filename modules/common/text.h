// SPDX-License-Identifier: MIT
//
// Texts: those of files, whose character set is not known for sure, and those that a caller wants to have written.
#pragma once

#include "modules/common/picture.h"

#include <string.h>
#include <strings.h>

namespace codec {

// How many bytes the character at text takes in UTF-8; 0 if there is none, or one that UTF-8 forbids.
inline size_t utf8_length(const uint8_t *text, size_t size) {
    const uint8_t first = text[0];
    if (first < 0x80) return 1;
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || length > size) return 0;
    for (size_t i = 1; i < length; i++)
        if ((text[i] & 0xc0) != 0x80) return 0;
    const uint32_t start = uint32_t{first} << 8 | text[1];
    const bool too_long = start < 0xe0a0 ? length == 3 : length == 4 && start < 0xf090;
    const bool surrogate = length == 3 && start >= 0xeda0 && start <= 0xedbf;
    return too_long || surrogate || start > 0xf48f ? 0 : length;
}

inline bool is_utf8(const uint8_t *text, size_t size) {
    for (size_t at = 0; at < size;) {
        const size_t length = utf8_length(text + at, size - at);
        if (!length) return false;
        at += length;
    }
    return true;
}

// Reports a text with its keyword. What is not UTF-8 is taken for Latin-1, which programs wrote before there was UTF-8. A
// zero ends the text.
inline img_status report_text(const Decoding &picture, const char *keyword, const void *bytes, size_t size) {
    const auto *text = static_cast<const uint8_t *>(bytes);
    size = strnlen(static_cast<const char *>(bytes), size);
    if (!size) return ok;
    const size_t start = strlen(keyword) + 1;
    const Bytes value = make_bytes(start + 2 * size);
    if (!value) return no_memory;
    memcpy(value.get(), keyword, start);
    uint8_t *out = value.get() + start;
    const bool as_it_is = is_utf8(text, size);
    for (size_t i = 0; i < size; i++) {
        const uint8_t byte = text[i];
        if (as_it_is || byte < 0x80) {
            *out++ = byte;
        } else {
            *out++ = static_cast<uint8_t>(0xc0 | byte >> 6);
            *out++ = static_cast<uint8_t>(0x80 | (byte & 0x3f));
        }
    }
    return picture.report(IMG_VALUE_TEXT, value.get(), static_cast<size_t>(out - value.get()));
}

// The texts of an answer, one after the other.
class Texts {
public:
    explicit Texts(const img_bytes &all) : at_(static_cast<const char *>(all.data)), left_(all.size) {}

    // Goes to the next one, if there is one that is whole.
    bool next() {
        keyword_ = string();
        text_ = string();
        return text_;
    }
    const char *keyword() const { return keyword_; }
    const char *text() const { return text_; }
    bool is_comment() const { return !strcasecmp(keyword_, "Comment"); }

private:
    const char *string() {
        const char *start = at_;
        const auto *end = left_ ? static_cast<const char *>(memchr(start, 0, left_)) : nullptr;
        if (!end) return nullptr;
        at_ = end + 1;
        left_ -= static_cast<uint64_t>(at_ - start);
        return start;
    }

    const char *at_, *keyword_ = nullptr, *text_ = nullptr;
    uint64_t left_;
};

} // namespace codec
