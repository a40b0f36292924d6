// SPDX-License-Identifier: MIT
//
// Streams over files, descriptors, memory and functions, and the classes to write others with. Included by pictra.hpp.
#ifndef PICTRA_CXX_STREAM_HPP
#define PICTRA_CXX_STREAM_HPP

#include "../backend.h"
#include "result.hpp"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// Where bytes come from: derive for a kind of your own. What is thrown out of it ends the program.
class source {
public:
    virtual ~source() = default;
    /// Moves up to dst.size() bytes, at least 1 but at the end. 0 is the end, or an error if errno was set.
    virtual std::size_t read(std::span<std::uint8_t> dst) = 0;

protected:
    source() = default;
    source(const source &) = default;
    source &operator=(const source &) = default;
};

/// Where bytes go: derive for a kind of your own. What is thrown out of it ends the program.
class sink {
public:
    virtual ~sink() = default;
    /// Takes up to src.size() bytes and returns how many. Less than all is tried again once, 0 is an error.
    virtual std::size_t write(std::span<const std::uint8_t> src) = 0;
    /// Moves the place of the next write, as lseek does; -1 where that cannot be.
    virtual std::int64_t seek(std::int32_t, int) {
        errno = ESPIPE;
        return -1;
    }

protected:
    sink() = default;
    sink(const sink &) = default;
    sink &operator=(const sink &) = default;
};

namespace detail {

struct close_stream {
    void operator()(io_handle *stream) const noexcept { io_close(stream); }
};
using stream_ptr = std::unique_ptr<io_handle, close_stream>;

class descriptor {
public:
    explicit descriptor(int fd = -1) noexcept : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor() { close(); }
    int get() const noexcept { return fd_; }
    bool close() noexcept { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }

private:
    int fd_;
};

constexpr std::uint32_t buffer_size = 16384;

/// What a reading stream has behind it. Bytes that are given back are kept here: a stream whose backend cannot take them can
/// deliver bytes twice after short reads, and its own skipping ends at the wrong place.
struct reading {
    std::unique_ptr<source> from;
    std::vector<std::uint8_t> returned{}; // the next one last

    static reading &of(std::intptr_t handle) { return *reinterpret_cast<reading *>(handle); }

    static std::uint32_t read(std::intptr_t handle, void *dst, std::uint32_t length) noexcept {
        reading &self = of(handle);
        auto *to = static_cast<std::uint8_t *>(dst);
        if (!to) {
            errno = EFAULT;
            return 0;
        }
        if (self.returned.empty()) return static_cast<std::uint32_t>(self.from->read({to, length}));
        const auto count = std::min<std::size_t>(length, self.returned.size());
        std::copy_n(self.returned.rbegin(), count, to);
        self.returned.erase(self.returned.end() - static_cast<std::ptrdiff_t>(count), self.returned.end());
        return static_cast<std::uint32_t>(count);
    }
    static int unread(std::intptr_t handle, const void *bytes, std::uint32_t count) noexcept {
        const auto *first = static_cast<const std::uint8_t *>(bytes);
        std::vector<std::uint8_t> &returned = of(handle).returned;
        for (std::uint32_t i = count; i > 0; i--) returned.push_back(first[i - 1]);
        return 0;
    }
    static int skip(std::intptr_t handle, std::uint32_t count) noexcept {
        std::uint8_t passed[1024];
        while (count) {
            const std::uint32_t got = read(handle, passed, std::min<std::uint32_t>(count, sizeof passed));
            if (!got) return -1;
            count -= got;
        }
        return 0;
    }
    static void close(io_stream *stream) { delete &of(stream->handle); }
    static int make(io_stream *stream, va_list *args) {
        stream->handle = reinterpret_cast<std::intptr_t>(va_arg(*args, reading *));
        stream->buffer_size = buffer_size;
        stream->backend_read = read;
        stream->backend_unread = unread;
        stream->backend_skip = skip;
        stream->backend_close = close;
        return 0;
    }
};

struct writing {
    std::unique_ptr<sink> to;

    static writing &of(std::intptr_t handle) { return *reinterpret_cast<writing *>(handle); }

    static std::uint32_t write(std::intptr_t handle, const void *src, std::uint32_t length) noexcept {
        const auto *from = static_cast<const std::uint8_t *>(src);
        return from ? static_cast<std::uint32_t>(of(handle).to->write({from, length})) : 0;
    }
    static std::int64_t seek(std::intptr_t handle, std::int32_t offset, int whence) noexcept {
        return of(handle).to->seek(offset, whence);
    }
    static void close(io_stream *stream) { delete &of(stream->handle); }
    static int make(io_stream *stream, va_list *args) {
        stream->handle = reinterpret_cast<std::intptr_t>(va_arg(*args, writing *));
        stream->buffer_size = buffer_size;
        stream->backend_write = write;
        stream->backend_seek = seek;
        stream->backend_close = close;
        return 0;
    }
};

template <typename Function> struct function_source final : source {
    explicit function_source(Function f) : function(std::move(f)) {}
    std::size_t read(std::span<std::uint8_t> dst) override { return function(dst); }
    Function function;
};

template <typename Function> struct function_sink final : sink {
    explicit function_sink(Function f) : function(std::move(f)) {}
    std::size_t write(std::span<const std::uint8_t> src) override { return function(src); }
    Function function;
};

struct chain_source final : source {
    explicit chain_source(std::vector<std::span<const std::uint8_t>> parts) : blocks(std::move(parts)) {}
    std::size_t read(std::span<std::uint8_t> dst) override {
        while (next < blocks.size() && blocks[next].empty()) next++;
        if (next == blocks.size()) return 0;
        std::span<const std::uint8_t> &block = blocks[next];
        const std::size_t count = std::min(dst.size(), block.size());
        memcpy(dst.data(), block.data(), count);
        block = block.subspan(count);
        return count;
    }
    std::vector<std::span<const std::uint8_t>> blocks;
    std::size_t next = 0;
};

/// Memory to write to: at most so many bytes. put(at, bytes) stores, and says how many bytes there are.
struct memory_sink final : sink {
    memory_sink(std::vector<std::uint8_t> *into) : grown(into), end(into->size()), at(end) {}
    memory_sink(std::span<std::uint8_t> into, std::size_t *written) : fixed(into), used(written) { *used = 0; }
    std::size_t write(std::span<const std::uint8_t> src) override {
        std::size_t count = src.size();
        if (grown && grown->size() < at + count) grown->resize(at + count);
        if (!grown) count = at < fixed.size() ? std::min(count, fixed.size() - at) : 0;
        if (count) memcpy((grown ? grown->data() : fixed.data()) + at, src.data(), count);
        at += count;
        end = std::max(end, at);
        if (used) *used = end;
        return count;
    }
    std::int64_t seek(std::int32_t offset, int whence) override {
        const std::size_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at : end;
        const std::int64_t place = static_cast<std::int64_t>(base) + offset;
        if (place < 0) {
            errno = EINVAL;
            return -1;
        }
        at = static_cast<std::size_t>(place);
        return place;
    }
    std::vector<std::uint8_t> *grown = nullptr;
    std::span<std::uint8_t> fixed{};
    std::size_t *used = nullptr;
    std::size_t end = 0, at = 0;
};

inline std::size_t read_descriptor(int fd, std::span<std::uint8_t> dst) noexcept {
    ssize_t got;
    do got = ::read(fd, dst.data(), dst.size());
    while (got < 0 && errno == EINTR);
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

} // namespace detail

/// A stream to load from. Moves.
class input {
public:
    /// A file. IMG_ST_FILE if it does not open or exceeds 4 GiB - 1.
    static result<input> file(const std::string &path) {
        detail::descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (opened.get() < 0) return detail::fail(IMG_ST_FILE, path, strerror(errno));
        result<input> made = descriptor(opened.get());
        if (made) made->file_ = std::move(opened);
        return made;
    }
    /// A descriptor, which stays the caller's and outlives the stream: a file from its place on, a pipe, a socket.
    static result<input> descriptor(int fd) {
        if (::lseek(fd, 0, SEEK_CUR) < 0)
            return from([fd](std::span<std::uint8_t> dst) { return detail::read_descriptor(fd, dst); });
        return opened(io_open(IO_FD, IO_READ, fd));
    }
    /// Bytes in memory, which outlive the stream, are not copied and are fewer than 4 GiB.
    static result<input> memory(std::span<const std::uint8_t> bytes) {
        if (bytes.size() > UINT32_MAX) return detail::fail(IMG_ST_NOMEM, "memory");
        if (bytes.empty()) return chain({});
        return opened(io_open(IO_MEM, IO_READ, static_cast<std::uint32_t>(bytes.size()),
                              const_cast<std::uint8_t *>(bytes.data())));
    }
    /// Blocks of memory, which outlive the stream, one after the other.
    static result<input> chain(std::vector<std::span<const std::uint8_t>> blocks) {
        return from(std::make_unique<detail::chain_source>(std::move(blocks)));
    }
    /// A source of your own.
    static result<input> from(std::unique_ptr<source> bytes) {
        auto behind = std::make_unique<detail::reading>();
        behind->from = std::move(bytes);
        result<input> made = opened(io_open(detail::reading::make, IO_READ, behind.get()));
        if (made) behind.release(); // the stream deletes it
        return made;
    }
    /// A function that is called as source::read is.
    template <typename Function>
    requires std::is_invocable_r_v<std::size_t, Function &, std::span<std::uint8_t>>
    static result<input> from(Function function) {
        return from(std::make_unique<detail::function_source<Function>>(std::move(function)));
    }

    /// The stream, for the C interface.
    io_handle *handle() const noexcept { return stream_.get(); }

private:
    input() = default;
    static result<input> opened(io_handle *stream) {
        if (!stream) return detail::fail(errno == EFBIG ? IMG_ST_FILE : IMG_ST_NOMEM, "a stream", strerror(errno));
        input made;
        made.stream_.reset(stream);
        return made;
    }
    detail::descriptor file_{}; // closed after the stream
    detail::stream_ptr stream_{};
};

/// A stream to save to. Moves. What was written is complete only when flush or finish succeeded.
class output {
public:
    /// A file, made or emptied. IMG_ST_FILE if it cannot be.
    static result<output> file(const std::string &path) {
        detail::descriptor opened(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (opened.get() < 0) return detail::fail(IMG_ST_FILE, path, strerror(errno));
        result<output> made = descriptor(opened.get());
        if (made) made->file_ = std::move(opened);
        return made;
    }
    /// A descriptor, which stays the caller's and outlives the stream.
    static result<output> descriptor(int fd) { return opened(io_open(IO_FD, IO_WRITE, fd)); }
    /// Behind the bytes of a vector, which grows and outlives the stream.
    static result<output> memory(std::vector<std::uint8_t> &bytes) {
        return to(std::make_unique<detail::memory_sink>(&bytes));
    }
    /// From the beginning of memory that outlives the stream; written receives how many bytes of it are in use.
    static result<output> memory(std::span<std::uint8_t> bytes, std::size_t &written) {
        return to(std::make_unique<detail::memory_sink>(bytes, &written));
    }
    /// A sink of your own.
    static result<output> to(std::unique_ptr<sink> bytes) {
        auto behind = std::make_unique<detail::writing>();
        behind->to = std::move(bytes);
        result<output> made = opened(io_open(detail::writing::make, IO_WRITE, behind.get()));
        if (made) behind.release(); // the stream deletes it
        return made;
    }
    /// A function that is called as sink::write is.
    template <typename Function>
    requires std::is_invocable_r_v<std::size_t, Function &, std::span<const std::uint8_t>>
    static result<output> to(Function function) {
        return to(std::make_unique<detail::function_sink<Function>>(std::move(function)));
    }

    /// Hands on all that waits, over any number of short writes. IMG_ST_FILE if not all is taken: the disk is full.
    result<void> flush() {
        while (io_ostream_flush(stream_->self) != 0) {
            const std::uint32_t before = stream_->self->transferred;
            if (io_ostream_flush(stream_->self) == 0) break;
            if (stream_->self->transferred == before)
                return detail::fail(IMG_ST_FILE, "a stream", "not all could be written");
        }
        return {};
    }
    /// Flushes, and closes the file if the stream opened one, which can fail for the same reason. Nothing follows.
    result<void> finish() {
        if (result<void> flushed = flush(); !flushed) return flushed;
        stream_.reset();
        if (!file_.close()) return detail::fail(IMG_ST_FILE, "a stream", strerror(errno));
        return {};
    }
    /// The stream, for the C interface. Null after finish.
    io_handle *handle() const noexcept { return stream_.get(); }

private:
    output() = default;
    static result<output> opened(io_handle *stream) {
        if (!stream) return detail::fail(IMG_ST_NOMEM, "a stream", strerror(errno));
        output made;
        made.stream_.reset(stream);
        return made;
    }
    detail::descriptor file_{}; // closed after the stream
    detail::stream_ptr stream_{};
};

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
