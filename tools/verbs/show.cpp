// SPDX-License-Identifier: MIT
//
// pictra show: a picture in the terminal, as well as the terminal can.
#include "tools/decoder.h"
#include "tools/operations.h"
#include "tools/terminal/terminal.h"
#include "tools/text.h"
#include "tools/verbs/verbs.h"

#include <algorithm>
#include <iostream>

namespace tool {

namespace {

// Pixels that a picture may have to fit the screen, leaving a line for the prompt.
struct Box {
    uint32_t width, height;
};

Box box_for(Screen::Way way, const Screen &screen) {
    const uint32_t lines = screen.lines > 1 ? screen.lines - 1 : 1;
    if (way == Screen::Way::kitty || way == Screen::Way::sixel)
        return {screen.columns * screen.cell_width, lines * screen.cell_height};
    if (way == Screen::Way::text) return {screen.columns, lines};
    return {screen.columns, 2 * lines}; // two pixels a cell, one above the other
}

// Within the box. The cells of text are twice as high as wide.
void fit(Picture &picture, const Box &box, bool text, const std::string &name) {
    const img_record &record = picture.record();
    const double width = record.width, height = text ? record.height / 2.0 : record.height;
    const double scale = std::min({box.width / width, box.height / height, 1.0});
    const auto side = [scale](double size) { return std::max(1u, static_cast<uint32_t>(size * scale)); };
    const Operation resize{.kind = Operation::resize, .width = side(width), .height = side(height)};
    if (resize.width != record.width || resize.height != record.height) apply(resize, picture, name);
}

} // namespace

int show(const ShowOptions &options) {
    const Library library = attach();
    const Screen screen = find_screen();
    const Screen::Way way = options.way.empty() ? screen.way : way_of(options.way);
    const Box box = box_for(way, screen);
    for (const std::string &file : options.files) {
        Reading reading = options.reading;
        reading.thumbnail = std::max(box.width, way == Screen::Way::text ? 2 * box.height : box.height);
        Decoder decoder(library, file, reading);
        const std::unique_ptr<Picture> picture = decoder.next();
        fit(*picture, box, way == Screen::Way::text, file);
        picture->key_to_alpha();
        std::cout << drawn(picture->record(), way) << std::flush;
    }
    return done;
}

} // namespace tool
