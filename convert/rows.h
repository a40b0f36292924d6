// SPDX-License-Identifier: MIT
//
// The rows of a record, whether they are in a buffer or pass through an access function.
#pragma once

#include "core/record.h"

namespace img {

class Rows {
public:
    explicit Rows(const img_record &record) : record_(record) {}

    bool direct() const { return has(record_, IMG_F_DIRECT); }

    // The first byte of a row; buffers only.
    uint8_t *at(uint32_t y) const { return row_at(record_, y); }

    // Fetches pixels from the access function, or delivers them to it.
    void pass(uint32_t x, uint32_t y, uint32_t count, void *line) const {
        record_.access(record_.access_arg, x, y, count, line);
    }

private:
    const img_record &record_;
};

} // namespace img
