// SPDX-License-Identifier: MIT
//
// The worker: a process that decodes one file, started with three open descriptors, their numbers as its arguments, and an
// empty environment. It believes its starter, and reads the file only once it is confined.
#include "tools/confine/memory.h"
#include "tools/confine/pictures.h"
#include "tools/confine/sandbox.h"

#include <errno.h>
#include <new>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace confine;

bool receive(int channel, void *to, size_t size) {
    for (auto *at = static_cast<char *>(to); size;) {
        const ssize_t got = recv(channel, at, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool send_fully(int channel, const void *from, size_t size) {
    for (const auto *at = static_cast<const char *>(from); size;) {
        const ssize_t sent = send(channel, at, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        at += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

std::optional<Task> receive_task(int channel) {
    uint32_t size = 0;
    if (!receive(channel, &size, sizeof size) || size > most_report) return std::nullopt;
    std::string bytes(size, '\0');
    return receive(channel, bytes.data(), size) ? unpacked(bytes) : std::nullopt;
}

struct Detach {
    void operator()(img_lib_handle *handle) const { img_lib_detach(handle); }
};

// The modules of a task, opened.
class Codecs {
public:
    explicit Codecs(const Task &task) {
        setenv("PICTRA_CFGFILE", "/dev/null", 1); // a registry without codecs to begin with
        img_lib_handle *handle = nullptr;
        img_lib_attach(&handle);
        handle_.reset(handle);
        if (!handle) return;
        list_.resize(task.modules.size());
        for (size_t i = list_.size(); i-- > 0;) { // the newest is asked first
            list_[i] = img_codec_register_dll(handle, task.modules[i].c_str(), nullptr, nullptr);
            if (!list_[i]) throw std::bad_alloc();
            if (const img_status status = codec_init(list_[i])) opened_ = status;
        }
    }
    explicit operator bool() const { return handle_ != nullptr; }
    img_lib_handle &handle() const { return *handle_; }
    const std::vector<img_codec *> &list() const { return list_; }
    img_status opened() const { return opened_; } // why one of them did not open, if so
    uint32_t index_of(const img_codec *codec) const {
        for (uint32_t i = 0; i < list_.size(); i++)
            if (list_[i] == codec) return i;
        return Report::no_codec;
    }

private:
    std::unique_ptr<img_lib_handle, Detach> handle_{};
    std::vector<img_codec *> list_{};
    img_status opened_ = IMG_ST_OK;
};

// The memory that the starter sees, as much of it as the picture takes.
class Canvas {
public:
    Canvas(int memory, const Task &task) : memory_(memory), task_(task) {}

    img_status place(img_record &record) {
        const Shape shape{record.format, record.width, record.height};
        pixels_.reset();
        if (shape.bytes() > task_.limits.most_bytes() || !(pixels_ = mapped(memory_, shape.bytes())))
            return IMG_ST_NOMEM;
        if (std::exchange(used_, true) && task_.keep_damaged) memset(pixels_.get(), 0, shape.bytes());
        record.data = pixels_.get();
        record.stride = static_cast<uint32_t>(shape.stride());
        record.flags |= IMG_F_DIRECT;
        return IMG_ST_OK;
    }

    // Moves a record's own pixels here.
    img_status take(img_record &record) {
        img_record copy = record;
        copy.flags &= ~img_flags{IMG_F_DIRECT};
        if (const img_status status = place(copy)) return status;
        const img_status status = img_dtransform(&record, &copy);
        free(record.data);
        record = copy;
        return status;
    }

private:
    int memory_;
    const Task &task_;
    std::shared_ptr<uint8_t> pixels_{};
    bool used_ = false;
};

Report next(Pictures &pictures, const Codecs &codecs, Canvas &canvas, const Task &task) {
    img_record record;
    Report report = pictures.next(codecs.list(), record);
    if (task.thumbnail && report.status == IMG_ST_OK)
        if ((report.status = canvas.take(record))) report.picture.reset();
    if (report.status == IMG_ST_NOTSUP && codecs.opened()) report.status = codecs.opened(); // which is told only once
    report.codec = codecs.index_of(pictures.codec());
    return report;
}

int serve(const Ends &ends, Trouble trouble) {
    const std::optional<Task> task = receive_task(ends.channel);
    if (!task) return exit_no_task;
    const Codecs codecs(*task);
    if (!codecs) return exit_no_memory;
    Canvas canvas(ends.memory, *task);
    Pictures pictures(
        codecs.handle(), *task, [&](img_record &record) { return canvas.place(record); }, nullptr);
    const img_status opened = pictures.open(ends.picture);
    const Trouble later = lock_down(ends, task->limits.memory);
    if (!trouble) trouble = later;
    for (char request; receive(ends.channel, &request, 1);) {
        Report report;
        report.status = task->confined && trouble ? img_status{IMG_ST_NOTSUP} : opened;
        if (!report.status) report = next(pictures, codecs, canvas, *task);
        const std::string bytes = packed(report, trouble);
        const auto size = static_cast<uint32_t>(bytes.size());
        if (!send_fully(ends.channel, &size, sizeof size) || !send_fully(ends.channel, bytes.data(), size)) break;
    }
    return EXIT_SUCCESS;
}

bool is_orphan(int channel) {
    pollfd end{channel, 0, 0};
    return poll(&end, 1, 0) > 0 && (end.revents & POLLHUP);
}

} // namespace

int main(int count, char **arguments) {
    if (count != 4) return exit_no_task;
    const Ends ends{atoi(arguments[1]), atoi(arguments[2]), atoi(arguments[3])};
    Trouble trouble = close_others(ends);
    if (const Trouble alone = end_with_parent(); alone && !trouble) trouble = alone;
    if (is_orphan(ends.channel)) return EXIT_SUCCESS; // it ended before this process could say so
    int result = exit_no_memory;
    try {
        result = serve(ends, trouble);
    } catch (const std::bad_alloc &) { // the starter sees the channel end
    }
    _exit(result); // nothing of the codec's runs any more
}
