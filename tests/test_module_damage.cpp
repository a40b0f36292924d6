// SPDX-License-Identifier: MIT
//
// All codec modules with streams that come in pieces, files that are damaged, streams that take no more, and no memory.
#include "tests/memory.h"
#include "tests/module_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

using namespace modules;

namespace {

class ModuleDamage : public Fixture {};

TEST_F(ModuleDamage, ShortReadsAndSmallBuffers) {
    for (const auto &[module, bytes, name] : files(3000)) {
        SCOPED_TRACE(name);
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        for (const uint32_t most : {1u, 2u, 3u, 5u, 7u, 100u})
            for (const uint32_t buffer : {0u, 1u, 7u, 8u, 2048u})
                for (const bool unreads : {false, true}) {
                    FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                    Loaded pieces;
                    ASSERT_EQ(load(source, pieces.record), IMG_ST_OK) << most << ' ' << buffer << unreads;
                    ASSERT_EQ(look(pieces.record), look(whole.record));
                }
    }
    // More than the buffer takes, also in writes that fill it exactly.
    for (const uint32_t width : {250u, 1u})
        for (const Module &module : writers) {
            Image image(FMT_PAL8, width, std::min(module.most_side, 70000 / width), 256);
            std::string whole, pieces;
            ASSERT_EQ(write(module, image.record, whole), IMG_ST_OK) << module.extension;
            for (const uint32_t most : {1000u, 7777u}) {
                ASSERT_EQ(write(module, image.record, pieces, most), IMG_ST_OK) << module.extension;
                EXPECT_EQ(pieces, whole) << module.extension;
            }
        }
}

TEST_F(ModuleDamage, ValidationFindsItsFormatAndLeavesTheStream) {
    img_codec *codecs[64];
    const uint32_t count = img_codec_list(library, codecs, 64, nullptr, 0);
    std::vector<std::pair<img_codec *, std::string>> cases = {{nullptr, std::string(300, 'x')}, {nullptr, "P5"}};
    for (const Sample &file : files(3000)) cases.emplace_back(file.module.codec, "0123456789ab" + file.bytes);
    for (const auto &[codec, bytes] : cases)
        for (const uint32_t most : {1u, 3u, 40u, 64u, 1000u})
            for (const uint32_t buffer : {0u, 8u, 100u, 2048u})
                for (const bool unreads : {false, true})
                    for (const uint32_t consumed : {0u, 1u, 12u}) {
                        FakeBackend source{.data = bytes, .most = most, .buffer_size = buffer, .unreads = unreads};
                        const Stream stream(io_open(FakeBackend::make, IO_READ, &source), io_close);
                        char skipped[12];
                        for (uint32_t i = 0; i < consumed; i++) stream->read(stream->self, skipped + i, 1);
                        uint32_t index = 0;
                        const img_status status = img_decode_validate(codecs, count, stream.get(), &index);
                        ASSERT_EQ(status, codec && consumed == 12 ? 0u : 1u);
                        ASSERT_TRUE(status || codecs[index] == codec);
                        std::string rest(bytes.size() + 10, '\0');
                        size_t length = 0;
                        while (uint32_t got = stream->read(stream->self, rest.data() + length, 9)) length += got;
                        rest.resize(length);
                        ASSERT_EQ(rest, bytes.substr(std::min<size_t>(consumed, bytes.size())))
                            << most << ' ' << buffer << ' ' << unreads << consumed;
                    }
}

// A cut is noticed, leaves nothing behind, and what came before it has been handed over as it is in the whole file.
TEST_F(ModuleDamage, CutFilesAreRefused) {
    for (const auto &[module, bytes, name] : files(1000)) {
        SCOPED_TRACE(name);
        Rows whole(FMT_ARGB8888HE);
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        for (size_t length = 0; length < bytes.size(); length++) {
            const std::string cut = bytes.substr(0, length);
            Loaded loaded;
            const img_status status = load(cut, loaded.record);
            ASSERT_TRUE(status || length + module.silent_end >= bytes.size()) << length << " of " << bytes.size();
            ASSERT_EQ(status == IMG_ST_OK, (loaded.record.flags & IMG_F_DIRECT) != 0);
            Rows part(FMT_ARGB8888HE);
            ASSERT_EQ(load(cut, part.record), status);
            for (const auto &[y, row] : part.bytes)
                ASSERT_TRUE(!status || !module.early_rows || row == whole.bytes[y]) << length;
        }
    }
    for (const Module &module : writers) {
        const std::string bytes = written(module, Image(FMT_PAL8, 100, 100, 256));
        Rows part(FMT_ARGB8888HE);
        EXPECT_EQ(load(bytes.substr(0, bytes.size() * 9 / 10), part.record), 4u) << module.extension;
        EXPECT_GE(part.bytes.size(), module.early_rows ? 70u : 0u) << module.extension;
    }
}

TEST_F(ModuleDamage, ChangedBytesDoNoHarm) {
    std::minstd_rand random(7);
    for (const auto &[module, bytes, name] : files(9000))
        for (int i = 0; i < 1000; i++) {
            std::string changed = bytes;
            for (int n = 0; n <= i % 3; n++) {
                // The headers matter most.
                const size_t range = random() % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 64);
                changed[random() % range] = static_cast<char>(random());
            }
            if (module.sealed && i % 4 >= 2) changed = module.sealed(changed);
            Loaded loaded(i % 2 ? img_format{FMT_ARGB8888HE} : img_format{FMT_RGB565HE});
            const auto start = std::chrono::steady_clock::now();
            const img_status status = load(changed, loaded.record);
            ASSERT_EQ(status == IMG_ST_OK, (loaded.record.flags & IMG_F_DIRECT) != 0);
            ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << name;
        }
}

// Each allocation of the library, the module and the codec library behind it fails in its turn. Few can be done without.
TEST_F(ModuleDamage, WithoutMemoryNothingIsLeft) {
    for (const auto &[module, bytes, name] : files(1000)) {
        SCOPED_TRACE(name);
        if (module.frail) continue;
        Loaded whole;
        ASSERT_EQ(load(bytes, whole.record), IMG_ST_OK);
        for (size_t n = 1, failed = 1; failed; n++) {
            FakeBackend source{.data = bytes, .buffer_size = 2048};
            Loaded loaded;
            Values values;
            img_status status;
            {
                const memory::Watch watch(n);
                status = load(source, loaded.record, &values.callouts);
                failed = watch.failed();
                ASSERT_EQ(watch.live(), status ? 0u : 1u) << n; // the pixels
            }
            ASSERT_TRUE(status || look(loaded.record) == look(whole.record)) << n;
        }
    }
    for (const Module &module : writers) {
        if (module.frail) continue;
        Image image(FMT_PAL8, 15, 11, 40);
        const std::string whole = written(module, Image(FMT_PAL8, 15, 11, 40));
        for (size_t n = 1, failed = 1; failed; n++) {
            std::string bytes;
            const memory::Watch watch(n);
            const img_status status = write(module, image.record, bytes);
            failed = watch.failed();
            ASSERT_EQ(watch.live(), 0u) << module.extension << ' ' << n;
            ASSERT_TRUE(status == IMG_ST_NOMEM || bytes == whole) << module.extension << " " << n << " " << status;
        }
    }
}

// Some codec libraries crash without memory, so each attempt has a process of its own. What is called done must be whole.
TEST_F(ModuleDamage, WithoutMemoryWritesAreWholeOrFail) {
    enum { fine, wrong = 70, not_reached }; // sanitizers exit with 1
    for (const Module &module : writers)
        for (const img_format format : {FMT_PAL8, FMT_ARGB8888HE}) {
            if (!module.takes(format)) continue;
            Image image(format, 15, 11, format == FMT_PAL8 ? 40 : 0);
            std::string whole;
            ASSERT_EQ(write(module, image.record, whole), IMG_ST_OK);
            for (size_t n = 1, outcome = fine; outcome != not_reached; n++) {
                const pid_t child = fork();
                if (!child) {
                    close(STDERR_FILENO); // where the C library says how it crashed
                    std::string bytes;
                    const memory::Watch watch(n);
                    const img_status status = write(module, image.record, bytes);
                    _exit(!watch.failed() ? not_reached : status == IMG_ST_OK && bytes != whole ? wrong : fine);
                }
                int result = 0;
                ASSERT_EQ(waitpid(child, &result, 0), child);
                ASSERT_TRUE(WIFEXITED(result) || module.frail || format == FMT_ARGB8888HE) << module.extension << n;
                outcome = WIFEXITED(result) ? static_cast<size_t>(WEXITSTATUS(result)) : size_t{fine};
                EXPECT_NE(outcome, wrong) << module.extension << ' ' << n << (module.option ? module.option : "");
            }
        }
}

TEST_F(ModuleDamage, FailingWritesAndPicturesThatCannotBe) {
    for (const Module &module : writers) {
        Image image(FMT_PAL8, 40, 30, 4);
        std::string whole, part;
        ASSERT_EQ(write(module, image.record, whole), IMG_ST_OK);
        for (uint32_t limit = 0; limit < whole.size(); limit += 13)
            ASSERT_EQ(write(module, image.record, part, UINT32_MAX, limit), IMG_ST_FILE) << module.extension << limit;
        image.pixels[1] = 4; // which the library expands unseen for those that write colours
        EXPECT_TRUE(!module.indices || write(module, image.record, part) == IMG_ST_BADARG) << module.extension;
        image.record.flags &= ~img_flags{IMG_F_PALETTE};
        EXPECT_EQ(write(module, image.record, part), IMG_ST_BADARG) << module.extension << ": no palette";
    }
}

// What lies in the last byte of a row beyond its pixels is 0, in the caller's memory and through an access function.
TEST_F(ModuleDamage, UnusedBitsOfRowsAreZero) {
    for (const Module &module : writers)
        for (const img_format format : {FMT_PAL1, FMT_PAL4}) {
            if (!module.indices) continue;
            const std::string bytes = written(module, Image(format, 13, 5, 2));
            std::vector<uint8_t> memory(5 * 8, 0xff);
            img_record record{};
            record.format = format;
            record.data = memory.data();
            record.stride = 8;
            record.flags = IMG_F_FORMAT | IMG_F_DIRECT;
            ASSERT_EQ(load(bytes, record), IMG_ST_OK);
            for (size_t y = 0; y < 5; y++)
                EXPECT_EQ(memory[y * 8 + (format == FMT_PAL1 ? 1 : 6)] & (format == FMT_PAL1 ? 7 : 15), 0)
                    << module.extension << ' ' << y;
            free(record.palette);
        }
}

// A whole file that is held counts, and the caller is asked before anything is held.
TEST_F(ModuleDamage, LimitsAreNamed) {
    if (!has("tif")) GTEST_SKIP();
    const std::string bytes = written(module("tif"), Image(FMT_RGB888, 300, 200));
    for (const uint64_t most : {100'000u, 1'000'000u}) {
        Loaded loaded;
        Values values;
        values.max_memory = most;
        EXPECT_EQ(load(bytes, loaded.record, &values.callouts), most == 100'000 ? 10u : 0u);
        EXPECT_EQ(values.limit, most == 100'000 ? "memory 131072 100000" : "");
        EXPECT_EQ(values.memory_asked, 1u);
    }
}

} // namespace
