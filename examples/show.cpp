// SPDX-License-Identifier: MIT
//
// Loads pictures and prints what they are, and what they look like in 40 columns of characters.
// Usage: show PICTURE...
#include <pictra/pictra.hpp>

#include <stdio.h>

static void print_facts(const char *path, const pictra::image &picture, const pictra::values &values) {
    printf("%s: %u x %u, %u bits a pixel", path, picture.width(), picture.height(),
           pictra::bits_per_pixel(picture.format()));
    if (!picture.palette().empty()) printf(", %zu colours", picture.palette().size());
    if (picture.may_be_transparent()) printf(", transparent in places");
    if (values.orientation > 1) printf(", turned (orientation %u)", values.orientation);
    if (values.resolution.x > 0) printf(", %.0f dpi", values.resolution.x * 0.0254);
    if (!values.icc.empty()) printf(", colour profile of %zu bytes", values.icc.size());
    for (const auto &[keyword, text] : values.texts) printf("\n    %s: %s", keyword.c_str(), text.c_str());
    for (const std::string &warning : values.warnings) printf("\n    warning: %s", warning.c_str());
    printf("\n");
}

// Transparent pixels are blank.
static void print_look(const pictra::image &picture) {
    constexpr char inks[] = "@%#*+=-:. ";
    const pictra::scale size{.width = 40, .height = std::max(1u, 20 * picture.height() / picture.width())};
    const auto small = pictra::resize(picture, size);
    const auto colours = small ? pictra::convert(*small, FMT_ARGB8888HE) : pictra::failure(small.error());
    const auto grey = small ? pictra::convert(*small, FMT_G8) : pictra::failure(small.error());
    if (!colours || !grey) return;
    for (uint32_t y = 0; y < grey->height(); y++) {
        for (uint32_t x = 0; x < grey->width(); x++) {
            const bool seen = colours->pixels<uint32_t>(y)[x] >> 31;
            putchar(seen ? inks[grey->row(y)[x] * 9 / 255] : ' ');
        }
        putchar('\n');
    }
}

int main(int argc, char **argv) {
    const auto library = pictra::library::attach();
    if (!library) return fprintf(stderr, "%s\n", library.error().text.c_str()), 1;
    int failures = 0;
    for (int i = 1; i < argc; i++) {
        pictra::values values;
        const auto picture = library->load(argv[i], {.values = &values});
        if (!picture) {
            fprintf(stderr, "%s\n", picture.error().text.c_str());
            failures++;
            continue;
        }
        print_facts(argv[i], *picture, values);
        if (const auto seen = pictra::upright(*picture, values.orientation)) print_look(*seen);
    }
    return failures > 0;
}
