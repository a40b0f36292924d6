// SPDX-License-Identifier: MIT
//
// Values in a row of bytes, for another process. The reader trusts nothing: what is missing reads as zero or empty.
#pragma once

#include <stdint.h>
#include <string.h>
#include <string>
#include <vector>

namespace tool {

class ByteWriter {
public:
    void number(uint64_t value) { bytes_.append(reinterpret_cast<const char *>(&value), sizeof value); }
    void real(double value) { bytes_.append(reinterpret_cast<const char *>(&value), sizeof value); }
    void text(const std::string &text) {
        number(text.size());
        bytes_ += text;
    }
    void texts(const std::vector<std::string> &list) {
        number(list.size());
        for (const std::string &item : list) text(item);
    }
    const std::string &bytes() const { return bytes_; }

private:
    std::string bytes_;
};

class ByteReader {
public:
    explicit ByteReader(const std::string &bytes) : bytes_(bytes) {}
    uint64_t number() { return fixed<uint64_t>(); }
    double real() { return fixed<double>(); }
    std::string text() {
        const uint64_t size = number(), there = bytes_.size() - at_, taken = size < there ? size : there;
        at_ += taken;
        return bytes_.substr(at_ - taken, taken);
    }
    std::vector<std::string> texts() {
        std::vector<std::string> list;
        for (uint64_t count = number(); count && at_ < bytes_.size(); count--) list.push_back(text());
        return list;
    }

private:
    template <typename T> T fixed() {
        T value{};
        if (bytes_.size() - at_ < sizeof value) return T{};
        memcpy(&value, bytes_.data() + at_, sizeof value);
        at_ += sizeof value;
        return value;
    }
    const std::string &bytes_;
    size_t at_ = 0;
};

} // namespace tool
