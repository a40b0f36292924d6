// SPDX-License-Identifier: MIT
#include "tools/decoder.h"

#include "tools/interrupt.h"
#include "tools/operations.h"
#include "tools/text.h"

#include <algorithm>
#include <errno.h>
#include <mutex>
#include <signal.h>
#include <sys/wait.h>

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

bool stop_wanted() { return stop_signal(); }

std::string explain(const confine::Limit &limit) {
    const auto [what, needed, allowed] = limit;
    if (what == "memory")
        return "it takes " + std::to_string(needed / 1'000'000) + " MB, more than --max-memory " +
               std::to_string(allowed / 1'000'000) + "; raise that, or reduce the picture";
    if (what == "pixels" && allowed < confine::max_pixels)
        return "it has " + std::to_string(needed) + " pixels, more than --max-pixels " + std::to_string(allowed) +
               "; raise that, or reduce the picture";
    return "it exceeds the limit for " + what + " (" + std::to_string(needed) + ", allowed are " +
           std::to_string(allowed) + "); reduce the picture with another program";
}

std::string worker_program() { return installation() + "/" PICTRA_WORKER; }

} // namespace

Confinement parse_confinement(const std::string &text) {
    if (text == "off") return Confinement::off;
    return text == "on" ? Confinement::required : Confinement::automatic;
}

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

// Confinement that could not be had: a failure for who insists, else a warning, once.
void Decoder::note_trouble(const confine::Trouble &trouble) {
    if (!trouble) return;
    unconfined_ = trouble.text();
    if (reading_.confinement == Confinement::required)
        throw Failure(input_.name() + ": the system does not allow its decoding to be confined (" + unconfined_ +
                          "); use --sandbox off if you trust the file",
                      IMG_ST_NOTSUP);
    static std::once_flag told;
    std::call_once(told, [&] {
        complain("warning: pictures are decoded without full confinement (" + unconfined_ +
                 "); --sandbox on refuses that, --sandbox off accepts it");
    });
}

Decoder::Found Decoder::decode_here() {
    img_record record;
    confine::Report report = here_->next(candidates_, record);
    codec_ = here_->codec();
    constexpr img_flags stored = IMG_F_DIRECT | IMG_F_ACCESS;
    return {std::move(report), record.flags & stored ? std::make_unique<Picture>(record) : nullptr};
}

Decoder::Found Decoder::ask() {
    confine::Report report;
    const confine::Worker::End end = worker_->next(report, stop_wanted);
    if (end != confine::Worker::End::reported) fail(end);
    note_trouble(worker_->trouble());
    codec_ = report.codec < candidates_.size() ? candidates_[report.codec] : nullptr;
    const bool wanted = report.picture && (!report.status || reading_.keep_damaged);
    if (!wanted) return {std::move(report), nullptr};
    std::shared_ptr<uint8_t> pixels;
    if (!reading_.header_only && !(pixels = worker_->pixels(*report.picture)))
        throw failure_of(input_.name(), IMG_ST_NOMEM);
    auto picture = std::make_unique<Picture>(record_of(*report.picture, pixels.get()), pixels);
    return {std::move(report), std::move(picture)};
}

void Decoder::fail(confine::Worker::End end) {
    stop_if_asked();
    const int how = worker_->how(), code = WIFEXITED(how) ? WEXITSTATUS(how) : 0;
    const std::string &name = input_.name();
    if (end == confine::Worker::End::late) throw Failure(name + ": " + late(), IMG_ST_LIMIT);
    if (end == confine::Worker::End::forged)
        throw Failure(name + ": its codec reports a picture that cannot be (" + worker_->flaw() +
                          "); report it with the file",
                      IMG_ST_DAMAGED);
    if (code == confine::exit_no_memory)
        throw Failure(name + ": memory ran out while it was decoded; raise --max-memory, or reduce the picture",
                      IMG_ST_NOMEM);
    if (code == confine::exit_no_task || code == 127)
        throw Failure(worker_program() + ": it does not belong to this program; install both again", IMG_ST_MODULE);
    if (WIFSIGNALED(how) && WTERMSIG(how) == SIGKILL)
        throw Failure(name +
                          ": its codec broke off, or the system ended it for lack of memory; report it with the file",
                      IMG_ST_DAMAGED);
    throw Failure(name + ": its codec crashed (" +
                      (WIFSIGNALED(how) ? "signal " + std::to_string(WTERMSIG(how)) : "exit " + std::to_string(code)) +
                      "), and took nothing along; report it with the file",
                  IMG_ST_DAMAGED);
}

std::string Decoder::late() const {
    return "it took longer than --timeout " + std::to_string(reading_.limits.seconds) +
           " seconds allows; raise that, or reduce the picture";
}

void Decoder::fail(const confine::Report &report) {
    const std::string &name = input_.name();
    if (report.refusal == confine::Refusal::time) throw Failure(name + ": " + late(), IMG_ST_LIMIT);
    if (report.limit) throw Failure(name + ": " + explain(*report.limit), report.status);
    if (report.status == IMG_ST_NOCONV && reading_.format)
        throw Failure(name + ": the picture cannot become " + format_name(*reading_.format) +
                          "; choose another with --format",
                      report.status);
    throw failure_of(name, report.status ? report.status : img_status{IMG_ST_DAMAGED});
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
    for (const std::string &warning : exchange.warnings) complain(input_.name() + ": warning: " + warning);
    if (report.status == IMG_ST_DAMAGED && picture && reading_.keep_damaged)
        complain(explain(input_.name(), report.status) + " (kept what arrived: " + std::to_string(exchange.rows_done) +
                 " of " + std::to_string(picture->record().height) + " rows)");
    else if (report.status != IMG_ST_OK || !picture)
        fail(report);
    if (reading_.upright && !reading_.header_only) {
        turn_upright(*picture, exchange.metadata.orientation, input_.name());
        if (exchange.metadata.orientation > 4) exchange.metadata.swap_sides();
        exchange.metadata.set_upright();
    }
    return std::move(picture);
}

} // namespace tool
