// SPDX-License-Identifier: MIT
//
// How a load gets the format and the size that were asked for. Included by pictra.hpp, for its own use.
#ifndef PICTRA_CXX_LOADING_HPP
#define PICTRA_CXX_LOADING_HPP

#include "exchange.hpp"
#include "transform.hpp"

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// What a load may be told.
struct load_options {
    img_format format = 0;            ///< 0: the file's own
    pictra::values *values = nullptr; ///< emptied, then filled with what the file says
    std::vector<setting> settings{};  ///< an unknown one fails with IMG_ST_BADARG
    pictra::progress progress{};
};

namespace detail {

inline bool offers(std::span<const img_format> formats, img_format bits) {
    return std::any_of(formats.begin(), formats.end(), [bits](img_format f) { return f & bits; });
}

/// A load at the picture's own size.
class loading : public exchange {
public:
    explicit loading(const load_options &options)
        : exchange(options.settings, options.progress), options_(options),
          made_as_(options.format == FMT_A8 ? img_format{FMT_ARGB8888HE} : options.format) {
        heard = options.values;
    }

    /// Runs load(callouts, record) and makes an image of what it gives.
    template <typename Load> result<image> run(const std::string &name, const Load &load) {
        if (heard) *heard = {};
        img_record record{};
        if (has_alpha(made_as_)) record.flags = IMG_F_WANT_ALPHA;
        img_decode_callouts callouts = reading();
        callouts.choose_format = choose;
        errno = 0;
        if (const img_status status = load(callouts, record)) return fail(status, name);
        image made = image::adopt(record);
        if (!options_.format) return made;
        if (has_alpha(made_as_) && !is_palette(made.format()) && !has_alpha(made.format()))
            key_to_alpha(made, made_as_);
        return made.format() == options_.format ? result<image>(std::move(made)) : convert(made, options_.format);
    }

private:
    // The library compares a colour key that is to become alpha as the codec passed it, in whatever format, so that is left
    // to it only where the codec delivers alpha itself. Indices are loaded as they are, and opaque colours as opaque.
    static std::uint32_t choose(void *data, img_record *record, const img_format *formats,
                                std::uint32_t count) noexcept {
        auto &self = static_cast<loading &>(*static_cast<exchange *>(data));
        if (!self.all_asked()) return count;
        if (!self.options_.format) return 0;
        if (has_alpha(self.made_as_) && !offers({formats, count}, IMG_FMT_ALPHA)) {
            for (std::uint32_t i = 0; i < count; i++)
                if (is_palette(formats[i])) return i;
            record->flags &= ~img_flags{IMG_F_WANT_ALPHA};
        }
        record->format = self.made_as_;
        record->flags |= IMG_F_FORMAT;
        return count; // the library picks the closest
    }

    const load_options &options_;
    img_format made_as_;
};

/// A load at another size. The codec is asked to decode near it, and rows are scaled as they come.
class resizing : public exchange {
public:
    resizing(const scale &to, const load_options &options)
        : exchange(options.settings, options.progress), to_(to), options_(options) {
        heard = options.values;
    }

    template <typename Load> result<image> run(const std::string &name, const Load &load) {
        if (is_palette(options_.format)) return detail::fail(IMG_ST_BADFMT, name, "indices cannot be resized");
        if (heard) *heard = {};
        img_record record{};
        img_decode_callouts callouts = reading();
        callouts.choose_format = choose;
        errno = 0;
        const img_status status = load(callouts, record);
        image made = image::adopt(record); // may be there although the load failed in the end
        if (status) return fail(status, name);
        img_format format = options_.format;
        if (!format) format = has_alpha(made.format()) && is_opaque(made) ? img_format{FMT_RGB888} : made.format();
        return made.format() == format ? result<image>(std::move(made)) : convert(made, format);
    }

private:
    // Formats whose means are good. Whether a palette is transparent is known only later.
    static std::uint32_t choose(void *data, img_record *record, const img_format *formats,
                                std::uint32_t count) noexcept {
        auto &self = static_cast<resizing &>(*static_cast<exchange *>(data));
        if (!self.all_asked()) return count;
        const extent size = self.to_.of({record->width, record->height});
        const bool alpha = offers({formats, count}, IMG_FMT_ALPHA | IMG_FMT_PAL);
        record->width = size.width;
        record->height = size.height;
        record->format = alpha ? FMT_ARGB8888HE : count && formats[0] == FMT_G8 ? FMT_G8 : FMT_RGB888;
        record->flags |= shape_flags | (alpha ? img_flags{IMG_F_WANT_ALPHA} : 0);
        return count;
    }
    static bool is_opaque(const image &picture) {
        for (std::uint32_t y = 0; y < picture.height(); y++)
            for (const std::uint32_t argb : picture.pixels<std::uint32_t>(y))
                if (argb < 0xff000000) return false;
        return true;
    }

    const scale to_;
    const load_options &options_;
};

} // namespace detail

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
