// SPDX-License-Identifier: MIT
//
// Pictures out of a file, decoded in a process of its own that can do nothing else, or in this one.
#pragma once

#include "tools/config.h"
#include "tools/confine/pictures.h"
#include "tools/confine/worker.h"
#include "tools/confinement.h"
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
    bool header_only = false;           // what the header tells: pictures without pixels
    bool upright = true;                // turn pictures as their files say
    uint32_t thumbnail = 0;             // not 0: resize to so many pixels a side while decoding
    std::vector<GivenOption> options{};
    Limits limits{};
    uint32_t most_pictures = 100'000; // of a file: a codec that was taken over never comes to an end
    Confinement confinement = Confinement::automatic;
};

class Decoder {
public:
    Decoder(const Library &library, const std::string &path, const Reading &reading); // which must outlive it
    ~Decoder();
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;

    // The next picture, or null when there is no further one; the first call fails rather. The pixels are gone when the
    // one after is asked for. A picture that is its header only has neither pixels nor the colours of its palette.
    std::unique_ptr<Picture> next();

    const Input &input() const { return input_; }
    const Section *section() const; // of the codec, once it is known
    // Whether the last picture came from a process that was confined as far as this program can; else unconfined() says
    // why, unless the user did not want it.
    bool confined() const { return worker_ && !worker_->trouble(); }
    const std::string &unconfined() const { return unconfined_; }
    Exchange exchange; // with what the last picture told

private:
    struct Found {
        confine::Report report;
        std::unique_ptr<Picture> picture;
    };
    void start(const std::vector<img_codec *> &candidates);
    Found find();
    Found ask();
    Found decode_here();
    void note_trouble(const confine::Trouble &trouble);

    const Library &library_;
    const Reading &reading_;
    Input input_;
    confine::Task task_;
    std::vector<img_codec *> candidates_{}; // those of the task's modules
    std::unique_ptr<confine::Worker> worker_{};
    std::unique_ptr<confine::Pictures> here_{};
    img_codec *codec_ = nullptr;
    uint32_t pictures_ = 0; // asked for so far
    std::string unconfined_{};
};

// The first picture of a file, with what its codec told. Whatever decoded it has ended, so its pixels stay as they are.
struct Loaded {
    std::unique_ptr<Picture> picture;
    Exchange exchange;
};
Loaded load(const Library &library, const std::string &path, const Reading &reading);

} // namespace tool
