// The filters of the resampler: windowed sincs and short interpolators as functions of time.
#pragma once

#include "base/integers.h"

namespace kv {

/// A Kaiser-windowed sinc. Times are in frames of the lower of the two rates.
struct FilterShape {
    int taps = 0;   ///< half-length in frames of the lower rate
    f64 cutoff = 1; ///< centre of the transition (-6 dB), as a part of the lower rate's band
    f64 beta = 0;   ///< of the Kaiser window

    bool operator==(const FilterShape&) const = default;
};

/// Which parameters the qualities 3 to 7 stand for.
enum class FilterSet : u8 {
    Clean,   ///< each reaches the S/N of its name at every frequency, in both directions
    Classic, ///< the stream element's: wider passband when the rate grows, at the cost of images
};

/// The filter of a quality from 3 to 7; `grows`: the output rate is not below the input rate.
FilterShape filterShape(int quality, FilterSet set, bool grows);

/// Modified Bessel function of the first kind and order 0, summed until a term falls below 1e-21 of the sum.
f64 besselI0(f64 x);

/// h(t) = c sinc(c t) w(t / taps), w the Kaiser window; 0 outside -taps..taps. The integral is nearly 1.
f64 windowedSinc(const FilterShape& shape, f64 t);

/// Half the width of the transition, as a part of the lower rate's band, by Kaiser's estimate
/// (A - 8) / (2.285 N) with A = beta / 0.1102 + 8.7 (J. F. Kaiser, "Nonrecursive digital filter design
/// using the I0-sinh window function", 1974).
f64 halfTransition(const FilterShape& shape);

} // namespace kv
