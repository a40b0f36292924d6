// SPDX-License-Identifier: MIT
//
// The data transform: a conversion between the formats of two records, prepared once, applied to runs or whole images.
#include "convert/transform.h"

#include "convert/rows.h"

#include <string.h>

using namespace img;

namespace {

// Allocates a state with the routine, followed by room for more bytes.
Transform make_state(const img_dtransform_state &routine, uint64_t bytes) {
    Transform state{static_cast<img_dtransform_state *>(calloc(1, sizeof(img_dtransform_state) + bytes))};
    if (state) *state.get() = routine;
    return state;
}

img_status create_expansion(const img_record &src, const img_record &dst, const img_dtransform_state &routine,
                            Transform &state) {
    const img_cvt_func convert = img_convert_getfunc(FMT_ARGB8888HE, dst.format);
    if (!convert) return IMG_ST_BADFMT;
    // Kept: img_dtransform uses an FMT_ARGB8888HE palette in place. Indices beyond its end are not caught.
    const bool own = dst.format == FMT_ARGB8888HE;
    state = make_state(routine, own ? 0 : run_bytes(dst.format, full_palette(src.format, src.ncolors)));
    if (!state) return IMG_ST_NOMEM;
    state->palette = src.palette;
    if (!own) {
        void *palette = state.get() + 1;
        convert(src.palette, palette, src.ncolors);
        state->palette = palette;
    }
    return IMG_ST_OK;
}

// The size of the line that rows pass through. A row from an access function is fetched into the destination's row if
// it fits there, and converted in place.
uint64_t line_bytes(const img_record &src, const img_record &dst, uint32_t width) {
    const uint64_t src_bytes = run_bytes(src.format, width), dst_bytes = run_bytes(dst.format, width);
    if (has(dst, IMG_F_DIRECT)) return has(src, IMG_F_DIRECT) || src_bytes <= dst_bytes ? 0 : src_bytes;
    return larger(1, has(src, IMG_F_DIRECT) ? dst_bytes : larger(src_bytes, dst_bytes));
}

// Whether the rows of a buffer are adjacent.
bool rows_touch(const img_record &record, uint32_t width) {
    return has(record, IMG_F_DIRECT) && bits_per_pixel(record.format) >= 8 &&
           run_bytes(record.format, width) == record.stride;
}

// Whether all rows form one run in both buffers, and the buffers do not overlap. Long runs bypass the caches.
bool one_run(const img_record &src, const img_record &dst, uint32_t width, uint32_t height) {
    if (!rows_touch(src, width) || !rows_touch(dst, width) || uint64_t{width} * height > UINT32_MAX) return false;
    return buffers_apart(src, dst);
}

img_status move_rows(const img_record &src_record, const img_record &dst_record, const img_dtransform_state &state,
                     bool upside_down) {
    const uint32_t width = smaller(src_record.width, dst_record.width);
    const uint32_t height = smaller(src_record.height, dst_record.height);
    if (!height) return IMG_ST_OK;
    if (!has(src_record, storage_flags) || !has(dst_record, storage_flags)) return width ? IMG_ST_BADARG : IMG_ST_OK;
    if (!upside_down && one_run(src_record, dst_record, width, height)) {
        img_dtransform_apply(&state, src_record.data, dst_record.data, width * height);
        return IMG_ST_OK;
    }
    const uint64_t bytes = line_bytes(src_record, dst_record, width);
    const Owned<uint8_t> line{bytes ? allocate<uint8_t>(bytes) : Owned<uint8_t>{}};
    if (bytes && !line) return IMG_ST_NOMEM;

    const Rows src{src_record}, dst{dst_record};
    // Kept: Between two access functions img_dtransform processes the rows from last to first.
    const bool last_first = !src.direct() && !dst.direct();
    for (uint32_t i = 0; i < height; i++) {
        const uint32_t src_y = last_first ? height - 1 - i : i;
        const uint32_t dst_y = upside_down ? height - 1 - src_y : src_y;
        uint8_t *out = dst.direct() ? dst.at(dst_y) : line.get();
        uint8_t *in = src.direct() ? src.at(src_y) : line ? line.get() : out;
        if (!src.direct()) src.pass(0, src_y, width, in);
        img_dtransform_apply(&state, in, out, width);
        if (!dst.direct()) dst.pass(0, dst_y, width, out);
    }
    return IMG_ST_OK;
}

} // namespace

namespace img {

bool find_routine(img_format src, img_format dst, img_dtransform_state &state) {
    if (is_palette(src) && !is_palette(dst)) {
        state.kind = transform_expands;
        state.expand = img_expand_getfunc(src, dst);
        return state.expand;
    }
    state.kind = 0;
    state.convert = img_convert_getfunc(src, dst);
    return state.convert;
}

img_status copy_image(const img_record &src, img_record &dst, bool upside_down) {
    if (!has_all(src, shape_flags)) return IMG_ST_BADARG;
    take_format(dst, src);
    imgcpy(dst, src, size_flags);

    img_dtransform_state *created;
    if (const img_status status = img_dtransform_create(&src, &dst, &created)) return status;
    const Transform state{created};
    Storage storage{dst};
    if (const img_status status = storage.allocate()) return status;
    if (storage.made_palette()) {
        copy_palette(dst, src);
        dst.flags |= src.flags & IMG_F_PAL_ALPHA;
    }
    if (const img_status status = move_rows(src, dst, *state.get(), upside_down)) return status;
    storage.keep();
    return IMG_ST_OK;
}

} // namespace img

img_status img_dtransform_create(const img_record *src, const img_record *dst, img_dtransform_state **state) {
    *state = nullptr;
    if (!has(*src, IMG_F_FORMAT) || !has(*dst, IMG_F_FORMAT)) return IMG_ST_BADARG;
    if (!is_palette(src->format) && is_palette(dst->format)) return IMG_ST_BADFMT;
    img_dtransform_state routine{};
    const bool found = find_routine(src->format, dst->format, routine), expands = routine.kind & transform_expands;
    if (expands && !has(*src, IMG_F_PALETTE)) return IMG_ST_BADARG;
    if (!found) return IMG_ST_BADFMT;
    Transform made;
    img_status status = IMG_ST_OK;
    if (expands)
        status = create_expansion(*src, *dst, routine, made);
    else if (!(made = make_state(routine, 0)))
        status = IMG_ST_NOMEM;
    *state = made.release();
    return status;
}

void img_dtransform_apply(const img_dtransform_state *state, const void *src, void *dst, uint32_t count) {
    if (state->kind & transform_expands)
        state->expand(src, dst, count, state->palette);
    else
        state->convert(src, dst, count);
}

void img_dtransform_free(img_dtransform_state *state) { free(state); }

img_status img_dtransform(const img_record *src, img_record *dst) { return copy_image(*src, *dst, false); }

img_status img_dtransform_bu(const img_record *src, img_record *dst) { return copy_image(*src, *dst, true); }
