// SPDX-License-Identifier: MIT
//
// How things that can fail are returned. Included by pictra.hpp.
//
// pictra::result<T> is std::expected<T, pictra::error> where the compiler has it, and a class of the same shape elsewhere.
// Nothing here needs exceptions: value() of a failure throws bad_result where they are on, else it prints the text and aborts.
// The inline namespaces keep programs apart whose parts were compiled with different kinds of result.
#ifndef PICTRA_CXX_RESULT_HPP
#define PICTRA_CXX_RESULT_HPP

#include "../pictra.h"

#include <string>
#include <utility>
#include <version>

#if defined(__cpp_lib_expected)
#include <expected>
#define PICTRA_CXX_ABI with_std_expected
#else
#include <stdio.h>
#include <stdlib.h>

#include <exception>
#include <memory>
#include <type_traits>
#include <variant>
#define PICTRA_CXX_ABI with_own_expected
#endif

namespace pictra {
inline namespace PICTRA_CXX_ABI {

/// Why something failed.
struct error {
    img_status status = IMG_ST_BADARG; ///< the library's or, passed through, a codec's; or stopped
    std::string text{};                ///< for people: what, and why
};

/// The status of a load or save that a progress function ended.
inline constexpr img_status stopped = 0x1000;

/// What a status means, as a phrase. Never null.
inline const char *status_text(img_status status) {
    switch (status) {
    case IMG_ST_OK:
        return "done";
    case IMG_ST_WRONGFORMAT:
        return "no codec recognises its content";
    case IMG_ST_NOCODEC:
        return "no codec recognises its content or its name";
    case IMG_ST_NOCONV:
        return "no conversion leads to the pixel format";
    case IMG_ST_DAMAGED:
        return "the data is damaged or cut short";
    case IMG_ST_BADFMT:
        return "the pixel format, or this variant of the file format, is not supported";
    case IMG_ST_NOMEM:
        return "memory ran out, or something exceeds 4 GiB";
    case IMG_ST_CONFIG:
        return "the configuration is missing or holds errors";
    case IMG_ST_MODULE:
        return "a codec module does not open";
    case IMG_ST_FILE:
        return "it cannot be opened, or not all could be written";
    case IMG_ST_LIMIT:
        return "it exceeds a limit of its codec";
    case IMG_ST_BADARG:
        return "an argument is out of range, or something is missing";
    case IMG_ST_NOTSUP:
        return "its codec cannot do this, or did not open";
    case stopped:
        return "stopped as asked";
    default:
        return "its codec reports a failure of its own";
    }
}

#if defined(__cpp_lib_expected)

/// A T, or the error that there is instead.
template <typename T> using result = std::expected<T, error>;
/// Makes the failure of any result.
using failure = std::unexpected<error>;
/// What value() of a failed result throws; error() tells why.
using bad_result = std::bad_expected_access<error>;

#else

/// What value() of a failed result throws; error() tells why.
class bad_result : public std::exception {
public:
    explicit bad_result(pictra::error why) : why_(std::make_shared<const pictra::error>(std::move(why))) {}
    const char *what() const noexcept override { return why_->text.c_str(); }
    const pictra::error &error() const noexcept { return *why_; }

private:
    std::shared_ptr<const pictra::error> why_; // copies of an exception must not throw
};

/// Makes the failure of any result.
class failure {
public:
    explicit failure(pictra::error why) : why_(std::move(why)) {}
    const pictra::error &error() const &noexcept { return why_; }
    pictra::error &&error() &&noexcept { return std::move(why_); }

private:
    pictra::error why_;
};

namespace detail {
[[noreturn]] inline void no_value(const error &why) {
#if defined(__cpp_exceptions)
    throw bad_result(why);
#else
    fprintf(stderr, "pictra: %s\n", why.text.c_str());
    abort();
#endif
}
} // namespace detail

/// A T, or the error that there is instead: the shape of std::expected. *, -> and error() want the result to hold what they
/// ask for; value() tests.
template <typename T> class [[nodiscard]] result {
public:
    using value_type = T;
    using error_type = pictra::error;
    using unexpected_type = failure;

    result(const T &value) : held_(std::in_place_index<0>, value) {}
    result(T &&value) : held_(std::in_place_index<0>, std::move(value)) {}
    result(failure why) : held_(std::in_place_index<1>, std::move(why).error()) {}

    bool has_value() const noexcept { return held_.index() == 0; }
    explicit operator bool() const noexcept { return has_value(); }
    T &operator*() &noexcept { return *std::get_if<0>(&held_); }
    const T &operator*() const &noexcept { return *std::get_if<0>(&held_); }
    T &&operator*() &&noexcept { return std::move(*std::get_if<0>(&held_)); }
    T *operator->() noexcept { return std::get_if<0>(&held_); }
    const T *operator->() const noexcept { return std::get_if<0>(&held_); }
    T &value() & { return check(), **this; }
    const T &value() const & { return check(), **this; }
    T &&value() && { return check(), *std::move(*this); }
    pictra::error &error() &noexcept { return *std::get_if<1>(&held_); }
    const pictra::error &error() const &noexcept { return *std::get_if<1>(&held_); }
    pictra::error &&error() &&noexcept { return std::move(*std::get_if<1>(&held_)); }
    template <typename U> T value_or(U &&other) && {
        return has_value() ? *std::move(*this) : static_cast<T>(std::forward<U>(other));
    }

private:
    void check() const {
        if (!has_value()) detail::no_value(error());
    }
    std::variant<T, pictra::error> held_;
};

/// The result of what gives nothing but success.
template <> class [[nodiscard]] result<void> {
public:
    using value_type = void;
    using error_type = pictra::error;
    using unexpected_type = failure;

    result() = default;
    result(failure why) : why_(std::move(why).error()), failed_(true) {}

    bool has_value() const noexcept { return !failed_; }
    explicit operator bool() const noexcept { return !failed_; }
    void value() const {
        if (failed_) detail::no_value(why_);
    }
    pictra::error &error() &noexcept { return why_; }
    const pictra::error &error() const &noexcept { return why_; }
    pictra::error &&error() &&noexcept { return std::move(why_); }

private:
    pictra::error why_{};
    bool failed_ = false;
};

#endif

namespace detail {

/// The failure of an operation on what has this name; detail says more than the status where something is known.
inline failure fail(img_status status, const std::string &name, const char *detail = nullptr) {
    return failure(error{status, name + ": " + (detail ? detail : status_text(status))});
}

} // namespace detail

} // namespace PICTRA_CXX_ABI
} // namespace pictra

#endif
