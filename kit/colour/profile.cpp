// SPDX-License-Identifier: MIT
#include "kit/colour/profile.h"

#include <string.h>

namespace img::kit {

namespace {

constexpr size_t max_profile = 4 << 20;
constexpr uint32_t max_tags = 100, header_bytes = 128, entry_bytes = 12;
constexpr uint32_t max_name = 1 << 16; // bytes of a tag with texts

constexpr uint32_t sign(const char (&text)[5]) {
    return uint32_t{uint8_t(text[0])} << 24 | uint32_t{uint8_t(text[1])} << 16 | uint32_t{uint8_t(text[2])} << 8 |
           uint8_t(text[3]);
}

uint32_t word_at(const uint8_t *p) { return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3]; }
uint32_t half_at(const uint8_t *p) { return uint32_t{p[0]} << 8 | p[1]; }
void put_word(uint8_t *p, uint32_t word) {
    for (int i = 0; i < 4; i++) p[i] = static_cast<uint8_t>(word >> (24 - 8 * i));
}

// What a tag holds, which begins with the signature of its type.
struct Content {
    const uint8_t *data;
    uint32_t size;
    uint32_t type() const { return word_at(data); }
};

// The values of a table with so many of each for as many inputs; more than fit into a profile count as too many.
uint64_t table_values(const uint8_t *grid, bool same_grid, uint32_t inputs, uint32_t outputs) {
    uint64_t values = outputs;
    for (uint32_t i = 0; i < inputs && values <= max_profile; i++) values *= grid[same_grid ? 0 : i];
    return values;
}

bool is_curve(const Content &tag) {
    if (tag.type() == sign("para")) return tag.size >= 12;
    return tag.type() == sign("curv") && tag.size >= 12 && word_at(tag.data + 8) <= (tag.size - 12) / 2;
}

bool is_text(const Content &tag) {
    return tag.size <= max_name &&
           (tag.type() == sign("desc") || tag.type() == sign("mluc") || tag.type() == sign("text"));
}

// Tables of bytes and of words: input curves, the table, output curves.
bool is_old_table(const Content &tag, uint32_t inputs, uint32_t outputs) {
    const bool words = tag.type() == sign("mft2");
    if (tag.size < 52 || tag.data[8] != inputs || tag.data[9] != outputs || tag.data[10] < 2) return false;
    const uint64_t values = table_values(tag.data + 10, true, inputs, outputs);
    if (!words) return 48 + 256 * uint64_t{inputs + outputs} + values <= tag.size;
    const uint32_t in = half_at(tag.data + 48), out = half_at(tag.data + 50);
    if (in < 2 || in > 4096 || out < 2 || out > 4096) return false;
    return 52 + 2 * (uint64_t{in} * inputs + uint64_t{out} * outputs + values) <= tag.size;
}

// Curves, a matrix and a table, wherever the tag says; a part without a place is not there.
bool is_new_table(const Content &tag, uint32_t inputs, uint32_t outputs) {
    if (tag.size < 32 || tag.data[8] != inputs || tag.data[9] != outputs) return false;
    for (uint32_t part = 12; part < 32; part += 4)
        if (word_at(tag.data + part) > tag.size - 12) return false;
    const uint32_t table = word_at(tag.data + 24);
    if (!table) return inputs == outputs;
    if (table > tag.size - 20) return false;
    const uint8_t *grid = tag.data + table;
    const uint32_t bytes = grid[16];
    for (uint32_t i = 0; i < inputs; i++)
        if (grid[i] < 2) return false;
    return (bytes == 1 || bytes == 2) && table_values(grid, false, inputs, outputs) * bytes <= tag.size - table - 20;
}

bool is_table(const Content &tag, uint32_t inputs, uint32_t outputs) {
    switch (tag.type()) {
    case sign("mft1"):
    case sign("mft2"):
        return is_old_table(tag, inputs, outputs);
    case sign("mAB "):
    case sign("mBA "):
        return is_new_table(tag, inputs, outputs);
    default:
        return false;
    }
}

enum class Use { not_needed, good, bad };

Use use_of(uint32_t signature, const Content &tag, uint32_t channels) {
    const auto judged = [](bool good) { return good ? Use::good : Use::bad; };
    switch (signature) {
    case sign("desc"):
        return is_text(tag) ? Use::good : Use::not_needed; // the name is worth no refusal
    case sign("wtpt"):
    case sign("bkpt"):
    case sign("rXYZ"):
    case sign("gXYZ"):
    case sign("bXYZ"):
        return judged(tag.type() == sign("XYZ ") && tag.size >= 20);
    case sign("chad"):
        return judged(tag.type() == sign("sf32") && tag.size >= 44);
    case sign("rTRC"):
    case sign("gTRC"):
    case sign("bTRC"):
    case sign("kTRC"):
        return judged(is_curve(tag));
    case sign("A2B0"):
    case sign("A2B1"):
    case sign("A2B2"):
        return judged(is_table(tag, channels, 3));
    case sign("B2A0"): // the way back tells how black black is
    case sign("B2A1"):
    case sign("B2A2"):
        return judged(is_table(tag, 3, channels));
    default:
        return Use::not_needed;
    }
}

uint32_t channels_of(uint32_t space) {
    return space == sign("GRAY") ? 1 : space == sign("RGB ") ? 3 : space == sign("CMYK") ? 4 : 0;
}

bool is_for_pictures(const uint8_t *header) {
    const uint32_t kind = word_at(header + 12), between = word_at(header + 20);
    const bool kind_known =
        kind == sign("mntr") || kind == sign("scnr") || kind == sign("prtr") || kind == sign("spac");
    return kind_known && header[8] <= 4 && (between == sign("XYZ ") || between == sign("Lab "));
}

// Appends a tag that is needed, its content moved to an offset of four bytes.
class Writer {
public:
    Writer(uint8_t *bytes, uint32_t tags) : bytes_(bytes), size_(header_bytes + 4 + tags * entry_bytes) {}

    void add(uint32_t signature, const Content &tag) {
        uint8_t *entry = bytes_ + header_bytes + 4 + count_++ * entry_bytes;
        put_word(entry, signature);
        put_word(entry + 4, size_);
        put_word(entry + 8, tag.size);
        memcpy(bytes_ + size_, tag.data, tag.size);
        size_ += (tag.size + 3) & ~uint32_t{3};
    }
    uint32_t finish() {
        put_word(bytes_, size_);
        put_word(bytes_ + header_bytes, count_);
        return size_;
    }

private:
    uint8_t *bytes_;
    uint32_t size_, count_ = 0;
};

} // namespace

img_status read_profile(const uint8_t *data, size_t size, Profile &profile) {
    if (size > max_profile) return IMG_ST_LIMIT;
    if (size < header_bytes + 4 || word_at(data + 36) != sign("acsp") || word_at(data) > size) return IMG_ST_DAMAGED;
    const auto total = static_cast<uint32_t>(size);
    profile.channels = channels_of(word_at(data + 16));
    if (!profile.channels || !is_for_pictures(data)) return IMG_ST_BADFMT;
    const uint32_t tags = word_at(data + header_bytes);
    if (tags > max_tags || header_bytes + 4 + tags * entry_bytes > total) return IMG_ST_DAMAGED;

    // Tags may share their content: if those that are needed are larger together than a profile may be, it is refused.
    const auto tag_at = [&](uint32_t i, uint32_t &signature, Content &tag) {
        const uint8_t *entry = data + header_bytes + 4 + i * entry_bytes;
        const uint32_t offset = word_at(entry + 4);
        signature = word_at(entry);
        tag.size = word_at(entry + 8);
        if (offset > total || tag.size > total - offset || tag.size < 8) return Use::bad;
        tag.data = data + offset;
        return use_of(signature, tag, profile.channels);
    };
    uint64_t needed = header_bytes + 4 + tags * entry_bytes;
    uint32_t signature;
    Content tag{};
    for (uint32_t i = 0; i < tags; i++) {
        const Use use = tag_at(i, signature, tag);
        if (use == Use::bad) return IMG_ST_DAMAGED;
        if (use == Use::good) needed += uint64_t{tag.size} + 3;
    }
    if (needed > max_profile) return IMG_ST_LIMIT;
    profile.bytes = Owned<uint8_t>(static_cast<uint8_t *>(calloc(1, needed)));
    if (!profile.bytes) return IMG_ST_NOMEM;
    memcpy(profile.bytes.get(), data, header_bytes);
    Writer writer(profile.bytes.get(), tags);
    for (uint32_t i = 0; i < tags; i++)
        if (tag_at(i, signature, tag) == Use::good) writer.add(signature, tag);
    profile.size = writer.finish();
    return IMG_ST_OK;
}

} // namespace img::kit
