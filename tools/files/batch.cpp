// SPDX-License-Identifier: MIT
#include "tools/files/batch.h"

#include "tools/interrupt.h"
#include "tools/text.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <mutex>
#include <new>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

struct Pair {
    std::string in, out;
};

std::vector<Pair> pair_up(const Files &files) {
    if (files.pattern.empty() && !files.place) {
        if (files.names.size() != 2)
            throw Failure("name one input and one output, or several inputs and -o 'DIRECTORY/{stem}.png'", usage);
        return {{files.names[0], files.names[1]}};
    }
    std::vector<Pair> pairs;
    std::map<std::string, std::string> origins;
    for (const std::string &in : files.names) {
        if (in == "-") throw Failure("standard input has no name to make others of; write IN OUT instead", usage);
        const std::string out = files.place ? files.place(in) : name_by(files.pattern, in);
        const auto [origin, fresh] = origins.emplace(out, in);
        if (!fresh)
            throw Failure(origin->second + " and " + in + " would both become " + out +
                              "; use {stem}, or name them in two calls",
                          usage);
        pairs.push_back({in, out});
    }
    return pairs;
}

// A progress bar, if standard error is a terminal.
class Progress {
public:
    explicit Progress(size_t all) : all_(all), shown_(all > 1 && isatty(STDERR_FILENO)) { draw(); }
    ~Progress() {
        if (shown_) std::cerr << "\r\033[K" << std::flush;
    }
    void step() {
        done_++;
        draw();
    }

private:
    void draw() const {
        constexpr size_t width = 30;
        if (!shown_) return;
        const size_t full = done_ * width / all_;
        std::cerr << "\r[" << std::string(full, '#') << std::string(width - full, '.') << "] " << done_ << '/' << all_
                  << std::flush;
    }
    size_t all_, done_ = 0;
    bool shown_;
};

// The registry must not change while threads load, so every module is opened before. A module that does not open fails
// the pictures that need it.
void open_all_codecs(const Library &library) {
    for (img_codec *codec : library.codecs()) codec_init(codec);
}

using Work = std::function<void(const std::string &in, const std::string &out)>;

// Why the work failed, or nothing.
std::string attempt(const Work &work, const Pair &pair) {
    try {
        work(pair.in, pair.out);
    } catch (const Interrupted &) { // told once, for all
    } catch (const std::bad_alloc &) {
        return pair.in + ": memory ran out; use fewer -j";
    } catch (const std::exception &failure) {
        return failure.what();
    }
    return {};
}

int run(const std::vector<Pair> &pairs, unsigned jobs, const Work &work) {
    std::vector<std::string> failures(pairs.size());
    std::atomic<size_t> next{0};
    {
        Progress progress(pairs.size());
        std::mutex mutex;
        const auto worker = [&] {
            for (size_t i; !stop_signal() && (i = next++) < pairs.size();) {
                failures[i] = attempt(work, pairs[i]);
                const std::lock_guard lock(mutex);
                progress.step();
            }
        };
        std::vector<std::jthread> threads;
        for (size_t i = 1; i < std::min<size_t>(jobs, pairs.size()); i++) {
            try {
                threads.emplace_back(worker);
            } catch (const std::system_error &) {
                break; // the others do the work
            }
        }
        worker();
    }
    stop_if_asked();
    const auto failed_count =
        std::count_if(failures.begin(), failures.end(), [](const std::string &s) { return !s.empty(); });
    for (const std::string &failure : failures)
        if (!failure.empty()) complain(failure);
    if (!failed_count) return done;
    complain(std::to_string(failed_count) + " of " + std::to_string(pairs.size()) + " pictures failed");
    return failed;
}

// A component of a pattern with its placeholders filled in.
std::string fill_in(const std::string &component, const std::string &pattern,
                    const std::map<std::string, std::string> &parts) {
    std::string out;
    for (size_t at = 0; at < component.size();) {
        const size_t open = std::min(component.find('{', at), component.size());
        out += component.substr(at, open - at);
        if (open == component.size()) break;
        const size_t close = component.find('}', open);
        const auto part =
            close == std::string::npos ? parts.end() : parts.find(component.substr(open + 1, close - open - 1));
        if (part == parts.end())
            throw Failure("-o " + pattern +
                              ": unknown placeholder; there are {stem} and {ext} of the input, and {n} for frames",
                          usage);
        out += part->second;
        at = close + 1;
    }
    return out;
}

} // namespace

// Fills in the placeholders. A component of the path that holds one must name something in the folder that the pattern
// puts it in, so it must not become empty, "." or ".." ("...png" has the stem ".."). "-" alone would be standard
// output.
std::string name_by(const std::string &pattern, const std::string &in, const std::map<std::string, std::string> &more) {
    const std::string name = in.substr(in.rfind('/') + 1);
    const size_t dot = name.rfind('.') == 0 ? std::string::npos : name.rfind('.');
    std::map<std::string, std::string> parts = {{"stem", name.substr(0, dot)},
                                                {"ext", dot == std::string::npos ? "" : name.substr(dot + 1)}};
    parts.insert(more.begin(), more.end());
    std::string out;
    for (size_t at = 0; at <= pattern.size();) {
        const size_t end = std::min(pattern.find('/', at), pattern.size());
        const std::string component = pattern.substr(at, end - at), filled = fill_in(component, pattern, parts);
        if (filled != component && (filled.empty() || filled == "." || filled == ".."))
            throw Failure(in + ": -o " + pattern +
                              " would become a name outside of its folder; rename the picture, or " + "name the output",
                          usage);
        out += (at ? "/" : "") + filled;
        at = end + 1;
    }
    return out == "-" && pattern != "-" ? "./-" : out;
}

int for_each_pair(const Library &library, const Files &files, const Work &work) {
    const std::vector<Pair> pairs = pair_up(files);
    watch_for_signals();
    if (pairs.size() == 1) {
        work(pairs[0].in, pairs[0].out);
        return done;
    }
    open_all_codecs(library);
    return run(pairs, files.jobs, work);
}

} // namespace tool
