// SPDX-License-Identifier: MIT
//
// What the program and a codec tell each other beside pixels: options, metadata, limits, progress, and the wish to stop.
#pragma once

#include "pictra/pictra.h"
#include "tools/metadata.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace tool {

// An option as the user gave it: name=value.
struct GivenOption {
    std::string name, value;
};
GivenOption parse_option(const std::string &text); // fails without "="

// What a picture may cost; 0 is no limit of the user's.
struct Limits {
    uint64_t pixels = 0;
    uint64_t memory = 0;  // bytes of the process that decodes
    uint32_t seconds = 0; // to decode one picture
};

// Where pictures are put that another process shall see: one after the other, each over the last.
struct Arena {
    uint8_t *begin;
    size_t size;
};
// Gives a record storage in the arena, zero to begin with.
img_status place(img_record &record, const Arena &arena);

// One picture's. It is the data of the callouts that it fills in, and lives as long as they are used.
class Exchange {
public:
    explicit Exchange(std::vector<GivenOption> options = {}, const Limits &limits = {})
        : options_(std::move(options)), asked_(options_.size()), limits_(limits) {}

    img_decode_callouts reading();
    img_encode_callouts writing();

    // What the program decided while it was called back: a wrong option, a limit. Fails with it, if anything.
    void check(const std::string &name) const;

    // How records get their storage: from the library; zeroed, so that it survives a failed load; or in an arena.
    bool zeroed = false;
    const Arena *arena = nullptr;
    uint32_t thumbnail = 0;                   // the most pixels a side, if it is one
    uint32_t full_width = 0, full_height = 0; // of the picture that the thumbnail is of, as stored

    // What the codec told. While writing, what it is told.
    Metadata metadata{};
    std::vector<std::string> warnings{};
    uint64_t rows_done = 0;
    std::string offered{}; // the formats that the writing codec offered

    // The state as bytes, to get it from one process to another.
    std::string packed() const;
    void unpack(const std::string &bytes);

private:
    static uint32_t note_formats(void *data, img_record *, const img_format *formats, uint32_t count);
    static img_status set_up(void *data, img_record *record, uint32_t);
    static img_status check_asked(void *data, img_record *, uint32_t);
    static img_status hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t);
    static img_status progress(void *data, img_record *, uintptr_t done, uintptr_t all, uintptr_t key, uintptr_t value);
    img_status answer(img_option &option);
    img_status refuse(const std::string &why, uint32_t code, img_status status);

    std::vector<GivenOption> options_;
    std::vector<bool> asked_;
    Limits limits_;
    std::chrono::steady_clock::time_point began_{};
    std::string known_{}; // names and values of the options that codecs asked for
    std::string wrong_{}; // what check() fails with
    uint32_t wrong_code_ = 0;
};

} // namespace tool
