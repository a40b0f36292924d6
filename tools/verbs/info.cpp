// SPDX-License-Identifier: MIT
//
// pictra info: what pictures are, as their headers tell it; a table for people, or JSON.
#include "tools/config.h"
#include "tools/decoder.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <math.h>
#include <memory>
#include <sstream>

namespace tool {

namespace {

struct Options {
    std::vector<std::string> files{};
    bool json = false, verify = false;
    ReadingOptions reading{};
};

// What is known of a file, even if it could not be read.
struct Report {
    std::string path, message{}, format{}, module{}, unconfined{};
    uint32_t status = IMG_ST_OK;
    std::unique_ptr<Picture> picture{};
    pictra::values metadata{};
    uint64_t bytes = 0, pictures = 0; // pictures that were decoded
    double milliseconds = 0;
    bool confined = false, verified = false;
};

// A format is called by the file name of its module.
std::string stem_of(const std::string &path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.substr(0, name.find('.'));
}

// Reads the header of the first picture or, to verify them, all pictures.
void read(Decoder &decoder, Report &report) {
    const auto tell = [&] {
        report.metadata = decoder.exchange.metadata;
        report.confined = decoder.confined();
        report.unconfined = decoder.unconfined();
        if (const Section *section = decoder.section()) {
            report.module = section->path;
            report.format = stem_of(section->path);
        }
    };
    try {
        report.picture = decoder.next();
        tell();
        for (report.pictures = 1; report.verified && decoder.next();) report.pictures++;
    } catch (const Failure &) {
        if (!report.picture) tell();
        throw;
    }
}

Report report_on(const Library &library, const std::string &path, const Reading &reading) {
    Report report{.path = path, .verified = !reading.header_only};
    const auto start = std::chrono::steady_clock::now();
    try {
        Decoder decoder(library, path, reading);
        report.bytes = decoder.input().size();
        read(decoder, report);
    } catch (const Failure &failure) {
        report.message = failure.what();
        report.status = failure.code();
    }
    report.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return report;
}

std::string transparency_of(const pictra::image_view &picture) {
    if (picture.palette_has_alpha()) return "palette";
    if (pictra::has_alpha(picture.format())) return "channel";
    return picture.color_key() ? "key" : "none";
}

std::string key_of(const pictra::image_view &picture) {
    const uint32_t key = *picture.color_key();
    if (pictra::bits_per_pixel(picture.format()) <= 16) return std::to_string(key);
    std::ostringstream text;
    text << '#' << std::hex << std::setfill('0') << std::setw(6) << (key & 0xffffff);
    return text.str();
}

constexpr size_t widest_name = 50; // longer names do not widen the column

long per_inch(double per_metre) { return lround(per_metre * 0.0254); }

// The last column: everything else worth mentioning about a picture.
std::string notes_on(const Report &report) {
    const pictra::image_view &picture = report.picture->view();
    const pictra::values &metadata = report.metadata;
    const std::string transparency = transparency_of(picture);
    std::string notes;
    const auto note = [&](const std::string &text) { notes += (notes.empty() ? "" : ", ") + text; };
    if (const size_t colours = picture.palette().size())
        note("palette of " + std::to_string(colours) + (transparency == "palette" ? " with alpha" : ""));
    if (transparency == "channel") note("alpha");
    if (transparency == "key") note("colour key " + key_of(picture));
    if (const uint64_t pictures = std::max<uint64_t>(metadata.frames, report.pictures); pictures > 1)
        note(std::to_string(pictures) + " pictures");
    if (metadata.orientation > 1) note("orientation " + std::to_string(metadata.orientation));
    if (metadata.resolution.x > 0) note(std::to_string(per_inch(metadata.resolution.x)) + " dpi");
    if (!metadata.icc.empty()) note("ICC profile");
    if (report.verified) note("whole");
    return notes;
}

// Prints a row of the table, with names padded to so many columns.
void print(const Report &report, size_t name_width) {
    const img_record &record = report.picture->record();
    const std::string notes = notes_on(report), pixels = format_name(record.format), name = visible(report.path);
    const size_t columns = columns_of(name);
    std::cout << name << std::string(name_width > columns ? name_width - columns : 0, ' ') << "  " << std::left
              << std::setw(5) << visible(report.format) << std::right << std::setw(6) << record.width << " x "
              << std::left << std::setw(6) << record.height
              << (notes.empty() ? pixels : pixels + std::string(12 - pixels.size(), ' ') + notes) << '\n';
}

const char *truth(bool true_) { return true_ ? "true" : "false"; }

void print_json(const Report &report) {
    std::ostream &out = std::cout;
    out << "{\"path\":" << json(report.path) << ",\"status\":" << report.status
        << ",\"message\":" << json(report.message) << ",\"format\":" << json(report.format)
        << ",\"module\":" << json(report.module);
    const pictra::values &metadata = report.metadata;
    if (report.picture) {
        const img_record &record = report.picture->record();
        out << ",\"width\":" << record.width << ",\"height\":" << record.height
            << ",\"pixel_format\":" << json(format_name(record.format)) << ",\"depth\":" << metadata.depth
            << ",\"alpha\":" << json(transparency_of(report.picture->view()))
            << ",\"palette\":" << report.picture->view().palette().size() << ",\"frames\":" << metadata.frames
            << ",\"orientation\":" << std::max(metadata.orientation, 1u) << ",\"resolution\":["
            << json(metadata.resolution.x) << ',' << json(metadata.resolution.y) << "],\"icc\":" << metadata.icc.size();
    }
    out << ",\"bytes\":" << report.bytes << ",\"ms\":" << std::fixed << std::setprecision(3) << report.milliseconds
        << std::defaultfloat << ",\"confined\":" << truth(report.confined)
        << ",\"unconfined\":" << json(report.unconfined);
    if (report.verified) out << ",\"whole\":" << truth(!report.status) << ",\"pictures\":" << report.pictures;
    out << "}\n";
}

int info(const Options &options) {
    Reading reading = options.reading.reading();
    reading.upright = false; // the orientation is printed, not applied
    reading.header_only = !options.verify;
    const Library library = attach();
    uint32_t status = IMG_ST_OK;
    size_t name_width = 0;
    for (const std::string &file : options.files)
        name_width = std::max(name_width, std::min(columns_of(visible(file)), widest_name));
    for (const std::string &file : options.files) {
        const Report report = report_on(library, file, reading);
        if (options.json)
            print_json(report);
        else if (report.status)
            complain(report.message);
        else
            print(report, name_width);
        if (report.status) status = options.files.size() > 1 ? uint32_t{failed} : report.status;
    }
    return exit_code(status);
}

} // namespace

Verb add_info(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("info", "Tell what pictures are, from their headers");
    const auto options = std::make_shared<Options>();
    verb->add_option("FILE", options->files, "Pictures")->required();
    verb->add_flag("--json", options->json, "Print a JSON object for each file, on a line of its own");
    verb->add_flag("--verify", options->verify, "Decode everything, and fail if a picture is not whole");
    options->reading.add_to(*verb);
    options->reading.add_max_pictures(*verb);
    return {verb, [options] { return info(*options); }};
}

} // namespace tool
