// SPDX-License-Identifier: MIT
//
// What codecs tell of a picture beside its pixels, from the one that reads it to the one that writes it.
#pragma once

#include "pictra/pictra.hpp"
#include "tools/confine/report.h"

#include <string>
#include <utility>
#include <vector>

namespace tool {

using confine::GivenOption;
using confine::Limits;

GivenOption parse_option(const std::string &text); // fails without "="

class Exchange {
public:
    explicit Exchange(std::vector<GivenOption> options = {}) : options_(std::move(options)) {}

    // Takes over what was reported of the next picture, in the place of what was of the last.
    void take(const confine::Report &report);
    // Takes over what was reported when it was written.
    void take_written(const confine::Report &report);

    // Fails with what was wrong with the user's options, if anything.
    void check(const std::string &name) const;

    const std::vector<GivenOption> &options() const { return options_; }
    std::vector<std::string> asked() const; // names of the options that codecs have asked for

    pictra::values metadata{};
    uint64_t rows_done = 0;
    uint32_t full_width = 0, full_height = 0; // of the picture that a thumbnail is of, as stored

private:
    void note_options(const confine::Report &report);

    std::vector<GivenOption> options_;
    std::vector<confine::KnownOption> known_{}; // that codecs asked for
    std::string wrong_{};                       // what check() fails with
};

} // namespace tool
