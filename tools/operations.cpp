// SPDX-License-Identifier: MIT
#include "tools/operations.h"

#include "tools/interrupt.h"
#include "tools/text.h"

#include <charconv>
#include <functional>

namespace tool {

namespace {

constexpr uint32_t max_side = 1'000'000; // as the codecs have it

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

// Without overflow: the sides are at most max_side.
uint32_t in_proportion(uint32_t side, uint32_t to, uint32_t from) {
    const uint64_t size = (uint64_t{side} * to + from / 2) / from;
    if (size > max_side) throw Failure("--size: the other side would exceed 1000000 pixels; give both", usage);
    return size ? static_cast<uint32_t>(size) : 1;
}

img_status resize(const Operation &operation, const img_record &src, img_record &dst) {
    dst.width = operation.width ? operation.width : in_proportion(operation.height, src.width, src.height);
    dst.height = operation.height ? operation.height : in_proportion(operation.width, src.height, src.width);
    dst.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    return img_resize_fs(&src, &dst);
}

img_status crop(const Operation &operation, const img_record &src, img_record &dst) {
    dst.width = operation.width;
    dst.height = operation.height;
    dst.flags |= IMG_F_WIDTH | IMG_F_HEIGHT;
    return img_crop(&src, &dst, operation.x, operation.y);
}

void check_rectangle(const Operation &operation, const img_record &src, const std::string &name) {
    if (uint64_t{operation.x} + operation.width <= src.width && uint64_t{operation.y} + operation.height <= src.height)
        return;
    throw Failure(name + ": the rectangle reaches out of the picture, which is " + std::to_string(src.width) + " x " +
                      std::to_string(src.height) + "; choose a smaller one",
                  IMG_ST_BADARG);
}

// Averages of indices mean nothing, and those of a colour key and its neighbours would not match the key.
void prepare_resize(Picture &picture) {
    if (picture.has(IMG_F_TRANSP | IMG_F_PAL_ALPHA))
        picture.key_to_alpha();
    else if (picture.record().format & IMG_FMT_PAL)
        picture.convert(FMT_RGB888);
    else if (!img_avg_getfunc(picture.record().format))
        picture.convert(picture.record().format & IMG_FMT_ALPHA ? FMT_ARGB8888HE : FMT_XRGB8888HE);
}

// Pixels must be movable one by one.
void prepare_move(Picture &picture) {
    const img_format format = picture.record().format;
    if (img_copy_getfunc(format)) return;
    picture.convert(format & IMG_FMT_PAL ? FMT_PAL8 : format & IMG_FMT_ALPHA ? FMT_ARGB8888HE : FMT_XRGB8888HE);
}

} // namespace

Operation parse_resize(const std::string &size) {
    Operation operation{Operation::resize};
    Scanner scanner(size);
    const bool width = scanner.number(operation.width);
    const bool cross = scanner.character('x');
    const bool height = scanner.number(operation.height);
    if (!cross || !scanner.at_end() || !(width || height) || (width && !is_side(operation.width)) ||
        (height && !is_side(operation.height)))
        throw Failure("--size " + size + ": not a size; write 640x480, or 640x or x480 to keep the proportions", usage);
    return operation;
}

Operation parse_crop(const std::string &rect) {
    Operation operation{Operation::crop};
    Scanner scanner(rect);
    if (!scanner.number(operation.width) || !scanner.character('x') || !scanner.number(operation.height) ||
        !scanner.character('+') || !scanner.number(operation.x) || !scanner.character('+') ||
        !scanner.number(operation.y) || !scanner.at_end() || !is_side(operation.width) || !is_side(operation.height))
        throw Failure("--rect " + rect + ": not a rectangle; write 640x480+10+20: size, then the top left pixel",
                      usage);
    return operation;
}

Operation parse_rotate(const std::string &by) {
    const struct {
        const char *degrees;
        uint32_t angle;
    } turns[] = {{"90", IMG_ANGLE_90}, {"180", IMG_ANGLE_180}, {"270", IMG_ANGLE_270}};
    for (const auto &[degrees, angle] : turns)
        if (by == degrees) return {.kind = Operation::rotate, .how = angle};
    throw Failure("--by " + by + ": not a quarter turn; write 90, 180 or 270 degrees, clockwise", usage);
}

Operation parse_flip(const std::string &across) {
    if (across == "horizontal") return {.kind = Operation::flip, .how = IMG_FLIP_HORIZONTAL};
    if (across == "vertical") return {.kind = Operation::flip, .how = IMG_FLIP_VERTICAL};
    throw Failure("--flip " + across + ": not a direction; write horizontal (left to right) or vertical", usage);
}

void apply(const Operation &operation, Picture &picture, const std::string &name) {
    const img_format original = picture.record().format;
    operation.kind == Operation::resize ? prepare_resize(picture) : prepare_move(picture);
    const img_record &src = picture.record();
    if (operation.kind == Operation::crop) check_rectangle(operation, src, name);
    const img_status status = picture.replace([&](img_record &dst) {
        switch (operation.kind) {
        case Operation::resize:
            return resize(operation, src, dst);
        case Operation::crop:
            return crop(operation, src, dst);
        case Operation::rotate:
            return img_rotate_ortho(&src, &dst, operation.how);
        default:
            return img_flip(&src, &dst, operation.how);
        }
    });
    stop_if_asked();
    if (status != IMG_ST_OK) throw failure_of(name, status);
    if (operation.kind != Operation::resize && (original & IMG_FMT_PAL)) picture.pack(original);
}

void turn_upright(Picture &picture, uint32_t orientation, const std::string &name) {
    constexpr uint32_t no = ~0u;
    // By the orientation: a turn, then a flip.
    constexpr struct {
        uint32_t angle, flip;
    } steps[] = {{no, no},
                 {no, no},
                 {no, IMG_FLIP_HORIZONTAL},
                 {IMG_ANGLE_180, no},
                 {no, IMG_FLIP_VERTICAL},
                 {IMG_ANGLE_90, IMG_FLIP_HORIZONTAL},
                 {IMG_ANGLE_90, no},
                 {IMG_ANGLE_90, IMG_FLIP_VERTICAL},
                 {IMG_ANGLE_270, no}};
    if (orientation >= std::size(steps)) return;
    const auto [angle, flip] = steps[orientation];
    if (angle != no) apply({.kind = Operation::rotate, .how = angle}, picture, name);
    if (flip != no) apply({.kind = Operation::flip, .how = flip}, picture, name);
}

} // namespace tool
