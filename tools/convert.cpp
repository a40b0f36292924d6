// SPDX-License-Identifier: MIT
//
// pictra convert, and the verbs that are one operation of it: from one file into another, by way of some operations.
#include "tools/config.h"
#include "tools/output.h"
#include "tools/picture.h"
#include "tools/text.h"
#include "tools/verbs.h"

namespace tool {

namespace {

std::optional<img_format> wanted_format(const std::string &name) {
    if (name.empty()) return {};
    if (const std::optional<img_format> format = format_of(name)) return format;
    throw Failure("--format " + name + ": no such pixel format; there are " + all_format_names(), usage);
}

} // namespace

int convert(const ConvertOptions &options) {
    const std::optional<img_format> format = wanted_format(options.format);
    const Library library = attach();
    return for_each_pair(*library, options.files, [&](const std::string &in, const std::string &out) {
        const Output output{out, options.to, options.format};
        img_codec *codec = codec_for(*library, output);
        Exchange exchange(options.given);
        Picture picture(*library, in, exchange, format, options.damage);
        for (const Operation &operation : options.operations) apply(operation, picture, in);
        write(*library, codec, picture, output, exchange);
    });
}

} // namespace tool
