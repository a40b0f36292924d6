// SPDX-License-Identifier: MIT
//
// The strided copies that img_copy_getfunc returns, by bits per pixel.
#pragma once

#include "pictra/pictra.h"

img_copy_routine img_copy_8, img_copy_16, img_copy_24, img_copy_32;
