// SPDX-License-Identifier: MIT
//
// What a worker that has been taken over reports: each field forged in turn, answers changed at random, and pictures whose
// indices lead nowhere, in the program's own steps.
#include "tests/temp.h"
#include "tools/confine/worker.h"
#include "tools/operations.h"

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace confine;

Task task() {
    Task task;
    task.modules = {PICTRA_HOSTILE_MODULE};
    task.limits = {.pixels = 10'000, .memory = 1 << 20, .seconds = 20};
    task.options = {{"quality", "90"}};
    return task;
}

template <typename T> std::string bytes_of(T value) { return {reinterpret_cast<const char *>(&value), sizeof value}; }

// What an honest worker says of a picture with a palette of one.
Report report() {
    Report report;
    report.codec = 0;
    report.picture = Shape{.format = FMT_PAL8, .width = 40, .height = 30, .ncolors = 1};
    report.picture->palette[0] = 0xff102030;
    report.values = {{IMG_VALUE_ORIENTATION, bytes_of(uint32_t{6})},
                     {IMG_VALUE_RESOLUTION, bytes_of(img_resolution{2835, 2835})},
                     {IMG_VALUE_TEXT, std::string("Title\0x", 7)},
                     {IMG_VALUE_WARNING, "odd"}};
    report.options = {{"strict", "refuse damage", "", IMG_OPTION_SWITCH, 0, 1}};
    return report;
}

std::string framed(const std::string &bytes) { return bytes_of(static_cast<uint32_t>(bytes.size())) + bytes; }

// A worker whose module sends these bytes in the place of a report.
struct Forger {
    Forger(const std::string &sent, const Task &given, char letter = 'f')
        : task(given), file(letter + sent, ".x"), input(open(file.path(), O_RDONLY | O_CLOEXEC)) {
        Trouble trouble;
        worker = Worker::start(PICTRA_WORKER, input.number(), task, trouble);
        EXPECT_FALSE(trouble) << trouble.text();
        if (worker) end = worker->next(got, nullptr);
    }
    Task task;
    TempFile file;
    Descriptor input;
    std::unique_ptr<Worker> worker;
    Report got;
    Worker::End end = Worker::End::died;
};

TEST(Confine, EveryFieldOfAReportIsComparedWithWhatIsAllowed) {
    const struct {
        const char *flaw;
        std::function<void(Report &)> forge;
    } forgeries[] = {
        {"its pixel format", [](Report &r) { r.picture->format = 0x820; }},
        {"its pixel format", [](Report &r) { r.picture->format = FMT_PAL8 | 0x80000000; }},
        {"its size", [](Report &r) { r.picture->width = 0; }},
        {"its size", [](Report &r) { r.picture->height = 1'000'000; }},
        {"its size", [](Report &r) { r.picture->width = 0x80000000; }},
        {"its size", // fits the pixels, but not the memory
         [](Report &r) { *r.picture = {.format = FMT_ARGB8888HE, .width = 100, .height = 100}; }},
        {"its palette", [](Report &r) { r.picture->ncolors = 257; }},
        {"its palette", [](Report &r) { r.picture->ncolors = 0; }},
        {"its palette", [](Report &r) { r.picture->format = FMT_G8; }},
        {"its palette", [](Report &r) { *r.picture = {.format = FMT_PAL1, .width = 1, .height = 1, .ncolors = 3}; }},
        {"its flags", [](Report &r) { r.picture->flags = IMG_F_DIRECT; }},
        {"its flags",
         [](Report &r) { *r.picture = {.format = FMT_G8, .width = 1, .height = 1, .flags = IMG_F_PAL_ALPHA}; }},
        {"its colour key", [](Report &r) { r.picture->flags = IMG_F_TRANSP, r.picture->transparency = 256; }},
        {"its status", [](Report &r) { r.picture.reset(); }},
        {"its status", [](Report &r) { r.refusal = Refusal::time; }},
        {"its status",
         [](Report &r) {
             r.limit = {"pixels", 2, 1};
         }},
        {"its form",
         [](Report &r) {
             r.limit = {std::string(100, 'x'), 2, 1}, r.status = IMG_ST_LIMIT;
         }},
        {"its form", [](Report &r) { r.refusal = Refusal::stopped, r.status = IMG_ST_LIMIT; }},
        {"its options", [](Report &r) { r.refusal = Refusal::option, r.status = IMG_ST_BADARG, r.wrong_option = 1; }},
        {"its size", [](Report &r) { r.full_width = 1'000'001; }},
        {"its size", [](Report &r) { r.full_height = ~0u; }},
        {"its formats",
         [](Report &r) {
             r.offered = {FMT_G8, 0x820};
         }},
        {"its values", [](Report &r) { r.values[0].bytes = bytes_of(uint32_t{9}); }},
        {"its values", [](Report &r) { r.values[0].bytes += 'x'; }},
        {"its values", [](Report &r) { r.values[0].key = 99; }},
        {"its values",
         [](Report &r) {
             r.values[1].bytes = bytes_of(img_resolution{std::numeric_limits<double>::infinity(), 1});
         }},
        {"its values",
         [](Report &r) {
             r.values[1].bytes = bytes_of(img_resolution{1, nan("")});
         }},
        {"its values", [](Report &r) { r.values[3].bytes.resize(most_warning + 1, 'x'); }},
        {"its warnings",
         [](Report &r) {
             r.values.resize(most_warnings + 4, {IMG_VALUE_WARNING, "again"});
         }},
        {"its form",
         [](Report &r) {
             r.values.resize(most_values + 1, {IMG_VALUE_TEXT, ""});
         }},
        {"its form", [](Report &r) { r.options[0].meaning.resize(most_option_text + 1, 'x'); }},
        {"its form", [](Report &r) { r.options.resize(most_options + 1); }},
    };
    for (const auto &[flaw, forge] : forgeries) {
        Report forged = report();
        forge(forged);
        Task allowed = task();
        allowed.limits.memory = 30'000;
        const Forger forger(framed(packed(forged)), allowed);
        ASSERT_EQ(forger.end, Worker::End::forged) << flaw;
        EXPECT_STREQ(forger.worker->flaw(), flaw) << "number " << &forge - &forgeries[0].forge;
    }
    Task writes = task();
    writes.writing.emplace();
    EXPECT_STREQ(flaw_of(report(), writes), "its picture");
    Task small = task();
    small.thumbnail = 32;
    EXPECT_STREQ(flaw_of(report(), small), "its size");
    EXPECT_EQ(Forger(framed(packed(report())), task()).end, Worker::End::reported);
}

// Bytes that are no report, and none at all.
TEST(Confine, WhatIsNoReportCostsNeitherMemoryNorTime) {
    const std::string whole = packed(report()), counts(300, '\xff');
    for (const std::string &sent : {framed(whole + 'x'), framed(whole.substr(1)), framed(""), framed(counts),
                                    bytes_of(static_cast<uint32_t>(most_report + 1)), bytes_of(~0u) + whole})
        EXPECT_EQ(Forger(sent, task()).end, Worker::End::forged);
    const auto start = std::chrono::steady_clock::now();
    const Forger gone(framed(whole).substr(0, 100), task(), 'q'); // closes its end and lives on
    EXPECT_EQ(gone.end, Worker::End::died);
    EXPECT_TRUE(WIFSIGNALED(gone.worker->how()) && WTERMSIG(gone.worker->how()) == SIGKILL);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    Task hurried = task();
    hurried.limits.seconds = 1;
    EXPECT_EQ(Forger(framed(whole).substr(0, 100), hurried).end, Worker::End::late); // and the rest never comes
}

// Answers with some of their bytes changed are refused, or as sound as an honest one.
TEST(Confine, MutatedReportsAreRefusedOrSound) {
    std::mt19937 random(1);
    const std::string honest = packed(report());
    const Task allowed = task();
    constexpr uint8_t extremes[] = {0, 1, 2, 0x7f, 0x80, 0xff};
    size_t refused = 0, sound = 0;
    for (int round = 0; round < 100'000; round++) {
        std::string bytes = honest;
        for (uint32_t changes = 1 + random() % 4; changes && !bytes.empty(); changes--) {
            const size_t at = random() % bytes.size(), length = std::min<size_t>(1 + random() % 8, bytes.size() - at);
            // The palette is most of the bytes, and any is right there.
            const size_t place = random() % 4 && at > 80 ? at % 80 : at;
            switch (random() % 4) {
            case 0:
                bytes[place] = static_cast<char>(random());
                break;
            case 1:
                for (size_t i = place; i < std::min(place + length, bytes.size()); i++)
                    bytes[i] = static_cast<char>(extremes[random() % std::size(extremes)]);
                break;
            case 2:
                bytes.erase(at, random() % 2 ? length : std::string::npos);
                break;
            default:
                bytes.insert(place, bytes.substr(at, length));
            }
        }
        const std::optional<Report> told = report_in(bytes);
        if (!told || flaw_of(*told, allowed)) {
            refused++;
            continue;
        }
        sound++;
        ASSERT_TRUE(told->status || told->picture);
        ASSERT_LE(told->values.size(), bytes.size());
        for (const Value &value : told->values) ASSERT_LE(value.bytes.size(), bytes.size());
        if (!told->picture) continue;
        const Shape &shape = *told->picture;
        ASSERT_LE(uint64_t{shape.width} * shape.height, allowed.limits.pixels);
        ASSERT_LE(shape.bytes(), allowed.limits.memory);
        ASSERT_LE(shape.ncolors, shape.palette.size());
        ASSERT_EQ(shape.format & ~0x1001fffu, 0u);
    }
    EXPECT_GT(refused, 10'000u);
    EXPECT_GT(sound, 1'000u);
}

// All pixels have the highest index, and the palette has one entry. Each step keeps that harmless: what has no entry is
// transparent black.
TEST(Confine, IndicesBeyondThePaletteAreHarmlessInEveryStep) {
    const char *const names[] = {"", "quarter turn", "half turn", "flip", "crop"};
    const std::function<void(tool::Picture &)> steps[] = {
        [](tool::Picture &) {},
        [](tool::Picture &p) { tool::apply(tool::parse_rotate("90"), p, "x"); },
        [](tool::Picture &p) { p.become(pictra::upright(p.view(), 3).value()); },
        [](tool::Picture &p) { tool::apply(tool::parse_flip("vertical"), p, "x"); },
        [](tool::Picture &p) { tool::apply(tool::parse_crop("9x7+3+2"), p, "x"); },
    };
    for (const img_format format : {FMT_PAL8, FMT_PAL4, FMT_PAL1}) {
        Report forged = report();
        forged.picture->format = format;
        Forger forger(framed(packed(forged)), task());
        ASSERT_EQ(forger.end, Worker::End::reported);
        Shape &shape = *forger.got.picture;
        const std::shared_ptr<Mapping> pixels = forger.worker->pixels(shape);
        ASSERT_TRUE(pixels);
        ASSERT_EQ(pixels->begin()[0], 255);
        for (size_t i = 0; i < std::size(steps); i++) {
            tool::Picture colours(record_of(shape, pixels->begin()), pixels),
                resized(record_of(shape, pixels->begin()), pixels);
            steps[i](colours);
            steps[i](resized);
            EXPECT_EQ(colours.convert(FMT_ARGB8888HE), IMG_ST_OK);
            EXPECT_EQ(static_cast<uint32_t *>(colours.record().data)[0], 0u) << names[i];
            tool::apply(tool::parse_resize("17x80"), resized, "x");
            EXPECT_EQ(resized.convert(FMT_ARGB8888HE), IMG_ST_OK);
            EXPECT_EQ(static_cast<uint32_t *>(resized.record().data)[0] & 0xffffff, 0u) << names[i];
        }
    }
}

} // namespace
