// SPDX-License-Identifier: MIT
//
// Writing TIFF. libtiff goes back to what it wrote, so the file grows in memory and goes to the stream when it is finished.
#include "modules/tiff/tiff.h"

#include <fcntl.h>
#include <math.h>
#include <string.h>

namespace tiff_module {

namespace {

constexpr uint32_t strip_bytes = 64 * 1024;

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
};

struct Writer {
    File file;
    TIFF *tif;
    io_handle *stream;
    Encoding picture;
    img_status failure;
    uint32_t pages; // written so far
    Form form;
    uint32_t palette[max_colors];
    uint8_t key[4];
    Bytes line;

    Writer() = default;
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer() {
        if (!tif) return;
        TIFFSetMode(tif, O_RDONLY); // so that libtiff does not finish what failed
        TIFFClose(tif);
    }
    img_status failed() const { return file.failure ? file.failure : bad_record; }
};

img_status ask_for_metadata(const Encoding &picture, Metadata &m) {
    constexpr int compressions[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS};
    img_option option =
        choice_option("compression", "how pixels are compressed, all without loss", "none:lzw:deflate:packbits", 4, 1);
    if (const img_status status = picture.ask(option)) return status;
    m = {compressions[option.value], 1, {}, {}, {}, {}};
    if (const img_status status = picture.ask(IMG_VALUE_ORIENTATION, &m.orientation)) return status;
    if (const img_status status = picture.ask(IMG_VALUE_RESOLUTION, &m.resolution)) return status;
    if (const img_status status = picture.ask(IMG_VALUE_ICC, &m.icc)) return status;
    if (const img_status status = picture.ask(IMG_VALUE_XMP, &m.xmp)) return status;
    if (const img_status status = picture.ask(IMG_VALUE_TEXT, &m.texts)) return status;
    if (m.orientation < 1 || m.orientation > 8) return bad_record;
    const struct {
        const char *name;
        const img_bytes &bytes;
    } blocks[] = {{"profile", m.icc}, {"XMP", m.xmp}, {"texts", m.texts}};
    for (const auto &[name, bytes] : blocks)
        if (bytes.size > max_allocation) return picture.refuse({name, bytes.size, max_allocation});
    return TIFFIsCODECConfigured(static_cast<uint16_t>(m.compression)) ? ok : unsupported;
}

// A palette with a key or alpha is taken as it is: expanded by the library, its key could equal an opaque colour.
img_status choose(Writer &w) {
    const img_record &image = w.picture.image();
    const bool indexed = image.format & IMG_FMT_PAL;
    if (indexed && w.picture.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP)) return w.picture.choose_and_set_up(&image.format, 1);
    constexpr img_format formats[] = {FMT_PAL1, FMT_PAL4, FMT_PAL8, FMT_G8, FMT_RGB888, rgba_bytes};
    return w.picture.choose_and_set_up(formats, std::size(formats));
}

// Two grey levels, which more programs read as such than as a palette.
uint16_t photometric_of_bits(const uint32_t *palette, uint32_t ncolors) {
    constexpr uint32_t black = 0, white = 0xffffff;
    const uint32_t first = palette[0] & white, second = palette[1] & white;
    if (ncolors == 2 && first == black && second == white) return PHOTOMETRIC_MINISBLACK;
    if (ncolors == 2 && first == white && second == black) return PHOTOMETRIC_MINISWHITE;
    return PHOTOMETRIC_PALETTE;
}

img_status take_colors(Writer &w) {
    const img_record &image = w.picture.image();
    const bool has_key = w.picture.has(IMG_F_TRANSP), opaque = !w.picture.has(IMG_F_PAL_ALPHA);
    if (has_key && !(image.format & IMG_FMT_ALPHA))
        if (const img_status status = w.picture.get_transparency(w.key)) return status;
    if (!(image.format & IMG_FMT_PAL)) return ok;
    std::fill_n(w.palette, max_colors, 0u);
    if (const img_status status = w.picture.get_palette(w.palette)) return status;
    for (uint32_t i = 0; opaque && i < image.ncolors; i++) w.palette[i] |= 0xff000000;
    if (has_key && w.key[0] >= image.ncolors) return bad_record;
    if (has_key) w.palette[w.key[0]] &= 0xffffff;
    return ok;
}

Form form_of(const Writer &w) {
    const img_record &image = w.picture.image();
    const bool indexed = image.format & IMG_FMT_PAL, has_key = w.picture.has(IMG_F_TRANSP);
    if (indexed && w.picture.has(IMG_F_PAL_ALPHA | IMG_F_TRANSP)) return {8, 4, PHOTOMETRIC_RGB, false, true, false};
    if (indexed) {
        const auto bits = static_cast<uint16_t>(bits_per_pixel(image.format));
        const uint16_t photometric = bits == 1 ? photometric_of_bits(w.palette, image.ncolors) : PHOTOMETRIC_PALETTE;
        return {bits, 1, photometric, true, false, false};
    }
    const bool keyed = has_key && !(image.format & IMG_FMT_ALPHA), grey = image.format == FMT_G8;
    const auto samples = static_cast<uint16_t>(bits_per_pixel(image.format) / 8 + keyed);
    return {8, samples, static_cast<uint16_t>(grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB), false, false, keyed};
}

bool set_palette(const Writer &w) {
    uint16_t red[max_colors], green[max_colors], blue[max_colors];
    const auto wide = [](uint32_t level) { return static_cast<uint16_t>((level & 0xff) * 0x101); };
    for (uint32_t i = 0; i < max_colors; i++) {
        red[i] = wide(w.palette[i] >> 16);
        green[i] = wide(w.palette[i] >> 8);
        blue[i] = wide(w.palette[i]);
    }
    return TIFFSetField(w.tif, TIFFTAG_COLORMAP, red, green, blue);
}

bool set_metadata(TIFF *tif, const Metadata &m) {
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

bool set_fields(const Writer &w, const Metadata &m) {
    const img_record &image = w.picture.image();
    const Form &form = w.form;
    const uint64_t row_size = (uint64_t{image.width} * form.bits * form.samples + 7) / 8;
    const auto rows_per_strip = static_cast<uint32_t>(std::clamp<uint64_t>(strip_bytes / row_size, 1, image.height));
    const bool dictionary = m.compression == COMPRESSION_LZW || m.compression == COMPRESSION_ADOBE_DEFLATE;
    const bool has_alpha = form.photometric == PHOTOMETRIC_RGB ? form.samples == 4 : form.samples == 2;
    const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    TIFF *tif = w.tif;
    return TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, image.width) && TIFFSetField(tif, TIFFTAG_IMAGELENGTH, image.height) &&
           TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, int{form.bits}) &&
           TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, int{form.samples}) &&
           TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, int{form.photometric}) &&
           TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
           TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows_per_strip) &&
           TIFFSetField(tif, TIFFTAG_COMPRESSION, m.compression) &&
           (!has_alpha || TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha)) &&
           (!dictionary || form.indexed || TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL)) &&
           (form.photometric != PHOTOMETRIC_PALETTE || set_palette(w)) && set_metadata(tif, m);
}

// libtiff keeps copies of what it is given by pointer. A copy that it has no memory for is missing without an error.
bool fields_were_kept(TIFF *tif, const Metadata &m, const Form &form) {
    uint16_t count, *words[3];
    uint32_t size;
    void *bytes = nullptr;
    const char *text = nullptr;
    const bool has_alpha = form.samples == 2 || form.samples == 4;
    if (has_alpha && (!TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &count, &words[0]) || !words[0])) return false;
    if (form.photometric == PHOTOMETRIC_PALETTE)
        if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &words[0], &words[1], &words[2]) || !words[0] || !words[1] ||
            !words[2])
            return false;
    for (const auto &[tag, wanted] : {std::pair{TIFFTAG_ICCPROFILE, &m.icc}, std::pair{TIFFTAG_XMLPACKET, &m.xmp}})
        if (wanted->size && (!TIFFGetField(tif, tag, &size, &bytes) || !bytes)) return false;
    for (Texts texts(m.texts); texts.next();)
        for (const auto &[tag, keyword] : text_fields)
            if (!strcasecmp(keyword, texts.keyword()) && (!TIFFGetField(tif, tag, &text) || !text)) return false;
    return true;
}

// The row as the file has it, in w.line: compression may change what it is given.
void fill_line(const Writer &w, const uint8_t *row) {
    const img_record &image = w.picture.image();
    uint8_t *out = w.line.get();
    const uint32_t bits = bits_per_pixel(image.format), bytes = bits / 8;
    if (w.form.expanded) {
        for (uint32_t x = 0; x < image.width; x++, out += 4) {
            const uint32_t argb = w.palette[index_at(row, bits, x)];
            out[0] = static_cast<uint8_t>(argb >> 16);
            out[1] = static_cast<uint8_t>(argb >> 8);
            out[2] = static_cast<uint8_t>(argb);
            out[3] = static_cast<uint8_t>(argb >> 24);
        }
    } else if (w.form.keyed) {
        for (uint32_t x = 0; x < image.width; x++, row += bytes, out += bytes + 1) {
            memcpy(out, row, bytes);
            out[bytes] = memcmp(row, w.key, bytes) == 0 ? 0 : 0xff;
        }
    } else {
        memcpy(out, row, row_bytes(image.format, image.width));
    }
}

img_status write_rows(Writer &w) {
    const img_record &image = w.picture.image();
    const bool indexed = image.format & IMG_FMT_PAL;
    for (uint32_t y = 0; y < image.height; y++) {
        const uint8_t *row = w.picture.fetch(y);
        if (indexed && !indices_below(row, bits_per_pixel(image.format), image.width, image.ncolors)) return bad_record;
        fill_line(w, row);
        if (TIFFWriteScanline(w.tif, w.line.get(), y, 0) < 0) return w.failed();
        if (const img_status status = w.picture.progress(y + 1)) return status;
    }
    return TIFFWriteDirectory(w.tif) && !w.file.failed ? ok : w.failed();
}

// A picture that is refused before anything of it was written does no harm to the others.
img_status encode_page(Writer &w) {
    const img_record &image = w.picture.image();
    Metadata metadata;
    if (const img_status status = ask_for_metadata(w.picture, metadata)) return status;
    if (const img_status status = choose(w)) return status;
    if (const img_status status = take_colors(w)) return status;
    w.form = form_of(w);
    w.line = make_bytes((size_t{image.width} * w.form.bits * w.form.samples + 7) / 8);
    if (!w.line) return no_memory;
    if (!set_fields(w, metadata))
        w.failure = w.failed();
    else
        w.failure = fields_were_kept(w.tif, metadata, w.form) ? write_rows(w) : img_status{no_memory};
    w.pages++;
    return w.failure;
}

} // namespace

img_status encode_begin(io_handle *stream, void **state) {
    auto writer = make<Writer>();
    if (!writer) return no_memory;
    want_large_buffer(stream, nullptr);
    writer->stream = stream;
    writer->tif = writer->file.open("wl");
    if (!writer->tif) return no_memory;
    *state = writer.release();
    return ok;
}

img_status encode_frame(io_handle *, const img_encode_callouts *callouts, img_record *image, void **state) {
    auto &writer = *static_cast<Writer *>(*state);
    if (writer.failure) return writer.failure;
    if (const img_status status = writer.picture.begin(*callouts, *image)) return status;
    return encode_page(writer);
}

img_status encode_finish(io_handle *, void **state) {
    const std::unique_ptr<Writer, Delete<Writer>> writer(static_cast<Writer *>(*state));
    *state = nullptr;
    if (writer->failure || !writer->pages) return ok; // the frame said it; half a file is of no use
    const bool flushed = TIFFFlush(writer->tif);
    TIFFClose(writer->tif);
    writer->tif = nullptr;
    if (!flushed || writer->file.failed) return writer->failed();
    return write_all(*writer->stream, writer->file.bytes.data(), writer->file.length) ? ok : write_failed;
}

} // namespace tiff_module
