// SPDX-License-Identifier: MIT
//
// pictra thumbnail --xdg: the thumbnails that programs of a desktop share, as the Thumbnail Managing Standard of
// freedesktop.org (0.9) keeps them. $XDG_CACHE_HOME/thumbnails/SIZE/NAME.png, the name being the MD5 sum of the
// picture's URI, tells in texts which picture it shows, and how old that was. Each program marks for itself, in fail/,
// which pictures are broken.
#include "tools/files/xdg_cache.h"

#include "tools/files/output.h"
#include "tools/text.h"

#include <algorithm>
#include <errno.h>
#include <filesystem>
#include <iostream>
#include <md5.h>
#include <mutex>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr struct {
    uint32_t pixels;
    const char *name;
} sizes[] = {{128, "normal"}, {256, "large"}, {512, "x-large"}, {1024, "xx-large"}};

constexpr const char *uri_key = "Thumb::URI", *time_key = "Thumb::MTime", *program = "pictra-" PICTRA_VERSION;

// Without following links: other programs name the file as the user does.
std::string absolute(const std::string &path) { return std::filesystem::absolute(path).lexically_normal().string(); }

// RFC 3986 leaves open which characters are escaped, but the sum depends on it. As GLib does it, so do the desktops.
std::string uri_of(const std::string &path) {
    constexpr const char *hex = "0123456789ABCDEF", *plain = "!$&'()*+,-./:=@_~";
    std::string uri = "file://";
    for (const char c : absolute(path)) {
        const auto byte = static_cast<uint8_t>(c);
        const bool letter = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (letter || strchr(plain, c))
            uri += c;
        else
            (uri += '%') += {hex[byte >> 4], hex[byte & 15]};
    }
    return uri;
}

// For the owner alone, because thumbnails show what is in files that others may not read.
void make_directories(const std::string &path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            throw Failure(part + ": " + strerror(errno) + "; set XDG_CACHE_HOME to a directory for thumbnails",
                          IMG_ST_FILE);
        if (end == std::string::npos) return;
    }
}

class Store {
public:
    explicit Store(uint32_t size) {
        for (const auto &[pixels, name] : sizes)
            if (pixels == size) size_ = name;
        if (size_.empty()) throw Failure("--xdg: thumbnails of the desktop have --size 128, 256, 512 or 1024", usage);
        const char *cache = getenv("XDG_CACHE_HOME"), *home = getenv("HOME");
        const bool own = cache && cache[0] == '/'; // a relative one is void
        if (!own && !(home && home[0]))
            throw Failure("--xdg: there is no home for the thumbnails; set XDG_CACHE_HOME or HOME", usage);
        root_ = absolute(own ? cache : std::string(home) + "/.cache") + "/thumbnails/";
    }

    std::string path_of(const std::string &picture) const { return in(size_, picture); }
    std::string failure_path_of(const std::string &picture) const {
        return in(std::string("fail/") + program, picture);
    }
    bool holds(const std::string &path) const { return absolute(path).starts_with(root_); }

private:
    std::string in(const std::string &directory, const std::string &picture) const {
        const std::string uri = uri_of(picture);
        char sum[MD5_DIGEST_STRING_LENGTH];
        return root_ + directory + "/" + MD5Data(reinterpret_cast<const uint8_t *>(uri.data()), uri.size(), sum) +
               ".png";
    }
    std::string root_, size_;
};

// What a thumbnail tells of its picture.
class Original {
public:
    explicit Original(const std::string &path) : uri_(uri_of(path)) {
        struct stat about;
        if (stat(path.c_str(), &about) != 0) throw Failure(path + ": " + strerror(errno), IMG_ST_FILE);
        modified_ = std::to_string(about.st_mtime);
        size_ = std::to_string(about.st_size);
    }
    pictra::values metadata() const {
        pictra::values metadata;
        for (const auto &[key, text] : {std::pair(uri_key, uri_), {time_key, modified_}, {"Thumb::Size", size_}})
            metadata.texts.emplace_back(key, text);
        metadata.texts.emplace_back("Software", program);
        return metadata;
    }
    bool is_told_by(const pictra::values &thumbnail) const {
        const auto tells = [&](const std::pair<std::string, std::string> &text) {
            return std::find(thumbnail.texts.begin(), thumbnail.texts.end(), text) != thumbnail.texts.end();
        };
        return tells({uri_key, uri_}) && tells({time_key, modified_});
    }

private:
    std::string uri_, modified_, size_;
};

class Maker {
public:
    Maker(const Library &library, const Reading &reading, const Store &store, bool sync)
        : library_(library), reading_(reading), store_(store), sync_(sync) {}

    void make(const std::string &in, const std::string &out) const {
        const Original original(in);
        if (store_.holds(in)) throw Failure(in + ": it is a thumbnail itself", IMG_ST_BADARG);
        if (is_current(original, out)) return;
        const std::string failure = store_.failure_path_of(in);
        try {
            const auto [picture, exchange] = load(library_, in, reading_);
            pictra::values metadata = original.metadata();
            metadata.texts.emplace_back("Thumb::Image::Width", std::to_string(exchange.full_width));
            metadata.texts.emplace_back("Thumb::Image::Height", std::to_string(exchange.full_height));
            save(*picture, metadata, out);
            unlink(failure.c_str());
        } catch (const Failure &failed) {
            if (failed.code() == IMG_ST_DAMAGED || failed.code() == IMG_ST_BADFMT) mark(original, failure);
            throw;
        }
    }

private:
    bool is_current(const Original &original, const std::string &thumbnail) const try {
        if (access(thumbnail.c_str(), R_OK) != 0) return false;
        Reading whole = reading_;
        whole.thumbnail = 0;
        return original.is_told_by(load(library_, thumbnail, whole).exchange.metadata);
    } catch (const Failure &) {
        return false;
    }

    // The standard wants eight bits with alpha.
    void save(Picture &picture, const pictra::values &metadata, const std::string &path) const {
        make_directories(path.substr(0, path.rfind('/')));
        if (const img_status status = picture.convert(FMT_ARGB8888HE)) throw failure_of(path, status);
        const Output output{path, "png", false, true, sync_};
        Exchange exchange;
        exchange.metadata = metadata;
        write(library_, picture, output, reading_, exchange);
    }

    void mark(const Original &original, const std::string &path) const {
        img_record dot{};
        dot.width = dot.height = 1;
        dot.format = FMT_ARGB8888HE;
        dot.flags = IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_FORMAT;
        img_alloc_result made = 0;
        if (const img_status status = img_alloc(&dot, &made)) throw failure_of(path, status);
        memset(dot.data, 0, dot.stride);
        Picture picture(dot);
        save(picture, original.metadata(), path);
    }

    const Library &library_;
    const Reading &reading_;
    const Store &store_;
    bool sync_;
};

} // namespace

int store_thumbnails(const Files &pictures, const Reading &reading, bool sync) {
    const Library library = attach();
    const Store store(reading.thumbnail);
    const Maker maker(library, reading, store, sync);
    Files files = pictures;
    files.place = [&](const std::string &in) { return store.path_of(in); };
    std::mutex mutex;
    return for_each_pair(library, files, [&](const std::string &in, const std::string &out) {
        maker.make(in, out);
        const std::lock_guard lock(mutex);
        std::cout << visible(out) << '\n';
    });
}

} // namespace tool
