// SPDX-License-Identifier: MIT
//
// pictra convert: a picture from one file into another.
#include "tools/config.h"
#include "tools/picture.h"
#include "tools/target.h"
#include "tools/text.h"
#include "tools/verbs.h"

#include <strings.h>

namespace tool {

namespace {

// Extensions that promise one kind of picture, although their codec writes several.
struct Promise {
    const char *extension;
    img_format format;
    const char *text, *without_transparency;
};
constexpr Promise promises[] = {
    {"pbm", FMT_PAL1, "black and white", ""},
    {"pgm", FMT_G8, "grey", ", or drop it with --format g8"},
    {"ppm", FMT_RGB888, "colours", ", or drop it with --format rgb888"},
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

// Makes the picture what the extension promises. Transparency is dropped only if a format without it was asked for.
void keep_promise(Picture &picture, const ConvertOptions &options, const std::string &extension) {
    for (const auto &[name, format, text, without_transparency] : promises) {
        if (strcasecmp(extension.c_str(), name) != 0) continue;
        if (!options.format.empty()) picture.drop_key();
        if (picture.has_transparency())
            throw Failure(options.out + ": ." + name + " holds no transparency; write a .pam or .png" +
                          without_transparency);
        const bool fits =
            format == FMT_PAL1 ? is_black_and_white(picture.record()) : picture.convert(format) == IMG_ST_OK;
        if (!fits)
            throw Failure(options.out + ": ." + name + " holds " + text + " only, and the picture is " +
                          format_name(picture.record().format) + "; write a .pgm or .ppm");
    }
}

img_codec *codec_for(img_lib_handle &library, const ConvertOptions &options) {
    if (options.out == "-" && options.to.empty())
        throw Failure("standard output: name the codec by an extension, for instance --to png", usage);
    const std::string name = options.to.empty() ? options.out : "." + options.to;
    img_codec *codec = nullptr;
    if (img_codec_list_byext(&library, name.c_str(), &codec, 1)) return codec;
    throw Failure(options.out + ": no codec is registered for the extension '" + extension_of(name) +
                  "'; name one with --to, 'pictra codecs' lists them");
}

// Keeps the names of the formats that an encoder offers when none of them is the picture's own.
uint32_t note_formats(void *data, img_record *, const img_format *formats, uint32_t count) {
    std::string &offered = *static_cast<std::string *>(data);
    for (uint32_t i = 0; i < count; i++) offered += (offered.empty() ? "" : ", ") + format_name(formats[i]);
    return count; // let the library choose
}

void write(img_lib_handle &library, img_codec *codec, Picture &picture, const std::string &path) {
    Target target(path);
    const std::string name = path == "-" ? "standard output" : path;
    Stream stream(io_open(IO_FD, IO_WRITE, target.descriptor()));
    if (!stream) throw Failure(explain(name, IMG_ST_NOMEM));
    std::string offered;
    img_encode_callouts callouts{};
    callouts.choose_format = note_formats;
    callouts.data = &offered;
    img_status status = img_write(&library, stream.get(), &callouts, &picture.record(), &codec);
    if (status == IMG_ST_OK && io_ostream_flush(stream->self) != 0) status = IMG_ST_FILE;
    if (status == IMG_ST_FILE)
        throw Failure(name + ": not all could be written, the disk is full or a limit reached; check free space");
    if (status == IMG_ST_NOCONV)
        throw Failure(name + ": its codec cannot hold " + format_name(picture.record().format) +
                      "; use --format with one of " + offered);
    if (status != IMG_ST_OK) throw Failure(explain(name, status));
    target.commit();
}

} // namespace

int convert(const ConvertOptions &options) {
    std::optional<img_format> format;
    if (!options.format.empty()) {
        format = format_of(options.format);
        if (!format)
            throw Failure("--format " + options.format + ": no such pixel format; there are " + all_format_names(),
                          usage);
    }
    const Library library = attach();
    img_codec *codec = codec_for(*library, options);
    Picture picture(*library, options.in, format);
    keep_promise(picture, options, options.to.empty() ? extension_of(options.out) : options.to);
    write(*library, codec, picture, options.out);
    return done;
}

} // namespace tool
