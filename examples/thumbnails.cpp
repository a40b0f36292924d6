// SPDX-License-Identifier: MIT
//
// Makes a thumbnail of each picture in a folder, several at once. Pictures are scaled while they are decoded, so none is held
// whole. What is no picture is told and passed over.
// Usage: thumbnails FROM TO [SIDE]
#include <pictra/pictra.hpp>

#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

static std::vector<fs::path> files_in(const fs::path &folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
        if (at->is_regular_file(error)) files.push_back(at->path());
    if (error) fprintf(stderr, "%s: %s\n", folder.c_str(), error.message().c_str());
    return files;
}

static pictra::result<void> make(const pictra::library &library, const fs::path &from, const fs::path &to,
                                 uint32_t side) {
    pictra::values values;
    const auto small = library.load_resized(from, pictra::within(side), {.values = &values});
    if (!small) return pictra::failure(small.error());
    const auto seen = pictra::upright(*small, values.orientation);
    if (!seen) return pictra::failure(seen.error());
    return library.save(*seen, to);
}

int main(int argc, char **argv) {
    if (argc < 3) return fprintf(stderr, "Usage: thumbnails FROM TO [SIDE]\n"), 2;
    const auto side = static_cast<uint32_t>(argc > 3 ? atoi(argv[3]) : 128);
    const auto library = pictra::library::attach(); // opens the codecs, so threads may share it
    if (!library) return fprintf(stderr, "%s\n", library.error().text.c_str()), 1;

    const std::vector<fs::path> files = files_in(argv[1]);
    std::atomic<size_t> next = 0, made = 0;
    const auto work = [&] {
        for (size_t i; (i = next++) < files.size();) {
            // The whole name stays, because pictures may differ in their extensions only.
            const auto done =
                make(*library, files[i], fs::path(argv[2]) / (files[i].filename().string() + ".png"), side);
            if (done)
                made++;
            else
                fprintf(stderr, "%s\n", done.error().text.c_str());
        }
    };
    std::vector<std::thread> threads(std::max(1u, std::thread::hardware_concurrency()));
    for (std::thread &thread : threads) thread = std::thread(work);
    for (std::thread &thread : threads) thread.join();
    printf("%zu thumbnails\n", made.load());
}
