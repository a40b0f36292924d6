// SPDX-License-Identifier: MIT
//
// The storage of a result while it is made.
#pragma once

#include "kit/resample/rows.h"

namespace img::kit {

// The storage that the library gives a record, taken back unless the record is to keep it.
class Storage {
public:
    explicit Storage(img_record &record) : record_(record) {}
    Storage(const Storage &) = delete;
    Storage &operator=(const Storage &) = delete;
    ~Storage() {
        if (!(made_ & IMG_ALLOC_PIXELS)) return;
        free(record_.data);
        record_.data = nullptr;
        record_.flags &= ~img_flags{IMG_F_DIRECT};
    }

    img_status make() {
        if (has(record_, IMG_F_DIRECT | IMG_F_ACCESS)) return IMG_ST_OK;
        if (uint64_t{record_.width} * bits_per_pixel(record_.format) > UINT32_MAX - 31) return IMG_ST_NOMEM;
        return img_alloc(&record_, &made_);
    }
    void keep() { made_ = 0; }

private:
    img_record &record_;
    img_alloc_result made_ = 0;
};

} // namespace img::kit
