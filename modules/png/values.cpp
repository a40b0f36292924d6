// SPDX-License-Identifier: MIT
//
// What PNG files hold beside the pixels.
#include "modules/common/text.h"
#include "modules/png/png.h"

namespace module {

namespace {

constexpr char xmp_keyword[] = "XML:com.adobe.xmp";

bool resolution(const Reader &r, img_resolution &found) {
    png_uint_32 x, y;
    int unit;
    if (!png_get_pHYs(r.png, r.info, &x, &y, &unit) || unit != PNG_RESOLUTION_METER) return false;
    found = {static_cast<double>(x), static_cast<double>(y)};
    return true;
}

img_status report_resolution(const Reader &r) {
    img_resolution found;
    return resolution(r, found) ? r.picture.report(IMG_VALUE_RESOLUTION, &found, sizeof found) : ok;
}

img_status report_exif(Reader &r) {
    png_uint_32 size;
    png_bytep block;
    if (r.exif || !png_get_eXIf_1(r.png, r.info, &size, &block)) return ok;
    r.exif = true;
    img_resolution better;
    return report_exif(r.picture, block, size, resolution(r, better));
}

img_status report_profile(const Reader &r) {
    png_charp name;
    int compression;
    png_bytep profile;
    png_uint_32 size;
    if (!png_get_iCCP(r.png, r.info, &name, &compression, &profile, &size)) return ok;
    return report_block(r.picture, IMG_VALUE_ICC, profile, size);
}

img_status report_texts(Reader &r) {
    png_textp texts = nullptr;
    const int count = png_get_text(r.png, r.info, &texts, nullptr);
    while (r.texts < count) {
        const png_text &text = texts[r.texts++];
        const size_t size = text.compression >= PNG_ITXT_COMPRESSION_NONE ? text.itxt_length : text.text_length;
        const bool xmp = strcmp(text.key, xmp_keyword) == 0;
        const img_status status =
            xmp ? r.picture.report(IMG_VALUE_XMP, text.text, size) : report_text(r.picture, text.key, text.text, size);
        if (status) return status;
    }
    return ok;
}

void set_text(const Writer &w, const char *keyword, const char *content, bool international = false) {
    for (const char *c = content; *c; c++) international = international || static_cast<unsigned char>(*c) > '~';
    png_text text{};
    text.compression = international ? PNG_ITXT_COMPRESSION_NONE : PNG_TEXT_COMPRESSION_NONE;
    text.key = const_cast<png_charp>(keyword); // libpng copies both
    text.text = const_cast<png_charp>(content);
    png_set_text(w.png, w.info, &text, 1);
}

} // namespace

void keep_values(Reader &r) {
    png_set_keep_unknown_chunks(r.png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1); // of the ancillary ones, only tRNS
    if (!r.values) return;
    constexpr png_byte reported[] = "eXIf\0iCCP\0iTXt\0pHYs\0tEXt\0zTXt";
    png_set_keep_unknown_chunks(r.png, PNG_HANDLE_CHUNK_AS_DEFAULT, reported, sizeof reported / 5);
    png_set_option(r.png, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
}

img_status report_values(Reader &r, When when) {
    if (!r.values) return ok;
    if (r.failure == no_memory) return no_memory; // of which libpng only warns
    if (when == When::before_pixels) {
        if (const img_status status = r.picture.report(IMG_VALUE_DEPTH, png_get_bit_depth(r.png, r.info)))
            return status;
        if (const img_status status = report_resolution(r)) return status;
        if (const img_status status = report_profile(r)) return status;
    }
    if (const img_status status = report_exif(r)) return status;
    if (const img_status status = report_texts(r)) return status;
    if (!r.warning[0] || r.warned) return ok;
    r.warned = true;
    return r.picture.warn(r.warning);
}

img_status ask_for_metadata(Writer &w) {
    Metadata &m = w.metadata;
    if (const img_status status = m.ask(w.picture)) return status;
    if (!m.xmp.size) return ok;
    if (!(w.xmp_text = make_bytes(m.xmp.size + 1))) return no_memory;
    memcpy(w.xmp_text.get(), m.xmp.data, m.xmp.size);
    return ok;
}

img_status set_metadata(Writer &w) {
    const Metadata &m = w.metadata;
    png_set_benign_errors(w.png, 1); // what libpng does not take, such as a profile that is none, is left out
    if (m.icc.size)
        png_set_iCCP(w.png, w.info, "ICC", PNG_COMPRESSION_TYPE_BASE, static_cast<png_const_bytep>(m.icc.data),
                     static_cast<png_uint_32>(m.icc.size));
    if (m.exif.size)
        png_set_eXIf_1(w.png, w.info, static_cast<png_uint_32>(m.exif.size),
                       static_cast<png_bytep>(const_cast<void *>(m.exif.data)));
    const auto whole = [](double per_metre) {
        return per_metre >= 1 && per_metre <= PNG_UINT_31_MAX ? static_cast<png_uint_32>(per_metre + 0.5) : 0;
    };
    const png_uint_32 x = whole(m.resolution.x), y = whole(m.resolution.y);
    if (x && y) png_set_pHYs(w.png, w.info, x, y, PNG_RESOLUTION_METER);
    if (w.xmp_text) set_text(w, xmp_keyword, reinterpret_cast<const char *>(w.xmp_text.get()), true);
    for (Texts texts(m.texts); texts.next();) set_text(w, texts.keyword(), texts.text());
    return w.failure == no_memory ? no_memory : ok; // of which libpng only warns
}

} // namespace module
