// SPDX-License-Identifier: MIT
//
// The worker: a process that reads the pictures of one file, or writes one. It is started with three open descriptors, their
// numbers as its arguments, and an empty environment. It believes its starter, and sees a stranger's bytes only once it is confined.
#include "tools/confine/memory.h"
#include "tools/confine/pictures.h"
#include "tools/confine/sandbox.h"

#include <errno.h>
#include <new>
#include <poll.h>
#include <signal.h>
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

void note(Trouble &first, const Trouble &later) {
    if (!first) first = later;
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
    Canvas(int memory, const Task &task) : memory_(std::make_shared<const Descriptor>(memory)), task_(task) {}

    img_status place(img_record &record) {
        const Shape shape{record.format, record.width, record.height};
        pixels_.reset();
        if (shape.bytes() > task_.limits.most_bytes() || !(pixels_ = Mapping::make(memory_, shape.bytes())))
            return IMG_ST_NOMEM;
        if (std::exchange(used_, true) && task_.keep_damaged) memset(pixels_->begin(), 0, shape.bytes());
        record.data = pixels_->begin();
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
    std::shared_ptr<const Descriptor> memory_;
    const Task &task_;
    std::shared_ptr<Mapping> pixels_{};
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

// Says how far this process is confined, then answers each request with a report of what work does.
template <typename Work> int answer(int channel, const Task &task, const Trouble &trouble, const Work &work) {
    const std::string greeting = packed(trouble);
    if (!send_fully(channel, greeting.data(), greeting.size()) || (trouble && task.confined)) return EXIT_SUCCESS;
    for (char request; receive(channel, &request, 1);) {
        const std::string bytes = packed(work());
        const auto size = static_cast<uint32_t>(bytes.size());
        if (!send_fully(channel, &size, sizeof size) || !send_fully(channel, bytes.data(), size)) break;
    }
    return EXIT_SUCCESS;
}

int read_pictures(const Ends &ends, const Task &task, const Codecs &codecs, Trouble trouble) {
    Canvas canvas(ends.memory, task);
    Pictures pictures(
        codecs.handle(), task, [&](img_record &record) { return canvas.place(record); }, nullptr);
    const img_status opened = pictures.open(ends.file);
    note(trouble, lock_down(ends, false, task.limits.memory));
    return answer(ends.channel, task, trouble,
                  [&] { return opened ? Report{.status = opened} : next(pictures, codecs, canvas, task); });
}

int write_one(const Ends &ends, Task &task, const Codecs &codecs, Trouble trouble) {
    signal(SIGXFSZ, SIG_IGN); // a file size limit is an error like a full disk
    Shape &shape = task.writing->picture;
    const auto pixels = Mapping::make(std::make_shared<const Descriptor>(ends.memory), shape.bytes());
    if (!pixels) return exit_no_memory;
    const img_record picture = record_of(shape, pixels->begin());
    note(trouble, lock_down(ends, true, 0));
    return answer(ends.channel, task, trouble, [&] {
        if (codecs.opened()) return Report{.status = codecs.opened()};
        return write_picture(codecs.handle(), codecs.list().front(), ends.file, task, picture, nullptr);
    });
}

int serve(const Ends &ends, const Trouble &trouble) {
    std::optional<Task> task = receive_task(ends.channel);
    if (!task || (task->writing && task->modules.empty())) return exit_no_task;
    const Codecs codecs(*task);
    if (!codecs) return exit_no_memory;
    return task->writing ? write_one(ends, *task, codecs, trouble) : read_pictures(ends, *task, codecs, trouble);
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
    note(trouble, end_with_parent());
    if (is_orphan(ends.channel)) return EXIT_SUCCESS; // it ended before this process could say so
    int result = exit_no_memory;
    try {
        result = serve(ends, trouble);
    } catch (const std::bad_alloc &) { // the starter sees the channel end
    }
    _exit(result); // nothing of the codec's runs any more
}
