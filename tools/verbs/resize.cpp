// SPDX-License-Identifier: MIT
//
// pictra resize: pictures at another size.
#include "tools/verbs/options.h"

namespace tool {

Verb add_resize(CLI::App &app) {
    return add_operation(
        app, "resize", "Change the size of pictures",
        {"--size", "WxH", "Width and height in pixels; with Wx or xH the proportions stay", parse_resize});
}

} // namespace tool
