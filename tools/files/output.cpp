// SPDX-License-Identifier: MIT
#include "tools/files/output.h"

#include "tools/encoder.h"
#include "tools/files/target.h"
#include "tools/text.h"

#include <strings.h>

namespace tool {

namespace {

// Extensions that promise one kind of picture, although their codec writes several.
struct Promise {
    const char *extension;
    img_format format; // 0: any without transparency
    const char *text, *without_transparency;
};
constexpr Promise promises[] = {
    {"pbm", FMT_PAL1, "black and white", ""},
    {"pgm", FMT_G8, "grey", ", or drop it with --format g8"},
    {"ppm", FMT_RGB888, "colours", ", or drop it with --format rgb888"},
    {"jpg", 0, "", ", or drop it with --format rgb888"},
    {"jpeg", 0, "", ", or drop it with --format rgb888"},
    {"jpe", 0, "", ", or drop it with --format rgb888"},
    {"jfif", 0, "", ", or drop it with --format rgb888"},
};

std::string extension_of(const std::string &name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

bool is_black_and_white(const img_record &record) {
    if (record.format != FMT_PAL1 || record.ncolors != 2) return false;
    const uint32_t first = record.palette[0] & 0xffffff, second = record.palette[1] & 0xffffff;
    return (first == 0 && second == 0xffffff) || (first == 0xffffff && second == 0);
}

// Converts the picture to what the extension promises. Transparency is dropped only if the user asked for a format
// without it.
void keep_promise(Picture &picture, const Output &output, const std::string &extension) {
    for (const auto &[name, format, text, without_transparency] : promises) {
        if (strcasecmp(extension.c_str(), name) != 0) continue;
        if (output.drops_key) picture.drop_key();
        if (picture.view().may_be_transparent())
            throw Failure(output.path + ": ." + name + " holds no transparency; write a .pam or .png" +
                              without_transparency,
                          IMG_ST_NOCONV);
        const bool fits = !format              ? true
                          : format == FMT_PAL1 ? is_black_and_white(picture.record())
                                               : picture.convert(format) == IMG_ST_OK;
        if (!fits)
            throw Failure(output.path + ": ." + name + " holds " + text + " only, and the picture is " +
                              format_name(picture.record().format) + "; write a .pgm or .ppm",
                          IMG_ST_NOCONV);
    }
}

} // namespace

img_codec *codec_for(img_lib_handle &library, const Output &output) {
    if (output.path == "-" && output.to.empty())
        throw Failure("standard output: name the codec by an extension, for instance --to png", usage);
    const std::string name = output.to.empty() ? output.path : "." + output.to;
    img_codec *codec = nullptr;
    if (img_codec_list_byext(&library, name.c_str(), &codec, 1)) return codec;
    throw Failure(output.path + ": no codec is registered for the extension '" + extension_of(name) +
                      "'; name one with --to, 'pictra codecs' lists them",
                  IMG_ST_NOCODEC);
}

void write(const Library &library, Picture &picture, const Output &output, const Reading &reading, Exchange &exchange) {
    img_codec *codec = codec_for(*library.handle, output);
    keep_promise(picture, output, output.to.empty() ? extension_of(output.path) : output.to);
    Target target(output.path, {output.for_owner_only, output.sync});
    const std::string name = output.path == "-" ? "standard output" : output.path;
    encode(library, codec, picture, target.descriptor(), name, reading, exchange);
    target.commit();
}

} // namespace tool
