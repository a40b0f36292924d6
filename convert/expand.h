// SPDX-License-Identifier: MIT
//
// The routines that img_expand_getfunc returns: img_expand_<bits per index>_<bits per pixel>.
#pragma once

#include "pictra/pictra.h"

img_expand_routine img_expand_1_8, img_expand_1_16, img_expand_1_24, img_expand_1_32;
img_expand_routine img_expand_4_8, img_expand_4_16, img_expand_4_24, img_expand_4_32;
img_expand_routine img_expand_8_8, img_expand_8_16, img_expand_8_24, img_expand_8_32;
