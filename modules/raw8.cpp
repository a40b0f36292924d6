// SPDX-License-Identifier: MIT
//
// An example, which only the tests build: the module of examples/codec-module/raw8.c as it looks in the source tree.
#include "modules/common/bytes.h"
#include "modules/common/entry.h"

using namespace codec;

namespace {

class Reader : public BaseReader {
public:
    static constexpr bool many_pictures = false;
    static bool recognises(const Signature &start) { return start.length >= 4 && !memcmp(start.bytes, "RAW8", 4); }

    using BaseReader::BaseReader;
    img_status frame() {
        uint8_t header[12];
        if (read_up_to(stream_, header, sizeof header) != sizeof header) return damaged;
        const uint32_t width = big32(header + 4), height = big32(header + 8);
        constexpr img_format format = FMT_G8;
        if (const img_status status = picture_.report(IMG_VALUE_DEPTH, 8)) return status;
        if (const img_status status = picture_.choose(width, height, 0, &format, 1)) return status;
        if (const img_status status = picture_.setup()) return status;
        for (uint32_t y = 0; y < height; y++) {
            if (read_up_to(stream_, picture_.row(y), width) != width) return damaged;
            if (const img_status status = picture_.deliver(y)) return status;
        }
        return ok;
    }
};

} // namespace

img_status img_codec_getfuncs(img_codec_funcs *table, size_t size) {
    return functions_of<Reader, NoWriter>(table, size);
}
