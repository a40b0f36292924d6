// SPDX-License-Identifier: MIT
#include "tools/decoder.h"

#include "tools/confine/child.h"
#include "tools/interrupt.h"
#include "tools/operations.h"
#include "tools/text.h"
#include "tools/thumbnail.h"

#include <algorithm>

namespace tool {

namespace {

// All codecs but those asked. The ones of the extension are asked first, so that the others need not be opened if they do.
std::vector<img_codec *> others(const Library &library, const std::vector<img_codec *> &asked) {
    std::vector<img_codec *> rest = library.codecs();
    std::erase_if(rest, [&](img_codec *codec) { return std::find(asked.begin(), asked.end(), codec) != asked.end(); });
    return rest;
}

bool is_no_codec(img_status status) {
    return status == IMG_ST_RESERVED1 || status == IMG_ST_NOCODEC || status == IMG_ST_MODULE;
}

img_record wanted_record(const Reading &reading) {
    img_record record{};
    if (!reading.format) return record;
    record.format = *reading.format;
    record.flags = IMG_F_FORMAT | (record.format & IMG_FMT_ALPHA ? IMG_F_WANT_ALPHA : 0);
    return record;
}

} // namespace

Decoder::Decoder(const Library &library, const std::string &path, const Reading &reading)
    : exchange(reading.options, reading.limits), library_(library), reading_(reading), input_(path),
      arena_(reading.confinement == Confinement::off ? nullptr : make_arena()) {
    if (!arena_ && reading.confinement == Confinement::required)
        throw Failure(input_.name() + ": the system has no memory to share with a confined process; use --sandbox off",
                      IMG_ST_NOMEM);
}

Decoder::~Decoder() = default;

const Section *Decoder::section() const { return codec_ ? library_.section_of(codec_) : nullptr; }

// One picture, in whichever process this is.
img_status Decoder::decode(const std::vector<img_codec *> &candidates, img_record &record) {
    exchange.zeroed = reading_.keep_damaged;
    if (!source_.stream())
        if (const img_status status = source_.open(input_.descriptor())) return status;
    if (reading_.thumbnail)
        return decode_thumbnail(*library_.handle, source_.stream(), reading_.thumbnail, exchange, record);
    if (!source_.codec())
        if (const img_status status = candidates.empty() ? img_status{IMG_ST_NOCODEC} : source_.accept(candidates))
            return status;
    codec_ = source_.codec();
    return source_.next(exchange.reading(), record);
}

img_status Decoder::decode_here(img_record &record) {
    const std::vector<img_codec *> own = library_.codecs_for(input_.path());
    const img_status status = decode(own, record);
    if (codec_ || reading_.thumbnail || !is_no_codec(status)) return status;
    const img_status second = decode(others(library_, own), record);
    return codec_ ? second : status;
}

img_status Decoder::decode_in_child(img_record &record) {
    std::vector<img_codec *> candidates = library_.codecs_for(input_.path());
    bool all = candidates.empty() || input_.path() == "-";
    for (;;) {
        if (all) {
            const std::vector<img_codec *> rest = others(library_, candidates);
            candidates.insert(candidates.end(), rest.begin(), rest.end());
        }
        if (!child_) child_ = std::make_unique<Child>([&](const Channel &channel) { serve(channel, candidates); });
        const img_status status = ask(record);
        if (all || !first_ || !is_no_codec(status) || !input_.rewind()) return status;
        child_.reset();
        all = true;
    }
}

// The child's side: a picture for each byte that comes.
void Decoder::serve(const Channel &channel, const std::vector<img_codec *> &candidates) {
    // While files can still be opened and looked at.
    img_status opened = IMG_ST_OK;
    for (img_codec *codec : candidates)
        if (const img_status status = codec_init(codec)) opened = status;
    source_.open(input_.descriptor());
    close_descriptors_but(input_.descriptor(), channel.descriptor());
    const bool confined = confine(reading_.limits);
    exchange.arena = arena_.get();
    while (channel.wait()) {
        img_record record = wanted_record(reading_);
        img_status status = IMG_ST_NOMEM;
        if (!confined && reading_.confinement == Confinement::required)
            status = IMG_ST_NOTSUP;
        else
            status = decode(candidates, record);
        if (status == IMG_ST_NOTSUP && opened) status = opened; // which is told only once
        if (reading_.thumbnail && status == IMG_ST_OK) status = move_into(record, *arena_);
        const std::vector<img_codec *> list = library_.codecs();
        const auto index = static_cast<uint64_t>(std::find(list.begin(), list.end(), codec_) - list.begin());
        channel.reply({status, confined, index, record, exchange.packed()});
        exchange.warnings.clear();
    }
}

img_status Decoder::ask(img_record &record) {
    const Answer answer = child_->ask(input_.name(), reading_.limits.seconds);
    if (!answer.confined && reading_.confinement == Confinement::required)
        throw Failure(input_.name() + ": the system does not allow to confine a process; use --sandbox off",
                      IMG_ST_NOTSUP);
    const std::vector<img_codec *> list = library_.codecs();
    codec_ = answer.codec < list.size() ? list[answer.codec] : nullptr;
    exchange.unpack(answer.exchange);
    record = answer.record;
    if (!is_sound(record, *arena_))
        throw Failure(input_.name() + ": its codec gave a picture that cannot be; report it with the file",
                      IMG_ST_RESERVED4);
    return answer.status;
}

std::unique_ptr<Picture> Decoder::next() {
    exchange.metadata = {};
    exchange.warnings.clear();
    img_record record = wanted_record(reading_);
    const img_status status = arena_ ? decode_in_child(record) : decode_here(record);
    auto picture = record.flags & IMG_F_DIRECT ? std::make_unique<Picture>(record, arena_) : nullptr;
    const bool again = !std::exchange(first_, false);
    stop_if_asked();
    exchange.check(input_.name());
    if (again && status == IMG_ST_RESERVED1) return nullptr;
    for (const std::string &warning : exchange.warnings) complain(input_.name() + ": warning: " + warning);
    if (status == IMG_ST_RESERVED4 && picture && reading_.keep_damaged)
        complain(explain(input_.name(), status) + " (kept what arrived: " + std::to_string(exchange.rows_done) +
                 " of " + std::to_string(record.height) + " rows)");
    else if (status == IMG_ST_NOCONV && reading_.format)
        throw Failure(input_.name() + ": the picture cannot become " + format_name(*reading_.format) +
                          "; choose another with --format",
                      status);
    else if (status != IMG_ST_OK)
        throw failure_of(input_.name(), status);
    if (!picture) throw failure_of(input_.name(), IMG_ST_RESERVED4);
    if (reading_.upright) {
        turn_upright(*picture, exchange.metadata.orientation, input_.name());
        if (exchange.metadata.orientation > 4) exchange.metadata.swap_sides();
        exchange.metadata.set_upright();
    }
    return picture;
}

} // namespace tool
