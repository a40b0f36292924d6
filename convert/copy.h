// SPDX-License-Identifier: MIT
//
// The strided copies behind img_copy_getfunc, by pixel size in bits.
#pragma once

#include "pictra/pictra.h"

img_copy_routine img_copy_8, img_copy_16, img_copy_24, img_copy_32;
