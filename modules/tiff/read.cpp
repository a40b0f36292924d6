// SPDX-License-Identifier: MIT
//
// The TIFF codec module, on libtiff. Pages are the pictures of a file.
//
// The whole file is read into memory, because its parts may lie in any order and the stream may be a pipe. Rows are
// decoded from there, a row, a strip or a row of tiles at a time.
#include "modules/tiff/tiff.h"

#include <math.h>
#include <string.h>

using namespace module;
using tiff_module::Kind;
using tiff_module::Page;

namespace {

constexpr size_t max_file = size_t{1} << 30;
constexpr uint32_t max_pages = 10'000;
constexpr uint32_t max_profile = 4 << 20;

struct Reader {
    tiff_module::File file;
    TIFF *tif;
    Decoding picture;
    img_status ended; // what every further frame gets
    uint32_t pages;   // begun so far
    Page page;
    tiff_module::PageReader rows;
    uint32_t palette[max_colors];
    bool strict;

    Reader() = default;
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader() {
        if (tif) TIFFClose(tif);
    }
    img_status failed() const { return file.failure ? file.failure : damaged; }
    template <typename T> T field(uint32_t tag, T otherwise) const {
        T value = otherwise;
        return TIFFGetFieldDefaulted(tif, tag, &value) ? value : otherwise;
    }
};

img_status decode_validate(io_handle *stream) {
    Signature signature;
    if (const img_status status = peek(*stream, signature)) return status;
    if (signature.length < 8) return wrong_format;
    // Byte order, then 42, or 43 and the size of offsets.
    constexpr const char *starts[] = {"II*\0", "MM\0*", "II+\0\x08\0\0\0", "MM\0+\0\x08\0\0"};
    for (const char *start : starts) {
        const bool big = start[2] == '+' || start[3] == '+';
        if (memcmp(signature.bytes, start, big ? 8 : 4) == 0) return ok;
    }
    return wrong_format;
}

img_status decode_begin(io_handle *stream, void **state) {
    *state = make<Reader>().release();
    if (!*state) return no_memory;
    return want_large_buffer(stream, nullptr);
}

img_status decode_finish(io_handle *, void **state) {
    Delete<Reader>()(static_cast<Reader *>(*state));
    *state = nullptr;
    return ok;
}

// In the first frame, because only frames can ask how much memory may be held.
img_status open_file(Reader &r, io_handle &stream) {
    if (const img_status status = read_all(r.picture, stream, max_file, r.file.bytes, r.file.length)) return status;
    r.tif = r.file.open("r", r.picture.room());
    return r.tif ? ok : r.failed();
}

// Goes to the next page; the first time to the one that the caller wants.
img_status go_to_page(Reader &r, int32_t page) {
    const auto first = static_cast<uint32_t>(page);
    if (r.pages) {
        r.file.begin_page();
        return TIFFLastDirectory(r.tif) ? wrong_format : TIFFReadDirectory(r.tif) ? ok : r.failed();
    }
    const uint32_t count = TIFFNumberOfDirectories(r.tif);
    if (count > max_pages) return r.picture.refuse({"pages", count, max_pages});
    if (first >= count) return wrong_format;
    if (first) r.file.begin_page(); // what the first page said is not of interest
    if (first && !TIFFSetDirectory(r.tif, first)) return r.failed();
    return r.picture.report(IMG_VALUE_FRAMES, count);
}

// ---- What a page is ----

// Pages without one are what their compression or their number of samples says.
uint16_t photometric_of(const Reader &r) {
    uint16_t value;
    if (TIFFGetField(r.tif, TIFFTAG_PHOTOMETRIC, &value)) return value;
    const auto compression = r.field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (compression >= COMPRESSION_CCITTRLE && compression <= COMPRESSION_CCITTFAX4) return PHOTOMETRIC_MINISWHITE;
    return r.page.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
}

img_status classify(Reader &r) {
    Page &page = r.page;
    const bool whole_bytes = page.bits == 8 || page.bits == 16;
    const bool few_bits = page.bits == 1 || page.bits == 2 || page.bits == 4 || page.bits == 8;
    const bool index_bits = few_bits && (page.samples == 1 || page.separate || page.bits == 8);
    switch (page.photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
        page.colors = 1;
        page.kind = page.bits == 1 ? Kind::indices : Kind::grey;
        page.white_is_0 = page.photometric == PHOTOMETRIC_MINISWHITE;
        return whole_bytes || (index_bits && page.samples == 1) ? ok : unsupported;
    case PHOTOMETRIC_PALETTE:
        page.colors = 1;
        page.kind = Kind::indices;
        return index_bits ? ok : unsupported;
    case PHOTOMETRIC_RGB:
        page.colors = 3;
        page.kind = Kind::rgb;
        return whole_bytes && page.samples >= 3 ? ok : unsupported;
    case PHOTOMETRIC_SEPARATED:
        page.colors = 4;
        page.kind = Kind::cmyk;
        return whole_bytes && page.samples >= 4 && r.field<uint16_t>(TIFFTAG_INKSET, INKSET_CMYK) == INKSET_CMYK
                   ? ok
                   : unsupported;
    case PHOTOMETRIC_YCBCR:
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_LOGL:
    case PHOTOMETRIC_LOGLUV:
        page.colors = 3;
        page.kind = Kind::other;
        return ok;
    default:
        return unsupported;
    }
}

// The first sample beyond the colours that is alpha. A fourth one of which the file does not say what it is, is alpha to all
// who read such files, and not multiplied in.
void find_alpha(const Reader &r, Page &page) {
    uint16_t count = 0;
    const uint16_t *meanings = nullptr;
    const bool palette = page.photometric == PHOTOMETRIC_PALETTE && page.bits == 8;
    if (page.kind != Kind::grey && page.kind != Kind::rgb && !palette) return;
    if (!TIFFGetFieldDefaulted(r.tif, TIFFTAG_EXTRASAMPLES, &count, &meanings) || !meanings) count = 0;
    for (uint16_t i = 0; i < count && page.colors + i < page.samples; i++) {
        if (meanings[i] != EXTRASAMPLE_ASSOCALPHA && meanings[i] != EXTRASAMPLE_UNASSALPHA) continue;
        page.alpha = static_cast<uint16_t>(page.colors + i);
        page.premultiplied = meanings[i] == EXTRASAMPLE_ASSOCALPHA;
        break;
    }
    if (!page.alpha && page.kind == Kind::rgb && page.samples == 4) page.alpha = 3;
    if (page.alpha && palette) {
        page.kind = Kind::mapped;
        page.premultiplied = false; // colours of a palette cannot be
    }
}

img_status describe(Reader &r) {
    Page &page = r.page;
    page = {};
    page.width = r.field<uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
    page.height = r.field<uint32_t>(TIFFTAG_IMAGELENGTH, 0);
    page.bits = r.field<uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
    page.samples = r.field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
    page.separate =
        page.samples > 1 && r.field<uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    page.photometric = photometric_of(r);
    if (r.file.lost_palette && page.photometric == PHOTOMETRIC_MINISBLACK) return damaged;
    if (TIFFIsTiled(r.tif)) {
        page.tile_width = r.field<uint32_t>(TIFFTAG_TILEWIDTH, 0);
        page.tile_height = r.field<uint32_t>(TIFFTAG_TILELENGTH, 0);
        if (!page.tile_width || !page.tile_height) return damaged;
    }
    const auto compression = r.field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (!TIFFIsCODECConfigured(compression)) return unsupported;
    if (const img_status status = classify(r)) return status;
    find_alpha(r, page);
    if (page.kind == Kind::other) {
        if (page.photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG && !page.separate &&
            page.bits == 8 && page.samples == 3 && TIFFSetField(r.tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB)) {
            page.kind = Kind::rgb;
            return ok;
        }
        char ignored[1024];
        return TIFFRGBAImageOK(r.tif, ignored) ? ok : unsupported;
    }
    const auto sample_format = r.field<uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    page.is_signed = sample_format == SAMPLEFORMAT_INT;
    if (page.is_signed)
        return page.bits >= 8 && page.kind != Kind::indices && page.kind != Kind::mapped ? ok : unsupported;
    return sample_format == SAMPLEFORMAT_UINT || sample_format == SAMPLEFORMAT_VOID ? ok : unsupported;
}

// ---- Values ----

img_status report_resolution(const Reader &r) {
    const auto unit = r.field<uint16_t>(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    const double per_metre = unit == RESUNIT_INCH ? 1 / 0.0254 : unit == RESUNIT_CENTIMETER ? 100 : 0;
    const auto known = [&](uint32_t tag) {
        const double value = r.field<float>(tag, 0) * per_metre;
        return isfinite(value) && value > 0 ? value : 0;
    };
    const img_resolution resolution = {known(TIFFTAG_XRESOLUTION), known(TIFFTAG_YRESOLUTION)};
    const bool any = resolution.x > 0 || resolution.y > 0;
    return any ? r.picture.report(IMG_VALUE_RESOLUTION, &resolution, sizeof resolution) : ok;
}

img_status report_bytes(const Reader &r, uint32_t tag, uint32_t key, const char *too_large) {
    uint32_t size = 0;
    const void *bytes = nullptr;
    if (!TIFFGetField(r.tif, tag, &size, &bytes) || !size || !bytes) return ok;
    return size <= max_profile ? r.picture.report(key, bytes, size) : r.picture.warn(too_large);
}

img_status report_texts(const Reader &r) {
    for (const auto &[tag, keyword] : tiff_module::text_fields) {
        const char *text = nullptr;
        if (!TIFFGetField(r.tif, tag, &text) || !text) continue;
        if (const img_status status = report_text(r.picture, keyword, text, strlen(text))) return status;
    }
    return ok;
}

img_status report_values(const Reader &r) {
    if (const img_status status = r.picture.report(IMG_VALUE_DEPTH, uint32_t{r.page.bits})) return status;
    uint16_t orientation = 0;
    if (TIFFGetField(r.tif, TIFFTAG_ORIENTATION, &orientation) && orientation >= 1 && orientation <= 8)
        if (const img_status status = r.picture.report(IMG_VALUE_ORIENTATION, uint32_t{orientation})) return status;
    if (const img_status status = report_resolution(r)) return status;
    if (const img_status status =
            report_bytes(r, TIFFTAG_ICCPROFILE, IMG_VALUE_ICC, "the colour profile is too large and was left out"))
        return status;
    if (const img_status status =
            report_bytes(r, TIFFTAG_XMLPACKET, IMG_VALUE_XMP, "the XMP packet is too large and was left out"))
        return status;
    return report_texts(r);
}

// ---- Pixels ----

Offer offer_for(const Page &page) {
    Offer offer;
    if (page.kind == Kind::indices) {
        if (page.bits == 1) offer.add(FMT_PAL1);
        if (page.bits == 4) offer.add(FMT_PAL4);
        offer.add(FMT_PAL8);
        return offer;
    }
    if (page.alpha) offer.add(alpha_layouts);
    if (page.kind == Kind::grey && !page.alpha) offer.add(FMT_G8);
    offer.add(opaque_layouts);
    return offer;
}

uint32_t grey_of(uint32_t level) { return 0xff000000u | level * 0x010101; }

img_status read_palette(Reader &r) {
    const uint32_t ncolors = 1u << r.page.bits;
    if (r.page.photometric != PHOTOMETRIC_PALETTE) {
        r.palette[0] = grey_of(r.page.white_is_0 ? 0xff : 0);
        r.palette[1] = grey_of(r.page.white_is_0 ? 0 : 0xff);
        return ok;
    }
    uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (!TIFFGetField(r.tif, TIFFTAG_COLORMAP, &red, &green, &blue) || !red || !green || !blue) return damaged;
    // 16 bits each, of which some writers use the lower eight only.
    uint32_t all = 0;
    for (uint32_t i = 0; i < ncolors; i++) all |= uint32_t{red[i]} | green[i] | blue[i];
    const uint32_t shift = all > 0xff ? 8 : 0;
    for (uint32_t i = 0; i < ncolors; i++) {
        const uint32_t r8 = red[i] >> shift & 0xff, g8 = green[i] >> shift & 0xff, b8 = blue[i] >> shift & 0xff;
        r.palette[i] = 0xff000000u | r8 << 16 | g8 << 8 | b8;
    }
    return ok;
}

img_status hand_over_rows(Reader &r) {
    const Page &page = r.page;
    for (uint32_t y = 0; y < page.height; y += r.rows.rows()) {
        if (const img_status status = r.rows.read(y)) return status;
        const uint32_t end = std::min(r.rows.rows(), page.height - y);
        for (uint32_t i = 0; i < end; i++) {
            r.rows.put(i, r.picture.record().format, r.picture.row(y + i));
            r.picture.hand_over(y + i);
            if (const img_status status = r.picture.progress(y + i + 1)) return status;
        }
    }
    return ok;
}

img_status decode_page(Reader &r) {
    if (const img_status status = describe(r)) return status;
    if (const img_status status = report_values(r)) return status;
    // Rows come as they are stored, also from libtiff's own conversion, which would turn them.
    TIFFSetField(r.tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    const Page &page = r.page;
    const Offer offer = offer_for(page);
    const uint32_t ncolors = page.kind == Kind::indices ? 1u << page.bits : 0;
    if (const img_status status = r.picture.choose(page.width, page.height, ncolors, offer.formats(), offer.count()))
        return status;
    if (const img_status status = r.rows.begin(r.tif, r.file, page)) return status;
    if (const img_status status = r.picture.setup()) return status;
    if (const img_status status = r.rows.allocate(r.picture, r.palette)) return status;
    if (page.kind == Kind::indices || page.kind == Kind::mapped)
        if (const img_status status = read_palette(r)) return status;
    if (ncolors)
        if (const img_status status = r.picture.set_palette(r.palette)) return status;
    return hand_over_rows(r);
}

// What libtiff reported though it went on, such as fax rows that it made up. What it refused to allocate has a name here.
img_status conclude(Reader &r, img_status status) {
    if (status == over_limit && r.file.failure == over_limit) {
        r.file.limit.name = r.file.limit.allowed < tiff_module::max_allocation ? "memory"
                            : r.page.tile_width                                ? "tile"
                                                                               : "strip";
        return r.picture.refuse(r.file.limit);
    }
    if (status || !r.file.message[0]) return status;
    return r.strict ? damaged : r.picture.warn(r.file.message);
}

img_status decode_next(Reader &r, io_handle &stream) {
    img_option page = number_option("page", "the first page to read, from 0", 0, max_pages - 1, 0);
    img_option strict = switch_option("strict", "refuse files with damage that a picture can be made of");
    for (img_option *option : {&page, &strict})
        if (const img_status status = r.picture.ask(*option)) return status;
    r.strict = strict.value;
    if (!r.tif) r.ended = open_file(r, stream);
    if (!r.ended) r.ended = go_to_page(r, page.value);
    if (r.ended) return r.ended;
    r.pages++;
    return decode_page(r);
}

img_status decode_frame(io_handle *stream, const img_decode_callouts *callouts, img_record *record, void **state) {
    auto &reader = *static_cast<Reader *>(*state);
    if (reader.ended) return reader.ended;
    reader.picture.begin(*callouts, *record);
    return conclude(reader, decode_next(reader, *stream));
}

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return fill_table(table, size,
                      {decode_validate, decode_begin, decode_frame, decode_finish, tiff_module::encode_begin,
                       tiff_module::encode_frame, tiff_module::encode_finish});
}
