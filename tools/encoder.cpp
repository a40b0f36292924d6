// SPDX-License-Identifier: MIT
#include "tools/encoder.h"

#include "tools/interrupt.h"
#include "tools/metadata.h"
#include "tools/text.h"

#include <errno.h>
#include <string.h>

namespace tool {

namespace {

using confine::Worker;

// The picture's pixels where a worker can see them: where they are already, or copied there.
std::shared_ptr<const confine::Descriptor> shared_pixels(const Picture &picture, const confine::Shape &shape,
                                                         confine::Trouble &trouble) {
    if (picture.shared()) return picture.shared()->memory();
    std::shared_ptr<const confine::Descriptor> memory = confine::make_memory(shape.bytes(), trouble);
    if (!memory) return nullptr;
    const auto pixels = confine::Mapping::make(memory, shape.bytes());
    if (!pixels) {
        trouble = {"mmap", errno};
        return nullptr;
    }
    const img_record &record = picture.record();
    const size_t row = (size_t{record.width} * (record.format & IMG_FMT_BPP_MASK) + 7) / 8;
    if (record.stride == shape.stride()) {
        memcpy(pixels->begin(), record.data, shape.bytes() - shape.stride() + row);
        return memory;
    }
    for (size_t y = 0; y < record.height; y++)
        memcpy(pixels->begin() + y * shape.stride(), static_cast<const uint8_t *>(record.data) + y * record.stride,
               row);
    return memory;
}

std::unique_ptr<Worker> start(const Library &library, img_codec *codec, const Picture &picture, int file,
                              confine::Task &task, confine::Trouble &trouble) {
    const Section *section = library.section_of(codec);
    if (!section) {
        trouble = {library.config.path, EINVAL}; // it holds what this program reads in another way
        return nullptr;
    }
    task.modules = {section->path};
    auto memory = shared_pixels(picture, task.writing->picture, trouble);
    if (!memory) return nullptr;
    return Worker::start(worker_program(), file, task, trouble, std::move(memory));
}

std::string list_of(const std::vector<img_format> &formats) {
    std::string names;
    for (const img_format format : formats) names += (names.empty() ? "" : ", ") + format_name(format);
    return names;
}

// Why it was not written.
[[noreturn]] void fail_writing(const confine::Report &report, const Picture &picture, const std::string &name,
                               const confine::Task &task) {
    if (report.status == IMG_ST_FILE)
        throw Failure(name + ": not all could be written, the disk is full or a limit reached; check free space",
                      report.status);
    if (report.status == IMG_ST_NOCONV)
        throw Failure(name + ": its codec cannot hold " + format_name(picture.record().format) +
                          "; use --format with " +
                          (report.offered.empty() ? "rgb888 or g8, or write another kind of file"
                                                  : "one of " + list_of(report.offered)),
                      report.status);
    fail(report, name, task);
}

} // namespace

void encode(const Library &library, img_codec *codec, const Picture &picture, int file, const std::string &name,
            const Reading &reading, Exchange &exchange) {
    confine::Task task;
    task.confined = reading.confinement == Confinement::required;
    task.limits.seconds = reading.limits.seconds;
    task.options = exchange.options();
    task.writing = {confine::shape_of(picture.record()), values_of(exchange.metadata), exchange.asked()};
    confine::Trouble trouble;
    std::unique_ptr<Worker> worker;
    if (reading.confinement != Confinement::off) worker = start(library, codec, picture, file, task, trouble);
    tell(trouble, name, reading.confinement);
    confine::Report report;
    if (worker) {
        const Worker::End end = worker->next(report, stop_wanted);
        if (end != Worker::End::reported) fail(*worker, end, name, "written", task.limits.seconds);
        tell(worker->trouble(), name, reading.confinement);
    } else {
        report = confine::write_picture(*library.handle, codec, file, task, picture.record(), stop_wanted);
    }
    stop_if_asked();
    exchange.take_written(report);
    exchange.check(name);
    if (report.status != IMG_ST_OK) fail_writing(report, picture, name, task);
}

} // namespace tool
