// SPDX-License-Identifier: MIT
//
// Filters, and the weights that they give. All distances are taken from the middle of the part that is scaled and all
// sums are made from both ends at once, so that a mirrored picture has exactly the mirrored weights.
#include "kit/resample/axis.h"

#include <math.h>
#include <string.h>

namespace img::kit {

namespace {

double triangle(double x) { return x < 1 ? 1 - x : 0; }

// Catmull-Rom: the cubic through its samples with a slope of -0.5 at the first zero.
double cubic(double x) {
    if (x < 1) return (1.5 * x - 2.5) * x * x + 1;
    return x < 2 ? ((-0.5 * x + 2.5) * x - 4) * x + 2 : 0;
}

double lanczos3(double x) {
    if (x >= 3) return 0;
    if (x < 1e-9) return 1;
    const double a = M_PI * x, lobe = sin(a / 3),
                 fine = lobe * (3 - 4 * lobe * lobe); // sin(a)
    return 3 * fine * lobe / (a * a);
}

struct Filter {
    double (*value)(double distance); // null: the length of what pixel and result share
    double radius;
};

Filter filter_of(uint32_t filter) {
    switch (filter) {
    case PICTRA_FILTER_AREA:
        return {nullptr, 0.5};
    case PICTRA_FILTER_BILINEAR:
        return {triangle, 1};
    case PICTRA_FILTER_BICUBIC:
        return {cubic, 2};
    default:
        return {lanczos3, 3};
    }
}

// The weights of one result position before they are rounded, at source positions from `begin` on.
class Window {
public:
    Window(const Span &span, const Filter &filter, Owned<double> room)
        : span_(span), filter_(filter), room_(move(room)) {
        stretch_ = filter.value && span.ratio() < 1 ? 1 : span.ratio();
        middle_ = span.from + span.length / 2;
        radius_ = filter.radius * stretch_;
    }

    // As many source positions as a window may have, at most.
    static double size(const Span &span, const Filter &filter) {
        const double stretch = filter.value && span.ratio() < 1 ? 1 : span.ratio();
        return ceil(2 * filter.radius * stretch) + 2;
    }

    void move_to(uint32_t i) {
        from_middle_ = (2.0 * i - (span_.result - 1.0)) * (span_.length / (2.0 * span_.result));
        const double centre = middle_ + from_middle_, end = span_.source - 1.0;
        const double low = floor(centre - radius_ - 0.5), high = ceil(centre + radius_ - 0.5);
        begin = static_cast<uint32_t>(fmin(fmax(low, 0), end));
        count = static_cast<uint32_t>(fmin(fmax(high, 0), end)) - begin + 1;
        for (uint32_t k = 0; k < count; k++) room_[k] = at(static_cast<double>(begin) + k);
    }

    // Whether a weight is one at all: where filters cross zero they are not quite 0.
    bool counts(uint32_t k) const { return fabs(room_[k]) > 1e-9; }

    double value(uint32_t k) const { return room_[k]; }
    double distance(uint32_t k) const { return fabs(offset(static_cast<double>(begin) + k)); }
    double sum() const {
        double all = 0;
        for (uint32_t k = 0; k < count / 2; k++) all += room_[k] + room_[count - 1 - k];
        return count % 2 ? all + room_[count / 2] : all;
    }

    uint32_t begin = 0, count = 0;

private:
    static Owned<double> &&move(Owned<double> &room) { return static_cast<Owned<double> &&>(room); }
    double offset(double x) const { return x + 0.5 - middle_ - from_middle_; }
    double at(double x) const {
        const double from = offset(x);
        if (filter_.value) return filter_.value(fabs(from) / stretch_);
        return fmax(fmin(from + 0.5, radius_) - fmax(from - 0.5, -radius_), 0);
    }

    const Span span_;
    const Filter filter_;
    Owned<double> room_;
    double stretch_, middle_, radius_, from_middle_ = 0;
};

// Rounds, and gives what is missing to the largest weight: to the one closest to the centre, halved between two alike.
void quantise(const Window &window, int32_t one, int32_t *weights) {
    const double scale = one / window.sum();
    int32_t missing = one;
    for (uint32_t k = 0; k < window.count; k++) {
        weights[k] = static_cast<int32_t>(floor(window.value(k) * scale + 0.5));
        missing -= weights[k];
    }
    const auto before = [&](uint32_t a, uint32_t b) {
        return weights[a] != weights[b] ? weights[a] > weights[b] : window.distance(a) < window.distance(b);
    };
    uint32_t left = 0, right = window.count - 1;
    for (uint32_t k = 1; k < window.count; k++) {
        if (before(k, left)) left = k;
        if (before(window.count - 1 - k, right)) right = window.count - 1 - k;
    }
    const int32_t half = left != right && missing % 2 == 0 ? missing / 2 : 0;
    weights[left] += missing - half;
    weights[right] += half;
}

} // namespace

template <typename Weight> bool Axis<Weight>::make(const Span &span, uint32_t filter, uint32_t step) {
    result = span.result;
    first = allocate<uint32_t>(result);
    last = allocate<uint32_t>(result);
    if (!first || !last) return false;
    if (filter == PICTRA_FILTER_NEAREST) {
        for (uint32_t i = 0; i < result; i++) {
            const double centre = floor(span.from + (i + 0.5) * span.ratio());
            first[i] = last[i] = static_cast<uint32_t>(fmin(centre, span.source - 1.0));
        }
        rows = 1;
        return true;
    }

    const Filter shape = filter_of(filter);
    const auto size = static_cast<uint32_t>(fmin(Window::size(span, shape), span.source));
    const uint64_t room = uint64_t{size} + step + tap_group; // in whole groups
    if (room > UINT32_MAX / sizeof(double)) return false;
    weights = allocate<Weight>(result * room);
    Owned<double> values = allocate<double>(room);
    Owned<int32_t> rounded = allocate<int32_t>(room);
    if (!weights || !values || !rounded) return false;
    Window window(span, shape, static_cast<Owned<double> &&>(values));
    for (uint32_t i = 0; i < result; i++) {
        window.move_to(i);
        quantise(window, int32_t{1} << fraction_bits, rounded.get());
        uint32_t begin = 0, end = window.count;
        while (!window.counts(begin)) begin++;
        while (!window.counts(end - 1)) end--;
        first[i] = (window.begin + begin) / step * step;
        last[i] = window.begin + end - 1;

        constexpr auto unit = Weight(sizeof(Weight) == sizeof(int16_t) ? 1 : 1.0 / (1 << fraction_bits));
        Weight *to = weights.get() + i * room;
        memset(to, 0, room * sizeof *to);
        to += window.begin + begin - first[i];
        for (uint32_t k = begin; k < end; k++) *to++ = static_cast<Weight>(static_cast<Weight>(rounded[k]) * unit);
        rows = last[i] - first[i] + 1 > rows ? last[i] - first[i] + 1 : rows;
    }
    taps = (rows + tap_group - 1) / tap_group * tap_group;
    for (uint32_t i = 1; i < result; i++)
        memmove(weights.get() + size_t{i} * taps, weights.get() + i * room, taps * sizeof(Weight));
    return true;
}

template class Axis<int16_t>;
template class Axis<float>;

} // namespace img::kit
