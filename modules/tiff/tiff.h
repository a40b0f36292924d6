// SPDX-License-Identifier: MIT
//
// What the parts of the TIFF codec module share: files in memory, and the pages of a file that is read.
#pragma once

#include "modules/common/buffer.h"
#include "modules/common/layout.h"
#include "modules/common/text.h"

#include <tiffio.h>

namespace tiff_module {

using namespace module;

inline constexpr uint64_t max_allocation = uint64_t{1} << 28;

// Texts that TIFF has fields for.
inline constexpr struct {
    uint32_t tag;
    const char *keyword;
} text_fields[] = {
    {TIFFTAG_DOCUMENTNAME, "Title"}, {TIFFTAG_IMAGEDESCRIPTION, "Description"},
    {TIFFTAG_ARTIST, "Author"},      {TIFFTAG_COPYRIGHT, "Copyright"},
    {TIFFTAG_SOFTWARE, "Software"},  {TIFFTAG_DATETIME, "Creation Time"},
};

// A file in memory, as libtiff reads and writes it. libtiff jumps about in a file, which a stream cannot.
struct File {
    Buffer bytes;
    size_t length, position;
    img_status failure; // what libtiff's last error means, if it is known
    img_limit limit;    // that an allocation of libtiff exceeds; its name is left to the user
    bool failed;        // libtiff reported an error, whatever its function returned
    bool lost_palette;  // of the page at hand
    char message[256];  // the first one of the page at hand, warning or error

    TIFF *open(const char *mode, uint64_t most_at_once = max_allocation);
    void begin_page() {
        failure = ok;
        failed = lost_palette = false;
        message[0] = '\0';
    }
};

// How samples become pixels.
enum class Kind : uint8_t {
    indices, // a palette, or black and white
    mapped,  // a palette, and alpha beside the index
    grey,
    rgb,
    cmyk,
    other // read by libtiff's own conversion to RGB
};

// One picture of a file.
struct Page {
    uint32_t width, height;
    uint16_t bits, samples, photometric;
    Kind kind;
    bool separate;                    // each sample in a plane of its own
    bool white_is_0;                  // grey only
    bool is_signed;                   // the lowest level is black all the same
    bool premultiplied;               // colours by alpha
    uint16_t alpha;                   // the sample that is alpha, 0 if none
    uint32_t colors;                  // samples of colour
    uint32_t tile_width, tile_height; // 0 if it has strips

    uint32_t channels() const { return colors + (alpha ? 1 : 0); }
};

// Reads a page from its top, so many rows at a time as libtiff decodes together.
class PageReader {
public:
    img_status begin(TIFF *tif, const File &file, const Page &page);
    img_status allocate(Decoding &picture, const uint32_t *palette); // once the picture is set up, before read
    uint32_t rows() const { return rows_; }                          // that one call of read gives, or fewer at the end
    img_status read(uint32_t y);                                     // those from row y on
    void put(uint32_t i, img_format format, uint8_t *out);           // the i-th of them

private:
    img_status failed() const;
    void keep_within_file() const;
    img_status read_strips(uint32_t y);
    img_status read_tiles(uint32_t y);
    img_status read_converted(uint32_t y);
    const uint8_t *row(uint32_t plane, uint32_t i) const;
    const uint8_t *pixels(uint32_t i);
    void put_indices(uint32_t i, img_format format, uint8_t *out) const;

    TIFF *tif_;
    const File *file_;
    Decoding *picture_;
    const uint32_t *palette_;
    Page page_;
    uint64_t held_; // of the picture's memory
    uint32_t rows_, planes_;
    uint32_t step_; // samples from a pixel to the next within a plane
    size_t row_bytes_, tile_row_bytes_;
    uint64_t tile_bytes_; // 0 if it has strips
    uint32_t tiles_across_;
    Bytes band_; // rows_ rows of each plane
    Bytes tile_; // one tile, where there are several beside each other
    Bytes line_; // one row of 8-bit samples
};

img_status encode_begin(io_handle *stream, void **state);
img_status encode_frame(io_handle *stream, const img_encode_callouts *callouts, img_record *image, void **state);
img_status encode_finish(io_handle *stream, void **state);

} // namespace tiff_module
