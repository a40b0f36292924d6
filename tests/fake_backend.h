// SPDX-License-Identifier: MIT
//
// A stream backend over a string, which may lack operations, be short, and logs what it is asked: "r5=3" for a read of 5
// bytes that gave 3, s skip, u unread, b unskip, w write, k seek, x close.
#pragma once

#include "pictra/backend.h"

#include <errno.h>
#include <stdarg.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>

struct FakeBackend {
    std::string data{}; // read from, or written to
    size_t at = 0;
    uint32_t most = UINT32_MAX; // bytes that one call moves at most
    uint32_t buffer_size = 8;
    bool skips = false, unreads = false, unskips = false;
    std::string log{};

    static FakeBackend &of(intptr_t handle) { return *reinterpret_cast<FakeBackend *>(handle); }

    uint32_t note(char op, uint32_t asked, uint32_t moved) {
        log += (log.empty() ? "" : " ") + (op + std::to_string(asked)) + "=" + std::to_string(moved);
        return moved;
    }
    int note(char op, uint32_t asked, bool done) {
        note(op, asked, uint32_t{done});
        return done ? 0 : -1;
    }
    std::string take_log() { return std::exchange(log, {}); }

    static int make(io_stream *stream, va_list *args) {
        FakeBackend &fake = *va_arg(*args, FakeBackend *);
        stream->handle = reinterpret_cast<intptr_t>(&fake);
        stream->buffer_size = fake.buffer_size;
        stream->backend_close = [](io_stream *s) { of(s->handle).note('x', 0, uint32_t{0}); };
        if (stream->mode == IO_WRITE) {
            stream->backend_write = [](intptr_t h, const void *src, uint32_t n) {
                FakeBackend &f = of(h);
                const uint32_t moved = src ? std::min(n, f.most) : 0;
                if (moved) f.data.append(static_cast<const char *>(src), moved);
                return f.note('w', n, moved);
            };
            stream->backend_seek = [](intptr_t h, int32_t offset, int whence) {
                of(h).note('k', static_cast<uint32_t>(whence), static_cast<uint32_t>(offset));
                return int64_t{0x123456789};
            };
            return 0;
        }
        stream->backend_read = [](intptr_t h, void *dst, uint32_t n) {
            FakeBackend &f = of(h);
            const auto left = static_cast<uint32_t>(f.data.size() - f.at);
            const uint32_t moved = dst ? std::min({n, f.most, left}) : 0;
            if (!dst) errno = EFAULT;
            if (moved) memcpy(dst, f.data.data() + f.at, moved);
            f.at += moved;
            return f.note('r', n, moved);
        };
        if (fake.skips)
            stream->backend_skip = [](intptr_t h, uint32_t n) {
                FakeBackend &f = of(h);
                const bool ok = n <= f.data.size() - f.at;
                if (ok) f.at += n;
                return f.note('s', n, ok);
            };
        const auto back = [](char op, intptr_t h, uint32_t n) {
            FakeBackend &f = of(h);
            const bool ok = n <= f.at;
            if (ok) f.at -= n;
            return f.note(op, n, ok);
        };
        static const auto go_back = back;
        if (fake.unreads)
            stream->backend_unread = [](intptr_t h, const void *, uint32_t n) { return go_back('u', h, n); };
        if (fake.unskips) stream->backend_unskip = [](intptr_t h, uint32_t n) { return go_back('b', h, n); };
        return 0;
    }
};
