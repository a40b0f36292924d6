// SPDX-License-Identifier: MIT
#include "tools/text.h"

#include <algorithm>
#include <iostream>
#include <strings.h>

namespace tool {

namespace {

struct StatusText {
    const char *reason, *remedy;
};

// In the order of the statuses.
constexpr StatusText status_texts[] = {
    {"done", "nothing to do"},
    {"no codec recognises its content", "'pictra codecs' lists what can be read"},
    {"no conversion leads to the pixel format", "choose another with --format"},
    {"no codec recognises its content or its name", "'pictra codecs' lists what there is"},
    {"the data is damaged or cut short", "get the file again"},
    {"its codec does not support this variant of the format", "convert it with the program that made it"},
    {"memory ran out, or the file has 4 GiB or more", "free memory, or reduce the picture"},
    {"the configuration is missing or holds errors", "check the file that PICTRA_CFGFILE names"},
    {"a codec module does not open", "'pictra codecs --check' tells why"},
    {"it cannot be opened or written", "check name, rights and free space"},
    {"it exceeds a limit (1000000 pixels a side, 268435456 in all)", "reduce the picture with another program"},
    {"the picture's description contradicts itself", "convert it with --format first"},
    {"its codec cannot do this, or its module does not open", "'pictra codecs --check' tells which"},
};

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
    if (status >= std::size(status_texts)) return name + ": its codec reports status " + std::to_string(status);
    const auto &[reason, remedy] = status_texts[status];
    return name + ": " + reason + "; " + remedy;
}

namespace {

const FormatName *find_format(img_format format) {
    const auto *found = std::find_if(std::begin(format_names), std::end(format_names),
                                     [format](const FormatName &entry) { return entry.format == format; });
    return found != std::end(format_names) ? found : nullptr;
}

} // namespace

bool is_format(img_format format) { return find_format(format); }

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

void complain(const std::string &message) { std::cerr << "pictra: " << message << '\n'; }

} // namespace tool
