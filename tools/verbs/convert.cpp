// SPDX-License-Identifier: MIT
//
// pictra convert, and the verbs that are one operation of it: from one file into another, by way of some operations.
#include "tools/decoder.h"
#include "tools/files/output.h"
#include "tools/verbs/verbs.h"

namespace tool {

int convert(const ConvertOptions &options) {
    const Library library = attach();
    const Keep keep(options.keep);
    return for_each_pair(library, options.files, [&](const std::string &in, const std::string &out) {
        const Output output{out, options.to, options.reading.format.has_value(), false, options.sync};
        codec_for(*library.handle, output); // before any work is done
        Decoder decoder(library, in, options.reading);
        const std::unique_ptr<Picture> picture = decoder.next();
        for (const Operation &operation : options.operations) apply(operation, *picture, in);
        decoder.exchange.metadata = keep.of(decoder.exchange.metadata);
        write(library, *picture, output, options.reading, decoder.exchange);
    });
}

} // namespace tool
