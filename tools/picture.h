// SPDX-License-Identifier: MIT
//
// A picture in memory, loaded from a file or standard input.
#pragma once

#include "pictra/pictra.h"

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
    // Loads path, "-" being standard input, in the given format or in the file's own.
    Picture(img_lib_handle &library, const std::string &path, std::optional<img_format> format = {});
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;
    ~Picture() { release(); }

    img_record &record() { return record_; }
    bool has(img_flags flags) const { return record_.flags & flags; }
    bool has_transparency() const { return has(IMG_F_TRANSP | IMG_F_PAL_ALPHA) || (record_.format & IMG_FMT_ALPHA); }
    void drop_key() { record_.flags &= ~img_flags{IMG_F_TRANSP}; }
    img_status convert(img_format format);

private:
    void release();

    img_record record_{};
};

} // namespace tool
