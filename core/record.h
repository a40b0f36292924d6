// SPDX-License-Identifier: MIT
//
// What every operation needs to know about a record: sizes of rows, which fields are valid, storage that is released
// again on failure. No pixel is touched here.
#pragma once

#include "pictra/pictra.h"

namespace img {

inline constexpr img_flags storage_flags = IMG_F_DIRECT | IMG_F_ACCESS;
inline constexpr img_flags size_flags = IMG_F_WIDTH | IMG_F_HEIGHT;
inline constexpr img_flags shape_flags = IMG_F_FORMAT | size_flags;

constexpr uint32_t bits_per_pixel(img_format format) { return format & IMG_FMT_BPP_MASK; }
constexpr bool is_palette(img_format format) { return format & IMG_FMT_PAL; }
constexpr bool has(const img_record &record, img_flags flag) { return record.flags & flag; }
constexpr bool has_all(const img_record &record, img_flags flags) { return (record.flags & flags) == flags; }

constexpr uint64_t run_bits(img_format format, uint64_t n) { return bits_per_pixel(format) * n; }

// Bytes that n pixels take, and the offset of pixel n. Kept: An offset within a row of 1- or 4-bit indices rounds up to
// a whole byte.
constexpr uint64_t run_bytes(img_format format, uint64_t n) { return (run_bits(format, n) + 7) >> 3; }

// A run of a row, from a byte with `there` bytes left to read. A run of 1- or 4-bit pixels that starts inside a byte is
// read from the next byte on and may need a byte more than there is: that byte counts as 0. The run is then copied to
// scratch, which has room for `needed` bytes.
const uint8_t *padded_run(const uint8_t *run, uint64_t there, uint64_t needed, uint8_t *scratch);

// The stride of rows that the library allocates: whole bytes, rounded up to a multiple of 4.
constexpr uint64_t stride_of(img_format format, uint64_t n) { return (run_bytes(format, n) + 3) & ~uint64_t{3}; }

constexpr uint32_t smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }
constexpr uint64_t larger(uint64_t a, uint64_t b) { return a > b ? a : b; }

// First byte of a row of a record with a pixel buffer.
inline uint8_t *row_at(const img_record &record, uint64_t y) {
    return static_cast<uint8_t *>(record.data) + y * record.stride;
}

// Whether two buffers have no byte in common.
inline bool buffers_apart(const img_record &a, const img_record &b) {
    const auto begin = [](const img_record &image) { return reinterpret_cast<uintptr_t>(image.data); };
    const auto end = [&](const img_record &image) { return begin(image) + uint64_t{image.stride} * image.height; };
    return end(a) <= begin(b) || end(b) <= begin(a);
}

// Copies the fields that mask names, src has and dst lacks: width, height, format, the codec's mark, storage. Palette,
// number of colours and transparency are not copied. Nothing is allocated: the records then share their storage.
void imgcpy(img_record &dst, const img_record &src, img_flags mask);

// Copies the format if dst lacks it, along with the number of colours of a palette format.
void take_format(img_record &dst, const img_record &src);

// Fills dst's palette with the entries of src's palette, and with 0 after the last of them.
void copy_palette(img_record &dst, const img_record &src);

// The colour key as the record keeps it for its depth: an index, a pixel, or an FMT_ARGB8888HE word.
uint32_t stored_key(const img_record &record);

// A colour key as a run of one pixel of the format, for the routines that convert runs. The key of a palette format is
// an index; one of 1 or 4 bits goes to the top of its byte, where the first pixel of a run is.
struct KeyPixel {
    uint8_t bytes[4];
};
KeyPixel key_pixel(img_format format, uint32_t key);

// img_alloc, but refuses rows whose size would wrap, because whatever is written into a row must fit.
img_status allocate_storage(img_record &record, img_alloc_result &made);

// The storage that img_alloc gives a record. It is released again unless keep() is called.
class Storage {
public:
    explicit Storage(img_record &record) : record_(record) {}
    Storage(const Storage &) = delete;
    Storage &operator=(const Storage &) = delete;
    ~Storage() { release(record_, made_); }

    img_status allocate() { return allocate_storage(record_, made_); }
    bool made_palette() const { return made_ & IMG_ALLOC_PALETTE; }
    void keep() { made_ = 0; }

    // Frees what img_alloc allocated and clears its flags.
    static void release(img_record &record, img_alloc_result made);

private:
    img_record &record_;
    img_alloc_result made_ = 0;
};

} // namespace img
