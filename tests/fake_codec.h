// SPDX-License-Identifier: MIT
//
// A codec that does what a script says and logs what happens to it, and callouts that log what they are told. One event a
// word, in one log for both sides.
#pragma once

#include "pictra/pictra.h"

#include <optional>
#include <string>
#include <vector>

struct Script {
    // What the codec answers.
    img_status validate = 0, begin = 0, frame = 0, finish = 0;

    // The picture that it holds. Rows are tight, top down.
    uint32_t width = 0, height = 0;
    std::vector<img_format> formats{};
    std::vector<uint8_t> pixels{};
    std::vector<uint32_t> palette{}; // FMT_ARGB8888HE
    std::optional<uint32_t> key{};
    uint32_t setup_flags = IMG_SETUP_TOPDOWN;
    img_flags flags = 0;              // further flags of its description
    bool keeps_size = false;          // puts its own size back where the caller asked for another
    uint32_t run = 0;                 // pixels delivered at a time; 0 for whole rows
    bool empty_runs = false;          // further runs of 0 pixels, at the row's begin and end
    uint32_t extra_rows = 0;          // sent below the picture
    uint32_t fail_after = UINT32_MAX; // rows, then it answers `frame` at once
    bool reports_rows = false;        // calls scanline for each row, and stops if told so

    // What it got to write.
    uint32_t chosen = UINT32_MAX;
    std::vector<uint8_t> written{};
    std::vector<uint32_t> written_palette{};
    uint32_t written_key = 0;
    img_record image{}; // its record after setup

    // What the callouts of the caller answer.
    img_status setup_status = 0, palette_status = 0;
    uint32_t choice = 0;

    std::string log{};
    void note(const std::string &event) { log += (log.empty() ? "" : " ") + event; }
};

// The script of the test that runs.
extern Script script;

img_getfuncs_func fake_codec; // all functions
img_getfuncs_func bare_codec; // none

// Tables whose functions note their names and arguments; data is script.
img_decode_callouts logging_decode_callouts();
img_encode_callouts logging_encode_callouts();

inline uint32_t depth(img_format format) { return format & IMG_FMT_BPP_MASK; }
inline uint32_t tight_row(img_format format, uint32_t width) { return (depth(format) * width + 7) / 8; }
