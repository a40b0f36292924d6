// SPDX-License-Identifier: MIT
//
// The colour library with nothing shared: a context of its own, whose memory is bounded.
#pragma once

#include "kit/colour/profile.h"

#include <lcms2.h>
#include <setjmp.h>
#include <stddef.h>

namespace img::kit {

// Bytes that the library may hold. Most are the tables of the profile, as floats.
constexpr size_t max_held = size_t{64} << 20;

class Engine {
public:
    Engine() = default;
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;
    ~Engine();

    img_status make(Profile &&profile, const pictra_colour_options &options);

    uint32_t channels() const { return profile_.channels; }
    // The profile's own name in UTF-8, cut to size with its zero.
    void name(char *text, size_t size);

    // From pixels of one layout of the library to sRGB in another. Null if memory lacks or the profile is of no use.
    cmsHTRANSFORM transform(uint32_t from, uint32_t to);
    // Why the last one was null.
    img_status failure() const { return is_broken_ ? IMG_ST_NOMEM : IMG_ST_DAMAGED; }

private:
    // Before each block that the library has, so that all can be freed where a call of it was left.
    struct alignas(max_align_t) Block {
        Engine *owner; // null for those of the context, which it frees itself
        Block *before, *after;
        size_t size;
    };
    static void *allocate(cmsContext context, cmsUInt32Number size);
    static void release(cmsContext context, void *memory);
    static void *reallocate(cmsContext context, void *memory, cmsUInt32Number size);
    static void *refuse(Engine *engine);
    // Runs a call of the library, which does not survive it when memory ends: then the call is left from within, false is
    // the result, and the engine is of no more use.
    template <typename Call> bool run(Call call);
    void link(Block &block);
    void unlink(Block &block);

    struct Made {
        uint32_t from, to;
        cmsHTRANSFORM transform;
    };
    static constexpr uint32_t max_made = 8;

    Profile profile_;
    uint32_t intent_ = 0, flags_ = 0;
    bool is_matrix_ = false, is_fast_ = false;
    bool is_running_ = false, is_broken_ = false;
    jmp_buf way_out_;
    cmsContext context_ = nullptr;
    cmsHPROFILE source_ = nullptr, target_ = nullptr;
    Made made_[max_made] = {};
    uint32_t count_ = 0;
    Block *blocks_ = nullptr;
    size_t held_ = 0;
};

} // namespace img::kit
