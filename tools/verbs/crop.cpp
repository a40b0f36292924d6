// SPDX-License-Identifier: MIT
//
// pictra crop: a rectangle of a picture.
#include "tools/verbs/options.h"

namespace tool {

Verb add_crop(CLI::App &app) {
    return add_operation(app, "crop", "Cut a rectangle out of pictures",
                         {"--rect", "WxH+X+Y", "Size of the rectangle, then its top left pixel", parse_crop});
}

} // namespace tool
