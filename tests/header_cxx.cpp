// SPDX-License-Identifier: MIT
//
// The public headers as a C++17 program sees them, the one for routines first.
#include "pictra/routines.h"

#include "pictra/backend.h"
#include "pictra/kit.h"
#include "pictra/values.h"

#include <type_traits>

static_assert(sizeof(img_record) == 56);
static_assert(std::is_same_v<decltype(&img_cvt_swab32), img_cvt_func>);
static_assert(std::is_same_v<decltype(IO_FD), io_backend_ctor>);
