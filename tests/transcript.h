// SPDX-License-Identifier: MIT
//
// What happens to a stream, as text: each word is an operation, "=", and what it gave, as in "r3=abc". Operations are
// rN read, sN skip, uTEXT unread, bN unskip, wTEXT write, kN seek from the end, nN size the buffer (the status and the size
// that is left there), lN limit, g lend the buffer, and c the position, count, transferred bytes and limit.
#pragma once

#include "pictra/backend.h"

#include <stdlib.h>

#include <algorithm>
#include <sstream>
#include <string>

inline std::string operate(io_handle *h, char operation, const std::string &text) {
    const auto n = static_cast<uint32_t>(atoll(text.c_str()));
    const auto size = static_cast<uint32_t>(text.size());
    const auto number = [](auto value) { return std::to_string(static_cast<int32_t>(value)); };
    io_stream *self = h->self;
    std::string bytes(operation == 'r' ? n : 0, '?');
    uint32_t changed = n;
    io_ctl_buf lent{nullptr, 77};
    switch (operation) {
    case 'r':
        bytes.resize(h->read(self, bytes.data(), n));
        return bytes;
    case 's':
        return number(h->skip(self, n));
    case 'u':
        return number(h->unread(self, text.data(), size));
    case 'b':
        return number(h->unskip(self, n));
    case 'w':
        return number(h->write(self, text.data(), size));
    case 'k':
        return std::to_string(h->seek(self, static_cast<int32_t>(n), SEEK_END));
    case 'n':
        bytes = number(h->ctl(self, IO_CTL_SETBUF, &changed));
        return bytes + "," + number(changed);
    case 'l':
        return number(h->ctl(self, IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{n})));
    case 'g':
        if (h->ctl(self, IO_CTL_GETBUF, &lent)) return "failed";
        return {reinterpret_cast<char *>(lent.data), lent.length};
    default:
        return number(self->position) + "," + number(self->count) + "," + number(self->transferred) + "," +
               number(self->limit);
    }
}

// Does what a transcript says, and returns it with the results that came. Calls of a backend that logs them follow in
// brackets.
inline std::string play(io_handle *h, const std::string &transcript, std::string *calls = nullptr) {
    std::istringstream words(transcript);
    std::string all;
    for (std::string word; words >> word;) {
        const std::string asked = word.substr(0, word.find('='));
        all += (all.empty() ? "" : " ") + asked + "=" + operate(h, asked[0], asked.substr(1));
        if (!calls || calls->empty()) continue;
        std::replace(calls->begin(), calls->end(), ' ', ',');
        all += "[" + *calls + "]";
        calls->clear();
    }
    return all;
}
