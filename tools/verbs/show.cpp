// SPDX-License-Identifier: MIT
//
// pictra show: pictures in the terminal, in the best way that it supports.
#include "tools/decoder.h"
#include "tools/operations.h"
#include "tools/terminal/terminal.h"
#include "tools/text.h"
#include "tools/verbs/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

namespace tool {

namespace {

// The most pixels that fit the screen, with a line left for the prompt.
struct Box {
    uint32_t width, height;
};

Box box_for(Screen::Way way, const Screen &screen) {
    const uint32_t lines = screen.lines > 1 ? screen.lines - 1 : 1;
    if (way == Screen::Way::kitty || way == Screen::Way::sixel)
        return {screen.columns * screen.cell_width, lines * screen.cell_height};
    if (way == Screen::Way::text) return {screen.columns, lines};
    return {screen.columns, 2 * lines}; // each cell shows two pixels, one above the other
}

// Makes the picture fit the box. Cells of text are twice as high as wide.
void fit(Picture &picture, const Box &box, bool text, const std::string &name) {
    const pictra::extent size = picture.view().size();
    const double width = size.width, height = text ? size.height / 2.0 : size.height;
    const double scale = std::min({box.width / width, box.height / height, 1.0});
    const auto side = [scale](double length) { return std::max(1u, static_cast<uint32_t>(length * scale)); };
    const pictra::scale to{side(width), side(height)};
    if (to.width != size.width || to.height != size.height)
        apply([&](const auto &view, const auto &) { return pictra::resize(view, to); }, picture, name);
}

struct Options {
    std::vector<std::string> files;
    std::string way; // empty: the best that the terminal supports
    ReadingOptions reading;
};

int show(const Options &options) {
    Reading reading = options.reading.reading();
    const Library library = attach();
    const Screen screen = find_screen();
    const Screen::Way way = options.way.empty() ? screen.way : way_of(options.way);
    const Box box = box_for(way, screen);
    reading.thumbnail = std::max(box.width, way == Screen::Way::text ? 2 * box.height : box.height);
    for (const std::string &file : options.files) {
        Decoder decoder(library, file, reading);
        const std::unique_ptr<Picture> picture = decoder.next();
        fit(*picture, box, way == Screen::Way::text, file);
        if (const img_status status = picture->convert(FMT_ARGB8888HE)) throw failure_of(file, status);
        std::cout << drawn(picture->record(), way) << std::flush;
    }
    return done;
}

} // namespace

Verb add_show(CLI::App &app) {
    CLI::App *verb = app.add_subcommand("show", "Show pictures in the terminal");
    const auto options = std::make_shared<Options>();
    verb->add_option("FILE", options->files, "Pictures")->required();
    verb->add_option("--as", options->way,
                     "kitty, sixel, blocks, 256 (colours) or text; the best the terminal has if not given");
    options->reading.add_to(*verb);
    return {verb, [options] { return show(*options); }};
}

} // namespace tool
