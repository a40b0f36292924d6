// SPDX-License-Identifier: MIT
#include "tools/metadata.h"

#include "tools/text.h"

#include <algorithm>
#include <string.h>
#include <utility>

namespace tool {

namespace {

// Numbers in an EXIF block, in the byte order that its first two letters tell.
class Exif {
public:
    explicit Exif(std::string &block) : block_(block), big_(block.size() >= 2 && block[0] == 'M') {}
    uint32_t get(size_t at, size_t bytes) const {
        uint32_t value = 0;
        for (size_t i = 0; i < bytes && at + i < block_.size(); i++)
            value |= uint32_t{static_cast<uint8_t>(block_[at + i])} << 8 * (big_ ? bytes - 1 - i : i);
        return value;
    }
    void put16(size_t at, uint32_t value) {
        if (at + 2 > block_.size()) return;
        block_[at + (big_ ? 0 : 1)] = static_cast<char>(value >> 8);
        block_[at + (big_ ? 1 : 0)] = static_cast<char>(value);
    }

private:
    std::string &block_;
    bool big_;
};

// A viewer that believes EXIF would turn the picture a second time.
void set_orientation_in(std::string &block, uint32_t orientation) {
    constexpr uint32_t tag = 0x112;
    Exif exif(block);
    const size_t directory = exif.get(4, 4);
    const uint32_t entries = exif.get(directory, 2);
    for (uint32_t i = 0; i < entries && directory + 2 + 12 * (i + 1) <= block.size(); i++)
        if (exif.get(directory + 2 + 12 * i, 2) == tag) exif.put16(directory + 2 + 12 * i + 8, orientation);
}

template <typename T> void copy(T &to, const void *value, size_t size) {
    if (size == sizeof to) memcpy(&to, value, sizeof to);
}

constexpr const char *kinds[] = {"icc", "exif", "xmp", "resolution", "text"};

} // namespace

void Metadata::add_text(const std::string &keyword, const std::string &text) {
    (texts += keyword + '\0' + text) += '\0';
}

bool Metadata::has_text(const std::string &keyword, const std::string &text) const {
    const std::string wanted = keyword + '\0' + text + '\0';
    for (size_t at = texts.find(wanted); at != std::string::npos; at = texts.find(wanted, at + 1))
        if (at == 0 || texts[at - 1] == 0) return true;
    return false;
}

void Metadata::hear(uint32_t key, const void *value, size_t size) {
    const auto bytes = [&] { return std::string(static_cast<const char *>(value), size); };
    switch (key) {
    case IMG_VALUE_ORIENTATION:
        copy(orientation, value, size);
        break;
    case IMG_VALUE_RESOLUTION:
        copy(resolution, value, size);
        break;
    case IMG_VALUE_ICC:
        icc = bytes();
        break;
    case IMG_VALUE_EXIF:
        exif = bytes();
        break;
    case IMG_VALUE_XMP:
        xmp = bytes();
        break;
    case IMG_VALUE_TEXT:
        texts += bytes() + '\0';
        break;
    case IMG_VALUE_FRAMES:
        copy(frames, value, size);
        break;
    case IMG_VALUE_DELAY:
        copy(delay, value, size);
        break;
    case IMG_VALUE_LOOPS:
        copy(loops, value, size);
        break;
    case IMG_VALUE_DEPTH:
        copy(depth, value, size);
        break;
    default:
        break;
    }
}

std::vector<confine::Value> Metadata::values() const {
    const auto bytes = [](const auto &value) {
        return std::string(reinterpret_cast<const char *>(&value), sizeof value);
    };
    std::vector<confine::Value> values{{IMG_VALUE_ORIENTATION, bytes(orientation)},
                                       {IMG_VALUE_RESOLUTION, bytes(resolution)},
                                       {IMG_VALUE_DELAY, bytes(delay)},
                                       {IMG_VALUE_LOOPS, bytes(loops)}};
    for (const auto &[key, block] : {std::pair<uint32_t, const std::string &>(IMG_VALUE_ICC, icc),
                                     {IMG_VALUE_EXIF, exif},
                                     {IMG_VALUE_XMP, xmp},
                                     {IMG_VALUE_TEXT, texts}})
        if (!block.empty()) values.push_back({key, block});
    return values;
}

void Metadata::set_upright() {
    orientation = 1;
    set_orientation_in(exif, 1);
}

void Metadata::swap_sides() { std::swap(resolution.x, resolution.y); }

Keep::Keep(const std::string &names) {
    for (size_t at = 0; at <= names.size();) {
        const size_t end = std::min(names.find(',', at), names.size());
        names_.push_back(names.substr(at, end - at));
        at = end + 1;
        const bool known = std::find(std::begin(kinds), std::end(kinds), names_.back()) != std::end(kinds);
        if (!known && names != "all" && names != "none")
            throw Failure("--keep " + names + ": write all, none, or some of icc,exif,xmp,resolution,text", usage);
    }
}

bool Keep::has(const char *name) const {
    return names_[0] == "all" || std::find(names_.begin(), names_.end(), name) != names_.end();
}

Metadata Keep::of(const Metadata &metadata) const {
    Metadata kept = metadata;
    if (!has("icc")) kept.icc.clear();
    if (!has("exif")) kept.exif.clear();
    if (!has("xmp")) kept.xmp.clear();
    if (!has("resolution")) kept.resolution = {};
    if (!has("text")) kept.texts.clear();
    return kept;
}

} // namespace tool
