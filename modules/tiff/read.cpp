// SPDX-License-Identifier: MIT
//
// The reading side of the TIFF module.
#include "modules/tiff/tiff.h"

#include <math.h>
#include <string.h>

namespace tif {

namespace {

constexpr size_t max_file = size_t{1} << 30;
constexpr uint32_t max_pages = 10'000;
constexpr uint32_t max_profile = 4 << 20;

uint32_t grey_of(uint32_t level) { return 0xff000000u | level * 0x010101; }

} // namespace

bool Reader::recognises(const Signature &start) {
    if (start.length < 8) return false;
    // Byte order, then 42, or 43 and the size of offsets.
    constexpr const char *beginnings[] = {"II*\0", "MM\0*", "II+\0\x08\0\0\0", "MM\0+\0\x08\0\0"};
    for (const char *beginning : beginnings) {
        const bool big = beginning[2] == '+' || beginning[3] == '+';
        if (memcmp(start.bytes, beginning, big ? 8 : 4) == 0) return true;
    }
    return false;
}

// Not before the first frame, because only frames can ask how much memory may be held.
img_status Reader::open_file() {
    if (const img_status status = picture_.read_all(stream_, max_file, file_.bytes, file_.length)) return status;
    tif_ = file_.open("r", picture_.room());
    return tif_ ? ok : failed();
}

// Goes to the next page; the first time to the one that the caller wants.
img_status Reader::go_to_page(uint32_t first) {
    if (pages_) {
        file_.begin_page();
        return TIFFLastDirectory(tif_) ? wrong_format : TIFFReadDirectory(tif_) ? ok : failed();
    }
    const uint32_t count = TIFFNumberOfDirectories(tif_);
    if (count > max_pages) return picture_.refuse({"pages", count, max_pages});
    if (first >= count) return wrong_format;
    if (first) file_.begin_page(); // what the first page said is not of interest
    if (first && !TIFFSetDirectory(tif_, first)) return failed();
    return picture_.report(IMG_VALUE_FRAMES, count);
}

// ---- What a page is ----

// Pages without one are what their compression or their number of samples says.
uint16_t Reader::photometric() const {
    uint16_t value;
    if (TIFFGetField(tif_, TIFFTAG_PHOTOMETRIC, &value)) return value;
    const auto compression = field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (compression >= COMPRESSION_CCITTRLE && compression <= COMPRESSION_CCITTFAX4) return PHOTOMETRIC_MINISWHITE;
    return page_.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
}

img_status Reader::classify() {
    Page &page = page_;
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
        return whole_bytes && page.samples >= 4 && field<uint16_t>(TIFFTAG_INKSET, INKSET_CMYK) == INKSET_CMYK
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
void Reader::find_alpha() {
    Page &page = page_;
    uint16_t count = 0;
    const uint16_t *meanings = nullptr;
    const bool palette = page.photometric == PHOTOMETRIC_PALETTE && page.bits == 8;
    if (page.kind != Kind::grey && page.kind != Kind::rgb && !palette) return;
    if (!TIFFGetFieldDefaulted(tif_, TIFFTAG_EXTRASAMPLES, &count, &meanings) || !meanings) count = 0;
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

img_status Reader::describe() {
    Page &page = page_;
    page = {};
    page.width = field<uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
    page.height = field<uint32_t>(TIFFTAG_IMAGELENGTH, 0);
    page.bits = field<uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
    page.samples = field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
    page.separate =
        page.samples > 1 && field<uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    page.photometric = photometric();
    if (file_.lost_palette && page.photometric == PHOTOMETRIC_MINISBLACK) return damaged;
    if (TIFFIsTiled(tif_)) {
        page.tile_width = field<uint32_t>(TIFFTAG_TILEWIDTH, 0);
        page.tile_height = field<uint32_t>(TIFFTAG_TILELENGTH, 0);
        if (!page.tile_width || !page.tile_height) return damaged;
    }
    const auto compression = field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (!TIFFIsCODECConfigured(compression)) return unsupported;
    if (const img_status status = classify()) return status;
    find_alpha();
    if (page.kind == Kind::other) {
        if (page.photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG && !page.separate &&
            page.bits == 8 && page.samples == 3 && TIFFSetField(tif_, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB)) {
            page.kind = Kind::rgb;
            return ok;
        }
        char ignored[1024];
        return TIFFRGBAImageOK(tif_, ignored) ? ok : unsupported;
    }
    const auto sample_format = field<uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    page.is_signed = sample_format == SAMPLEFORMAT_INT;
    if (page.is_signed)
        return page.bits >= 8 && page.kind != Kind::indices && page.kind != Kind::mapped ? ok : unsupported;
    return sample_format == SAMPLEFORMAT_UINT || sample_format == SAMPLEFORMAT_VOID ? ok : unsupported;
}

// ---- Values ----

img_status Reader::report_resolution() const {
    const auto unit = field<uint16_t>(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    const double per_metre = unit == RESUNIT_INCH ? 1 / 0.0254 : unit == RESUNIT_CENTIMETER ? 100 : 0;
    const auto known = [&](uint32_t tag) {
        const double value = field<float>(tag, 0) * per_metre;
        return isfinite(value) && value > 0 ? value : 0;
    };
    const img_resolution resolution = {known(TIFFTAG_XRESOLUTION), known(TIFFTAG_YRESOLUTION)};
    const bool any = resolution.x > 0 || resolution.y > 0;
    return any ? picture_.report(IMG_VALUE_RESOLUTION, &resolution, sizeof resolution) : ok;
}

img_status Reader::report_bytes(uint32_t tag, uint32_t key, const char *too_large) const {
    uint32_t size = 0;
    const void *bytes = nullptr;
    if (!TIFFGetField(tif_, tag, &size, &bytes) || !size || !bytes) return ok;
    return size <= max_profile ? picture_.report(key, bytes, size) : picture_.warn(too_large);
}

img_status Reader::report_texts() const {
    for (const auto &[tag, keyword] : text_fields) {
        const char *text = nullptr;
        if (!TIFFGetField(tif_, tag, &text) || !text) continue;
        if (const img_status status = report_text(picture_, keyword, text, strlen(text))) return status;
    }
    return ok;
}

img_status Reader::report_values() const {
    if (const img_status status = picture_.report(IMG_VALUE_DEPTH, uint32_t{page_.bits})) return status;
    uint16_t orientation = 0;
    if (TIFFGetField(tif_, TIFFTAG_ORIENTATION, &orientation) && orientation >= 1 && orientation <= 8)
        if (const img_status status = picture_.report(IMG_VALUE_ORIENTATION, uint32_t{orientation})) return status;
    if (const img_status status = report_resolution()) return status;
    if (const img_status status =
            report_bytes(TIFFTAG_ICCPROFILE, IMG_VALUE_ICC, "the colour profile is too large and was left out"))
        return status;
    if (const img_status status =
            report_bytes(TIFFTAG_XMLPACKET, IMG_VALUE_XMP, "the XMP packet is too large and was left out"))
        return status;
    return report_texts();
}

// ---- Pixels ----

Offer Reader::offer() const {
    const Page &page = page_;
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

img_status Reader::read_palette() {
    const uint32_t ncolors = 1u << page_.bits;
    if (page_.photometric != PHOTOMETRIC_PALETTE) {
        palette_[0] = grey_of(page_.white_is_0 ? 0xff : 0);
        palette_[1] = grey_of(page_.white_is_0 ? 0 : 0xff);
        return ok;
    }
    uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (!TIFFGetField(tif_, TIFFTAG_COLORMAP, &red, &green, &blue) || !red || !green || !blue) return damaged;
    // 16 bits each, of which some writers use the lower eight only.
    uint32_t all = 0;
    for (uint32_t i = 0; i < ncolors; i++) all |= uint32_t{red[i]} | green[i] | blue[i];
    const uint32_t shift = all > 0xff ? 8 : 0;
    for (uint32_t i = 0; i < ncolors; i++) {
        const uint32_t r8 = red[i] >> shift & 0xff, g8 = green[i] >> shift & 0xff, b8 = blue[i] >> shift & 0xff;
        palette_[i] = 0xff000000u | r8 << 16 | g8 << 8 | b8;
    }
    return ok;
}

img_status Reader::deliver_rows() {
    for (uint32_t y = 0; y < page_.height; y += rows_.rows()) {
        if (const img_status status = rows_.read(y)) return status;
        const uint32_t end = std::min(rows_.rows(), page_.height - y);
        for (uint32_t i = 0; i < end; i++) {
            rows_.put(i, picture_.record().format, picture_.row(y + i));
            if (const img_status status = picture_.deliver(y + i)) return status;
        }
    }
    return ok;
}

img_status Reader::decode_page() {
    if (const img_status status = describe()) return status;
    if (const img_status status = report_values()) return status;
    // Rows come as they are stored, also from libtiff's own conversion, which would turn them.
    TIFFSetField(tif_, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    const Offer formats = offer();
    const uint32_t ncolors = page_.kind == Kind::indices ? 1u << page_.bits : 0;
    if (const img_status status =
            picture_.choose(page_.width, page_.height, ncolors, formats.formats(), formats.count()))
        return status;
    if (const img_status status = rows_.begin(tif_, file_, page_)) return status;
    if (const img_status status = picture_.setup()) return status;
    if (const img_status status = rows_.allocate(picture_, palette_)) return status;
    if (page_.kind == Kind::indices || page_.kind == Kind::mapped)
        if (const img_status status = read_palette()) return status;
    if (ncolors)
        if (const img_status status = picture_.set_palette(palette_)) return status;
    return deliver_rows();
}

img_status Reader::decode_next() {
    img_option page = number_option("page", "the first page to read, from 0", 0, max_pages - 1, 0);
    img_option strict = switch_option("strict", "refuse files with damage that a picture can be made of");
    for (img_option *option : {&page, &strict})
        if (const img_status status = picture_.ask(*option)) return status;
    strict_ = strict.value;
    if (!ended_ && !tif_) ended_ = open_file();
    if (!ended_) ended_ = go_to_page(static_cast<uint32_t>(page.value));
    if (ended_) return ended_;
    pages_++;
    return decode_page();
}

img_status Reader::frame() {
    if (ended_) return ended_;
    const img_status status = decode_next();
    if (status == over_limit && file_.failure == over_limit) { // an allocation of libtiff
        file_.limit.name = file_.limit.allowed < max_allocation ? "memory" : page_.tile_width ? "tile" : "strip";
        return picture_.refuse(file_.limit);
    }
    if (status || !file_.message[0]) return status;
    return strict_ ? damaged : picture_.warn(file_.message); // libtiff went on, such as after fax rows that it made up
}

} // namespace tif
