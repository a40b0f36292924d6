// SPDX-License-Identifier: MIT
//
// The pictures of a file, read or written in this process: a worker's, or one that nothing confines.
#pragma once

#include "tools/confine/listener.h"
#include "tools/confine/source.h"

namespace confine {

class Pictures {
public:
    // All of them must outlive this.
    Pictures(img_lib_handle &library, const Task &task, Listener::Storage storage, bool (*stopped)())
        : library_(library), task_(task), listener_(task, std::move(storage), stopped) {}

    img_status open(int descriptor) { return source_.open(descriptor); }
    bool is_open() const { return source_.stream(); }

    // Decodes the next picture. candidates are asked until one of them has taken the stream. The record's pixels are where the
    // storage has them, else the library's, for the caller to free.
    Report next(const std::vector<img_codec *> &candidates, img_record &record);

    img_codec *codec() const { return source_.codec(); } // null until one has taken the stream

private:
    img_status decode(const std::vector<img_codec *> &candidates, const img_decode_callouts &callouts,
                      img_record &record);

    img_lib_handle &library_;
    const Task &task_;
    Listener listener_;
    Source source_;
    bool begun_ = false;
};

// Writes a picture to an open file as the task's writing says.
Report write_picture(img_lib_handle &library, img_codec *codec, int file, const Task &task, img_record picture,
                     bool (*stopped)());

} // namespace confine
