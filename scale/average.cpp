// SPDX-License-Identifier: MIT
//
// Chooses the routine that averages two lines of a format.
#include "scale/kernels.h"

img_avg_func img_avg_getfunc(img_format format) {
    const img::FamilyIndex index = img::family_of(format);
    return index == img::family_count ? nullptr : img::scale_kernels.best().average[index];
}
