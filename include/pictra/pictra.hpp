// SPDX-License-Identifier: MIT
//
// pictra for C++20: header-only, beside the C interface and over it. Ten lines load, resize and save:
//
//     const auto library = pictra::library::attach().value();
//     const auto photo = library.load("photo.jpg").value();
//     const auto small = pictra::resize(photo, pictra::within(320)).value();
//     library.save(small, "small.png").value();
//
// Whatever can fail returns a pictra::result, a value or an error with status and text, and throws nothing. value() of a
// failure throws where exceptions are on, else it aborts; so does memory that the C++ library lacks. Different images, streams and values may be used by different threads,
// and one library by all of them.
//
// cxx/result.hpp     result, error, status_text
// cxx/image.hpp      image, image_view
// cxx/transform.hpp  convert, crop, rotate, flip, upright, resize
// cxx/stream.hpp     input, output, and the classes source and sink
// cxx/exchange.hpp   values (orientation, colour profile and such), settings of codecs, progress
// cxx/library.hpp    library: load, load_resized, save, frames
#ifndef PICTRA_PICTRA_HPP
#define PICTRA_PICTRA_HPP

#include "cxx/library.hpp"

#endif
