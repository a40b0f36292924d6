// SPDX-License-Identifier: MIT
//
// What the program and a codec tell each other beside pixels: options, warnings, progress, and the wish to stop.
#pragma once

#include "pictra/pictra.h"
#include "pictra/values.h"

#include <string>
#include <utility>
#include <vector>

namespace tool {

// An option as the user gave it: name=value.
struct GivenOption {
    std::string name, value;
};
GivenOption parse_option(const std::string &text); // fails without "="

// One picture's. It is the data of the callouts that it fills in, and lives as long as they are used.
class Exchange {
public:
    explicit Exchange(std::vector<GivenOption> options = {}) : options_(std::move(options)), asked_(options_.size()) {}

    img_decode_callouts reading();
    img_encode_callouts writing();

    // Fails if an option was the reason why a codec stopped.
    void check() const;

    // What the codec found odd, and how many rows it had done at last.
    std::vector<std::string> warnings{};
    uintptr_t rows_done = 0;
    // The formats that the writing codec offered.
    std::string offered{};

private:
    static img_status hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t);
    static img_status progress(void *data, img_record *, uintptr_t done, uintptr_t all, uintptr_t key, uintptr_t value);
    static img_status check_asked(void *data, img_record *, uint32_t);
    static uint32_t note_formats(void *data, img_record *, const img_format *formats, uint32_t count);
    img_status answer(img_option &option);

    std::vector<GivenOption> options_;
    std::vector<bool> asked_;
    std::string known_{}; // names and values of the options that codecs asked for
    std::string wrong_{};
};

} // namespace tool
