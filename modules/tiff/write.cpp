// SPDX-License-Identifier: MIT
//
// The writing side of the TIFF module.
#include "modules/tiff/tiff.h"

#include <fcntl.h>
#include <math.h>
#include <string.h>

namespace tif {

namespace {

constexpr uint32_t strip_bytes = 64 * 1024;

// Two grey levels, which more programs read as such than as a palette.
uint16_t photometric_of_bits(const uint32_t *palette, uint32_t ncolors) {
    constexpr uint32_t black = 0, white = 0xffffff;
    const uint32_t first = palette[0] & white, second = palette[1] & white;
    if (ncolors == 2 && first == black && second == white) return PHOTOMETRIC_MINISBLACK;
    if (ncolors == 2 && first == white && second == black) return PHOTOMETRIC_MINISWHITE;
    return PHOTOMETRIC_PALETTE;
}

} // namespace

Writer::~Writer() {
    if (!tif_) return;
    TIFFSetMode(tif_, O_RDONLY); // so that libtiff does not finish what failed
    TIFFClose(tif_);
}

img_status Writer::ask(Metadata &m) const {
    constexpr int compressions[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS};
    img_option option =
        choice_option("compression", "how pixels are compressed, all without loss", "none:lzw:deflate:packbits", 4, 1);
    if (const img_status status = picture_.ask(option)) return status;
    m = {compressions[option.value], 1, {}, {}, {}, {}};
    if (const img_status status = picture_.ask(IMG_VALUE_ORIENTATION, &m.orientation)) return status;
    if (const img_status status = picture_.ask(IMG_VALUE_RESOLUTION, &m.resolution)) return status;
    if (const img_status status = picture_.ask(IMG_VALUE_ICC, &m.icc)) return status;
    if (const img_status status = picture_.ask(IMG_VALUE_XMP, &m.xmp)) return status;
    if (const img_status status = picture_.ask(IMG_VALUE_TEXT, &m.texts)) return status;
    if (m.orientation < 1 || m.orientation > 8) return bad_record;
    const struct {
        const char *name;
        const img_bytes &bytes;
    } blocks[] = {{"profile", m.icc}, {"XMP", m.xmp}, {"texts", m.texts}};
    for (const auto &[name, bytes] : blocks)
        if (bytes.size > max_allocation) return picture_.refuse({name, bytes.size, max_allocation});
    return TIFFIsCODECConfigured(static_cast<uint16_t>(m.compression)) ? ok : unsupported;
}

// A palette with a key or alpha is taken as it is: expanded by the library, its key could equal an opaque colour.
img_status Writer::choose() {
    const img_record &image = picture_.image();
    const bool indexed = image.format & IMG_FMT_PAL;
    if (indexed && picture_.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP)) return picture_.choose_and_set_up(&image.format, 1);
    constexpr img_format formats[] = {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8, FMT_RGB888, rgba_bytes};
    return picture_.choose_and_set_up(formats, std::size(formats));
}

img_status Writer::take_colors() {
    if (picture_.image().format & IMG_FMT_PAL) return picture_.get_palette(palette_);
    return keyed() ? picture_.get_transparency(key_) : ok;
}

Writer::Form Writer::form() const {
    const img_record &image = picture_.image();
    const bool indexed = image.format & IMG_FMT_PAL;
    if (indexed && picture_.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP)) return {8, 4, PHOTOMETRIC_RGB, false, true, false};
    if (indexed) {
        const auto bits = static_cast<uint16_t>(bits_per_pixel(image.format));
        const uint16_t photometric = bits == 1 ? photometric_of_bits(palette_, image.ncolors) : PHOTOMETRIC_PALETTE;
        return {bits, 1, photometric, true, false, false};
    }
    const auto samples = static_cast<uint16_t>(bits_per_pixel(image.format) / 8 + keyed());
    const uint16_t photometric = image.format == FMT_G8 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
    return {8, samples, photometric, false, false, keyed()};
}

bool Writer::set_palette() const {
    uint16_t red[max_colors], green[max_colors], blue[max_colors];
    const auto wide = [](uint32_t level) { return static_cast<uint16_t>((level & 0xff) * 0x101); };
    for (uint32_t i = 0; i < max_colors; i++) {
        red[i] = wide(palette_[i] >> 16);
        green[i] = wide(palette_[i] >> 8);
        blue[i] = wide(palette_[i]);
    }
    return TIFFSetField(tif_, TIFFTAG_COLORMAP, red, green, blue);
}

bool Writer::set_metadata(const Metadata &m) const {
    TIFF *tif = tif_;
    bool done = TIFFSetField(tif, TIFFTAG_ORIENTATION, static_cast<int>(m.orientation));
    const double x = m.resolution.x * 0.0254, y = m.resolution.y * 0.0254;
    if (isfinite(x) && isfinite(y) && x > 0 && y > 0)
        done = done && TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) &&
               TIFFSetField(tif, TIFFTAG_XRESOLUTION, x) && TIFFSetField(tif, TIFFTAG_YRESOLUTION, y);
    if (m.icc.size) done = done && TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(m.icc.size), m.icc.data);
    if (m.xmp.size) done = done && TIFFSetField(tif, TIFFTAG_XMLPACKET, static_cast<uint32_t>(m.xmp.size), m.xmp.data);
    for (Texts texts(m.texts); done && texts.next();)
        for (const auto &[tag, keyword] : text_fields)
            if (!strcasecmp(keyword, texts.keyword())) done = done && TIFFSetField(tif, tag, texts.text());
    return done;
}

bool Writer::set_fields(const Metadata &m) const {
    const img_record &image = picture_.image();
    const Form &form = form_;
    const uint64_t row_size = (uint64_t{image.width} * form.bits * form.samples + 7) / 8;
    const auto rows_per_strip = static_cast<uint32_t>(std::clamp<uint64_t>(strip_bytes / row_size, 1, image.height));
    const bool dictionary = m.compression == COMPRESSION_LZW || m.compression == COMPRESSION_ADOBE_DEFLATE;
    const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    TIFF *tif = tif_;
    return TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, image.width) && TIFFSetField(tif, TIFFTAG_IMAGELENGTH, image.height) &&
           TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, int{form.bits}) &&
           TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, int{form.samples}) &&
           TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, int{form.photometric}) &&
           TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
           TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows_per_strip) &&
           TIFFSetField(tif, TIFFTAG_COMPRESSION, m.compression) &&
           (!form.has_alpha() || TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha)) &&
           (!dictionary || form.indexed || TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL)) &&
           (form.photometric != PHOTOMETRIC_PALETTE || set_palette()) && set_metadata(m);
}

// libtiff keeps copies of what it is given by pointer. A copy that it has no memory for is missing without an error.
bool Writer::fields_were_kept(const Metadata &m) const {
    TIFF *tif = tif_;
    uint16_t count, *words[3];
    uint32_t size;
    void *bytes = nullptr;
    const char *text = nullptr;
    if (form_.has_alpha() && (!TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &count, &words[0]) || !words[0])) return false;
    if (form_.photometric == PHOTOMETRIC_PALETTE)
        if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &words[0], &words[1], &words[2]) || !words[0] || !words[1] ||
            !words[2])
            return false;
    for (const auto &[tag, wanted] :
         {std::pair<uint32_t, const img_bytes *>{TIFFTAG_ICCPROFILE, &m.icc}, {TIFFTAG_XMLPACKET, &m.xmp}})
        if (wanted->size && (!TIFFGetField(tif, tag, &size, &bytes) || !bytes)) return false;
    for (Texts texts(m.texts); texts.next();)
        for (const auto &[tag, keyword] : text_fields)
            if (!strcasecmp(keyword, texts.keyword()) && (!TIFFGetField(tif, tag, &text) || !text)) return false;
    return true;
}

// The row as the file has it, in line_: compression may change what it is given.
void Writer::fill_line(const uint8_t *row) const {
    const img_record &image = picture_.image();
    uint8_t *out = line_.get();
    const uint32_t bits = bits_per_pixel(image.format), bytes = bits / 8;
    if (form_.expanded) {
        for (uint32_t x = 0; x < image.width; x++, out += 4) {
            const uint32_t argb = palette_[index_at(row, bits, x)];
            out[0] = static_cast<uint8_t>(argb >> 16);
            out[1] = static_cast<uint8_t>(argb >> 8);
            out[2] = static_cast<uint8_t>(argb);
            out[3] = static_cast<uint8_t>(argb >> 24);
        }
    } else if (form_.keyed) {
        for (uint32_t x = 0; x < image.width; x++, row += bytes, out += bytes + 1) {
            memcpy(out, row, bytes);
            out[bytes] = memcmp(row, key_, bytes) == 0 ? 0 : 0xff;
        }
    } else {
        memcpy(out, row, row_bytes(image.format, image.width));
    }
}

img_status Writer::write_rows() {
    const img_record &image = picture_.image();
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = picture_.fetch(y);
        if (!row) return bad_record;
        fill_line(row);
        if (TIFFWriteScanline(tif_, line_.get(), y, 0) < 0) return failed();
        if (const img_status status = picture_.progress(y + 1)) return status;
    }
    return TIFFWriteDirectory(tif_) && !file_.failed ? ok : failed();
}

// A picture that is refused before anything of it was written does no harm to the others.
img_status Writer::frame() {
    if (failure_) return failure_;
    const img_record &image = picture_.image();
    Metadata metadata;
    if (const img_status status = ask(metadata)) return status;
    if (const img_status status = choose()) return status;
    if (const img_status status = take_colors()) return status;
    form_ = form();
    line_ = make_bytes((size_t{image.width} * form_.bits * form_.samples + 7) / 8);
    if (!line_) return no_memory;
    if (!set_fields(metadata))
        failure_ = failed();
    else
        failure_ = fields_were_kept(metadata) ? write_rows() : img_status{no_memory};
    pages_++;
    return failure_;
}

img_status Writer::begin() {
    tif_ = file_.open("wl");
    return tif_ ? ok : no_memory;
}

img_status Writer::finish() {
    if (failure_ || !pages_) return ok; // the frame said it; half a file is of no use
    const bool flushed = TIFFFlush(tif_);
    TIFFClose(tif_);
    tif_ = nullptr;
    if (!flushed || file_.failed) return failed();
    return write_all(stream_, file_.bytes.data(), file_.length) ? ok : write_failed;
}

} // namespace tif
