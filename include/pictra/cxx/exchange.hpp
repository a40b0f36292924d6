// SPDX-License-Identifier: MIT
//
// What goes along with pixels: metadata, options of codecs, progress. Included by pictra.hpp.
#ifndef PICTRA_CXX_EXCHANGE_HPP
#define PICTRA_CXX_EXCHANGE_HPP

#include "../values.h"
#include "image.hpp"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <string_view>
#include <vector>

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// What a file says about a picture beside its pixels. A load fills it; what is empty was not there. A save writes what
/// the file can hold of orientation, resolution, icc, exif, xmp, delay and loops.
struct values {
    std::uint32_t orientation = 0; ///< 1 to 8, as in EXIF; 0 is unknown. upright() turns a picture by it
    img_resolution resolution{};   ///< pixels per metre; 0 is unknown
    std::vector<std::uint8_t> icc{}, exif{};
    std::string xmp{};                                        ///< UTF-8
    std::vector<std::pair<std::string, std::string>> texts{}; ///< keyword and text, UTF-8
    std::uint32_t frames = 0;             ///< pictures in the file, told with the first; 0 is unknown
    std::uint32_t delay = 0;              ///< milliseconds that the frame is shown
    std::optional<std::uint32_t> loops{}; ///< how often an animation runs, 0 for ever
    std::uint32_t depth = 0;              ///< bits of a sample, or of an index, in the file
    std::vector<std::string> warnings{};  ///< what the codec found odd
};

/// Says that a picture was turned upright by the orientation of its values: the orientation is 1 then, and the
/// resolution of the sides is exchanged where the sides were. Writing codecs put the orientation into the EXIF block,
/// too.
inline void mark_upright(values &changed) noexcept {
    if (changed.orientation > 4) std::swap(changed.resolution.x, changed.resolution.y);
    changed.orientation = 1;
}

/// Takes in a value that a codec reports through set_value of img_decode_callouts. Keys that are not known, and values
/// that cannot be, are passed over.
inline void take_value(values &to, std::uintptr_t key, const void *at, std::size_t size) {
    const auto *bytes = static_cast<const std::uint8_t *>(at);
    const std::string_view text(static_cast<const char *>(at), size);
    std::uint32_t number = 0;
    if (size == sizeof number) memcpy(&number, at, sizeof number);
    switch (key) {
    case IMG_VALUE_ORIENTATION:
        to.orientation = number <= 8 ? number : 0;
        break;
    case IMG_VALUE_RESOLUTION: {
        img_resolution told{};
        if (size == sizeof told) memcpy(&told, at, size);
        const bool possible = std::isfinite(told.x) && std::isfinite(told.y) && told.x >= 0 && told.y >= 0;
        to.resolution = possible ? told : img_resolution{};
        break;
    }
    case IMG_VALUE_ICC:
        to.icc.assign(bytes, bytes + size);
        break;
    case IMG_VALUE_EXIF:
        to.exif.assign(bytes, bytes + size);
        break;
    case IMG_VALUE_XMP:
        to.xmp = text;
        break;
    case IMG_VALUE_TEXT: {
        const std::size_t end = std::min(text.find('\0'), size);
        to.texts.emplace_back(text.substr(0, end), text.substr(std::min(end + 1, size)));
        break;
    }
    case IMG_VALUE_FRAMES:
        to.frames = number;
        break;
    case IMG_VALUE_DELAY:
        to.delay = number;
        break;
    case IMG_VALUE_LOOPS:
        to.loops = number;
        break;
    case IMG_VALUE_DEPTH:
        to.depth = number;
        break;
    case IMG_VALUE_WARNING:
        to.warnings.emplace_back(text);
        break;
    }
}

/// Answers the questions of a codec that writes, which come through scanline of img_encode_callouts. What an answer
/// points at belongs to the values or to this object.
class value_answers {
public:
    void answer(const values &from, std::uintptr_t key, void *at) {
        const auto number = [&](std::uint32_t value) { memcpy(at, &value, sizeof value); };
        const auto bytes = [&](const void *data, std::size_t size) {
            if (size) *static_cast<img_bytes *>(at) = {data, size};
        };
        switch (key) {
        case IMG_VALUE_ORIENTATION:
            if (from.orientation) number(from.orientation);
            break;
        case IMG_VALUE_RESOLUTION:
            if (from.resolution.x > 0 || from.resolution.y > 0) memcpy(at, &from.resolution, sizeof from.resolution);
            break;
        case IMG_VALUE_ICC:
            bytes(from.icc.data(), from.icc.size());
            break;
        case IMG_VALUE_EXIF:
            bytes(from.exif.data(), from.exif.size());
            break;
        case IMG_VALUE_XMP:
            bytes(from.xmp.data(), from.xmp.size());
            break;
        case IMG_VALUE_TEXT:
            texts_.clear();
            for (const auto &[keyword, text] : from.texts) (texts_ += keyword + '\0' + text) += '\0';
            bytes(texts_.data(), texts_.size());
            break;
        case IMG_VALUE_DELAY:
            if (from.delay) number(from.delay);
            break;
        case IMG_VALUE_LOOPS:
            if (from.loops) number(*from.loops);
            break;
        }
    }

private:
    std::string texts_{};
};

/// The value that a text stands for: a number in the option's range, on or off (also yes and no, true and false, 1 and
/// 0), or the name of a choice. Nothing for other texts.
inline std::optional<std::int32_t> option_value(const img_option &option, std::string_view text) {
    if (option.type == IMG_OPTION_SWITCH) {
        for (const std::string_view word : {"on", "yes", "true", "1"})
            if (text == word) return 1;
        for (const std::string_view word : {"off", "no", "false", "0"})
            if (text == word) return 0;
        return std::nullopt;
    }
    if (option.type == IMG_OPTION_CHOICE) {
        std::string_view rest = option.choices ? option.choices : "";
        for (std::int32_t index = 0; !rest.empty(); index++) {
            const std::size_t end = std::min(rest.find(':'), rest.size());
            if (rest.substr(0, end) == text) return index;
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return std::nullopt;
    }
    std::int32_t value = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = problem == std::errc() && end == text.data() + text.size();
    return whole && value >= option.lowest && value <= option.highest ? std::optional(value) : std::nullopt;
}

/// An option of a codec by name, with its value as text: a number, on or off, or one of its choices.
struct setting {
    std::string name, value;
};

/// Called with the rows done and the rows in all, again and again; false stops the work, with the status stopped. A
/// load that another thread disturbed begins anew. What is thrown out of it ends the program.
using progress = std::function<bool(std::uint32_t done, std::uint32_t all)>;

namespace detail {

/// One load's or save's conversation with a codec.
class exchange {
public:
    exchange(const std::vector<setting> &settings, const progress &show) : settings_(settings), show_(show) {}

    values *heard = nullptr;      // where a load's values go
    const values *told = nullptr; // what a save answers with

    img_decode_callouts reading() {
        img_decode_callouts callouts{};
        callouts.scanline = on_progress;
        callouts.set_value = heard || !settings_.empty() ? on_value : nullptr; // listening costs codecs time
        callouts.data = this;
        return callouts;
    }
    img_encode_callouts writing() {
        img_encode_callouts callouts{};
        callouts.setup = check_settings;
        callouts.scanline = on_progress;
        callouts.data = this;
        return callouts;
    }
    /// Whether each setting was asked for. The codec has asked by the time of choose_format.
    bool all_asked() {
        for (std::size_t i = 0; i < settings_.size() && wrong_.empty(); i++)
            if (i >= asked_.size() || !asked_[i]) wrong_ = "the codec has no option " + settings_[i].name;
        return wrong_.empty();
    }
    /// The failure of an operation that began with errno 0; a wrong setting says more than the status that it caused.
    failure fail(img_status status, const std::string &name) const {
        const char *why = status == IMG_ST_FILE && errno ? strerror(errno) : nullptr;
        return detail::fail(status, name, wrong_.empty() ? why : wrong_.c_str());
    }

private:
    static exchange &of(void *data) { return *static_cast<exchange *>(data); }

    static img_status check_settings(void *data, img_record *, std::uint32_t) noexcept {
        return of(data).all_asked() ? img_status{IMG_ST_OK} : img_status{IMG_ST_BADARG};
    }
    static img_status on_value(void *data, img_record *, uintptr_t key, uintptr_t size, uintptr_t at,
                               uintptr_t) noexcept {
        exchange &self = of(data);
        if (key == IMG_VALUE_OPTION) return self.answer(*reinterpret_cast<img_option *>(at));
        if (self.heard) take_value(*self.heard, key, reinterpret_cast<const void *>(at), size);
        return IMG_ST_OK;
    }
    static img_status on_progress(void *data, img_record *, uintptr_t done, uintptr_t all, uintptr_t key,
                                  uintptr_t at) noexcept {
        exchange &self = of(data);
        if (key == IMG_VALUE_OPTION) return self.answer(*reinterpret_cast<img_option *>(at));
        if (key && self.told) self.answers_.answer(*self.told, key, reinterpret_cast<void *>(at));
        if (key || !self.show_) return IMG_ST_OK;
        const bool go_on = self.show_(static_cast<std::uint32_t>(done), static_cast<std::uint32_t>(all));
        return go_on ? img_status{IMG_ST_OK} : stopped;
    }

    img_status answer(img_option &option) {
        asked_.resize(settings_.size());
        for (std::size_t i = 0; i < settings_.size(); i++) {
            if (settings_[i].name != option.name) continue;
            asked_[i] = true;
            const std::optional<std::int32_t> value = option_value(option, settings_[i].value);
            if (!value) {
                wrong_ = "the option " + settings_[i].name + " cannot be " + settings_[i].value;
                return IMG_ST_BADARG;
            }
            option.value = *value;
        }
        return IMG_ST_OK;
    }

    const std::vector<setting> &settings_;
    const progress &show_;
    std::vector<bool> asked_{};
    std::string wrong_{};
    value_answers answers_{};
};

} // namespace detail

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
