// SPDX-License-Identifier: MIT
//
// The TIFF codec module, on libtiff. Pages are the pictures of a file.
//
// libtiff jumps about in a file, which a stream cannot. So the whole file is read into memory, and rows are decoded from
// there, a row, a strip or a row of tiles at a time; a file that is written grows in memory and goes to the stream when it is
// finished.
#pragma once

#include "modules/common/entry.h"
#include "modules/common/layout.h"
#include "modules/common/text.h"

#include <tiffio.h>

namespace tif {

using namespace codec;

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

// A file in memory, as libtiff reads and writes it, and what libtiff reports.
struct File {
    Buffer bytes;
    size_t length = 0, position = 0;
    img_status failure = ok;   // what libtiff's last error means, if it is known
    img_limit limit{};         // that an allocation of libtiff exceeds; its name is left to the user
    bool failed = false;       // libtiff reported an error, whatever its function returned
    bool lost_palette = false; // of the page at hand
    char message[256] = "";    // the first one of the page at hand, warning or error

    TIFF *open(const char *mode, uint64_t most_at_once = max_allocation);
    void begin_page();
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

    TIFF *tif_ = nullptr;
    const File *file_ = nullptr;
    Decoding *picture_ = nullptr;
    const uint32_t *palette_ = nullptr;
    Page page_{};
    uint64_t held_ = 0; // of the picture's memory
    uint32_t rows_ = 0, planes_ = 0;
    uint32_t step_ = 0; // samples from a pixel to the next within a plane
    size_t row_bytes_ = 0, tile_row_bytes_ = 0;
    uint64_t tile_bytes_ = 0; // 0 if it has strips
    uint32_t tiles_across_ = 0;
    Bytes band_; // rows_ rows of each plane
    Bytes tile_; // one tile, where there are several beside each other
    Bytes line_; // one row of 8-bit samples
};

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = true;
    static bool recognises(const Signature &start);

    using BaseReader::BaseReader;
    ~Reader() {
        if (tif_) TIFFClose(tif_);
    }
    img_status frame();

private:
    template <typename T> T field(uint32_t tag, T otherwise) const {
        T value = otherwise;
        return TIFFGetFieldDefaulted(tif_, tag, &value) ? value : otherwise;
    }
    img_status failed() const { return file_.failure ? file_.failure : damaged; }
    img_status open_file();
    img_status go_to_page(uint32_t first);

    uint16_t photometric() const;
    img_status classify();
    void find_alpha();
    img_status describe();

    img_status report_resolution() const;
    img_status report_bytes(uint32_t tag, uint32_t key, const char *too_large) const;
    img_status report_texts() const;
    img_status report_values() const;

    Offer offer() const;
    img_status read_palette();
    img_status deliver_rows();
    img_status decode_page();
    img_status decode_next();

    File file_;
    TIFF *tif_ = nullptr;
    img_status ended_ = ok; // what every further frame gets
    uint32_t pages_ = 0;    // begun so far
    Page page_{};
    PageReader rows_;
    uint32_t palette_[max_colors];
    bool strict_ = false;
};

class Writer : public BaseWriter {
public:
    static constexpr bool many_pictures = true;

    using BaseWriter::BaseWriter;
    ~Writer();
    img_status begin();
    img_status frame();
    img_status finish();

private:
    // What the caller answers.
    struct Metadata {
        int compression;
        uint32_t orientation;
        img_resolution resolution;
        img_bytes icc, xmp, texts;
    };
    // What the picture becomes in the file.
    struct Form {
        uint16_t bits, samples, photometric;
        bool indexed;  // kept as indices
        bool expanded; // a palette with transparency, which TIFF has not: written as RGBA
        bool keyed;    // a colour key, which becomes alpha

        bool has_alpha() const { return samples == 2 || samples == 4; }
    };

    img_status failed() const { return file_.failure ? file_.failure : bad_record; }
    bool keyed() const {
        return picture_.has(IMG_F_TRANSP) && !(picture_.image().format & (IMG_FMT_PAL | IMG_FMT_ALPHA));
    }
    img_status ask(Metadata &metadata) const;
    img_status choose();
    img_status take_colors();
    Form form() const;
    bool set_palette() const;
    bool set_metadata(const Metadata &metadata) const;
    bool set_fields(const Metadata &metadata) const;
    bool fields_were_kept(const Metadata &metadata) const;
    void fill_line(const uint8_t *row) const;
    img_status write_rows();

    File file_;
    TIFF *tif_ = nullptr;
    img_status failure_ = ok;
    uint32_t pages_ = 0; // written so far
    Form form_{};
    uint32_t palette_[max_colors];
    uint8_t key_[4];
    Bytes line_;
};

} // namespace tif
