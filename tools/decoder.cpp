// SPDX-License-Identifier: MIT
#include "tools/decoder.h"

#include "tools/interrupt.h"
#include "tools/operations.h"
#include "tools/text.h"

#include <algorithm>
#include <errno.h>

namespace tool {

namespace {

// Adds all that are not there yet. The codecs of the extension are asked first, so that the others need not be opened if
// one of them takes the file.
void add_others(const Library &library, std::vector<img_codec *> &asked) {
    for (img_codec *codec : library.codecs())
        if (std::find(asked.begin(), asked.end(), codec) == asked.end()) asked.push_back(codec);
}

bool is_no_codec(img_status status) {
    return status == IMG_ST_WRONGFORMAT || status == IMG_ST_NOCODEC || status == IMG_ST_MODULE;
}

confine::Task task_of(const Reading &reading) {
    confine::Task task;
    task.format = reading.format.value_or(0);
    task.thumbnail = reading.thumbnail;
    task.header_only = reading.header_only;
    task.keep_damaged = reading.keep_damaged;
    task.confined = reading.confinement == Confinement::required;
    task.limits = reading.limits;
    task.options = reading.options;
    return task;
}

} // namespace

Decoder::Decoder(const Library &library, const std::string &path, const Reading &reading)
    : exchange(reading.options), library_(library), reading_(reading), input_(path), task_(task_of(reading)) {
    std::vector<img_codec *> own = library_.codecs_for(input_.path());
    if (own.empty() || !input_.rewind()) add_others(library_, own);
    start(own);
}

Decoder::~Decoder() = default;

const Section *Decoder::section() const { return codec_ ? library_.section_of(codec_) : nullptr; }

// Starts what decodes with these codecs, in the place of what did so far.
void Decoder::start(const std::vector<img_codec *> &candidates) {
    worker_.reset();
    here_.reset();
    candidates_ = candidates;
    if (reading_.confinement != Confinement::off) {
        confine::Trouble trouble;
        task_.modules.clear();
        for (img_codec *codec : candidates)
            if (const Section *section = library_.section_of(codec))
                task_.modules.push_back(section->path);
            else
                trouble = {library_.config.path, EINVAL}; // it holds what this program reads in another way
        if (!trouble) worker_ = confine::Worker::start(worker_program(), input_.descriptor(), task_, trouble);
        note_trouble(trouble);
    }
    if (worker_) return;
    here_ = std::make_unique<confine::Pictures>(*library_.handle, task_, nullptr, stop_wanted);
    if (const img_status status = here_->open(input_.descriptor())) throw failure_of(input_.name(), status);
}

void Decoder::note_trouble(const confine::Trouble &trouble) {
    if (trouble) unconfined_ = trouble.text();
    tell(trouble, input_.name(), reading_.confinement);
}

Decoder::Found Decoder::decode_here() {
    img_record record;
    confine::Report report = here_->next(candidates_, record);
    codec_ = here_->codec();
    if (reading_.header_only) record = report.picture ? record_of(*report.picture, nullptr) : img_record{};
    const bool there = (record.flags & IMG_F_DIRECT) || (reading_.header_only && report.picture);
    return {std::move(report), there ? std::make_unique<Picture>(record) : nullptr};
}

Decoder::Found Decoder::ask() {
    confine::Report report;
    const confine::Worker::End end = worker_->next(report, stop_wanted);
    if (end != confine::Worker::End::reported) fail(*worker_, end, input_.name(), "decoded", reading_.limits.seconds);
    note_trouble(worker_->trouble());
    codec_ = report.codec < candidates_.size() ? candidates_[report.codec] : nullptr;
    const bool wanted = report.picture && (!report.status || reading_.keep_damaged);
    if (!wanted) return {std::move(report), nullptr};
    std::shared_ptr<confine::Mapping> pixels;
    if (!reading_.header_only && !(pixels = worker_->pixels(*report.picture)))
        throw failure_of(input_.name(), IMG_ST_NOMEM);
    auto picture = std::make_unique<Picture>(record_of(*report.picture, pixels ? pixels->begin() : nullptr), pixels);
    return {std::move(report), std::move(picture)};
}

Decoder::Found Decoder::find() {
    for (;;) {
        Found found = worker_ ? ask() : decode_here();
        // A codec of another extension may know the content.
        const bool all = candidates_.size() == library_.codecs().size();
        if (all || codec_ || pictures_ || !is_no_codec(found.report.status)) return found;
        worker_.reset(); // which shares the place in the file
        if (!input_.rewind()) return found;
        std::vector<img_codec *> every = candidates_;
        add_others(library_, every);
        start(every);
    }
}

std::unique_ptr<Picture> Decoder::next() {
    if (pictures_ == reading_.most_pictures)
        throw Failure(input_.name() + ": it has more pictures than --max-pictures " +
                          std::to_string(reading_.most_pictures) + "; raise that",
                      IMG_ST_LIMIT);
    auto [report, picture] = find();
    const bool again = pictures_++ > 0;
    stop_if_asked();
    exchange.take(report);
    exchange.check(input_.name());
    if (again && report.status == IMG_ST_WRONGFORMAT) return nullptr;
    for (const std::string &warning : exchange.metadata.warnings) complain(input_.name() + ": warning: " + warning);
    if (report.status == IMG_ST_DAMAGED && picture && reading_.keep_damaged)
        complain(explain(input_.name(), report.status) + " (kept what arrived: " + std::to_string(exchange.rows_done) +
                 " of " + std::to_string(picture->record().height) + " rows)");
    else if (report.status != IMG_ST_OK || !picture)
        fail(report, input_.name(), task_);
    if (reading_.upright && !reading_.header_only) {
        if (const uint32_t orientation = exchange.metadata.orientation; orientation > 1)
            apply([=](const auto &stored, const auto &) { return pictra::upright(stored, orientation); }, *picture,
                  input_.name());
        pictra::mark_upright(exchange.metadata);
    }
    return std::move(picture);
}

Loaded load(const Library &library, const std::string &path, const Reading &reading) {
    Decoder decoder(library, path, reading);
    std::unique_ptr<Picture> picture = decoder.next();
    return {std::move(picture), std::move(decoder.exchange)};
}

} // namespace tool
