// SPDX-License-Identifier: MIT
#include "tests/runs.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <random>

namespace runs {

Fenced::Fenced(size_t bytes) {
    const auto page = size_t(sysconf(_SC_PAGESIZE));
    size_ = (bytes + page - 1) / page * page;
    whole_ = size_ + 2 * page;
    base_ = static_cast<uint8_t *>(mmap(nullptr, whole_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    first_ = base_ + page;
    mprotect(first_, size_, PROT_READ | PROT_WRITE);
}

Fenced::~Fenced() { munmap(base_, whole_); }

size_t run_bytes(size_t count, uint32_t bits) { return (count * bits + 7) / 8; }

namespace {

constexpr uint32_t largest = 65536 + 77;
constexpr uint8_t guard = 0xa5;
constexpr size_t guarded = 128; // bytes looked at on either side of the destination

bool untouched(const uint8_t *from, const uint8_t *to) {
    return std::all_of(from, to, [](uint8_t byte) { return byte == guard; });
}

struct Sample {
    uint32_t count;
    const uint8_t *src;
    std::vector<uint8_t> want;
};

std::string check(const Routine &routine, const Fenced &from, const Fenced &to, const Sample &sample, bool at_back,
                  size_t offset, bool in_place) {
    const size_t src_bytes = run_bytes(sample.count, routine.src_bits), dst_bytes = sample.want.size();
    const size_t room = in_place ? std::max(src_bytes, dst_bytes) : dst_bytes;
    uint8_t *dst = at_back ? to.before_end(room + offset) : to.first() + offset;
    uint8_t *src = in_place ? dst : at_back ? from.before_end(src_bytes + offset % 7) : from.first() + offset % 11;
    uint8_t *low = std::max(to.first(), dst - std::min(size_t(dst - to.first()), guarded));
    uint8_t *high = dst + room + std::min(size_t(to.before_end(0) - dst) - room, guarded);
    memset(low, guard, size_t(high - low));
    memcpy(src, sample.src, src_bytes);
    routine.run(src, dst, sample.count);

    const auto wrong = std::mismatch(sample.want.begin(), sample.want.end(), dst);
    if (wrong.first != sample.want.end())
        return "wrong byte " + std::to_string(wrong.first - sample.want.begin()) + " of " + std::to_string(dst_bytes);
    if (!untouched(low, dst)) return "writes before the run";
    if (!untouched(dst + room, high)) return "writes after the run";
    if (in_place && memcmp(dst + dst_bytes, sample.src + dst_bytes, room - dst_bytes) != 0)
        return "writes after the pixels";
    if (!in_place && memcmp(src, sample.src, src_bytes) != 0) return "writes the source";
    return "";
}

} // namespace

std::vector<uint8_t> pixels() {
    std::vector<uint8_t> bytes(largest * 4);
    std::minstd_rand random(1);
    for (uint8_t &byte : bytes) byte = uint8_t(random() >> 8);
    for (size_t i = 0; i < 65536; i++) bytes[2 * i] = uint8_t(i), bytes[2 * i + 1] = uint8_t(i >> 8);
    return bytes;
}

std::string first_fault(const Routine &routine) {
    const Fenced from(largest * 4 + 64), to(largest * 4 + 64);
    std::vector<uint32_t> counts;
    for (uint32_t n = routine.least_count; n <= 130; n++) counts.push_back(n);
    for (uint32_t n : {255u, 256u, 257u, 300u, 511u, 1025u, largest}) counts.push_back(n);
    for (const uint32_t count : counts) {
        Sample sample{count, routine.source.data() + (count < 256 ? count * 37 : 0), {}};
        sample.want.resize(run_bytes(count, routine.dst_bits));
        routine.wanted(sample.src, sample.want.data(), count);
        for (const size_t offset : {size_t{0}, size_t{count % 64}, size_t{(count * 29 + 1) % 64}})
            for (const bool at_back : {false, true})
                for (const bool in_place : {false, true}) {
                    const std::string fault = check(routine, from, to, sample, at_back, offset, in_place);
                    if (!fault.empty())
                        return fault + ": count " + std::to_string(count) + (at_back ? ", back -" : ", front +") +
                               std::to_string(offset) + (in_place ? ", in place" : ", apart");
                }
    }
    return "";
}

void for_each_variant(const std::function<void(const char *name)> &test) {
    using img::cpu::Variant;
#define EACH(name)                                                                                                     \
    if (img::cpu::runs(Variant::name)) {                                                                               \
        img::cpu::force(Variant::name);                                                                                \
        test(#name);                                                                                                   \
    }
    IMG_FOR_EACH_VARIANT(EACH)
#undef EACH
    img::cpu::choose();
}

} // namespace runs
