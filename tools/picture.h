// SPDX-License-Identifier: MIT
//
// A picture in memory, loaded from a file or standard input.
#pragma once

#include "pictra/pictra.h"
#include "tools/exchange.h"
#include "tools/text.h"

#include <memory>
#include <optional>
#include <string>

namespace tool {

struct Close {
    void operator()(io_handle *stream) const { io_close(stream); }
};
using Stream = std::unique_ptr<io_handle, Close>;

class Picture {
public:
    // Loads path, "-" being standard input, in the given format or in the file's own. Of a damaged picture the rows that
    // arrived can be kept; the others are zero.
    enum class Damage : uint8_t { refused, kept };
    Picture(img_lib_handle &library, const std::string &path, Exchange &exchange, std::optional<img_format> format = {},
            Damage damage = Damage::refused);
    // Takes over a record that the library gave storage to.
    explicit Picture(const img_record &given) : record_(given) {}
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;
    ~Picture() { release(); }

    img_record &record() { return record_; }
    bool has(img_flags flags) const { return record_.flags & flags; }
    bool has_transparency() const { return has(IMG_F_TRANSP | IMG_F_PAL_ALPHA) || (record_.format & IMG_FMT_ALPHA); }
    void drop_key() { record_.flags &= ~img_flags{IMG_F_TRANSP}; }

    img_status convert(img_format format);
    void key_to_alpha();          // to FMT_ARGB8888HE, with whatever transparency there is
    void pack(img_format format); // indices of 8 bits into 1 or 4 again

    // Puts what step makes, in the same format and with the same transparency, in the place of the picture.
    template <typename Step> img_status replace(const Step &step) {
        img_record made{};
        made.format = record_.format;
        made.flags = IMG_F_FORMAT;
        made.ncolors = record_.ncolors;
        if (const img_status status = step(made)) return status;
        constexpr img_flags kept = IMG_F_TRANSP | IMG_F_PAL_ALPHA;
        made.flags = (made.flags & ~kept) | (record_.flags & kept);
        made.transparency = record_.transparency;
        release();
        record_ = made;
        return IMG_ST_OK;
    }

private:
    void clear_key(uint32_t key); // pixels of this colour become transparent
    void release();

    img_record record_{};
};

// Opens path, "-" being standard input, and hands it to one of the library's load functions, which gets the record. Fails
// with a message, or as Damaged.
class Damaged : public Failure {
public:
    using Failure::Failure;
};
using LoadFile = img_status (*)(img_lib_handle *, const char *, const img_decode_callouts *, img_record *);
using LoadStream = img_status (*)(img_lib_handle *, io_handle *, const img_decode_callouts *, img_record *);
void load(img_lib_handle &library, const std::string &path, LoadFile from_file, LoadStream from_stream,
          const img_decode_callouts &callouts, Exchange &exchange, img_record &record);

} // namespace tool
