// SPDX-License-Identifier: MIT
//
// The library with its codecs: load, save, frames. Included by pictra.hpp.
#ifndef PICTRA_CXX_LIBRARY_HPP
#define PICTRA_CXX_LIBRARY_HPP

#include "loading.hpp"
#include "stream.hpp"

#include <stdio.h>

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// What a save may be told.
struct save_options {
    std::string codec{};                    ///< the extension whose codec writes; empty: the path's
    const pictra::values *values = nullptr; ///< written as far as the file can hold them
    std::vector<setting> settings{};        ///< an unknown one fails with IMG_ST_BADARG
    pictra::progress progress{};
};

/// What a codec was registered for, and IMG_ST_OK if its module opened.
struct codec_info {
    std::vector<std::string> extensions{}, mime_types{};
    img_status opened = IMG_ST_OK;
};

/// The pictures of a file, one after the other: of an animation, the canvas as it is to be seen. A range to be walked once;
/// each step decodes one picture into the same result, which may be moved from. A failure ends the range.
class frames {
    struct run {
        run(input from, img_codec *by, load_options how, std::string of)
            : stream(std::move(from)), codec(by), options(std::move(how)), name(std::move(of)) {}
        run(const run &) = delete;
        run &operator=(const run &) = delete;
        ~run() {
            if (begun) img_decode_finish(codec, stream.handle(), &state);
        }
        void next() {
            done = !current; // nothing follows a failure
            if (done) return;
            detail::loading loading(options);
            current = loading.run(name, [this](const img_decode_callouts &callouts, img_record &record) {
                return img_decode_frame(codec, stream.handle(), &callouts, &record, &state);
            });
            done = count > 0 && !current && current.error().status == IMG_ST_RESERVED1; // the end, after a picture
            count++;
        }

        input stream;
        img_codec *codec;
        load_options options;
        std::string name;
        void *state = nullptr;
        bool begun = false, done = false;
        std::uint32_t count = 0;
        result<image> current{image{}};
    };

public:
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = result<image>;
        using difference_type = std::ptrdiff_t;
        using pointer = value_type *;
        using reference = value_type &;

        iterator() = default;
        explicit iterator(run *walked) : run_(walked) {}
        reference operator*() const { return run_->current; }
        pointer operator->() const { return &run_->current; }
        iterator &operator++() {
            run_->next();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return run_->done; }

    private:
        run *run_ = nullptr;
    };

    /// Decodes the first picture.
    iterator begin() {
        if (!run_->count) run_->next();
        return iterator(run_.get());
    }
    std::default_sentinel_t end() const { return {}; }

private:
    friend class library;
    frames() = default;
    std::unique_ptr<run> run_{};
};

/// The library, attached. Moves. Its codec modules are opened when it is made, so that any number of threads may load and
/// save with one library at once.
class library {
public:
    /// Registers the codecs of the configuration file: the one that PICTRA_CFGFILE names, else /etc/system/config/img.conf.
    /// Those of another file, if one is named, are registered as well, and asked first. Lines that are in error are passed
    /// over, and modules that do not open are kept: codecs() tells.
    /// IMG_ST_CONFIG without any codec, and for a file that begins with a key, which the library would read for ever;
    /// IMG_ST_NOMEM where memory lacks.
    static result<library> attach(const std::string &config = {}) {
        const char *named = getenv("PICTRA_CFGFILE");
        const std::string first = named ? named : "/etc/system/config/img.conf";
        for (const std::string &path : {first, config})
            if (begins_with_key(path))
                return detail::fail(IMG_ST_CONFIG, path, "a key stands before the first section");
        img_lib_handle *handle = nullptr;
        img_status status = img_lib_attach(&handle);
        library made;
        made.handle_.reset(handle);
        if (handle && !config.empty()) status = img_cfg_read(handle, config.c_str());
        if (!handle || status == IMG_ST_NOMEM) return detail::fail(status, "attach");
        for (img_codec *codec : made.list()) made.codecs_.push_back({codec, codec_init(codec)});
        if (made.codecs_.empty()) return detail::fail(IMG_ST_CONFIG, config.empty() ? first : config);
        return made;
    }

    /// Loads the picture in a file, or the first of several. Failures are IMG_ST_FILE if it does not open, IMG_ST_NOCODEC
    /// and IMG_ST_RESERVED1 if no codec takes it, IMG_ST_RESERVED4 if it is damaged, IMG_ST_RESERVED10 beyond a codec's limits,
    /// IMG_ST_NOCONV if no conversion leads to the format, IMG_ST_NOMEM, IMG_ST_BADARG for settings.
    result<image> load(const std::string &path, const load_options &options = {}) const {
        return detail::loading(options).run(path, [&](const img_decode_callouts &callouts, img_record &record) {
            return img_load_file(handle(), path.c_str(), &callouts, &record);
        });
    }
    /// The same from where a stream stands. It is left behind the picture if the codec can tell where that ends.
    result<image> load(input &stream, const load_options &options = {}) const {
        return detail::loading(options).run("stream", [&](const img_decode_callouts &callouts, img_record &record) {
            return img_load(handle(), stream.handle(), &callouts, &record);
        });
    }

    /// Loads at another size without holding the whole picture, where the codec delivers rows in order, and has the codec decode
    /// at a smaller size if it can. Without a format, grey stays FMT_G8, what has transparency becomes FMT_ARGB8888HE and all else
    /// FMT_RGB888. Failures as for load, and IMG_ST_BADARG for no size, IMG_ST_BADFMT for indices.
    result<image> load_resized(const std::string &path, const scale &to, const load_options &options = {}) const {
        return detail::resizing(to, options).run(path, [&](const img_decode_callouts &callouts, img_record &record) {
            return detail::undisturbed([&] {
                record = {};
                return img_load_resize_file(handle(), path.c_str(), &callouts, &record);
            });
        });
    }
    /// The same from a stream. As a stream cannot be read again, a load_resized that fails in another thread at the same time
    /// can stop this one with IMG_ST_NOMEM.
    result<image> load_resized(input &stream, const scale &to, const load_options &options = {}) const {
        return detail::resizing(to, options)
            .run("stream", [&](const img_decode_callouts &callouts, img_record &record) {
                return detail::undisturbed(
                    [&] { return img_load_resize(handle(), stream.handle(), &callouts, &record); }, false);
            });
    }

    /// All pictures of a file. Failures of the first steps as for load. options.values holds those of the current picture.
    result<pictra::frames> frames(const std::string &path, const load_options &options = {}) const {
        result<input> stream = input::file(path);
        return stream ? open_frames(*std::move(stream), list(path.c_str()), options, path) : failure(stream.error());
    }
    /// The same from a stream.
    result<pictra::frames> frames(input stream, const load_options &options = {}) const {
        return open_frames(std::move(stream), list(), options, "stream");
    }

    /// Writes a file with the codec of its extension, or of options.codec. A file that was there is replaced; one that could not
    /// be completed is removed, also when the disk fills up at the end. IMG_ST_NOCODEC without a codec, IMG_ST_NOTSUP
    /// if it cannot write, IMG_ST_NOCONV if it cannot hold the pixel format, IMG_ST_FILE, IMG_ST_NOMEM, IMG_ST_BADARG for settings.
    result<void> save(const image_view &picture, const std::string &path, const save_options &options = {}) const {
        img_codec *codec = codec_for(options.codec.empty() ? path : "." + options.codec);
        if (!codec) return detail::fail(IMG_ST_NOCODEC, path, "no codec is registered for the extension");
        result<output> stream = output::file(path);
        if (!stream) return failure(stream.error());
        result<void> written = write(picture, *stream, codec, options, path);
        if (written) written = stream->finish();
        struct stat about;
        if (!written && stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode)) unlink(path.c_str());
        return written;
    }
    /// The same to a stream, which is flushed. options.codec names the codec.
    result<void> save(const image_view &picture, output &stream, const save_options &options) const {
        img_codec *codec = codec_for("." + options.codec);
        if (!codec) return detail::fail(IMG_ST_NOCODEC, "stream", "no codec is registered for the extension");
        const result<void> written = write(picture, stream, codec, options, "stream");
        return written ? stream.flush() : written;
    }

    /// The codecs, in the order in which they are asked.
    std::vector<codec_info> codecs() const {
        std::vector<codec_info> all;
        for (const auto &[codec, opened] : codecs_) {
            const char *extensions = nullptr, *mime_types = nullptr;
            img_codec_get_criteria(codec, &extensions, &mime_types);
            all.push_back({texts(extensions), texts(mime_types), opened});
        }
        return all;
    }

    /// The handle, for the C interface. Codecs that are registered through it need codec_init before threads load.
    img_lib_handle *handle() const noexcept { return handle_.get(); }

private:
    struct detach {
        void operator()(img_lib_handle *handle) const noexcept { img_lib_detach(handle); }
    };
    struct opened_codec {
        img_codec *codec;
        img_status opened;
    };

    library() = default;

    /// Whether the first entry of a configuration file, as the library reads it, is a key.
    static bool begins_with_key(const std::string &path) {
        const std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(path.c_str(), "re"), fclose);
        char line[1024]; // longer ones are read in pieces by the library, too
        while (file && fgets(line, sizeof line, file.get())) {
            const char *text = line + strspn(line, " \t\n\v\f\r");
            if (*text == '[') return false;
            if (strchr(text, '=')) return true;
        }
        return false;
    }

    static std::vector<std::string> texts(const char *list) {
        std::vector<std::string> all;
        for (; list && *list; list += all.back().size() + 1) all.emplace_back(list);
        return all;
    }

    /// The codecs in the order in which they are asked: those of the extension first, if there is a path.
    std::vector<img_codec *> list(const char *path = nullptr) const {
        const std::uint32_t total = img_codec_list(handle(), nullptr, 0, nullptr, 0);
        std::vector<img_codec *> all(total);
        const std::uint32_t matching = path ? img_codec_list_byext(handle(), path, all.data(), total) : 0;
        img_codec_list(handle(), all.data() + matching, total - matching, all.data(), matching);
        return all;
    }
    img_codec *codec_for(const std::string &name) const {
        img_codec *codec = nullptr;
        img_codec_list_byext(handle(), name.c_str(), &codec, 1);
        return codec;
    }

    result<void> write(const image_view &picture, output &stream, img_codec *codec, const save_options &options,
                       const std::string &name) const {
        detail::exchange talk(options.settings, options.progress);
        talk.told = options.values;
        const img_encode_callouts callouts = talk.writing();
        img_record record = picture.record();
        record.flags |= IMG_F_ANSWERS;
        errno = 0;
        if (const img_status status = img_write(handle(), stream.handle(), &callouts, &record, &codec))
            return talk.fail(status, name);
        return {};
    }

    static result<pictra::frames> open_frames(input stream, const std::vector<img_codec *> &candidates,
                                              const load_options &options, const std::string &name) {
        std::uint32_t index = 0;
        const auto count = static_cast<std::uint32_t>(candidates.size());
        if (const img_status status = img_decode_validate(candidates.data(), count, stream.handle(), &index))
            return detail::fail(status, name);
        pictra::frames opened;
        opened.run_ = std::make_unique<frames::run>(std::move(stream), candidates[index], options, name);
        auto &run = *opened.run_;
        if (const img_status status = img_decode_begin(run.codec, run.stream.handle(), &run.state))
            return detail::fail(status, name);
        run.begun = true;
        return opened;
    }

    std::unique_ptr<img_lib_handle, detach> handle_{};
    std::vector<opened_codec> codecs_{};
};

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
