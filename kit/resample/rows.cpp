// SPDX-License-Identifier: MIT
#include "kit/resample/rows.h"

#include <string.h>

namespace img::kit {

namespace {

constexpr uint32_t palette_entries = 256;
constexpr bool is_little = std::endian::native == std::endian::little;
constexpr uint32_t alpha_bits = is_little ? 0xff000000 : 0xff; // of a word in the working format

uint32_t to_work(uint32_t argb) { return is_little ? argb : __builtin_bswap32(argb); }

} // namespace

// ---- In -------------------------------------------------------------------------------------------------------------

img_status SourceRows::make(const img_record &record, uint32_t begin, uint32_t end) {
    record_ = &record;
    const img_format format = grey_for_alpha(record.format);
    const uint32_t bits = bits_per_pixel(format);
    begin_ = bits < 8 ? 0 : begin; // a run of smaller pixels begins with a whole byte
    count_ = end - begin_;
    if (is_palette(format)) {
        expand_ = img_expand_getfunc(format, work_format);
        palette_ = allocate<uint32_t>(palette_entries);
        if (!palette_) return IMG_ST_NOMEM;
    } else if (format != work_format) {
        convert_ = img_convert_getfunc(format, work_format);
    }
    return format == work_format || expand_ || convert_ ? IMG_ST_OK : IMG_ST_BADFMT;
}

img_status SourceRows::read_colours() {
    const img_record &record = *record_;
    has_key_ = has(record, IMG_F_TRANSP) && !(record.format & IMG_FMT_ALPHA);
    const uint32_t bits = bits_per_pixel(record.format);
    if (is_palette(record.format)) {
        if (!has(record, IMG_F_PALETTE) || !record.palette) return IMG_ST_BADARG;
        const uint32_t opaque = has(record, IMG_F_PAL_ALPHA) ? 0 : 0xff000000;
        for (uint32_t i = 0; i < palette_entries; i++)
            palette_[i] = to_work(i < record.ncolors ? record.palette[i] | opaque : 0xff000000);
        if (has_key_) palette_[record.transparency8] &= ~alpha_bits;
        has_key_ = false;
    } else if (has_key_ && bits >= 24) {
        key_ = to_work(record.transparency);
    } else if (has_key_) {
        convert_(&record.transparency, &key_, 1);
    }
    return IMG_ST_OK;
}

void SourceRows::clear_key(uint8_t *pixels) const {
    for (uint32_t i = 0; i < count_; i++, pixels += 4) {
        uint32_t pixel;
        memcpy(&pixel, pixels, sizeof pixel);
        if ((pixel ^ key_) & ~alpha_bits) continue;
        pixel &= ~alpha_bits;
        memcpy(pixels, &pixel, sizeof pixel);
    }
}

const uint8_t *SourceRows::convert(const void *pixels, bool stays, uint8_t *room) {
    if (!ready_ && read_colours()) return nullptr;
    ready_ = true;
    const auto *from = static_cast<const uint8_t *>(pixels);
    if (stays && !convert_ && !expand_) return from;
    from += uint64_t{begin_} * bits_per_pixel(record_->format) / 8;
    uint8_t *to = room + begin_ * size_t{4};
    if (expand_)
        expand_(from, to, count_, palette_.get());
    else if (convert_)
        convert_(from, to, count_);
    else
        memcpy(to, from, count_ * size_t{4});
    if (has_key_) clear_key(to);
    return room;
}

// ---- Out ------------------------------------------------------------------------------------------------------------

img_status ResultRows::make(const img_record &target, img_format source_format) {
    target_ = target;
    const img_format format = source_format == FMT_A8 ? grey_for_alpha(target.format) : target.format;
    if (format != work_format) {
        convert_ = img_convert_getfunc(work_format, format);
        if (!convert_) return IMG_ST_BADFMT;
    }
    if (!convert_ && has(target, IMG_F_DIRECT)) return IMG_ST_OK;
    line_ = allocate<uint8_t>(uint64_t{target.width} * 4); // no format has larger pixels
    return line_ ? IMG_ST_OK : IMG_ST_NOMEM;
}

void ResultRows::deliver(uint32_t y) {
    if (!line_) return;
    if (has(target_, IMG_F_DIRECT)) {
        convert_(line_.get(), at(y), target_.width);
        return;
    }
    if (convert_) convert_(line_.get(), line_.get(), target_.width);
    target_.access(target_.access_arg, 0, y, target_.width, line_.get());
}

} // namespace img::kit
