// SPDX-License-Identifier: MIT
//
// How large a picture becomes in a box, and which part of it is shown.
#include "kit/fit/proportion.h"
#include "kit/options.h"
#include "pictra/kit.h"

using namespace img::kit;

namespace {

struct Size {
    uint32_t width, height;
};

uint32_t smaller(uint32_t a, uint32_t b) { return a < b ? a : b; }

// A side of the box that is 0 does not count; a picture that fits is left as it is unless it may grow.
Size inside(Size picture, Size box, bool grows) {
    const bool fits = (!box.width || picture.width <= box.width) && (!box.height || picture.height <= box.height);
    if ((fits && !grows) || (!box.width && !box.height)) return picture;
    const bool by_width =
        !box.height || (box.width && uint64_t{picture.width} * box.height >= uint64_t{picture.height} * box.width);
    if (by_width) return {box.width, in_proportion(box.width, picture.height, picture.width)};
    return {in_proportion(box.height, picture.width, picture.height), box.height};
}

// The part in the middle that has the proportions of the box, and the size of the box or, where the picture would have to
// grow and does not, of that part.
Size fill(Size picture, Size box, bool grows, pictra_fitted &fitted) {
    const double across = static_cast<double>(box.width) / picture.width;
    const double down = static_cast<double>(box.height) / picture.height, scale = fmax(across, down);
    fitted.part_width = fmin(box.width / scale, picture.width);
    fitted.part_height = fmin(box.height / scale, picture.height);
    fitted.x = (picture.width - fitted.part_width) / 2;
    fitted.y = (picture.height - fitted.part_height) / 2;
    if (grows || scale <= 1) return box;
    return {in_proportion(box.width, 1, scale), in_proportion(box.height, 1, scale)};
}

bool is_known(const pictra_fit_options &options) {
    const bool needs_both = options.mode != PICTRA_FIT_INSIDE;
    return options.mode <= PICTRA_FIT_STRETCH && !(options.flags & ~uint32_t{PICTRA_FIT_ENLARGE}) &&
           options.orientation <= 8 && !(needs_both && (!options.width || !options.height));
}

} // namespace

img_status pictra_fit(uint32_t width, uint32_t height, const pictra_fit_options *options, pictra_fitted *fitted) {
    pictra_fit_options known;
    if (!width || !height || !read_options(options, known) || !is_known(known)) return IMG_ST_BADARG;
    const Size picture{width, height};
    const bool turned = known.orientation >= 5, grows = known.flags & PICTRA_FIT_ENLARGE;
    Size box{turned ? known.height : known.width, turned ? known.width : known.height};
    pictra_fitted made{};
    made.part_width = width;
    made.part_height = height;
    if (known.mode == PICTRA_FIT_INSIDE)
        box = inside(picture, box, grows);
    else if (known.mode == PICTRA_FIT_FILL)
        box = fill(picture, box, grows, made);
    else if (!grows)
        box = {smaller(box.width, width), smaller(box.height, height)};
    if (!box.width || !box.height) return IMG_ST_BADARG;
    made.width = box.width;
    made.height = box.height;
    *fitted = made;
    return IMG_ST_OK;
}
