// SPDX-License-Identifier: MIT
//
// The inner loops of scaling, per variant and family.
#pragma once

#include "core/cpu.h"
#include "scale/family.h"
#include "scale/params.h"

namespace img {

struct ScaleKernels {
    img_avg_func average[family_count];
    img_scl_func scale[family_count];
    img_scl_planner plan[family_count];
};

IMG_PER_VARIANT(ScaleKernels, scale_kernels)

} // namespace img
