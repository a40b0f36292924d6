// SPDX-License-Identifier: MIT
//
// What the program and codecs tell each other beside pixels: what was read with a picture, what is written with it, and
// the wish to stop.
#pragma once

#include "pictra/pictra.h"
#include "tools/confine/report.h"
#include "tools/metadata.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

using confine::GivenOption;
using confine::Limits;

GivenOption parse_option(const std::string &text); // fails without "="

// One picture's, from its file to another. While writing it is the data of the callouts that it fills in.
class Exchange {
public:
    explicit Exchange(std::vector<GivenOption> options = {}) : options_(std::move(options)) {}

    // Takes over what was reported of the next picture, in the place of what was of the last.
    void take(const confine::Report &report);

    img_encode_callouts writing();

    // Fails with what was wrong with the user's options, if anything.
    void check(const std::string &name) const;

    // What the codec told. While writing, what it is told.
    Metadata metadata{};
    std::vector<std::string> warnings{};
    uint64_t rows_done = 0;
    uint32_t full_width = 0, full_height = 0; // of the picture that a thumbnail is of, as stored
    std::optional<confine::Limit> limit{};    // that the picture exceeds
    std::string offered{};                    // the formats that the writing codec offered

private:
    static uint32_t note_formats(void *data, img_record *, const img_format *formats, uint32_t count);
    static img_status check_asked(void *data, img_record *, uint32_t);
    static img_status progress(void *data, img_record *, uintptr_t done, uintptr_t all, uintptr_t key, uintptr_t value);
    img_status answer(img_option &option);
    void note_wrong(size_t given);

    std::vector<GivenOption> options_;
    std::vector<confine::KnownOption> known_{}; // that codecs asked for
    std::string wrong_{};                       // what check() fails with
};

} // namespace tool
