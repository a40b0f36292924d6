// SPDX-License-Identifier: MIT
//
// What a file tells of a picture beside its pixels, and which of it is kept when the picture is written again.
#pragma once

#include "tools/confine/shape.h"

#include <stdint.h>
#include <string>
#include <vector>

namespace tool {

struct Metadata {
    uint32_t orientation = 1; // as in EXIF: how to turn the stored picture to see it upright
    img_resolution resolution{};
    std::string icc{}, exif{}, xmp{};
    std::string texts{};            // keyword, a zero, text, a zero; and so on
    uint32_t frames = 0, depth = 0; // 0: not told
    uint32_t delay = 0, loops = 0;

    void add_text(const std::string &keyword, const std::string &text);
    bool has_text(const std::string &keyword, const std::string &text) const;
    void hear(uint32_t key, const void *value, size_t size);
    std::vector<confine::Value> values() const; // for who writes the picture

    // After the picture was turned upright, or by a quarter turn.
    void set_upright();
    void swap_sides();
};

// Which kinds of metadata a written picture gets: "all", "none", or names joined by commas.
class Keep {
public:
    explicit Keep(const std::string &names); // fails for an unknown one
    Metadata of(const Metadata &metadata) const;

private:
    bool has(const char *name) const;
    std::vector<std::string> names_;
};

} // namespace tool
