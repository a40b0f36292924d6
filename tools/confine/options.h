// SPDX-License-Identifier: MIT
//
// Options of codecs: what the user gave as text, made the value that a codec asks for.
#pragma once

#include "pictra/values.h"
#include "tools/confine/task.h"

#include <string>
#include <vector>

namespace confine {

// An option that a codec asked for.
struct KnownOption {
    std::string name, meaning, choices; // choices: names joined by ":"
    uint32_t type = 0;                  // IMG_OPTION_*
    int32_t lowest = 0, highest = 0;

    std::string values() const; // for people: "1 to 100"
};

inline constexpr size_t most_options = 64, most_option_text = 1024; // of a codec

class Options {
public:
    static constexpr uint32_t none = ~0u;

    explicit Options(const std::vector<GivenOption> &given) : given_(&given) {} // which must outlive it

    // Answers a codec's question. IMG_ST_BADARG if the user gave a value that it does not take.
    img_status answer(img_option &asked);

    const std::vector<KnownOption> &known() const { return known_; }
    uint32_t wrong() const { return wrong_; } // the place of the given option whose value is wrong, or none

private:
    const std::vector<GivenOption> *given_;
    std::vector<KnownOption> known_{};
    uint32_t wrong_ = none;
};

} // namespace confine
