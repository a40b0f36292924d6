// SPDX-License-Identifier: MIT
//
// The tables of scaling kernels, one for each variant. Functions are indexed by FamilyIndex.
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
