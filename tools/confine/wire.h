// SPDX-License-Identifier: MIT
//
// Values in a row of bytes, for another process. The reader trusts nothing: whatever is missing, too long or no number
// makes it fail, and a reader that has failed gives zeros and nothing more.
#pragma once

#include <concepts>
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <string>
#include <string_view>

namespace confine {

// What may go over the wire as it is: equal on both sides, because they are built together.
template <typename T>
concept Fixed = std::unsigned_integral<T> || std::same_as<T, int32_t> || std::same_as<T, double>;

class Writer {
public:
    template <Fixed T> void fixed(T value) { bytes_.append(reinterpret_cast<const char *>(&value), sizeof value); }
    void text(std::string_view text) {
        fixed(static_cast<uint32_t>(text.size()));
        bytes_ += text;
    }
    template <typename List, typename Write> void list(const List &items, const Write &write) {
        fixed(static_cast<uint32_t>(items.size()));
        for (const auto &item : items) write(item);
    }
    const std::string &bytes() const { return bytes_; }

private:
    std::string bytes_;
};

class Reader {
public:
    explicit Reader(std::string_view bytes) : left_(bytes) {}

    template <Fixed T> T fixed() {
        T value{};
        if (left_.size() < sizeof value) return fail(), value;
        memcpy(&value, left_.data(), sizeof value);
        left_.remove_prefix(sizeof value);
        if constexpr (std::same_as<T, double>)
            if (!isfinite(value)) return fail(), 0;
        return value;
    }
    bool flag() {
        const auto value = fixed<uint8_t>();
        if (value > 1) fail();
        return value == 1;
    }
    std::string text(size_t most) {
        const auto size = fixed<uint32_t>();
        if (size > most || size > left_.size()) return fail(), std::string();
        std::string text(left_.substr(0, size));
        left_.remove_prefix(size);
        return text;
    }
    // Reads at most so many items; each takes at least a byte, so a count never allocates more than there are bytes.
    template <typename List, typename Read> void list(List &items, size_t most, const Read &read) {
        const auto count = fixed<uint32_t>();
        if (count > most || count > left_.size()) return fail();
        for (uint32_t i = 0; i < count && !failed_; i++) items.push_back(read());
    }
    void fail() {
        failed_ = true;
        left_ = {};
    }
    // Whether everything was there, and nothing else.
    bool complete() const { return !failed_ && left_.empty(); }

private:
    std::string_view left_;
    bool failed_ = false;
};

} // namespace confine
