// SPDX-License-Identifier: MIT
//
// What codec modules share. Each module links its own copy.
#include "modules/common/module.h"

#include "pictra/backend.h"

#include <algorithm>
#include <stdint.h>
#include <string.h>
#include <time.h>

namespace module {

namespace {

constexpr uint32_t large_buffer = 64 * 1024;

// The stream's record, if the handle is the face of one. A handle that somebody made by hand has none.
const io_stream *record_of(const io_handle &handle) {
    const auto expected = reinterpret_cast<uintptr_t>(handle.self) + offsetof(io_stream, face);
    return reinterpret_cast<uintptr_t>(&handle) == expected ? handle.self : nullptr;
}

uint32_t request(size_t length) { return static_cast<uint32_t>(std::min<size_t>(length, UINT32_MAX)); }

} // namespace

Bytes make_bytes(size_t size) { return Bytes(static_cast<uint8_t *>(calloc(size, 1))); }

size_t read_up_to(io_handle &stream, void *dst, size_t length) {
    auto *out = static_cast<uint8_t *>(dst);
    size_t total = 0;
    while (total < length) {
        const uint32_t got = stream.read(stream.self, out + total, request(length - total));
        if (!got) break;
        total += got;
    }
    return total;
}

bool write_all(io_handle &stream, const void *src, size_t length) {
    auto *from = static_cast<const uint8_t *>(src);
    // A flush that wrote only part of the buffer accepts nothing new, but the next call finds room.
    for (int refusals = 0; length;) {
        const uint32_t taken = stream.write(stream.self, from, request(length));
        refusals = taken ? 0 : refusals + 1;
        if (refusals == 2) return false;
        from += taken;
        length -= taken;
    }
    return true;
}

img_status peek(io_handle &stream, Signature &signature) {
    want_large_buffer(&stream, nullptr); // so that reads of a few bytes pass through the buffer
    signature.length = read_up_to(stream, signature.bytes, signature_size);
    return give_back(stream, signature.bytes, signature.length);
}

img_status give_back(io_handle &stream, const uint8_t *bytes, size_t length) {
    if (!length) return ok;
    const io_stream *record = record_of(stream);
    uint32_t count = request(length);
    Bytes all;
    // A stream that keeps bytes given back apart adds more behind those that still wait, so these come out and follow.
    if (const uint32_t waiting = record ? record->pushback_count : 0) {
        if (!(all = make_bytes(size_t{count} + waiting))) return no_memory;
        memcpy(all.get(), bytes, count);
        count += static_cast<uint32_t>(read_up_to(stream, all.get() + count, waiting));
        bytes = all.get();
    }
    // One unread does it, unless reads were short and only the last bytes are still in the buffer: then such a stream
    // would deliver those a second time, so they go back first and by themselves.
    const uint32_t buffered = record ? std::min(record->position, count) : 0;
    const uint32_t before = count - buffered;
    if (buffered && stream.unread(stream.self, bytes + before, buffered) != 0) return no_memory;
    if (before && stream.unread(stream.self, bytes, before) != 0) return no_memory;
    return ok;
}

img_status want_large_buffer(io_handle *stream, void **) {
    const io_stream *record = record_of(*stream);
    if (record && record->buffer_size >= large_buffer) return ok;
    uint32_t size = large_buffer;
    stream->ctl(stream->self, IO_CTL_SETBUF, &size); // a refusal costs speed only
    return ok;
}

bool indices_below(const uint8_t *row, uint32_t bits, uint32_t width, uint32_t ncolors) {
    if (ncolors >> bits) return true;
    uint32_t highest = 0;
    if (bits == 8)
        for (uint32_t x = 0; x < width; x++) highest = std::max<uint32_t>(highest, row[x]);
    else
        for (uint32_t x = 0; x < width; x++) highest = std::max(highest, index_at(row, bits, x));
    return highest < ncolors;
}

img_status Rows::attach(const img_record &record) {
    record_ = &record;
    line_.reset(); // the picture before may have had an access function
    if (record.flags & IMG_F_DIRECT) return ok;
    if (!(record.flags & IMG_F_ACCESS)) return bad_record;
    line_ = make_bytes(row_bytes(record.format, record.width));
    return line_ ? ok : no_memory;
}

uint8_t *Rows::row(uint32_t y) const {
    return line_ ? line_.get() : static_cast<uint8_t *>(record_->data) + size_t{y} * record_->stride;
}

namespace {

bool in_range(const img_option &option) { return option.value >= option.lowest && option.value <= option.highest; }

} // namespace

void Decoding::begin(const img_decode_callouts &callouts, img_record &record) {
    callouts_ = &callouts;
    description_ = &record;
    memory_asked_ = false;
    next_call_ = 0;
    wanted_ = record.flags & IMG_F_SIZE_HINT ? Size{record.width, record.height} : Size{};
    // What the caller's record says of its own palette and key does not describe this picture.
    record.flags &= ~img_flags{IMG_F_TRANSP | IMG_F_PALETTE | IMG_F_PAL_ALPHA | IMG_F_CODEC_MARK};
}

img_status Decoding::report(uint32_t key, const void *value, size_t size) const {
    if (!callouts_->set_value) return ok;
    return callouts_->set_value(callouts_->data, description_, key, size, reinterpret_cast<uintptr_t>(value), 0);
}

img_status Decoding::warn(const char *text) const { return report(IMG_VALUE_WARNING, text, strlen(text)); }

img_status Decoding::refuse(const img_limit &limit) const {
    const img_status status = report(IMG_VALUE_LIMIT, &limit, sizeof limit);
    return status ? status : over_limit;
}

img_status Decoding::check_size(uint64_t width, uint64_t height) const {
    const img_limit limit = exceeded_limit(width, height);
    return limit.name ? refuse(limit) : ok;
}

img_status Decoding::hold(uint64_t bytes) {
    if (!memory_asked_) {
        memory_asked_ = true;
        may_hold_ = 0;
        if (const img_status status = report(IMG_VALUE_MAX_MEMORY, &may_hold_, sizeof may_hold_)) return status;
    }
    if (may_hold_ && (bytes > may_hold_ || held_ > may_hold_ - bytes))
        return refuse({"memory", held_ + bytes, may_hold_});
    held_ += bytes;
    return ok;
}

img_status Decoding::ask(img_option &option) const {
    if (const img_status status = report(IMG_VALUE_OPTION, &option, sizeof option)) return status;
    return in_range(option) ? ok : bad_record;
}

img_status Decoding::choose(uint32_t width, uint32_t height, uint32_t ncolors, const img_format *formats,
                            uint32_t count) {
    img_record &record = *description_;
    if (!width || !height) return damaged;
    if (const img_status status = check_size(width, height)) return status;
    record.width = width;
    record.height = height;
    record.ncolors = ncolors;
    record.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    const uint32_t index = callouts_->choose_format(callouts_->data, &record, formats, count);
    if (index >= count) return no_common_format;
    record.format = formats[index];
    record.flags |= IMG_F_FORMAT;
    if ((record.flags & IMG_F_SIZE_HINT) && (record.width != width || record.height != height))
        wanted_ = {record.width, record.height};
    deliver_at(width, height);
    return ok;
}

void Decoding::deliver_at(uint32_t width, uint32_t height) {
    description_->width = width;
    description_->height = height;
}

img_status Decoding::setup(uint32_t order) {
    const img_status status = callouts_->setup(callouts_->data, description_, order);
    return status ? status : attach(*description_);
}

img_status Decoding::set_palette(const uint32_t *argb) const {
    return callouts_->set_palette(callouts_->data, description_, argb, FMT_ARGB8888HE);
}

void Decoding::set_transparency(uint32_t key) const { callouts_->set_transparency(callouts_->data, description_, key); }

void Decoding::hand_over(uint32_t y) const {
    const uint32_t used = record().width * bits_per_pixel(record().format) & 7; // bits of the last byte
    if (used) row(y)[row_bytes(record().format, record().width) - 1] &= static_cast<uint8_t>(0xff00 >> used);
    if (line_) record().access(record().access_arg, 0, y, record().width, line_.get());
}

img_status Decoding::progress(uint32_t rows_done) const {
    if (!callouts_->scanline) return ok;
    return callouts_->scanline(callouts_->data, description_, rows_done, description_->height, 0, 0);
}

img_status Decoding::keep_alive(uint32_t rows_done) {
    constexpr int64_t second = 1'000'000'000, interval = second / 20;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t time = now.tv_sec * second + now.tv_nsec;
    if (time < next_call_) return ok;
    const bool first = !next_call_;
    next_call_ = time + interval;
    return first ? img_status{ok} : progress(rows_done);
}

img_status Encoding::begin(const img_encode_callouts &callouts, img_record &image) {
    callouts_ = &callouts;
    image_ = &image;
    constexpr img_flags needed = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT;
    if ((image.flags & needed) != needed || !image.width || !image.height) return bad_record;
    const img_limit limit = exceeded_limit(image.width, image.height);
    return limit.name ? refuse(limit) : ok;
}

img_status Encoding::refuse(const img_limit &limit) const {
    img_limit told = limit;
    const img_status status = ask(IMG_VALUE_LIMIT, &told);
    return status ? status : over_limit;
}

img_status Encoding::ask(uint32_t key, void *value) const {
    if (!has(IMG_F_ANSWERS) || !callouts_->scanline) return ok;
    return callouts_->scanline(callouts_->data, image_, 0, 0, key, reinterpret_cast<uintptr_t>(value));
}

img_status Encoding::ask(img_option &option) const {
    if (const img_status status = ask(IMG_VALUE_OPTION, &option)) return status;
    return in_range(option) ? ok : bad_record;
}

img_status Encoding::choose_and_set_up(const img_format *formats, uint32_t count, uint32_t order) {
    const uint32_t index = callouts_->choose_format(callouts_->data, image_, formats, count);
    if (index >= count) return no_common_format;
    image_->format = formats[index];
    const img_status status = callouts_->setup(callouts_->data, image_, order);
    return status ? status : attach(*image_);
}

img_status Encoding::get_palette(uint32_t (&argb)[max_colors]) const {
    if (!has(IMG_F_PALETTE) || !image_->ncolors || image_->ncolors > max_colors) return bad_record;
    return callouts_->get_palette(callouts_->data, image_, argb, FMT_ARGB8888HE);
}

img_status Encoding::get_transparency(uint8_t (&pixel)[4]) const {
    return callouts_->get_transparency(callouts_->data, image_, pixel);
}

const uint8_t *Encoding::fetch(uint32_t y) const {
    if (line_) image_->access(image_->access_arg, 0, y, image_->width, line_.get());
    return row(y);
}

img_status Encoding::progress(uint32_t rows_done) const {
    if (!callouts_->scanline) return ok;
    return callouts_->scanline(callouts_->data, image_, rows_done, image_->height, 0, 0);
}

} // namespace module
