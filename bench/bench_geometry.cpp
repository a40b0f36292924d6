// SPDX-License-Identifier: MIT
//
// Speed of whole-image operations: flips, turns, crop and resize of images of 256 x 256 and 4096 x 4096, for 8, 16, 24 and
// 32 bits a pixel, in the variant that the machine chooses. memcpy/<bits> copies the image as it is.
#include "core/record.h"
#include "pictra/pictra.h"

#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

struct Operation {
    const char *name;
    uint32_t numerator, denominator; // of the result's sides to the source's
    img_status (*run)(const img_record *src, img_record *dst);
};

constexpr Operation operations[] = {
    {"flip_horizontal", 1, 1, [](auto src, auto dst) { return img_flip(src, dst, IMG_FLIP_HORIZONTAL); }},
    {"flip_vertical", 1, 1, [](auto src, auto dst) { return img_flip(src, dst, IMG_FLIP_VERTICAL); }},
    {"turn_90", 1, 1, [](auto src, auto dst) { return img_rotate_ortho(src, dst, IMG_ANGLE_90); }},
    {"turn_180", 1, 1, [](auto src, auto dst) { return img_rotate_ortho(src, dst, IMG_ANGLE_180); }},
    {"turn_270", 1, 1, [](auto src, auto dst) { return img_rotate_ortho(src, dst, IMG_ANGLE_270); }},
    {"crop_3_4", 3, 4, [](auto src, auto dst) { return img_crop(src, dst, src->width / 8, src->height / 8); }},
    {"resize_1_2", 1, 2, img_resize_fs},
    {"resize_1_4", 1, 4, img_resize_fs},
    {"resize_3_10", 3, 10, img_resize_fs},
    {"resize_2_1", 2, 1, img_resize_fs},
};

struct Image {
    Image(img_format format, uint32_t side) : pixels(img::stride_of(format, side) * side, 0x5a) {
        record.format = format;
        record.width = record.height = side;
        record.data = pixels.data();
        record.stride = uint32_t(img::stride_of(format, side));
        record.flags = IMG_F_FORMAT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_DIRECT;
    }
    std::vector<uint8_t> pixels;
    img_record record{};
};

void measure(benchmark::State &state, const Operation &operation, img_format format, uint32_t larger_side) {
    const uint32_t side = operation.numerator > operation.denominator
                              ? larger_side * operation.denominator / operation.numerator
                              : larger_side;
    const Image src(format, side);
    Image dst(format, side * operation.numerator / operation.denominator);
    for (auto _ : state)
        if (operation.run(&src.record, &dst.record) != IMG_ST_OK) state.SkipWithError("refused");
    state.SetBytesProcessed(state.iterations() * int64_t(src.pixels.size() + dst.pixels.size()));
}

void copy(benchmark::State &state, img_format format, uint32_t side) {
    const Image src(format, side);
    Image dst(format, side);
    for (auto _ : state) {
        memcpy(dst.pixels.data(), src.pixels.data(), src.pixels.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * int64_t(2 * src.pixels.size()));
}

const bool added = [] {
    for (const uint32_t side : {256u, 4096u})
        for (const auto format : {FMT_G8, FMT_RGB565HE, FMT_BGR888, FMT_ARGB8888HE}) {
            const std::string what = "/" + std::to_string(img::bits_per_pixel(format)) + "/" + std::to_string(side);
            benchmark::RegisterBenchmark(("memcpy" + what).c_str(),
                                         [=](benchmark::State &state) { copy(state, format, side); });
            for (const Operation &operation : operations)
                benchmark::RegisterBenchmark((operation.name + what).c_str(), [=, &operation](benchmark::State &state) {
                    measure(state, operation, format, side);
                });
        }
    return true;
}();

} // namespace
