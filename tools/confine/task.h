// SPDX-License-Identifier: MIT
//
// What is wanted with a file: the request that a worker gets, and the measure of what it may answer.
#pragma once

#include "tools/confine/shape.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace confine {

// What a picture may cost; 0 is no limit but the codecs' own.
struct Limits {
    uint64_t pixels = 0;
    uint64_t memory = 0;  // bytes, the picture included
    uint32_t seconds = 0; // to decode or encode one picture

    uint64_t most_pixels() const { return pixels ? std::min(pixels, max_pixels) : max_pixels; }
    // Bytes of the largest picture. Padding makes a row of the narrowest picture four bytes long, and no pixel has more.
    uint64_t most_bytes() const { return memory ? std::min(memory, 4 * most_pixels()) : 4 * most_pixels(); }
};

// An option for the codecs as the user gave it: name=value.
struct GivenOption {
    std::string name, value;
};

// A picture to write, and what its codec is told.
struct Writing {
    Shape picture{};
    std::vector<Value> values{};      // one of each kind
    std::vector<std::string> asked{}; // options that the codec which read the picture has
};

struct Task {
    img_format format = 0;     // to load in; 0: the file's own
    uint32_t thumbnail = 0;    // not 0: resize to so many pixels a side while decoding
    bool header_only = false;  // what the header tells, without pixels
    bool keep_damaged = false; // rows that did not arrive are zero
    bool confined = true;      // required: no picture from a process that could not be confined
    Limits limits{};
    std::vector<GivenOption> options{};
    std::vector<std::string> modules{}; // paths of codec modules, in the order in which they are asked
    std::optional<Writing> writing{};   // write this, instead of reading
};

// How a worker ends that could not begin.
enum { exit_no_memory = 3, exit_no_task = 4 };

std::string packed(const Task &task);
std::optional<Task> unpacked(std::string_view bytes);

} // namespace confine
