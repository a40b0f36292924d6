// SPDX-License-Identifier: MIT
//
// pictra info: what pictures are, a table for people, or JSON.
#include "tools/config.h"
#include "tools/decoder.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <math.h>
#include <sstream>

namespace tool {

namespace {

// What is known of a file, also when it could not be read.
struct Report {
    std::string path, message{}, format{}, module{};
    uint32_t status = IMG_ST_OK;
    std::unique_ptr<Picture> picture{};
    Metadata metadata{};
    uint64_t bytes = 0;
    double milliseconds = 0;
};

// The name of a module's format: its file's name.
std::string stem_of(const std::string &path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.substr(0, name.find('.'));
}

Report report_on(const Library &library, const std::string &path, const Reading &reading) {
    Report report{.path = path};
    const auto start = std::chrono::steady_clock::now();
    try {
        Decoder decoder(library, path, reading);
        report.bytes = decoder.input().size();
        const auto tell = [&] {
            report.metadata = decoder.exchange.metadata;
            if (const Section *section = decoder.section()) {
                report.module = section->path;
                report.format = stem_of(section->path);
            }
        };
        try {
            report.picture = decoder.next();
        } catch (const Failure &) {
            tell();
            throw;
        }
        tell();
    } catch (const Failure &failure) {
        report.message = failure.what();
        report.status = failure.code();
    }
    report.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    return report;
}

std::string transparency_of(Picture &picture) {
    const img_record &record = picture.record();
    if (picture.has(IMG_F_PAL_ALPHA)) return "palette";
    if (record.format & IMG_FMT_ALPHA) return "channel";
    return picture.has(IMG_F_TRANSP) ? "key" : "none";
}

std::string key_of(const img_record &record) {
    if ((record.format & IMG_FMT_BPP_MASK) <= 16) return std::to_string(record.transparency8);
    std::ostringstream text;
    text << '#' << std::hex << std::setfill('0') << std::setw(6) << (record.transparency & 0xffffff);
    return text.str();
}

constexpr size_t widest_name = 50; // that the others are aligned to

long per_inch(double per_metre) { return lround(per_metre * 0.0254); }

// What else there is to say of a picture.
std::string notes_on(const Report &report) {
    Picture &picture = *report.picture;
    const img_record &record = picture.record();
    const Metadata &metadata = report.metadata;
    const std::string transparency = transparency_of(picture);
    std::string notes;
    const auto note = [&](const std::string &text) { notes += (notes.empty() ? "" : ", ") + text; };
    if (picture.has(IMG_F_PALETTE))
        note("palette of " + std::to_string(record.ncolors) + (transparency == "palette" ? " with alpha" : ""));
    if (transparency == "channel") note("alpha");
    if (transparency == "key") note("colour key " + key_of(record));
    if (metadata.frames > 1) note(std::to_string(metadata.frames) + " pictures");
    if (metadata.orientation > 1) note("orientation " + std::to_string(metadata.orientation));
    if (metadata.resolution.x > 0) note(std::to_string(per_inch(metadata.resolution.x)) + " dpi");
    if (!metadata.icc.empty()) note("ICC profile");
    return notes;
}

// A row of the table; names take so many columns.
void print(const Report &report, size_t name_width) {
    const img_record &record = report.picture->record();
    const std::string notes = notes_on(report), pixels = format_name(record.format), name = visible(report.path);
    const size_t columns = columns_of(name);
    std::cout << name << std::string(name_width > columns ? name_width - columns : 0, ' ') << "  " << std::left
              << std::setw(5) << visible(report.format) << std::right << std::setw(6) << record.width << " x "
              << std::left << std::setw(6) << record.height
              << (notes.empty() ? pixels : pixels + std::string(12 - pixels.size(), ' ') + notes) << '\n';
}

void print_json(const Report &report) {
    std::ostream &out = std::cout;
    out << "{\"path\":" << json(report.path) << ",\"status\":" << report.status
        << ",\"message\":" << json(report.message) << ",\"format\":" << json(report.format)
        << ",\"module\":" << json(report.module);
    const Metadata &metadata = report.metadata;
    if (report.picture) {
        const img_record &record = report.picture->record();
        out << ",\"width\":" << record.width << ",\"height\":" << record.height
            << ",\"pixel_format\":" << json(format_name(record.format)) << ",\"depth\":" << metadata.depth
            << ",\"alpha\":" << json(transparency_of(*report.picture))
            << ",\"palette\":" << (report.picture->has(IMG_F_PALETTE) ? record.ncolors : 0)
            << ",\"frames\":" << metadata.frames << ",\"orientation\":" << metadata.orientation << ",\"resolution\":["
            << json(metadata.resolution.x) << ',' << json(metadata.resolution.y) << "],\"icc\":" << metadata.icc.size();
    }
    out << ",\"bytes\":" << report.bytes << ",\"ms\":" << std::fixed << std::setprecision(3) << report.milliseconds
        << std::defaultfloat << "}\n";
}

} // namespace

int info(const InfoOptions &options) {
    const Library library = attach();
    Reading reading = options.reading;
    reading.upright = false; // orientation is told, not applied
    uint32_t status = IMG_ST_OK;
    size_t name_width = 0;
    for (const std::string &file : options.files)
        name_width = std::max(name_width, std::min(columns_of(visible(file)), widest_name));
    for (const std::string &file : options.files) {
        const Report report = report_on(library, file, reading);
        if (options.json)
            print_json(report);
        else if (report.picture)
            print(report, name_width);
        if (!report.picture && !options.json) complain(report.message);
        if (report.status) status = options.files.size() > 1 ? uint32_t{failed} : report.status;
    }
    return static_cast<int>(status);
}

} // namespace tool
