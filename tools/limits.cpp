// SPDX-License-Identifier: MIT
#include "tools/limits.h"

namespace tool {

std::string explain(const confine::Limit &limit) {
    constexpr uint64_t megabyte = 1'000'000;
    const auto &[name, needed, allowed] = limit;
    const auto exceeds = [](uint64_t more, const char *what, uint64_t less) {
        return std::to_string(more) + what + std::to_string(less) + "; raise that, or reduce the picture";
    };
    if (name == "memory")
        return "it takes " +
               exceeds((needed + megabyte - 1) / megabyte, " MB, more than --max-memory ", allowed / megabyte);
    if (name == "pixels" && allowed < confine::max_pixels)
        return "it has " + exceeds(needed, " pixels, more than --max-pixels ", allowed);
    return "it exceeds its codec's limit for " + name + ": " + std::to_string(needed) + ", where " +
           std::to_string(allowed) + " are allowed; no option raises that, so reduce the picture with another program";
}

} // namespace tool
