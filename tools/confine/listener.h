// SPDX-License-Identifier: MIT
//
// The callouts of a decode or an encode: they answer a codec's questions, note what it tells, and stop it where a limit of
// the user's is met.
#pragma once

#include "tools/confine/report.h"

#include <chrono>
#include <functional>

namespace confine {

class Listener {
public:
    // Gives a record its pixels, and says with which status it cannot.
    using Storage = std::function<img_status(img_record &record)>;

    // Whoever has no storage leaves it to the library. stopped: whether the user wants an end. The task must outlive it.
    Listener(const Task &task, Storage storage, bool (*stopped)());

    img_decode_callouts begin(); // for the next picture; they point to this object

    // What the codec told since, its status included.
    Report finish(img_status status, const img_record &record);

    // The same for writing. The codec is told what the task's writing has.
    img_encode_callouts begin_writing();
    Report finish(img_status status);

    const Task &task() const { return task_; }
    // Of what a thumbnail is made.
    void set_full_size(uint32_t width, uint32_t height);

private:
    static img_status set_up(void *data, img_record *record, uint32_t);
    static img_status hear(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t value, uintptr_t);
    static img_status progress(void *data, img_record *record, uintptr_t done, uintptr_t, uintptr_t, uintptr_t);
    static uint32_t note_formats(void *data, img_record *, const img_format *formats, uint32_t count);
    static img_status check_asked(void *data, img_record *, uint32_t);
    static img_status answer_writer(void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t value);
    static void give_up(void *data, img_record *record);
    void begin_report();
    void take_header(const img_record &record);
    img_status make_storage(img_record &record);
    img_status note(Value value);
    img_status exceed(const char *name, uint64_t needed, uint64_t allowed);
    void note_limit(const img_limit &met);
    img_status refuse(Refusal refusal, size_t given);
    img_status answer(img_option &option);
    void tell(uint32_t key, void *value) const;
    img_status answer(uintptr_t key, uintptr_t size, uintptr_t value);
    img_status check_time();

    const Task &task_;
    Storage storage_;
    bool (*stopped_)();
    Options options_;
    Report report_{};
    size_t bytes_noted_ = 0, warnings_ = 0;
    uint64_t picture_bytes_ = 0; // once they are taken
    bool header_done_ = false, left_out_ = false;
    std::array<uint32_t, 256> palette_{};
    std::chrono::steady_clock::time_point began_{};
};

} // namespace confine
