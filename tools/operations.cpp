// SPDX-License-Identifier: MIT
#include "tools/operations.h"

#include "tools/interrupt.h"
#include "tools/text.h"

#include <charconv>

namespace tool {

namespace {

constexpr uint32_t max_side = 1'000'000; // as the codecs have it
constexpr uint64_t max_pixels = uint64_t{1} << 28;

// Reads numbers and the characters between them from the front of a text.
class Scanner {
public:
    explicit Scanner(const std::string &text) : at_(text.data()), end_(text.data() + text.size()) {}
    bool number(uint32_t &value) {
        const auto [next, error] = std::from_chars(at_, end_, value);
        at_ = next;
        return error == std::errc();
    }
    bool character(char c) {
        if (at_ == end_ || *at_ != c) return false;
        at_++;
        return true;
    }
    bool at_end() const { return at_ == end_; }

private:
    const char *at_, *end_;
};

bool is_side(uint32_t side) { return side >= 1 && side <= max_side; }

std::string text_of(const pictra::extent &size) {
    return std::to_string(size.width) + " x " + std::to_string(size.height);
}

// A file of a few bytes may have any proportions, so a size that follows from them must be one that a codec would
// accept.
void check_size(const pictra::extent &size, const std::string &name) {
    if (is_side(size.width) && is_side(size.height) && uint64_t{size.width} * size.height <= max_pixels) return;
    throw Failure(name + ": in its proportions the new size would be " + text_of(size) + ", more than " +
                      std::to_string(max_side) + " a side or " + std::to_string(max_pixels) +
                      " pixels in all; give both sides",
                  usage);
}

void check_rectangle(uint32_t x, uint32_t y, const pictra::extent &size, const pictra::image_view &picture,
                     const std::string &name) {
    if (uint64_t{x} + size.width <= picture.width() && uint64_t{y} + size.height <= picture.height()) return;
    throw Failure(name + ": the rectangle exceeds the picture, which is " + text_of(picture.size()) +
                      "; choose a smaller one",
                  IMG_ST_BADARG);
}

} // namespace

Operation parse_resize(const std::string &text) {
    pictra::scale to;
    Scanner scanner(text);
    const bool width = scanner.number(to.width), cross = scanner.character('x'), height = scanner.number(to.height);
    if (!cross || !scanner.at_end() || !(width || height) || (width && !is_side(to.width)) ||
        (height && !is_side(to.height)))
        throw Failure("--size " + text + ": not a size; write 640x480, or 640x or x480 to keep the proportions", usage);
    return [to](const pictra::image_view &picture, const std::string &name) {
        if (!to.width || !to.height) check_size(to.of(picture.size()), name);
        return pictra::resize(picture, to);
    };
}

Operation parse_crop(const std::string &text) {
    pictra::extent size;
    uint32_t x = 0, y = 0;
    Scanner scanner(text);
    if (!scanner.number(size.width) || !scanner.character('x') || !scanner.number(size.height) ||
        !scanner.character('+') || !scanner.number(x) || !scanner.character('+') || !scanner.number(y) ||
        !scanner.at_end() || !is_side(size.width) || !is_side(size.height))
        throw Failure("--rect " + text + ": not a rectangle; write 640x480+10+20: size, then the top left pixel",
                      usage);
    return [=](const pictra::image_view &picture, const std::string &name) {
        check_rectangle(x, y, size, picture, name);
        return pictra::crop(picture, x, y, size);
    };
}

Operation parse_rotate(const std::string &by) {
    const std::pair<const char *, pictra::turn> turns[] = {
        {"90", pictra::turn::quarter}, {"180", pictra::turn::half}, {"270", pictra::turn::back}};
    for (const auto &[degrees, turn] : turns)
        if (by == degrees)
            return [turn = turn](const auto &picture, const std::string &) { return pictra::rotate(picture, turn); };
    throw Failure("--by " + by + ": not a quarter turn; write 90, 180 or 270 degrees, clockwise", usage);
}

Operation parse_flip(const std::string &across) {
    const bool horizontal = across == "horizontal";
    if (!horizontal && across != "vertical")
        throw Failure("--flip " + across + ": not a direction; write horizontal (left to right) or vertical", usage);
    const pictra::side side = horizontal ? pictra::side::left_right : pictra::side::top_bottom;
    return [side](const auto &picture, const std::string &) { return pictra::flip(picture, side); };
}

void apply(const Operation &operation, Picture &picture, const std::string &name) {
    pictra::result<pictra::image> made = operation(picture.view(), name);
    stop_if_asked();
    if (!made) throw failure_of(name, made.error().status);
    picture.become(*std::move(made));
}

} // namespace tool
