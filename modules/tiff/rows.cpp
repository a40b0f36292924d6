// SPDX-License-Identifier: MIT
//
// From the strips and tiles of a TIFF page to rows of pixels.
#include "modules/tiff/tiff.h"

#include <string.h>

namespace tif {

namespace {

uint32_t div255(uint32_t value) { return (value + 128 + ((value + 128) >> 8)) >> 8; } // rounded, up to 255 * 255

// What colours multiplied by alpha are multiplied with to undo it, times 2^16.
struct Reciprocals {
    uint32_t of[256];
    constexpr Reciprocals() : of{} {
        for (uint32_t alpha = 1; alpha < 256; alpha++) of[alpha] = (255 * 65536 + alpha / 2) / alpha;
    }
};
constexpr Reciprocals reciprocals;

void unpremultiply(uint8_t *pixels, uint32_t channels, uint32_t width) {
    for (uint32_t x = 0; x < width; x++, pixels += channels) {
        const uint32_t factor = reciprocals.of[pixels[channels - 1]];
        for (uint32_t c = 0; c + 1 < channels; c++)
            pixels[c] = static_cast<uint8_t>(std::min<uint32_t>((pixels[c] * factor + 32768) >> 16, 255));
    }
}

// In place: three bytes a pixel follow from four.
void cmyk_to_rgb(uint8_t *pixels, uint32_t width) {
    const uint8_t *in = pixels;
    for (uint32_t x = 0; x < width; x++, in += 4, pixels += 3) {
        const uint32_t light = 255u - in[3];
        for (uint32_t c = 0; c < 3; c++) pixels[c] = static_cast<uint8_t>(div255((255u - in[c]) * light));
    }
}

// In place, from the last pixel on: four bytes a pixel follow from an index and alpha.
void map_to_rgba(uint8_t *pixels, uint32_t width, const uint32_t *palette) {
    for (size_t x = width; x-- > 0;) {
        const uint32_t color = palette[pixels[2 * x]];
        const uint8_t alpha = pixels[2 * x + 1];
        uint8_t *out = pixels + 4 * x;
        out[0] = static_cast<uint8_t>(color >> 16);
        out[1] = static_cast<uint8_t>(color >> 8);
        out[2] = static_cast<uint8_t>(color);
        out[3] = alpha;
    }
}

// One sample of each pixel of a row, as 8 bits, from every step-th sample of the file.
void take_samples(const uint8_t *row, uint32_t bits, uint32_t step, uint32_t width, uint8_t *out, uint32_t out_step) {
    if (bits == 8) {
        for (size_t x = 0; x < width; x++) out[x * out_step] = row[x * step];
    } else if (bits == 16) {
        for (size_t x = 0; x < width; x++) {
            uint16_t sample;
            memcpy(&sample, row + x * step * sizeof sample, sizeof sample);
            out[x * out_step] = static_cast<uint8_t>(sample >> 8);
        }
    } else {
        const uint32_t scale = 255 / ((1u << bits) - 1);
        for (uint32_t x = 0; x < width; x++)
            out[size_t{x} * out_step] = static_cast<uint8_t>(index_at(row, bits, x) * scale);
    }
}

// Pixels of grey, grey and alpha, RGB, or RGBA.
template <uint32_t channels> void put_pixels(const uint8_t *in, uint32_t width, const Layout &layout, uint8_t *out) {
    constexpr uint32_t green = channels > 2 ? 1 : 0, blue = channels > 2 ? 2 : 0;
    constexpr bool has_alpha = channels % 2 == 0;
    const ColorBytes at = color_bytes(layout);
    const size_t fourth = layout.fourth == Fourth::first ? 0 : 3, step = layout.fourth == Fourth::none ? 3 : 4;
    for (uint32_t x = 0; x < width; x++, in += channels, out += step) {
        out[at.red] = in[0];
        out[at.green] = in[green];
        out[at.blue] = in[blue];
        if (step == 4) out[fourth] = has_alpha ? in[channels - 1] : 0xff;
    }
}

} // namespace

img_status PageReader::failed() const { return file_->failure ? file_->failure : damaged; }

img_status PageReader::begin(TIFF *tif, const File &file, const Page &page) {
    tif_ = tif;
    file_ = &file;
    page_ = page;
    planes_ = page.separate && page.kind != Kind::other ? page.channels() : 1;
    step_ = page.separate ? 1 : page.samples;
    tiles_across_ = 1;
    uint32_t rows_per_strip = page.height;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
    if (!rows_per_strip) return damaged;
    const bool whole_strips = page.kind == Kind::other || planes_ > 1;
    rows_ = page.tile_width ? page.tile_height : whole_strips ? std::min(rows_per_strip, page.height) : 1;
    const size_t sample_bits = page.kind == Kind::other ? 32 : size_t{page.bits} * step_;
    tile_bytes_ = 0;
    if (page.tile_width) {
        const size_t bits = page.tile_width * sample_bits;
        tiles_across_ = (page.width - 1) / page.tile_width + 1;
        if (bits % 8 && tiles_across_ > 1) return unsupported; // tiles that begin within a byte
        tile_row_bytes_ = (bits + 7) / 8;
        tile_bytes_ = uint64_t{tile_row_bytes_} * page.tile_height;
        row_bytes_ = tile_row_bytes_ * tiles_across_;
        if (page.kind != Kind::other && TIFFTileSize64(tif) != tile_bytes_) return unsupported;
    } else {
        row_bytes_ = (page.width * sample_bits + 7) / 8;
        if (page.kind != Kind::other && TIFFScanlineSize64(tif) != row_bytes_) return unsupported;
        if (!whole_strips) keep_within_file();
    }
    return ok;
}

// libtiff refuses a strip that the file does not hold to its end. Told that it is shorter, it decodes the rows that are
// there and fails at the first one that is not.
void PageReader::keep_within_file() const {
    const uint64_t *offsets = nullptr, *counts = nullptr;
    if (!TIFFGetField(tif_, TIFFTAG_STRIPOFFSETS, &offsets) || !TIFFGetField(tif_, TIFFTAG_STRIPBYTECOUNTS, &counts))
        return;
    for (uint32_t strip = 0; offsets && counts && strip < TIFFNumberOfStrips(tif_); strip++)
        if (offsets[strip] < file_->length && counts[strip] > file_->length - offsets[strip])
            const_cast<uint64_t &>(counts[strip]) = file_->length - offsets[strip]; // memory of the handle
}

img_status PageReader::allocate(Decoding &picture, const uint32_t *palette) {
    picture_ = &picture;
    palette_ = palette;
    picture.release(held_); // of the page before
    held_ = 0;
    const uint64_t plane_bytes = uint64_t{rows_} * row_bytes_;
    if (tile_bytes_ > max_allocation) return picture.refuse({"tile", tile_bytes_, max_allocation});
    if (plane_bytes > max_allocation || plane_bytes * planes_ > max_allocation)
        return picture.refuse({tile_bytes_ ? "row of tiles" : "strip", plane_bytes * planes_, max_allocation});
    const uint64_t line_bytes = uint64_t{page_.width} * std::max(page_.channels(), 4u);
    const uint64_t all = plane_bytes * planes_ + line_bytes + tile_bytes_;
    if (const img_status status = picture.hold(all)) return status;
    held_ = all;
    band_ = make_bytes(plane_bytes * planes_);
    line_ = make_bytes(line_bytes);
    if (tile_bytes_) tile_ = make_bytes(tile_bytes_);
    return band_ && line_ && (tile_ || !tile_bytes_) ? ok : no_memory;
}

const uint8_t *PageReader::row(uint32_t plane, uint32_t i) const {
    return band_.get() + (size_t{plane} * rows_ + i) * row_bytes_;
}

img_status PageReader::read(uint32_t y) {
    if (page_.kind == Kind::other && !page_.tile_width) return read_converted(y);
    return page_.tile_width ? read_tiles(y) : read_strips(y);
}

// Row by row where libtiff can do that without decoding a strip again and again.
img_status PageReader::read_strips(uint32_t y) {
    if (planes_ == 1) return TIFFReadScanline(tif_, band_.get(), y, 0) == 1 ? ok : failed();
    const uint32_t rows = std::min(rows_, page_.height - y);
    for (uint32_t c = 0; c < planes_; c++) {
        const auto sample = static_cast<uint16_t>(c < page_.colors ? c : page_.alpha);
        for (uint32_t i = 0; i < rows; i++) {
            if (const img_status status = picture_->keep_alive()) return status;
            uint8_t *out = band_.get() + (size_t{c} * rows_ + i) * row_bytes_;
            if (TIFFReadScanline(tif_, out, y + i, sample) != 1) return failed();
        }
    }
    return ok;
}

// Whole tiles, also where they stand out of the picture.
img_status PageReader::read_tiles(uint32_t y) {
    for (uint32_t c = 0; c < planes_; c++)
        for (uint32_t t = 0; t < tiles_across_; t++) {
            if (const img_status status = picture_->keep_alive()) return status;
            const auto sample = static_cast<uint16_t>(planes_ == 1 || c < page_.colors ? c : page_.alpha);
            const uint32_t x = t * page_.tile_width;
            uint8_t *out = band_.get() + size_t{c} * rows_ * row_bytes_ + t * tile_row_bytes_;
            if (page_.kind == Kind::other) {
                auto *raster = reinterpret_cast<uint32_t *>(tile_.get());
                if (!TIFFReadRGBATileExt(tif_, x, y, raster, 1)) return failed();
            } else if (TIFFReadTile(tif_, tile_.get(), x, y, 0, sample) < 0) {
                return failed();
            }
            for (uint32_t i = 0; i < rows_; i++) {
                // libtiff's own conversion has the bottom row first.
                const uint32_t from = page_.kind == Kind::other ? rows_ - 1 - i : i;
                memcpy(out + i * row_bytes_, tile_.get() + from * tile_row_bytes_, tile_row_bytes_);
            }
        }
    return ok;
}

// A strip by libtiff's own conversion, which has the bottom row first.
img_status PageReader::read_converted(uint32_t y) {
    auto *raster = reinterpret_cast<uint32_t *>(band_.get());
    if (!TIFFReadRGBAStripExt(tif_, y, raster, 1)) return failed();
    const uint32_t rows = std::min(rows_, page_.height - y);
    for (uint32_t i = 0; i < rows / 2; i++)
        std::swap_ranges(band_.get() + i * row_bytes_, band_.get() + (i + 1) * row_bytes_,
                         band_.get() + (rows - 1 - i) * row_bytes_);
    return ok;
}

// A row as samples of 8 bits, no alpha multiplied in, black 0.
const uint8_t *PageReader::pixels(uint32_t i) {
    const uint32_t channels = page_.channels(), width = page_.width;
    uint8_t *out = line_.get();
    if (page_.kind == Kind::other) {
        const auto *raster = reinterpret_cast<const uint32_t *>(row(0, i));
        for (uint32_t x = 0; x < width; x++, out += 3) {
            out[0] = static_cast<uint8_t>(TIFFGetR(raster[x]));
            out[1] = static_cast<uint8_t>(TIFFGetG(raster[x]));
            out[2] = static_cast<uint8_t>(TIFFGetB(raster[x]));
        }
        return line_.get();
    }
    const bool as_stored = page_.bits == 8 && planes_ == 1 && step_ == channels;
    const bool as_it_is = !page_.premultiplied && !page_.white_is_0 && !page_.is_signed &&
                          (page_.kind == Kind::grey || page_.kind == Kind::rgb);
    if (as_stored && as_it_is) return row(0, i);
    if (as_stored)
        memcpy(out, row(0, i), size_t{width} * channels); // a row of tiles is longer
    else
        for (uint32_t c = 0; c < channels; c++) {
            const uint32_t sample = c < page_.colors ? c : page_.alpha;
            const uint8_t *in = page_.separate ? row(c, i) : row(0, i) + sample * (page_.bits / 8);
            take_samples(in, page_.bits, step_, width, out + c, channels);
        }
    if (page_.is_signed)
        for (size_t x = 0; x < size_t{width} * channels; x++) out[x] ^= 0x80;
    if (page_.white_is_0)
        for (size_t x = 0; x < width; x++) out[x * channels] ^= 0xff;
    if (page_.premultiplied) unpremultiply(out, channels, width);
    if (page_.kind == Kind::cmyk) cmyk_to_rgb(out, width);
    if (page_.kind == Kind::mapped) map_to_rgba(out, width, palette_);
    return out;
}

void PageReader::put_indices(uint32_t i, img_format format, uint8_t *out) const {
    const uint8_t *in = row(0, i);
    if (step_ > 1) // what is beside the index has no meaning
        take_samples(in, 8, step_, page_.width, out, 1);
    else if (bits_per_pixel(format) == page_.bits)
        memcpy(out, in, row_bytes(format, page_.width));
    else
        for (uint32_t x = 0; x < page_.width; x++) out[x] = static_cast<uint8_t>(index_at(in, page_.bits, x));
}

void PageReader::put(uint32_t i, img_format format, uint8_t *out) {
    if (page_.kind == Kind::indices) return put_indices(i, format, out);
    const uint8_t *in = pixels(i);
    const uint32_t channels = page_.kind == Kind::cmyk ? 3 : page_.kind == Kind::mapped ? 4 : page_.channels();
    const Layout *layout = layout_of(format);
    const bool same_bytes = layout ? !layout->blue_first && channels == (layout->fourth == Fourth::none ? 3 : 4) &&
                                         layout->fourth != Fourth::first
                                   : channels == 1;
    if (same_bytes)
        memcpy(out, in, size_t{page_.width} * channels);
    else if (channels == 1)
        put_pixels<1>(in, page_.width, *layout, out);
    else if (channels == 2)
        put_pixels<2>(in, page_.width, *layout, out);
    else if (channels == 3)
        put_pixels<3>(in, page_.width, *layout, out);
    else
        put_pixels<4>(in, page_.width, *layout, out);
}

} // namespace tif
