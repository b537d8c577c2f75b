// An algorithm that changes waves or songs: what it is called, what can be set, what does the work. The rows
// make the window's pages and the command line's lists alike.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

class Item;
struct Algorithm;

/// One of several answers: its name on the command line and its text in the window.
struct Choice {
    std::string_view slug, label;
};

enum class ParameterKind : u8 {
    Number,
    Integer,
    Switch, ///< off or on
    Choice,
    Text,
    Wave, ///< a wave of the store, as "wave:2" or wave:"NAME"
};
std::string_view nameOf(ParameterKind kind);

/// What a user can set.
struct Parameter {
    ParameterKind kind;
    std::string_view slug, label;
    std::string_view unit = {};
    f64 initial = 0;               ///< a number, 0 or 1 of a switch, or the index of a choice
    f64 least = 0, most = 0;       ///< of numbers, both included
    std::string_view refusal = {}; ///< what a number out of its range is answered with, if not the usual text
    std::span<const Choice> choices = {};
    std::string_view initialText = {};
    std::string_view turnsOn = {}; ///< the switch that a given value turns on
};

/// What is set for one run of an algorithm. The getters take a slug, which must be one of the algorithm's.
class ParameterValues {
public:
    /// The initial values.
    explicit ParameterValues(const Algorithm& algorithm);

    /// The value as `set` takes it.
    std::string textOf(std::string_view slug) const;
    /// Sets a value from its text. False with the error pair set when there is no such parameter or the text
    /// is none of its values.
    bool set(std::string_view slug, std::string_view text);

    f64 number(std::string_view slug) const { return find(slug).number; }
    int integer(std::string_view slug) const { return static_cast<int>(find(slug).number); }
    bool on(std::string_view slug) const { return find(slug).number != 0; }
    std::size_t choice(std::string_view slug) const { return static_cast<std::size_t>(find(slug).number); }
    const std::string& text(std::string_view slug) const { return find(slug).text; }

private:
    struct Value {
        f64 number = 0;
        std::string text;
    };
    const Value& find(std::string_view slug) const;

    const Algorithm* algorithm_;
    std::vector<Value> values_;
};

/// What a run works on: waves, or songs and tracks.
struct WizardItems {
    std::vector<Item*> items;
    bool rangeOn = false; ///< only the frames [rangeFrom, rangeTo) of a wave
    u32 rangeFrom = 0, rangeTo = 0;
    bool allWaves = false; ///< every wave of the store
};

struct AlgorithmRun {
    WizardItems& items;
    const ParameterValues& values;
    std::string text = {}; ///< what an algorithm that measures has to say
};

enum class AlgorithmKind : u8 { Audio, Midi, Instrument };
std::string_view nameOf(AlgorithmKind kind);

struct Algorithm {
    AlgorithmKind kind;
    std::string_view name;
    std::span<const Parameter> parameters;
    /// Does the work on all items. False with the error pair set on failure.
    bool (*run)(AlgorithmRun& run);
    u32 flags = 0;
    /// Whether it makes sense for the items; null: always.
    bool (*offered)(const WizardItems& items) = nullptr;
};

/// Flags of an algorithm.
inline constexpr u32 kTakesRange = 0x1;
inline constexpr u32 kNeedsRange = 0x100; ///< without a range it works on the whole wave as one

/// The name as one word: lower case, everything else as hyphens. "Fade in/out selection" is
/// "fade-in-out-selection".
std::string slugOf(const Algorithm& algorithm);

/// All items of the store that an algorithm of a kind works on; songs as their collection.
WizardItems allItemsFor(AlgorithmKind kind);

/// An algorithm with its values.
struct AlgorithmCall {
    const Algorithm* algorithm;
    ParameterValues values;
};
/// Reads "transpose-notes:semitones=3,exclude-drums=1": a slug, and values with commas between; a value that
/// holds a comma stands in double quotes, a quote within it is doubled, a switch may stand without "=1".
/// Nothing with the error pair set when it can't be understood.
std::optional<AlgorithmCall> parseAlgorithmCall(std::string_view text, std::span<const Algorithm> known);

/// The call as `parseAlgorithmCall` reads it.
std::string textOf(const AlgorithmCall& call);

/// Runs an algorithm on the items: refuses what it isn't offered for, loads waves, and keeps the range within
/// them. `text` takes what the algorithm has to say. False with the error pair set on failure.
bool runAlgorithm(const AlgorithmCall& call, const WizardItems& items, std::string& text);

} // namespace kv
