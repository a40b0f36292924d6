// SPDX-License-Identifier: MIT
#include "tests/module_fixture.h"

#include <filesystem>

namespace modules {

namespace {

// An icon of 2 x 2 pixels, 24 bits each, and their mask.
std::string icon() {
    const auto words = [](std::initializer_list<uint16_t> values) {
        std::string bytes;
        for (const uint16_t value : values) bytes.append({static_cast<char>(value), static_cast<char>(value >> 8)});
        return bytes;
    };
    return words({0, 1, 1, 0x0202, 0, 1, 24, 64, 0, 22, 0}) +                              // one picture, at 22
           words({40, 0, 2, 0, 4, 0, 1, 24, 0, 0, 24, 0, 0, 0, 0, 0, 0, 0, 0, 0}) +        // its header
           std::string("abcdef\0\0ghijkl\0\0", 16) + std::string("\x80\0\0\0\0\0\0\0", 8); // rows and mask
}

// A row for each module, or more for modules that have more ways to write. The tests of all modules go through this table,
// as far as they were built.
const Module table[] = {
    {.extension = "png", .frames = true, .follows = true, .sealed = sealed_chunks},
    {.extension = "pnm", .indices = false, .frames = true, .follows = true, .silent_end = 2},
    {.extension = "gif",
     .indices = false,
     .colors = false,
     .half_alpha = true,
     .frames = true,
     .most_side = 65535,
     .silent_end = 1},
    {.extension = "tif", .frames = true, .frail = true, .early_rows = false, .silent_end = 26},
    {.extension = "bmp"},
    {.extension = "ico", .sample = icon},
    {.extension = "tga", .indices = false, .seen = true, .most_side = 65535, .silent_end = 26},
    {.extension = "qoi", .indices = false, .follows = true},
    {.extension = "jpg",
     .loss = 4,
     .indices = false,
     .transparent = false,
     .follows = true,
     .scales = true,
     .most_side = 65500,
     .silent_end = 2},
    {.extension = "webp", .loss = 4, .indices = false, .follows = true, .scales = true, .most_side = 16383},
    {.extension = "webp",
     .option = "lossless",
     .value = 1,
     .indices = false,
     .follows = true,
     .scales = true,
     .frail = true,
     .most_side = 16383},
};

} // namespace

uint32_t crc(const std::string &bytes) {
    uint32_t value = ~0u;
    for (const char byte : bytes) {
        value ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; bit++) value = value >> 1 ^ (value & 1 ? 0xedb88320 : 0);
    }
    return ~value;
}

std::string sealed_chunks(std::string bytes) {
    for (size_t at = 8; at + 12 <= bytes.size();) {
        const auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[at + i]); };
        const size_t length = size_t{byte(2)} << 8 | byte(3);
        if (byte(0) || byte(1) || at + 12 + length > bytes.size()) break;
        bytes.replace(at + 8 + length, 4, big_endian(crc(bytes.substr(at + 4, length + 4))));
        at += 12 + length;
    }
    return bytes;
}

Fixture::Fixture() {
    setenv("PICTRA_CFGFILE", PICTRA_BUILD_CONFIG, 1);
    EXPECT_EQ(img_lib_attach(&library), IMG_ST_OK);
    for (Module module : table) {
        if (!img_codec_list_byext(library, (std::string("a.") + module.extension).c_str(), &module.codec, 1)) continue;
        EXPECT_EQ(codec_init(module.codec), IMG_ST_OK); // now, not while allocations are watched
        all.push_back(module);
        if (!module.sample) writers.push_back(module);
    }
}

bool Fixture::has(std::string_view extension) const {
    return std::any_of(all.begin(), all.end(), [&](const Module &module) { return module.extension == extension; });
}

const Module &Fixture::module(const std::string &extension) const {
    for (const Module &module : all)
        if (module.extension == extension) return module;
    abort();
}

img_status Fixture::write(const Module &module, img_record &image, std::string &bytes, uint32_t most, uint32_t limit) {
    struct Answers {
        const Module &module;
        Fixture &fixture;
    } answers{module, *this};
    asked.clear();
    asked_for.clear();
    img_encode_callouts callouts{};
    callouts.data = &answers;
    callouts.scanline = [](void *data, img_record *, uintptr_t, uintptr_t, uintptr_t key, uintptr_t pointer) {
        const auto &[own, fixture] = *static_cast<Answers *>(data);
        if (key == IMG_VALUE_OPTION) {
            auto &option = *reinterpret_cast<img_option *>(pointer);
            fixture.asked.push_back(option);
            if (own.option && option.name == std::string_view(own.option)) option.value = own.value;
        } else if (key) {
            fixture.asked_for.insert(key);
        }
        if (key == IMG_VALUE_EXIF) *reinterpret_cast<img_bytes *>(pointer) = {exif.data(), exif.size()};
        static const std::string texts = comment + '\0' + author + '\0';
        if (key == IMG_VALUE_TEXT) *reinterpret_cast<img_bytes *>(pointer) = {texts.data(), texts.size()};
        if (key == IMG_VALUE_XMP) *reinterpret_cast<img_bytes *>(pointer) = {xmp.data(), xmp.size()};
        if (key == IMG_VALUE_ORIENTATION) *reinterpret_cast<uint32_t *>(pointer) = orientation;
        if (key == IMG_VALUE_RESOLUTION) *reinterpret_cast<img_resolution *>(pointer) = resolution;
        return img_status{IMG_ST_OK};
    };
    image.flags |= IMG_F_ANSWERS;
    return write(module.codec, image, bytes, most, limit, &callouts);
}

img_status Fixture::write(img_codec *codec, img_record &image, std::string &bytes, uint32_t most, uint32_t limit,
                          const img_encode_callouts *callouts) {
    FakeBackend sink{.most = most};
    const Stream stream(io_open(FakeBackend::make, IO_WRITE, &sink), io_close);
    if (!stream) return IMG_ST_NOMEM;
    io_stream_ctl(stream->self, IO_CTL_SETLIMIT, reinterpret_cast<void *>(uintptr_t{limit}));
    img_status status = img_write(library, stream.get(), callouts, &image, &codec);
    size_t before;
    do { // as often as it moves something
        before = sink.data.size();
        if (io_ostream_flush(stream->self) == 0) break;
    } while (sink.data.size() > before);
    if (io_ostream_flush(stream->self) != 0) status = IMG_ST_FILE;
    bytes = sink.data;
    return status;
}

std::vector<Fixture::Sample> Fixture::files(size_t most) {
    std::vector<Sample> files;
    for (const Module &module : all) {
        if (module.sample) files.push_back({module, module.sample(), module.extension});
        for (const img_format format : {FMT_PAL1, FMT_PAL8, FMT_G8, FMT_RGB888, FMT_ARGB8888HE})
            if (!module.sample && module.takes(format))
                files.push_back(
                    {module, written(module, Image(format, 5, 3, format & IMG_FMT_PAL ? 2 : 0)), module.extension});
    }
    for (const auto &entry : std::filesystem::directory_iterator(PICTRA_PICTURES)) {
        const std::string path = entry.path();
        img_codec *codec = nullptr;
        if (entry.file_size() > most || !img_codec_list_byext(library, path.c_str(), &codec, 1)) continue;
        for (const Module &module : all)
            if (codec == module.codec) {
                files.push_back({module, file(path), path});
                break;
            }
    }
    return files;
}

} // namespace modules
