// SPDX-License-Identifier: MIT
//
// pictra rotate: quarter and half turns.
#include "tools/verbs/options.h"

namespace tool {

Verb add_rotate(CLI::App &app) {
    return add_operation(app, "rotate", "Rotate pictures clockwise", {"--by", "90|180|270", "Degrees", parse_rotate});
}

} // namespace tool
