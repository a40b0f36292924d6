// SPDX-License-Identifier: MIT
#include "tools/verbs/trial.h"

#include "pictra/pictra.h"

#include <dlfcn.h>
#include <memory>

namespace tool {

Outcome try_module(const std::string &path) {
    Outcome outcome;
    const std::unique_ptr<void, int (*)(void *)> module(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
    outcome.opens = module != nullptr;
    if (!outcome.opens) {
        outcome.error = dlerror();
        return outcome;
    }
    const auto entry = reinterpret_cast<img_getfuncs_func *>(dlsym(module.get(), "img_codec_getfuncs"));
    outcome.entry = entry != nullptr;
    if (!outcome.entry) {
        outcome.error = dlerror();
        return outcome;
    }
    img_codec_funcs functions{};
    if (const img_status status = entry(&functions, sizeof functions))
        outcome.error = "img_codec_getfuncs gives status " + std::to_string(status);
    outcome.reads = functions.decode_frame != nullptr;
    outcome.writes = functions.encode_frame != nullptr;
    return outcome;
}

} // namespace tool
