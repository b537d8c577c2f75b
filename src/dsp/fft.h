// Fourier transforms: KissFFT's template over plain numbers, and over pairs of them for twice the speed.
#pragma once

#include <cmath>
#include <complex>
#include <kissfft/kissfft.hh>

#include "base/integers.h"

namespace kv {

/// Two numbers that are always treated alike, in one vector register: a transform over pairs is two
/// transforms in the time of little more than one. Has just what the transform asks of a number.
struct Pair {
    using Lanes = f64 __attribute__((vector_size(2 * sizeof(f64))));
    Lanes lanes{};

    Pair() = default;
    Pair(f64 both) : lanes{both, both} {}
    Pair(f64 first, f64 second) : lanes{first, second} {}
    explicit Pair(Lanes l) : lanes(l) {}
    /// The first; for the transform's constants, which are alike in both.
    operator f64() const { return lanes[0]; }

    Pair& operator+=(Pair b) {
        lanes += b.lanes;
        return *this;
    }
    Pair& operator-=(Pair b) {
        lanes -= b.lanes;
        return *this;
    }
    Pair& operator*=(Pair b) {
        lanes *= b.lanes;
        return *this;
    }
    friend Pair operator+(Pair a, Pair b) { return Pair(a.lanes + b.lanes); }
    friend Pair operator-(Pair a, Pair b) { return Pair(a.lanes - b.lanes); }
    friend Pair operator*(Pair a, Pair b) { return Pair(a.lanes * b.lanes); }
    friend Pair operator*(std::size_t a, Pair b) { return Pair(static_cast<f64>(a)) * b; }
    friend Pair operator-(Pair a) { return Pair(-a.lanes); }
    friend Pair exp(Pair a) { return std::exp(a.lanes[0]); }
    friend Pair cos(Pair a) { return std::cos(a.lanes[0]); }
    friend Pair sin(Pair a) { return std::sin(a.lanes[0]); }
};

/// Complex transforms, in double and float; not scaled in either direction.
using Fft = kissfft<f64>;
using FloatFft = kissfft<f32>;
using PairFft = kissfft<Pair>;

} // namespace kv
