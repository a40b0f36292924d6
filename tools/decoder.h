// SPDX-License-Identifier: MIT
//
// Pictures out of a file, decoded in a process of its own that can do nothing else, or in this one.
#pragma once

#include "tools/config.h"
#include "tools/confine/child.h"
#include "tools/confine/sandbox.h"
#include "tools/exchange.h"
#include "tools/files/source.h"
#include "tools/picture.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

// How the user wants files to be read; the same for all.
struct Reading {
    std::optional<img_format> format{}; // to load in, instead of the file's own
    bool keep_damaged = false;          // the rows that arrived; the others are zero
    bool upright = true;                // turn pictures as their files say
    uint32_t thumbnail = 0;             // not 0: resize to so many pixels a side while decoding
    std::vector<GivenOption> options{};
    Limits limits{};
    Confinement confinement = Confinement::automatic;
};

class Decoder {
public:
    Decoder(const Library &library, const std::string &path, const Reading &reading); // which must outlive it
    ~Decoder();
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;

    // The next picture, or null when there is no further one; the first call fails rather. The pixels are gone when the one
    // after is asked for.
    std::unique_ptr<Picture> next();

    const Input &input() const { return input_; }
    const Section *section() const; // of the codec, once it is known
    Exchange exchange;              // with what the last picture told

private:
    img_status decode(const std::vector<img_codec *> &candidates, img_record &record);
    img_status decode_here(img_record &record);
    img_status decode_in_child(img_record &record);
    void serve(const Channel &channel, const std::vector<img_codec *> &candidates);
    img_status ask(img_record &record);

    const Library &library_;
    const Reading &reading_;
    Input input_;
    Source source_;
    std::shared_ptr<Arena> arena_; // null: decode here
    std::unique_ptr<Child> child_;
    img_codec *codec_ = nullptr;
    bool first_ = true;
};

} // namespace tool
