// SPDX-License-Identifier: MIT
//
// The inner loops of geometry: rows copied, mirrored, and transposed to columns. Compiled once per variant, with
// IMG_TARGET naming its namespace; everything but the table has internal linkage.
#include "geometry/kernels.h"

#if IMG_VECTORS
#include "geometry/vector.h"
#else
#include "geometry/plain.h"
#endif

namespace img::IMG_TARGET {

const GeometryKernels geometry_kernels = {{mirror_rows<1>, mirror_rows<2>, mirror_rows<3>, mirror_rows<4>},
                                          {transpose<1>, transpose<2>, transpose<3>, transpose<4>},
                                          copy_rows};

} // namespace img::IMG_TARGET
