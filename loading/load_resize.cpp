// SPDX-License-Identifier: MIT
//
// Loading at another size. The calling thread decodes (the producer), a second thread resizes (the consumer). The
// consumer asks for a row and waits; the producer copies that row into the consumer's line when it has it, and goes on.
// It never runs ahead, and drops rows that were not asked for. Where the consumer averages several rows it asks for all
// of them at once: nothing visible to callers happens between them, and the threads need not switch for each row.
#include "core/owned.h"
#include "core/record.h"
#include "core/sync.h"
#include "scale/resize.h"

#include <string.h>

using namespace img;

namespace {

enum State : uint32_t {
    producer_finished = 0x1,
    consumer_finished = 0x2,
    row_wanted = 0x4,   // want_count rows from want_row on, to want_line
    row_ready = 0x8,    // they are there
    streaming = 0x10,   // the codec delivers rows in order
    not_started = 0x20, // the consumer thread
    stopped = 0x40,     // decoding was stopped because the resize failed
    top_down = 0x80,
    bottom_up = 0x100
};

struct Shared {
    Condition condition;
    Mutex mutex;                  // guards what both threads use
    uint8_t *want_line = nullptr; // where the wanted rows go, one after the other
    uint32_t want_row = 0, want_count = 0;
    uint32_t got_count = 0; // how many of the wanted rows are there
    uint32_t next_row = 0;  // rows delivered or dropped so far
    uint32_t state = not_started;
    img_status status = IMG_ST_OK; // of the resize

    bool load_failed = false;  // valid with producer_finished
    bool start_failed = false; // there is no consumer thread

    img_record *source = nullptr; // the record of the load
    img_record rows{};            // the same record as the consumer sees it
    bool rows_upward = false;     // rows come from the bottom up
    img_record *dest = nullptr;
    const img_decode_callouts *caller = nullptr;
    Owned<uint32_t> palette; // of the source, which the resize may need
    Thread thread;

    // Used by the consumer alone.
    Owned<uint8_t> batch; // room for batch_rows rows, or null
    uint32_t batch_rows = 0;
    uint32_t batch_first = 0, batch_count = 0; // the rows that it holds
    uint32_t expected_end = 0;                 // the row after those that will be fetched next
};

constexpr uint64_t batch_bytes = 256 * 1024;

Shared &shared_of(void *data) { return *static_cast<Shared *>(data); }

// ---- The consumer's side ----

// Waits for `count` rows from the given one on. Returns how many came.
uint32_t wait_for_rows(Shared &shared, uint32_t row, uint32_t count, uint8_t *line, int &error) {
    Lock lock{shared.mutex};
    if ((error = lock.error())) return 0;
    uint32_t got = 0;
    if (!(shared.state & producer_finished)) {
        shared.want_line = line;
        shared.want_row = row;
        shared.want_count = count;
        shared.got_count = 0;
        shared.state |= row_wanted;
        shared.condition.signal();
        lock.wait(shared.condition, [&] { return shared.state & (row_ready | producer_finished); });
        shared.state &= ~uint32_t{row_ready};
        got = shared.got_count;
    }
    // Without rows the line stays as it is. After a failed load there is no point in going on.
    if (shared.load_failed) img_resize_set_abort(1);
    return got;
}

int consumer_get_scanline(void *data, uint32_t, uint32_t row, uint32_t, void *line) {
    Shared &shared = shared_of(data);
    int error = 0;
    const uint32_t expected = row < shared.expected_end ? shared.expected_end - row : 0;
    if (row - shared.batch_first >= shared.batch_count) {
        const uint32_t count = smaller(expected, shared.batch_rows);
        if (count < 2) {
            wait_for_rows(shared, row, 1, static_cast<uint8_t *>(line), error);
            return error;
        }
        shared.batch_first = row;
        shared.batch_count = wait_for_rows(shared, row, count, shared.batch.get(), error);
    }
    const uint64_t bytes = run_bytes(shared.rows.format, shared.rows.width);
    if (row - shared.batch_first < shared.batch_count)
        memcpy(line, shared.batch.get() + (row - shared.batch_first) * bytes, bytes);
    return error;
}

void expect_rows(void *data, uint32_t first_row, uint32_t count) { shared_of(data).expected_end = first_row + count; }

img_status resize_rows(Shared &shared) {
    const uint64_t bytes = run_bytes(shared.rows.format, shared.rows.width);
    shared.batch_rows = bytes ? smaller(static_cast<uint32_t>(batch_bytes / bytes), shared.rows.height) : 0;
    if (shared.batch_rows > 1) {
        shared.batch = allocate<uint8_t>(shared.batch_rows * bytes);
        if (!shared.batch) return IMG_ST_NOMEM;
    }
    const Sequence sequence{expect_rows, &shared};
    return resize(shared.rows, *shared.dest, shared.rows_upward, &sequence);
}

void *consume(void *data) {
    Shared &shared = shared_of(data);
    const img_status status = resize_rows(shared);
    const Lock lock{shared.mutex};
    shared.status = status;
    shared.state |= consumer_finished;
    shared.condition.signal();
    return nullptr;
}

// ---- The producer's side: what the codec calls ----

// Starts the consumer with the first row. If that fails, everything goes on as if the resize had failed.
void start_consumer(Shared &shared) {
    shared.state &= ~uint32_t{not_started};
    shared.rows = *shared.source;
    shared.rows.flags = (shared.rows.flags & ~storage_flags) | IMG_F_ACCESS;
    shared.rows.access = consumer_get_scanline;
    shared.rows.access_arg = &shared;
    shared.rows_upward = !(shared.state & top_down);
    if (shared.thread.start(consume, &shared)) return;
    shared.start_failed = true;
    shared.status = IMG_ST_NOMEM;
    shared.state |= consumer_finished;
}

int producer_put_scanline(void *data, uint32_t x, uint32_t, uint32_t count, void *line) {
    Shared &shared = shared_of(data);
    if (!count) return 0; // an empty run is no row
    Lock lock{shared.mutex};
    if (lock.error()) return lock.error();
    if (shared.state & not_started) start_consumer(shared);
    lock.wait(shared.condition, [&] { return shared.state & (row_wanted | consumer_finished); });

    const img_record &source = *shared.source;
    const bool wanted = !(shared.state & consumer_finished) && shared.next_row == shared.want_row + shared.got_count;
    if (x < source.width) {
        count = smaller(count, source.width - x);
        uint8_t *to = shared.want_line + shared.got_count * run_bytes(source.format, source.width);
        if (wanted) memcpy(to + run_bytes(source.format, x), line, run_bytes(source.format, count));
    }
    if (uint64_t{x} + count < source.width) return 0; // the row is not complete yet
    if (wanted && ++shared.got_count == shared.want_count) {
        shared.state = (shared.state & ~uint32_t{row_wanted}) | row_ready;
        shared.condition.signal();
    }
    shared.next_row++;
    return 0;
}

// Completes the destination's size in the picture's proportions.
void complete_size(img_record &d, const img_record &picture) {
    const auto in_proportion = [](uint32_t side, uint32_t to, uint32_t from) -> uint32_t {
        if (!from) return 0;
        const uint64_t size = uint64_t{side} * to / from;
        return size ? static_cast<uint32_t>(size) : 1;
    };
    switch (d.flags & size_flags) {
    case IMG_F_WIDTH:
        d.height = in_proportion(d.width, picture.height, picture.width);
        break;
    case IMG_F_HEIGHT:
        d.width = in_proportion(d.height, picture.width, picture.height);
        break;
    case 0:
        d.width = picture.width;
        d.height = picture.height;
        break;
    }
}

uint32_t choose_format(void *data, img_record *record, const img_format *formats, uint32_t count) {
    const Shared &shared = shared_of(data);
    img_record &d = *shared.dest;
    const auto take_format = [&] {
        record->format = d.format;
        record->flags |= IMG_F_FORMAT;
    };
    const img_decode_callouts &caller = *shared.caller;
    const img_flags given = d.flags;
    const img_record picture = *record;
    complete_size(d, picture);
    uint32_t index = 0;
    if (given & IMG_F_FORMAT) {
        take_format();
        index = count;
    } else if (caller.choose_format) {
        index = caller.choose_format(caller.data, &d, formats, count);
        if (index >= count && has(d, IMG_F_FORMAT)) take_format();
        complete_size(d, picture);
        // Asks the codec to decode at the destination's size.
        record->width = d.width;
        record->height = d.height;
        record->flags |= size_flags;
    }
    record->flags |= d.flags & IMG_F_WANT_ALPHA;
    d.flags |= size_flags;
    return index;
}

img_status setup(void *data, img_record *record, uint32_t setup_flags) {
    Shared &shared = shared_of(data);
    if (is_palette(record->format)) {
        shared.palette = allocate<uint32_t>(record->ncolors);
        if (!shared.palette) return IMG_ST_NOMEM;
        record->palette = shared.palette.get();
        record->flags |= IMG_F_PALETTE;
    }
    if (setup_flags & (IMG_SETUP_TOPDOWN | IMG_SETUP_BOTTOMUP)) {
        record->flags |= IMG_F_ACCESS;
        record->access = producer_put_scanline;
        record->access_arg = &shared;
        shared.state |= streaming | (setup_flags & IMG_SETUP_TOPDOWN ? top_down : bottom_up);
    }
    const img_decode_callouts &caller = *shared.caller;
    return caller.setup ? caller.setup(caller.data, record, setup_flags) : img_status{IMG_ST_OK};
}

img_status check_scanline_status(void *data, img_record *record, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    Shared &shared = shared_of(data);
    {
        const Lock lock{shared.mutex};
        if ((shared.state & streaming) && (shared.state & consumer_finished) && shared.status) {
            shared.state |= stopped;
            return IMG_ST_FILE; // only makes the codec stop; the caller gets the status of the resize
        }
    }
    const img_decode_callouts &caller = *shared.caller;
    if (!caller.scanline) return IMG_ST_OK;
    const img_status status = caller.scanline(caller.data, record, a, b, c, d);
    if (status) img_resize_set_abort(1);
    return status;
}

img_status set_value(void *data, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const Shared &shared = shared_of(data);
    return shared.caller->set_value(shared.caller->data, shared.dest, a, b, c, d);
}

// Callouts that call the caller's with the caller's data.
void forward_abort(void *data, img_record *record) {
    const img_decode_callouts &caller = *shared_of(data).caller;
    caller.abort(caller.data, record);
}
img_status forward_set_palette(void *data, img_record *record, const void *palette, img_format format) {
    const img_decode_callouts &caller = *shared_of(data).caller;
    return caller.set_palette(caller.data, record, palette, format);
}
void forward_set_transparency(void *data, img_record *record, uint32_t key) {
    const img_decode_callouts &caller = *shared_of(data).caller;
    caller.set_transparency(caller.data, record, key);
}
void forward_frame(void *data, img_record *record) {
    const img_decode_callouts &caller = *shared_of(data).caller;
    caller.frame(caller.data, record);
}

// ---- The call ----

// Runs load(callouts, record) with the callouts above, and the resize at the same time or afterwards.
template <typename Load> img_status load_resize(const img_decode_callouts *caller, img_record &dest, Load load) {
    static constexpr img_decode_callouts none{};
    Shared shared;
    if (!shared.condition || !shared.mutex) return IMG_ST_NOMEM;
    img_record record{};
    record.flags = IMG_F_SIZE_HINT;
    record.width = has(dest, IMG_F_WIDTH) ? dest.width : 0;
    record.height = has(dest, IMG_F_HEIGHT) ? dest.height : 0;
    shared.source = &record;
    shared.dest = &dest;
    shared.caller = caller ? caller : &none;
    const img_decode_callouts callouts{choose_format,
                                       setup,
                                       shared.caller->abort ? forward_abort : nullptr,
                                       check_scanline_status,
                                       shared.caller->set_palette ? forward_set_palette : nullptr,
                                       shared.caller->set_transparency ? forward_set_transparency : nullptr,
                                       shared.caller->frame ? forward_frame : nullptr,
                                       shared.caller->set_value ? set_value : nullptr,
                                       &shared};
    const img_status status = load(&callouts, &record);
    bool streamed;
    {
        const Lock lock{shared.mutex};
        streamed = shared.state & streaming;
        shared.load_failed = status != IMG_ST_OK;
        // Stops a consumer that waits for rows of a failed load, before it is woken.
        // Kept: A load with resize that fails stops every resize of the process.
        if (status && !(shared.state & not_started)) img_resize_set_abort(1);
        shared.state |= producer_finished;
        shared.condition.signal();
    }
    if (!streamed) {
        if (status) return status;
        const img_status resized = img_resize_fs(&record, &dest);
        if (has(record, IMG_F_DIRECT)) free(record.data);
        return resized;
    }
    shared.thread.join();
    return !status || (shared.state & stopped) || shared.start_failed ? shared.status : status;
}

} // namespace

img_status img_load_resize_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                img_record *dst) {
    return load_resize(callouts, *dst, [&](const img_decode_callouts *table, img_record *record) {
        return img_load_file(handle, path, table, record);
    });
}

img_status img_load_resize(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                           img_record *dst) {
    return load_resize(callouts, *dst, [&](const img_decode_callouts *table, img_record *record) {
        return img_load(handle, stream, table, record);
    });
}
