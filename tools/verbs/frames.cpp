// SPDX-License-Identifier: MIT
//
// pictra frames: the pictures of an animation, of pages, of icons; listed, or each written to a file of its own.
#include "tools/decoder.h"
#include "tools/files/batch.h"
#include "tools/files/output.h"
#include "tools/interrupt.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <iostream>

namespace tool {

int frames(const FramesOptions &options) {
    const Library library = attach();
    watch_for_signals();
    Decoder decoder(library, options.file, options.reading);
    for (uint32_t number = 0; const std::unique_ptr<Picture> picture = decoder.next(); number++) {
        const img_record &record = picture->record();
        if (options.pattern.empty()) {
            std::cout << number << ": " << record.width << " x " << record.height << ", " << format_name(record.format);
            if (decoder.exchange.metadata.delay) std::cout << ", " << decoder.exchange.metadata.delay << " ms";
            std::cout << '\n';
            continue;
        }
        const Output output{name_by(options.pattern, options.file, {{"n", std::to_string(number)}}), options.to, false,
                            false, options.sync};
        if (number == 1 && output.path == name_by(options.pattern, options.file, {{"n", "0"}}))
            throw Failure("-o " + options.pattern + ": every picture would have this name; put {n} into it", usage);
        write(library, *picture, output, options.reading, decoder.exchange);
    }
    return done;
}

} // namespace tool
