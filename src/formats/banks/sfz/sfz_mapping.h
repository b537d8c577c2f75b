// What the opcodes mean in the model: one table that is read one way and written the other.
#pragma once

#include <span>

#include "formats/banks/sfz/sfz_section.h"
#include "model/articulation.h"

namespace kv {

class Region;
class Wave;

/// A field that is an opcode's number times a factor.
struct SfzLink {
    std::string_view opcode;
    f32 Articulation::*field;
    f64 factor;              ///< field = opcode * factor
    f64 least, most;         ///< of the opcode, when it is written
    std::string_view twin{}; ///< opcode of the same meaning: read is what lies further from 0, written both
};
std::span<const SfzLink> sfzLinks();
const SfzLink& findSfzLink(std::string_view opcode); ///< it must exist

/// Envelope times and levels of the model.
struct SfzEgFields {
    f32 Articulation::*delay, Articulation::*attack, Articulation::*hold, Articulation::*decay,
        Articulation::*sustain, Articulation::*release;
};
inline constexpr SfzEgFields kSfzEg1{&Articulation::eg1Delay,   &Articulation::eg1Attack,
                                     &Articulation::eg1Hold,    &Articulation::eg1Decay,
                                     &Articulation::eg1Sustain, &Articulation::eg1Release};
inline constexpr SfzEgFields kSfzEg2{&Articulation::eg2Delay,   &Articulation::eg2Attack,
                                     &Articulation::eg2Hold,    &Articulation::eg2Decay,
                                     &Articulation::eg2Sustain, &Articulation::eg2Release};

/// Fills an envelope that has its defaults. Bank times count to the sustain level, the model's over all
/// levels; a start level from 10 % shortens the way up.
void sfzReadEg(const SfzEg& eg, bool oneShot, const SfzEgFields& fields, Articulation& to);

/// The names of the filter types, by index in `filterTypeNames()`.
std::span<const std::string_view, 10> sfzFilterTypes();

/// Fills a new region that plays the wave. Ranges, articulation and sample parameters; the override flag is
/// set when these differ from the wave's.
void sfzReadRegion(const SfzSection& section, const Wave& wave, Region& region);

} // namespace kv
