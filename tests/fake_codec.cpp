// SPDX-License-Identifier: MIT
#include "tests/fake_codec.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

Script script;

namespace {

std::string text(const char *format, uintptr_t a, uintptr_t b = 0, uintptr_t c = 0, uintptr_t d = 0) {
    char line[99];
    snprintf(line, sizeof line, format, a, b, c, d);
    return line;
}

img_status note(const char *event, img_status status) {
    script.note(event);
    return status;
}

// Moves the i-th row, in runs and in the order that the script announced, between the image and tight rows.
void move_row(const img_record &image, uint32_t i, img_format format, uint32_t width, uint32_t height, uint8_t *rows,
              bool into_image) {
    const bool upward = (script.setup_flags & (IMG_SETUP_TOPDOWN | IMG_SETUP_BOTTOMUP)) == IMG_SETUP_BOTTOMUP;
    const uint32_t y = upward ? height - 1 - i : i, run = script.run ? script.run : width;
    for (uint32_t x = 0; x < width; x += run) {
        const uint32_t count = std::min(run, width - x);
        uint8_t *line = rows + size_t{y} * tight_row(format, width) + tight_row(format, x);
        if (!(image.flags & IMG_F_DIRECT)) {
            if (script.empty_runs) image.access(image.access_arg, x, y, 0, line);
            if (script.empty_runs) image.access(image.access_arg, width, y, 0, line);
            image.access(image.access_arg, x, y, count, line);
            continue;
        }
        uint8_t *at = static_cast<uint8_t *>(image.data) + size_t{y} * image.stride + tight_row(format, x);
        memcpy(into_image ? at : line, into_image ? line : at, tight_row(format, count));
    }
}

img_status decode_frame(io_handle *, const img_decode_callouts *callouts, img_record *image, void **) {
    script.note("frame");
    image->width = script.width;
    image->height = script.height;
    image->ncolors = static_cast<uint32_t>(script.palette.size());
    image->flags |= IMG_F_WIDTH | IMG_F_HEIGHT | script.flags;
    const auto count = static_cast<uint32_t>(script.formats.size());
    script.chosen = callouts->choose_format(callouts->data, image, script.formats.data(), count);
    if (script.chosen >= count) return IMG_ST_NOCONV;
    image->format = script.formats[script.chosen];
    image->flags |= IMG_F_FORMAT;
    if (script.keeps_size) image->width = script.width, image->height = script.height;
    const img_status status = callouts->setup(callouts->data, image, script.setup_flags);
    EXPECT_EQ(callouts->setup(callouts->data, image, 0), script.setup_status) << "again";
    script.image = *image;
    if (status) return status;
    if (!script.palette.empty())
        if (const img_status s = callouts->set_palette(callouts->data, image, script.palette.data(), FMT_ARGB8888HE))
            return s;
    if (script.key) callouts->set_transparency(callouts->data, image, *script.key);
    if (callouts->set_value) script.note("=" + std::to_string(callouts->set_value(callouts->data, image, 1, 2, 3, 4)));
    for (uint32_t i = 0; i < script.height; i++) {
        if (i == script.fail_after) return script.frame;
        move_row(*image, i, image->format, script.width, script.height, script.pixels.data(), true);
        if (!script.reports_rows || !callouts->scanline) continue;
        if (const img_status s = callouts->scanline(callouts->data, image, i + 1, script.height, 0, 0)) return s;
    }
    for (uint32_t i = 0; i < script.extra_rows; i++)
        image->access(image->access_arg, 0, i % script.height, script.width, script.pixels.data());
    if (callouts->scanline) callouts->scanline(callouts->data, image, script.height, script.height, 0, ~uintptr_t{0});
    return script.frame;
}

img_status encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **) {
    script.note("frame");
    const auto count = static_cast<uint32_t>(script.formats.size());
    script.chosen = callouts->choose_format(callouts->data, image, script.formats.data(), count);
    if (script.chosen >= count) return IMG_ST_NOCONV;
    if (const img_status status = callouts->setup(callouts->data, image, script.setup_flags)) return status;
    EXPECT_EQ(callouts->setup(callouts->data, image, 0), IMG_ST_OK) << "again";
    script.image = *image;
    script.written_palette.assign(image->ncolors, 0);
    const img_status palette_status =
        callouts->get_palette(callouts->data, image, script.written_palette.data(), FMT_ARGB8888HE);
    const img_status key_status = callouts->get_transparency(callouts->data, image, &script.written_key);
    script.note(text("palette=%zu key=%zu", palette_status, key_status));
    const img_format format = script.formats[script.chosen];
    script.written.assign(size_t{image->height} * tight_row(format, image->width), 0xee);
    const bool has_pixels = image->flags & (IMG_F_DIRECT | IMG_F_ACCESS);
    for (uint32_t i = 0; has_pixels && i < image->height; i++)
        move_row(*image, i, format, image->width, image->height, script.written.data(), false);
    if (callouts->scanline) callouts->scanline(callouts->data, image, 5, 6, 7, 8);
    if (stream) stream->write(stream->self, script.written.data(), static_cast<uint32_t>(script.written.size()));
    return script.frame;
}

template <typename Table> void add_common(Table &table) {
    table.data = &script;
    table.setup = [](void *data, img_record *, uint32_t flags) -> img_status {
        EXPECT_EQ(data, &script);
        script.note(text("setup(%zu)", flags));
        return script.setup_status;
    };
    table.choose_format = [](void *, img_record *, const img_format *, uint32_t count) -> uint32_t {
        script.note(text("choose(%zu)", count));
        return script.choice;
    };
    table.abort = [](void *, img_record *) { script.note("abort"); };
    table.frame = [](void *, img_record *) { script.note("done"); };
    table.scanline = [](void *, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) -> img_status {
        script.note(text("scanline(%zu,%zu,%zu,%zx)", a, b, c, d));
        return 0;
    };
}

} // namespace

img_status fake_codec(img_codec_funcs *table, size_t) {
    *table = {[](io_handle *) { return note("validate", script.validate); },
              [](io_handle *, void **state) {
                  EXPECT_EQ(*state, nullptr);
                  *state = &script;
                  return note("begin", script.begin);
              },
              decode_frame,
              [](io_handle *, void **state) {
                  EXPECT_EQ(*state, &script);
                  return note("finish", script.finish);
              },
              [](io_handle *, void **) { return note("begin", script.begin); },
              encode_frame,
              [](io_handle *, void **) { return note("finish", script.finish); }};
    return IMG_ST_OK;
}

img_status bare_codec(img_codec_funcs *, size_t) { return IMG_ST_OK; }

img_decode_callouts logging_decode_callouts() {
    img_decode_callouts table{};
    add_common(table);
    table.set_palette = [](void *, img_record *record, const void *, img_format format) -> img_status {
        script.note(text("palette(%zu,%zx)", record->ncolors, format));
        return script.palette_status;
    };
    table.set_transparency = [](void *, img_record *, uint32_t key) { script.note(text("key(%zx)", key)); };
    table.set_value = [](void *, img_record *, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) -> img_status {
        script.note(text("value(%zu,%zu,%zu,%zu)", a, b, c, d));
        return 9;
    };
    return table;
}

img_encode_callouts logging_encode_callouts() {
    img_encode_callouts table{};
    add_common(table);
    table.get_palette = [](void *, img_record *, void *, img_format format) -> img_status {
        script.note(text("palette(%zx)", format));
        return 21;
    };
    table.get_transparency = [](void *, img_record *, void *) -> img_status {
        script.note("key()");
        return 22;
    };
    return table;
}
