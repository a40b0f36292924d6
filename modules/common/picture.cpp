// SPDX-License-Identifier: MIT
#include "modules/common/picture.h"

#include <algorithm>
#include <string.h>
#include <time.h>

namespace codec {

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
    rows_done_ = 0;
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

img_status Decoding::set_palette(const uint32_t *argb) {
    const auto count = std::min(record().ncolors, max_colors);
    uint32_t colors[max_colors], transparent = 0, clear = max_colors;
    for (uint32_t i = 0; i < count; i++) {
        colors[i] = argb[i];
        transparent += argb[i] >> 24 != 0xff;
        if (clear == max_colors && !(argb[i] >> 24)) clear = i;
    }
    const bool as_key = transparent == 1 && clear != max_colors && !(record().flags & IMG_F_WANT_ALPHA);
    if (as_key)
        colors[clear] |= 0xff000000;
    else if (transparent)
        add_flags(IMG_F_PAL_ALPHA);
    if (const img_status status = callouts_->set_palette(callouts_->data, description_, colors, FMT_ARGB8888HE))
        return status;
    if (as_key) set_transparency(clear);
    return ok;
}

void Decoding::set_transparency(uint32_t key) const { callouts_->set_transparency(callouts_->data, description_, key); }

img_status Decoding::hand_over(uint32_t y) {
    const img_record &picture = record();
    const uint32_t bits = bits_per_pixel(picture.format);
    if ((picture.format & IMG_FMT_PAL) && !indices_below(row(y), bits, picture.width, picture.ncolors)) return damaged;
    const uint32_t used = picture.width * bits & 7; // bits of the last byte
    if (used) row(y)[row_bytes(picture.format, picture.width) - 1] &= static_cast<uint8_t>(0xff00 >> used);
    if (line_) picture.access(picture.access_arg, 0, y, picture.width, line_.get());
    return ok;
}

img_status Decoding::deliver(uint32_t y) {
    const img_status status = hand_over(y);
    return status ? status : progress(rows_done_ + 1);
}

img_status Decoding::progress(uint32_t rows_done) {
    rows_done_ = rows_done;
    if (!callouts_->scanline) return ok;
    return callouts_->scanline(callouts_->data, description_, rows_done, description_->height, 0, 0);
}

img_status Decoding::keep_alive() {
    constexpr int64_t second = 1'000'000'000, interval = second / 20;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t time = now.tv_sec * second + now.tv_nsec;
    if (time < next_call_) return ok;
    const bool first = !next_call_;
    next_call_ = time + interval;
    return first ? img_status{ok} : progress(rows_done_);
}

img_status Decoding::grow(Buffer &buffer, size_t size, size_t most) {
    const size_t capacity = buffer.next_capacity(size, most);
    if (const img_status status = hold(capacity - buffer.capacity())) return status;
    return buffer.grow(size, most) ? ok : no_memory;
}

img_status Decoding::read_all(io_handle &stream, size_t most, Buffer &buffer, size_t &length) {
    constexpr size_t first = 64 * 1024, portion = 4 * 1024 * 1024;
    for (length = 0;;) {
        const size_t wanted = std::clamp(buffer.capacity() - length, size_t{1}, portion);
        if (const img_status status = grow(buffer, std::max(first, length + wanted), most + 1)) return status;
        const size_t got = read_up_to(stream, buffer.data() + length, wanted);
        length += got;
        if (got < wanted) return ok;
        if (length > most) return refuse({"file size", length, most});
        if (const img_status status = keep_alive()) return status;
    }
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

img_status Encoding::warn(const char *text) const {
    img_bytes bytes = {text, strlen(text)};
    return ask(IMG_VALUE_WARNING, &bytes);
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
    std::fill_n(argb, max_colors, 0u);
    if (const img_status status = callouts_->get_palette(callouts_->data, image_, argb, FMT_ARGB8888HE)) return status;
    for (uint32_t i = 0; i < image_->ncolors && !has(IMG_F_PAL_ALPHA); i++) argb[i] |= 0xff000000;
    if (!has(IMG_F_TRANSP)) return ok;
    uint8_t key[4];
    if (const img_status status = get_transparency(key)) return status;
    if (key[0] >= image_->ncolors) return bad_record;
    argb[key[0]] &= 0xffffff;
    return ok;
}

img_status Encoding::get_transparency(uint8_t (&pixel)[4]) const {
    return callouts_->get_transparency(callouts_->data, image_, pixel);
}

const uint8_t *Encoding::fetch(uint32_t y) const {
    if (line_) image_->access(image_->access_arg, 0, y, image_->width, line_.get());
    if (!(image_->format & IMG_FMT_PAL)) return row(y);
    return indices_below(row(y), bits_per_pixel(image_->format), image_->width, image_->ncolors) ? row(y) : nullptr;
}

img_status Encoding::progress(uint32_t rows_done) const {
    if (!callouts_->scanline) return ok;
    return callouts_->scanline(callouts_->data, image_, rows_done, image_->height, 0, 0);
}

} // namespace codec
