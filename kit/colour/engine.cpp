// SPDX-License-Identifier: MIT
#include "kit/colour/engine.h"

#include <lcms2_plugin.h>
#include <string.h>

namespace img::kit {

namespace {

void say_nothing(cmsContext, cmsUInt32Number, const char *) {} // the status says it

// Appends a character in UTF-8 if it fits; control characters become spaces.
size_t append(char *text, size_t at, size_t size, uint32_t c) {
    if (c < 0x20 || (c >= 0x7f && c < 0xa0)) c = ' ';
    if (c > 0x10ffff || (c >= 0xd800 && c < 0xe000)) c = 0xfffd;
    const size_t length = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    if (at + length >= size) return 0;
    constexpr uint8_t lead[] = {0, 0, 0xc0, 0xe0, 0xf0};
    for (size_t i = length - 1; i; i--, c >>= 6) text[at + i] = static_cast<char>(0x80 | (c & 0x3f));
    text[at] = static_cast<char>(lead[length] | c);
    return length;
}

// A handle serves one thread at a time, so nothing is locked; and the library would not notice that a mutex is missing.
void *make_mutex(cmsContext context) { return context; }
void free_mutex(cmsContext, void *) {}
cmsBool lock_mutex(cmsContext, void *) { return TRUE; }
void unlock_mutex(cmsContext, void *) {}

template <class Plugin> Plugin plugin(cmsUInt32Number type) {
    Plugin made{};
    made.base.Magic = cmsPluginMagicNumber;
    made.base.ExpectedVersion = 2000;
    made.base.Type = type;
    return made;
}

} // namespace

// ---- Memory ----------------------------------------------------------------------------------------------------------

void Engine::link(Block &block) {
    block.before = nullptr;
    block.after = blocks_;
    if (blocks_) blocks_->before = &block;
    blocks_ = &block;
    held_ += block.size;
}

void Engine::unlink(Block &block) {
    (block.before ? block.before->after : blocks_) = block.after;
    if (block.after) block.after->before = block.before;
    held_ -= block.size;
}

void *Engine::refuse(Engine *engine) {
    if (engine && engine->is_running_) longjmp(engine->way_out_, 1);
    return nullptr;
}

void *Engine::allocate(cmsContext context, cmsUInt32Number size) {
    auto *engine = static_cast<Engine *>(cmsGetContextUserData(context)); // null while the context is made
    if (!size || (engine && engine->held_ + size > max_held)) return refuse(engine);
    auto *block = static_cast<Block *>(malloc(sizeof(Block) + size));
    if (!block) return refuse(engine);
    *block = {engine, nullptr, nullptr, size};
    if (engine) engine->link(*block);
    return block + 1;
}

void Engine::release(cmsContext, void *memory) {
    if (!memory) return;
    Block *block = static_cast<Block *>(memory) - 1;
    if (block->owner) block->owner->unlink(*block);
    free(block);
}

void *Engine::reallocate(cmsContext context, void *memory, cmsUInt32Number size) {
    void *moved = allocate(context, size);
    if (!moved || !memory) return moved;
    const size_t had = (static_cast<Block *>(memory) - 1)->size;
    memcpy(moved, memory, had < size ? had : size);
    release(context, memory);
    return moved;
}

template <typename Call> bool Engine::run(Call call) {
    if (is_broken_) return false;
    if (setjmp(way_out_)) {
        is_running_ = false;
        is_broken_ = true;
        return false;
    }
    is_running_ = true;
    call();
    is_running_ = false;
    return true;
}

Engine::~Engine() {
    for (uint32_t i = 0; i < count_ && !is_broken_; i++) cmsDeleteTransform(made_[i].transform);
    if (source_ && !is_broken_) cmsCloseProfile(source_);
    if (target_ && !is_broken_) cmsCloseProfile(target_);
    if (context_) cmsDeleteContext(context_);
    while (blocks_) release(nullptr, blocks_ + 1);
}

// ---- Profile and transforms ------------------------------------------------------------------------------------------

img_status Engine::make(Profile &&profile, const pictra_colour_options &options) {
    profile_ = static_cast<Profile &&>(profile);
    intent_ = options.intent == PICTRA_INTENT_RELATIVE ? INTENT_RELATIVE_COLORIMETRIC : INTENT_PERCEPTUAL;
    flags_ = options.flags & PICTRA_COLOUR_BLACK_POINT ? cmsFLAGS_BLACKPOINTCOMPENSATION : 0;
    is_fast_ = options.flags & PICTRA_COLOUR_FAST;
    auto mutexes = plugin<cmsPluginMutex>(cmsPluginMutexSig);
    mutexes.CreateMutexPtr = make_mutex;
    mutexes.DestroyMutexPtr = free_mutex;
    mutexes.LockMutexPtr = lock_mutex;
    mutexes.UnlockMutexPtr = unlock_mutex;
    auto memory = plugin<cmsPluginMemHandler>(cmsPluginMemHandlerSig);
    memory.base.Next = &mutexes.base;
    memory.MallocPtr = allocate;
    memory.FreePtr = release;
    memory.ReallocPtr = reallocate;
    context_ = cmsCreateContext(&memory, this);
    if (!context_) return IMG_ST_NOMEM;
    cmsSetLogErrorHandlerTHR(context_, say_nothing);
    run([this] { source_ = cmsOpenProfileFromMemTHR(context_, profile_.bytes.get(), profile_.size); });
    if (!source_) return failure();
    run([this] {
        is_matrix_ = cmsIsMatrixShaper(source_) && !cmsIsCLUT(source_, intent_, LCMS_USED_AS_INPUT);
        target_ = cmsCreate_sRGBProfileTHR(context_);
    });
    return target_ ? img_status{IMG_ST_OK} : failure();
}

void Engine::name(char *text, size_t size) {
    constexpr uint32_t max_characters = 256;
    wchar_t wide[max_characters] = {};
    run([&] { cmsGetProfileInfo(source_, cmsInfoDescription, "en", "US", wide, sizeof wide); });
    size_t at = 0;
    for (uint32_t i = 0; i < max_characters - 1 && wide[i]; i++) {
        const size_t length = append(text, at, size, static_cast<uint32_t>(wide[i]));
        if (!length) break;
        at += length;
    }
    if (size) text[at] = 0;
}

cmsHTRANSFORM Engine::transform(uint32_t from, uint32_t to) {
    for (uint32_t i = 0; i < count_; i++)
        if (made_[i].from == from && made_[i].to == to) return made_[i].transform;
    // Tables made beforehand are off by up to a dozen levels where colours are cut off. Curves and a matrix of bytes are
    // exact and fast without them. Without its cache of one pixel, a transform remembers nothing between calls.
    const bool exact = !is_fast_ && !(is_matrix_ && T_BYTES(from) == 1);
    const uint32_t flags = flags_ | cmsFLAGS_NOCACHE | (exact ? cmsFLAGS_NOOPTIMIZE : 0) |
                           (T_EXTRA(from) == T_EXTRA(to) ? cmsFLAGS_COPY_ALPHA : 0);
    cmsHTRANSFORM made = nullptr;
    const auto make = [&] { made = cmsCreateTransformTHR(context_, source_, from, target_, to, intent_, flags); };
    if (!run(make) || !made) return nullptr;
    if (count_ == max_made) {
        cmsDeleteTransform(made_[0].transform);
        made_[0] = made_[--count_];
    }
    made_[count_++] = {from, to, made};
    return made;
}

} // namespace img::kit
