// SPDX-License-Identifier: MIT
//
// Loading at another size in one pass: the resampler is where the codec's rows go. Codecs that do not deliver rows in
// order load the whole picture, which is scaled afterwards.
#include "kit/fit/proportion.h"
#include "kit/options.h"
#include "kit/resample/resampler.h"
#include "kit/resample/storage.h"

#include <math.h>

using namespace img;
using namespace img::kit;

namespace {

constexpr uint32_t palette_entries = 256;
constexpr double hint_factor = 2; // a codec that reduces by itself leaves the filter that many times the result's size

struct Load {
    explicit Load(img_record &record) : target(record), storage(record) {}

    const img_decode_callouts *caller = nullptr;
    pictra_resample_options options{};
    uint32_t picture_width = 0,
             picture_height = 0; // which the options' part is of
    img_record &target;
    Storage storage;
    img_record source{};
    Owned<uint32_t> palette;
    Resampler resampler;
    bool cut = false;     // the options' part is in pixels of the source
    bool streams = false; // rows come in order, and go to the resampler
};

Load &load_of(void *data) { return *static_cast<Load *>(data); }

// The side of the target that is missing follows the other in the proportions of the part.
void complete_size(Load &load) {
    img_record &target = load.target;
    const double width = load.options.width > 0 ? load.options.width : load.picture_width - load.options.x;
    const double height = load.options.height > 0 ? load.options.height : load.picture_height - load.options.y;
    const bool has_width = has(target, IMG_F_WIDTH), has_height = has(target, IMG_F_HEIGHT);
    if (!has_width)
        target.width = has_height ? in_proportion(target.height, width, height) : in_proportion(width, 1, 1);
    if (!has_height)
        target.height = has_width ? in_proportion(target.width, height, width) : in_proportion(height, 1, 1);
    target.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
}

// What the codec may decode at: the result's size for the part and hint_factor times that for the filter.
uint32_t hint(uint32_t picture, double part, uint32_t result) {
    const double whole = part > 0 ? picture / part : 1;
    return static_cast<uint32_t>(fmin(ceil(result * whole * hint_factor), picture));
}

uint32_t choose_format(void *data, img_record *record, const img_format *formats, uint32_t count) {
    Load &load = load_of(data);
    img_record &target = load.target;
    load.picture_width = record->width;
    load.picture_height = record->height;
    uint32_t index = 0;
    for (uint32_t i = 0; i < count && has(target, IMG_F_FORMAT); i++)
        if (formats[i] == target.format) index = i;
    if (load.caller->choose_format) {
        const img_flags flags = target.flags;
        if (!(flags & IMG_F_WIDTH)) target.width = record->width;
        if (!(flags & IMG_F_HEIGHT)) target.height = record->height;
        const uint32_t chosen = load.caller->choose_format(load.caller->data, &target, formats, count);
        if (chosen < count) index = chosen;
    }
    complete_size(load);
    if (load.options.filter == PICTRA_FILTER_NEAREST) return index; // which wants the pixels as they are
    record->width = hint(record->width, load.options.width, target.width);
    record->height = hint(record->height, load.options.height, target.height);
    record->flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    return index;
}

// The part is given in the picture's pixels, and the codec may have chosen to decode fewer.
void fit_part(Load &load, const img_record &record) {
    if (load.cut) return;
    load.cut = true;
    const auto fit = [](double &from, double &length, uint32_t picture, uint32_t decoded) {
        if (!picture || picture == decoded) return;
        const double scale = static_cast<double>(decoded) / picture;
        from *= scale;
        length *= scale;
        if (from + length > decoded) length = decoded - from;
    };
    fit(load.options.x, load.options.width, load.picture_width, record.width);
    fit(load.options.y, load.options.height, load.picture_height, record.height);
}

int take_run(void *data, uint32_t x, uint32_t y, uint32_t count, void *pixels) {
    return static_cast<int>(load_of(data).resampler.take_run(x, y, count, pixels));
}

img_status setup(void *data, img_record *record, uint32_t setup_flags) {
    Load &load = load_of(data);
    if (is_palette(record->format)) {
        load.palette = allocate<uint32_t>(palette_entries > record->ncolors ? palette_entries : record->ncolors);
        if (!load.palette) return IMG_ST_NOMEM;
        record->palette = load.palette.get();
        record->flags |= IMG_F_PALETTE;
    }
    if (!has(load.target, IMG_F_FORMAT)) {
        load.target.format = is_palette(record->format) ? img_format{FMT_ARGB8888HE} : record->format;
        load.target.flags |= IMG_F_FORMAT;
    }
    fit_part(load, *record);
    if (setup_flags & (IMG_SETUP_TOPDOWN | IMG_SETUP_BOTTOMUP)) {
        if (const img_status status = load.storage.make()) return status;
        if (!(setup_flags & IMG_SETUP_TOPDOWN)) load.options.flags |= PICTRA_RESAMPLE_UPWARD;
        if (const img_status status = load.resampler.make(*record, load.target, load.options)) return status;
        load.streams = true;
        record->flags |= IMG_F_ACCESS;
        record->access = take_run;
        record->access_arg = &load;
    }
    return load.caller->setup ? load.caller->setup(load.caller->data, record, setup_flags) : img_status{IMG_ST_OK};
}

// A picture that cannot be scaled need not be decoded to its end.
img_status scanline(void *data, img_record *record, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const Load &load = load_of(data);
    if (const img_status status = load.resampler.failure()) return status;
    return load.caller->scanline ? load.caller->scanline(load.caller->data, record, a, b, c, d) : img_status{IMG_ST_OK};
}

img_status set_value(void *data, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    const Load &load = load_of(data);
    return load.caller->set_value(load.caller->data, &load.target, a, b, c, d);
}

// Those that go on to the caller with nothing but its own data.
void forward_abort(void *data, img_record *record) {
    const img_decode_callouts &caller = *load_of(data).caller;
    caller.abort(caller.data, record);
}
img_status forward_set_palette(void *data, img_record *record, const void *palette, img_format format) {
    const img_decode_callouts &caller = *load_of(data).caller;
    return caller.set_palette(caller.data, record, palette, format);
}
void forward_set_transparency(void *data, img_record *record, uint32_t key) {
    const img_decode_callouts &caller = *load_of(data).caller;
    caller.set_transparency(caller.data, record, key);
}
void forward_frame(void *data, img_record *record) {
    const img_decode_callouts &caller = *load_of(data).caller;
    caller.frame(caller.data, record);
}

img_decode_callouts callouts_of(Load &load) {
    const img_decode_callouts &caller = *load.caller;
    return {choose_format,
            setup,
            caller.abort ? forward_abort : nullptr,
            scanline,
            caller.set_palette ? forward_set_palette : nullptr,
            caller.set_transparency ? forward_set_transparency : nullptr,
            caller.frame ? forward_frame : nullptr,
            caller.set_value ? set_value : nullptr,
            &load};
}

// Scales what was loaded whole.
img_status scale_loaded(Load &load) {
    if (!has(load.source, IMG_F_DIRECT)) return IMG_ST_BADARG; // without a pixel
    const img_status status = pictra_resample(&load.source, &load.target, &load.options);
    free(load.source.data);
    return status;
}

template <typename Run>
img_status load_resampled(const img_decode_callouts *caller, img_record &target, const pictra_resample_options *options,
                          Run run) {
    static constexpr img_decode_callouts none{};
    Load load(target);
    if (!read_options(options, load.options) || (load.options.flags & PICTRA_RESAMPLE_UPWARD)) return IMG_ST_BADARG;
    load.caller = caller ? caller : &none;
    load.source.flags = IMG_F_SIZE_HINT | (target.flags & IMG_F_WANT_ALPHA);
    const img_decode_callouts callouts = callouts_of(load);
    img_status status = run(&callouts, &load.source);
    if (load.resampler.failure()) status = load.resampler.failure();
    if (!status) status = load.streams ? load.resampler.end() : scale_loaded(load);
    if (!status) load.storage.keep();
    return status;
}

} // namespace

img_status pictra_load_resampled_file(img_lib_handle *handle, const char *path, const img_decode_callouts *callouts,
                                      img_record *target, const pictra_resample_options *options) {
    return load_resampled(callouts, *target, options, [&](const img_decode_callouts *table, img_record *record) {
        return img_load_file(handle, path, table, record);
    });
}

img_status pictra_load_resampled(img_lib_handle *handle, io_handle *stream, const img_decode_callouts *callouts,
                                 img_record *target, const pictra_resample_options *options) {
    return load_resampled(callouts, *target, options, [&](const img_decode_callouts *table, img_record *record) {
        return img_load(handle, stream, table, record);
    });
}
