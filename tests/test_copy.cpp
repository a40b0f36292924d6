// SPDX-License-Identifier: MIT
#include "convert/copy.h"
#include "tests/reference.h"

#include <gtest/gtest.h>
#include <string.h>

#include <set>

namespace {

TEST(StridedCopy, ByFormat) {
    const std::set<img_format> none = {FMT_PAL1, FMT_PAL4, FMT_A8, FMT_XBGR8888HE, FMT_XBGR8888OE, FMT_ABGR8888OE};
    const img_copy_func of_bytes[] = {img_copy_8, img_copy_16, img_copy_24, img_copy_32};
    for (const auto &[name, code] : reference::formats) {
        const img_copy_func wanted = none.count(code) ? nullptr : of_bytes[reference::bits(code) / 8 - 1];
        EXPECT_EQ(img_copy_getfunc(code), wanted) << name;
    }
    EXPECT_EQ(img_copy_getfunc(0x1720), nullptr);
}

TEST(StridedCopy, StepsForwardsAndBackwards) {
    const img_copy_func of_bytes[] = {img_copy_8, img_copy_16, img_copy_24, img_copy_32};
    uint8_t src[64];
    for (size_t i = 0; i < sizeof src; i++) src[i] = uint8_t(i * 37 + 1);
    for (int bytes = 1; bytes <= 4; bytes++)
        for (const int step : {bytes, -bytes, bytes + 5, -bytes - 5, 0})
            for (uint32_t count = 0; count <= 9; count++) {
                uint8_t got[256], want[256];
                memset(got, 0, sizeof got);
                memset(want, 0, sizeof want);
                for (int i = 0; i < int(count); i++)
                    for (int k = 0; k < bytes; k++) want[129 + i * step + k] = src[1 + i * bytes + k];
                of_bytes[bytes - 1](src + 1, got + 129, step, count);
                EXPECT_EQ(memcmp(got, want, sizeof got), 0) << bytes << " bytes, step " << step << ", count " << count;
            }
}

} // namespace
