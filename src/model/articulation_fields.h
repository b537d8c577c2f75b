// The one table of the articulation's fields: what is done to each of them alike loops over it.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <variant>

#include "model/articulation.h"
#include "model/parameter_set.h"

namespace kv {

enum class FieldUnit : u8 {
    None,
    Hertz,
    Seconds,
    Level,  ///< 0..1 of full, or -1..1
    Factor, ///< on a time
    Decibels,
    DecibelsPerOctave,
    Semitones,
    SemitonesPerKey,
    Flag,
    Shape,
    FilterType
};

/// How several records become one.
enum class FieldAverage : u8 { Mean, Last, Filter, EqualiserSwitch, EqLow, EqMiddle, EqHigh };

struct ArticulationField {
    using Member =
        std::variant<f32 Articulation::*, u32 Articulation::*, i32 Articulation::*, bool Articulation::*>;

    std::string_view name;
    Member member;
    FieldUnit unit;
    f64 least, most;
    FieldAverage average;
    /// The switches without any of which the field is not in use.
    std::optional<Switch> carrier, secondCarrier;
    /// What the field becomes without one of its switches; none: it isn't touched, or folded into others.
    std::optional<f32> without;

    f64 get(const Articulation& record) const;
    void set(Articulation& record, f64 value) const;
    /// The member, for fields that are a float.
    f32 Articulation::*real() const { return std::get<f32 Articulation::*>(member); }
    bool isReal() const { return std::holds_alternative<f32 Articulation::*>(member); }
    /// Into the limits; what is not a number becomes the default.
    void clamp(Articulation& record) const;
    f64 initial() const {
        static const Articulation kInitial;
        return get(kInitial);
    }
    /// The set has the field in use.
    bool carriedBy(const ParameterSet& parameterSet) const;
};

/// All fields but `enabled`, in the record's order.
std::span<const ArticulationField> articulationFields();

/// "Hz", "s", "dB", ...; empty for plain numbers.
std::string_view unitName(FieldUnit unit);
/// The value with its unit, or the name of a shape or filter type.
std::string fieldText(const ArticulationField& field, const Articulation& record);

} // namespace kv
