// Events as people type them: "480 note-on ch=1 60 100", "0 meta tempo 500000", "0 sysex 7E7F0901F7".
#pragma once

#include <string>
#include <string_view>

#include "midi/midi_edit.h"

namespace kv {

/// TICKS, then one of
///   note-off, note-on [ch=N] KEY VELOCITY      poly-press [ch=N] KEY PRESSURE
///   control [ch=N] CONTROLLER VALUE            program, pressure [ch=N] VALUE
///   bend [ch=N] VALUE                          from -8192 to 8191
///   sysex, sysex-cont HEX                      without the leading F0
///   meta TYPE VALUE                            TYPE is a name such as tempo, or 0 to 127
/// Channels count from 1; without one it is 1. VALUE of a meta event is a number, a text (in quotes where
/// wanted) or hexadecimal, as `metaForm` says; without one it is what a new event gets. False with the
/// error pair set for anything else.
bool parseMidiEvent(std::string_view text, MidiEvent& event);

/// The same for "INDEX TICKS ...", with the index from 1.
bool parseIndexedMidiEvent(std::string_view text, u32& index, MidiEvent& event);

/// An event in this notation; empty for one that it has no word for.
std::string midiNotation(const MidiEventCursor& event);

} // namespace kv
