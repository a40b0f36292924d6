// SPDX-License-Identifier: MIT
//
// An EXIF block is a TIFF file: a header of eight bytes, then directories of entries of twelve bytes, here only the first.
#include "modules/common/exif.h"

#include <string.h>

namespace codec {

namespace {

constexpr uint32_t tag_orientation = 0x112, tag_x_resolution = 0x11a, tag_y_resolution = 0x11b, tag_unit = 0x128;
constexpr uint32_t type_short = 3, type_rational = 5;
constexpr size_t header_size = 8, entry_size = 12;

// The first directory of a block. Everything read was tested to lie in the block.
class Directory {
public:
    Directory(const uint8_t *block, size_t size) : block_(block), size_(size) {
        if (size < header_size) return;
        little_ = memcmp(block, "II*", 4) == 0;
        if (!little_ && memcmp(block, "MM\0*", 4) != 0) return;
        const size_t at = word(4);
        if (at < header_size || at > size - 2) return;
        const uint32_t count = half(at);
        if ((size - at - 2) / entry_size < count) return;
        entries_ = at + 2;
        count_ = count;
    }

    explicit operator bool() const { return entries_; }
    bool little() const { return little_; }
    uint32_t count() const { return count_; }
    size_t entry(uint32_t i) const { return entries_ + i * entry_size; }
    uint32_t tag(uint32_t i) const { return half(entry(i)); }

    // Where the entry of a tag is, if it has one value of the type; 0 if not.
    size_t find(uint32_t wanted, uint32_t type) const {
        for (uint32_t i = 0; i < count_; i++)
            if (tag(i) == wanted && half(entry(i) + 2) == type && word(entry(i) + 4) == 1) return entry(i);
        return 0;
    }
    uint32_t short_of(uint32_t wanted, uint32_t otherwise) const {
        const size_t at = find(wanted, type_short);
        return at ? half(at + 8) : otherwise;
    }
    double rational_of(uint32_t wanted) const {
        const size_t at = find(wanted, type_rational);
        if (!at) return 0;
        const size_t value = word(at + 8);
        if (size_ < 8 || value > size_ - 8 || !word(value + 4)) return 0;
        return static_cast<double>(word(value)) / word(value + 4);
    }

private:
    uint32_t half(size_t at) const {
        const uint32_t first = block_[at], second = block_[at + 1];
        return little_ ? second << 8 | first : first << 8 | second;
    }
    uint32_t word(size_t at) const { return little_ ? half(at + 2) << 16 | half(at) : half(at) << 16 | half(at + 2); }

    const uint8_t *block_;
    size_t size_;
    bool little_ = false;
    size_t entries_ = 0;
    uint32_t count_ = 0;
};

void put(uint8_t *out, uint32_t value, uint32_t bytes, bool little) {
    for (uint32_t i = 0; i < bytes; i++) out[i] = static_cast<uint8_t>(value >> 8 * (little ? i : bytes - 1 - i));
}

// The block behind which its first directory stands again, with an orientation added in the order of the tags. Values of
// entries keep their places in the block, so nothing else moves.
size_t append_directory(uint8_t *out, const uint8_t *block, size_t size, const Directory &old, uint32_t orientation) {
    const bool little = old.little();
    const size_t start = size + (size & 1);
    memcpy(out, block, size);
    put(out + 4, static_cast<uint32_t>(start), 4, little);
    uint8_t *entry = out + start + 2;
    uint32_t i = 0;
    const auto copy_while = [&](auto condition) {
        for (; i < old.count() && condition(); i++, entry += entry_size)
            memcpy(entry, block + old.entry(i), entry_size);
    };
    copy_while([&] { return old.tag(i) < tag_orientation; });
    while (i < old.count() && old.tag(i) == tag_orientation) i++; // of a wrong type
    put(entry, tag_orientation, 2, little);
    put(entry + 2, type_short, 2, little);
    put(entry + 4, 1, 4, little);
    put(entry + 8, orientation, 2, little);
    entry += entry_size;
    copy_while([] { return true; });
    const size_t link = old.entry(old.count()); // to the directory of the thumbnail
    if (size - link >= 4) memcpy(entry, block + link, 4);
    put(out + start, static_cast<uint32_t>(entry - out - static_cast<ptrdiff_t>(start)) / uint32_t{entry_size}, 2,
        little);
    return static_cast<size_t>(entry - out) + 4;
}

constexpr uint8_t no_entries[] = {'M', 'M', 0, '*', 0, 0, 0, 8, 0, 0, 0, 0, 0, 0};

} // namespace

Exif read_exif(const uint8_t *block, size_t size) {
    Exif exif;
    const Directory directory(block, size);
    if (!directory) return exif;
    const uint32_t orientation = directory.short_of(tag_orientation, 0);
    if (orientation >= 1 && orientation <= 8) exif.orientation = orientation;
    const uint32_t unit = directory.short_of(tag_unit, 2);
    const double factor = unit == 2 ? per_metre_of_inch : unit == 3 ? per_metre_of_centimetre : 0;
    exif.resolution = {directory.rational_of(tag_x_resolution) * factor,
                       directory.rational_of(tag_y_resolution) * factor};
    return exif;
}

img_status report_block(const Decoding &picture, uint32_t key, const uint8_t *block, size_t size) {
    if (size > max_block) return picture.warn("metadata of more than 4 MiB left out");
    return picture.report(key, block, size);
}

img_status report_exif(const Decoding &picture, const uint8_t *block, size_t size, bool resolution_known) {
    if (const img_status status = report_block(picture, IMG_VALUE_EXIF, block, size)) return status;
    const Exif exif = read_exif(block, size);
    if (exif.orientation)
        if (const img_status status = picture.report(IMG_VALUE_ORIENTATION, exif.orientation)) return status;
    if (resolution_known || (exif.resolution.x <= 0 && exif.resolution.y <= 0)) return ok;
    return picture.report(IMG_VALUE_RESOLUTION, &exif.resolution, sizeof exif.resolution);
}

img_status Metadata::ask(const Encoding &picture, bool keeps_resolution_and_texts) {
    uint32_t orientation = 0;
    const struct {
        uint32_t key;
        void *value;
    } questions[] = {{IMG_VALUE_ICC, &icc},
                     {IMG_VALUE_EXIF, &exif},
                     {IMG_VALUE_XMP, &xmp},
                     {IMG_VALUE_ORIENTATION, &orientation},
                     {IMG_VALUE_RESOLUTION, &resolution},
                     {IMG_VALUE_TEXT, &texts}};
    for (const auto &[key, value] : questions) {
        if (key == IMG_VALUE_RESOLUTION && !keeps_resolution_and_texts) break;
        if (const img_status status = picture.ask(key, value)) return status;
    }
    const struct {
        const char *name;
        const img_bytes &bytes;
    } blocks[] = {{"profile", icc}, {"EXIF", exif}, {"XMP", xmp}, {"texts", texts}};
    for (const auto &[name, bytes] : blocks)
        if (bytes.size > max_block) return picture.refuse({name, bytes.size, max_block});
    if (orientation > 8) return bad_record;
    return orientation ? set_orientation(orientation) : img_status{ok};
}

img_status Metadata::set_orientation(uint32_t orientation) {
    if (!exif.size && orientation == 1) return ok; // as without
    const auto *block = exif.size ? static_cast<const uint8_t *>(exif.data) : no_entries;
    const size_t size = exif.size ? exif.size : sizeof no_entries;
    const Directory directory(block, size);
    if (!directory) return bad_record;
    own_exif_ = make_bytes(size + 1 + 2 + (directory.count() + 1) * entry_size + 4);
    if (!own_exif_) return no_memory;
    uint8_t *out = own_exif_.get();
    exif = {out, size};
    if (const size_t entry = directory.find(tag_orientation, type_short)) {
        memcpy(out, block, size);
        put(out + entry + 8, orientation, 2, directory.little());
    } else {
        exif.size = append_directory(out, block, size, directory, orientation);
    }
    return ok;
}

} // namespace codec
