// SPDX-License-Identifier: MIT
//
// What PNG files hold beside the pixels.
#include "modules/common/text.h"
#include "modules/png/png.h"

namespace png {

namespace {

constexpr char xmp_keyword[] = "XML:com.adobe.xmp";

} // namespace

bool Reader::resolution(img_resolution &found) const {
    png_uint_32 x, y;
    int unit;
    if (!png_get_pHYs(png_, info_, &x, &y, &unit) || unit != PNG_RESOLUTION_METER) return false;
    found = {static_cast<double>(x), static_cast<double>(y)};
    return true;
}

img_status Reader::report_resolution() const {
    img_resolution found;
    return resolution(found) ? picture_.report(IMG_VALUE_RESOLUTION, &found, sizeof found) : ok;
}

img_status Reader::report_exif_once() {
    png_uint_32 size;
    png_bytep block;
    if (exif_reported_ || !png_get_eXIf_1(png_, info_, &size, &block)) return ok;
    exif_reported_ = true;
    img_resolution better;
    return report_exif(picture_, block, size, resolution(better));
}

img_status Reader::report_profile() const {
    png_charp name;
    int compression;
    png_bytep profile;
    png_uint_32 size;
    if (!png_get_iCCP(png_, info_, &name, &compression, &profile, &size)) return ok;
    return report_block(picture_, IMG_VALUE_ICC, profile, size);
}

img_status Reader::report_texts() {
    png_textp texts = nullptr;
    const int count = png_get_text(png_, info_, &texts, nullptr);
    while (texts_ < count) {
        const png_text &text = texts[texts_++];
        const size_t size = text.compression >= PNG_ITXT_COMPRESSION_NONE ? text.itxt_length : text.text_length;
        const bool xmp = strcmp(text.key, xmp_keyword) == 0;
        const img_status status =
            xmp ? picture_.report(IMG_VALUE_XMP, text.text, size) : report_text(picture_, text.key, text.text, size);
        if (status) return status;
    }
    return ok;
}

// Before the file is read: has libpng keep what is reported, and nothing else.
void Reader::keep_values() {
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, nullptr, -1); // of the ancillary ones, only tRNS
    if (!picture_.listens()) return;
    constexpr png_byte reported[] = "eXIf\0iCCP\0iTXt\0pHYs\0tEXt\0zTXt";
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_AS_DEFAULT, reported, sizeof reported / 5);
    png_set_option(png_, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
}

// Reports what has been read since the last time.
img_status Reader::report_values(When when) {
    if (!picture_.listens()) return ok;
    if (failure_ == no_memory) return no_memory; // of which libpng only warns
    if (when == When::before_pixels) {
        if (const img_status status = picture_.report(IMG_VALUE_DEPTH, png_get_bit_depth(png_, info_))) return status;
        if (const img_status status = report_resolution()) return status;
        if (const img_status status = report_profile()) return status;
    }
    if (const img_status status = report_exif_once()) return status;
    if (const img_status status = report_texts()) return status;
    if (!warning_[0] || warned_) return ok;
    warned_ = true;
    return picture_.warn(warning_);
}

void Writer::set_text(const char *keyword, const char *content, bool international) const {
    for (const char *c = content; *c; c++) international = international || static_cast<unsigned char>(*c) > '~';
    png_text text{};
    text.compression = international ? PNG_ITXT_COMPRESSION_NONE : PNG_TEXT_COMPRESSION_NONE;
    text.key = const_cast<png_charp>(keyword); // libpng copies both
    text.text = const_cast<png_charp>(content);
    png_set_text(png_, info_, &text, 1);
}

// What the caller answers.
img_status Writer::ask_for_metadata() {
    Metadata &m = metadata_;
    if (const img_status status = m.ask(picture_)) return status;
    if (!m.xmp.size) return ok;
    if (!(xmp_text_ = make_bytes(m.xmp.size + 1))) return no_memory;
    memcpy(xmp_text_.get(), m.xmp.data, m.xmp.size);
    return ok;
}

// Where the answers go: after the header, before the pixels.
img_status Writer::set_metadata() {
    const Metadata &m = metadata_;
    png_set_benign_errors(png_, 1); // what libpng refuses, such as a profile that is none, is left out with a warning
    if (m.icc.size)
        png_set_iCCP(png_, info_, "ICC", PNG_COMPRESSION_TYPE_BASE, static_cast<png_const_bytep>(m.icc.data),
                     static_cast<png_uint_32>(m.icc.size));
    if (m.exif.size)
        png_set_eXIf_1(png_, info_, static_cast<png_uint_32>(m.exif.size),
                       static_cast<png_bytep>(const_cast<void *>(m.exif.data)));
    const auto whole = [](double per_metre) {
        return per_metre >= 1 && per_metre <= PNG_UINT_31_MAX ? static_cast<png_uint_32>(per_metre + 0.5) : 0;
    };
    const png_uint_32 x = whole(m.resolution.x), y = whole(m.resolution.y);
    if (x && y) png_set_pHYs(png_, info_, x, y, PNG_RESOLUTION_METER);
    if (xmp_text_) set_text(xmp_keyword, reinterpret_cast<const char *>(xmp_text_.get()), true);
    for (Texts texts(m.texts); texts.next();) set_text(texts.keyword(), texts.text());
    return failure_ == no_memory ? no_memory : ok; // of which libpng only warns
}

} // namespace png
