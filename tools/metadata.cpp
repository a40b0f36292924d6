// SPDX-License-Identifier: MIT
#include "tools/metadata.h"

#include "tools/text.h"

#include <algorithm>

namespace tool {

namespace {

constexpr const char *kinds[] = {"icc", "exif", "xmp", "resolution", "text"};

} // namespace

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

pictra::values Keep::of(const pictra::values &metadata) const {
    pictra::values kept = metadata;
    if (!has("icc")) kept.icc.clear();
    if (!has("exif")) kept.exif.clear();
    if (!has("xmp")) kept.xmp.clear();
    if (!has("resolution")) kept.resolution = {};
    if (!has("text")) kept.texts.clear();
    return kept;
}

std::vector<confine::Value> values_of(const pictra::values &metadata) {
    pictra::value_answers answers;
    std::vector<confine::Value> values;
    const auto add = [&](uint32_t key, const void *bytes, size_t size) {
        values.push_back({key, std::string(static_cast<const char *>(bytes), size)});
    };
    for (const uint32_t key : {IMG_VALUE_ICC, IMG_VALUE_EXIF, IMG_VALUE_XMP, IMG_VALUE_TEXT}) {
        img_bytes block{};
        answers.answer(metadata, key, &block);
        if (block.size) add(key, block.data, block.size);
    }
    for (const uint32_t key : {IMG_VALUE_ORIENTATION, IMG_VALUE_DELAY, IMG_VALUE_LOOPS}) {
        constexpr uint32_t unknown = ~0u;
        uint32_t number = unknown;
        answers.answer(metadata, key, &number);
        if (number != unknown) add(key, &number, sizeof number);
    }
    img_resolution resolution{};
    answers.answer(metadata, IMG_VALUE_RESOLUTION, &resolution);
    add(IMG_VALUE_RESOLUTION, &resolution, sizeof resolution);
    return values;
}

} // namespace tool
