#include "wizards/algorithm.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cmath>

#include "base/run_context.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "process";

std::size_t indexOf(const Algorithm& algorithm, std::string_view slug) {
    const auto found = std::find_if(algorithm.parameters.begin(), algorithm.parameters.end(),
                                    [&](const Parameter& parameter) { return parameter.slug == slug; });
    return static_cast<std::size_t>(found - algorithm.parameters.begin());
}

bool readNumber(const Parameter& parameter, std::string_view text, f64& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = parameter.kind != ParameterKind::Integer || number == std::trunc(number);
    const bool ok = error == std::errc() && end == text.data() + text.size() && whole &&
                    number >= parameter.least && number <= parameter.most;
    if (ok) return true;
    if (!parameter.refusal.empty()) return Fail(kContext, "{}", parameter.refusal);
    return Fail(kContext, "\"{}\" is no value for {}: a {}number from {} to {}", text, parameter.slug,
                parameter.kind == ParameterKind::Integer ? "whole " : "", parameter.least, parameter.most);
}

bool readSwitch(const Parameter& parameter, std::string_view text, f64& number) {
    for (const std::string_view yes : {"", "1", "on", "yes", "true"}) {
        if (text == yes) number = 1;
    }
    for (const std::string_view no : {"0", "off", "no", "false"}) {
        if (text == no) number = 0;
    }
    return number >= 0 || Fail(kContext, "\"{}\" is no value for {}: 0 or 1", text, parameter.slug);
}

bool readChoice(const Parameter& parameter, std::string_view text, f64& number) {
    std::string known;
    for (std::size_t i = 0; i < parameter.choices.size(); ++i) {
        if (text == parameter.choices[i].slug) number = static_cast<f64>(i);
        known += fmt::format("{}{}", i == 0 ? "" : ", ", parameter.choices[i].slug);
    }
    return number >= 0 || Fail(kContext, "\"{}\" is no value for {}: one of {}", text, parameter.slug, known);
}

/// The text up to the next comma that isn't within quotes, which are taken off; of two within quotes one
/// stays.
std::string_view takePart(std::string_view& rest, std::string& holder) {
    bool quoted = false;
    std::size_t i = 0;
    holder.clear();
    for (; i < rest.size() && (quoted || rest[i] != ','); ++i) {
        if (quoted && rest.substr(i).starts_with("\"\""))
            holder += rest[i++];
        else if (rest[i] == '"')
            quoted = !quoted;
        else
            holder += rest[i];
    }
    rest.remove_prefix(std::min(i + 1, rest.size()));
    return holder;
}

} // namespace

std::string_view nameOf(ParameterKind kind) {
    constexpr std::string_view kNames[] = {"number", "integer", "switch", "choice", "text", "wave"};
    return kNames[static_cast<std::size_t>(kind)];
}

std::string_view nameOf(AlgorithmKind kind) {
    constexpr std::string_view kNames[] = {"audio", "midi", "instrument"};
    return kNames[static_cast<std::size_t>(kind)];
}

ParameterValues::ParameterValues(const Algorithm& algorithm) : algorithm_(&algorithm) {
    for (const Parameter& parameter : algorithm.parameters)
        values_.push_back({parameter.initial, std::string(parameter.initialText)});
}

const ParameterValues::Value& ParameterValues::find(std::string_view slug) const {
    const std::size_t index = indexOf(*algorithm_, slug);
    assert(index < values_.size());
    return values_[index];
}

bool ParameterValues::set(std::string_view slug, std::string_view text) {
    const std::size_t index = indexOf(*algorithm_, slug);
    if (index == values_.size()) {
        std::string known;
        for (const Parameter& parameter : algorithm_->parameters)
            known += fmt::format("{}{}", known.empty() ? "" : ", ", parameter.slug);
        return Fail(kContext, "\"{}\" is no parameter of \"{}\"; there {}", slug, algorithm_->name,
                    known.empty() ? "are none" : "are " + known);
    }
    const Parameter& parameter = algorithm_->parameters[index];
    f64 number = -1;
    switch (parameter.kind) {
        case ParameterKind::Number:
        case ParameterKind::Integer:
            if (!readNumber(parameter, text, number)) return false;
            break;
        case ParameterKind::Switch:
            if (!readSwitch(parameter, text, number)) return false;
            break;
        case ParameterKind::Choice:
            if (!readChoice(parameter, text, number)) return false;
            break;
        case ParameterKind::Text:
        case ParameterKind::Wave:
            break;
    }
    values_[index] = {number, std::string(text)};
    if (!parameter.turnsOn.empty()) values_[indexOf(*algorithm_, parameter.turnsOn)].number = 1;
    return true;
}

std::string ParameterValues::textOf(std::string_view slug) const {
    const Parameter& parameter = algorithm_->parameters[indexOf(*algorithm_, slug)];
    const Value& value = find(slug);
    switch (parameter.kind) {
        case ParameterKind::Number:
        case ParameterKind::Integer:
        case ParameterKind::Switch:
            return fmt::format("{}", value.number);
        case ParameterKind::Choice:
            return std::string(parameter.choices[static_cast<std::size_t>(value.number)].slug);
        case ParameterKind::Text:
        case ParameterKind::Wave:
            break;
    }
    return value.text;
}

std::string textOf(const AlgorithmCall& call) {
    std::string text = slugOf(*call.algorithm);
    char before = ':';
    // What turns a switch on comes first, lest it turn on one that is off.
    for (const bool turning : {true, false}) {
        for (const Parameter& parameter : call.algorithm->parameters) {
            if (parameter.turnsOn.empty() == turning) continue;
            std::string value;
            for (const char c : call.values.textOf(parameter.slug)) value += std::string(c == '"' ? 2 : 1, c);
            text += fmt::format("{}{}=\"{}\"", before, parameter.slug, value);
            before = ',';
        }
    }
    return text;
}

std::string slugOf(const Algorithm& algorithm) {
    std::string slug;
    for (const char c : algorithm.name) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (letter)
            slug += static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
        else if (!slug.empty() && slug.back() != '-')
            slug += '-';
    }
    while (slug.ends_with('-')) slug.pop_back();
    return slug;
}

WizardItems allItemsFor(AlgorithmKind kind) {
    WizardItems items;
    if (kind == AlgorithmKind::Audio) {
        for (Wave& wave : store().all<Wave>()) items.items.push_back(&wave);
        items.allWaves = true;
    } else if (kind == AlgorithmKind::Midi) {
        items.items.push_back(store().First<Collection>());
    } else {
        for (Instrument& instrument : store().all<Instrument>()) items.items.push_back(&instrument);
    }
    return items;
}

std::optional<AlgorithmCall> parseAlgorithmCall(std::string_view text, std::span<const Algorithm> known) {
    const std::size_t colon = text.find(':');
    const std::string_view slug = text.substr(0, colon);
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&](const Algorithm& algorithm) { return slugOf(algorithm) == slug; });
    if (found == known.end()) {
        Fail(kContext, "\"{}\" is no algorithm; `kelvane algorithms` lists them", slug);
        return {};
    }
    AlgorithmCall call{&*found, ParameterValues(*found)};
    std::string_view rest = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
    std::string holder;
    while (!rest.empty()) {
        const std::string_view part = takePart(rest, holder);
        const std::size_t equals = part.find('=');
        const std::string_view value = equals == std::string_view::npos ? "" : part.substr(equals + 1);
        if (!call.values.set(part.substr(0, equals), value)) return {};
    }
    return call;
}

bool runAlgorithm(const AlgorithmCall& call, const WizardItems& chosen, std::string& text) {
    const Algorithm& algorithm = *call.algorithm;
    if (algorithm.offered && !algorithm.offered(chosen))
        return Fail(kContext, "\"{}\" has nothing to do here", algorithm.name);
    WizardItems items = chosen;
    if (algorithm.kind == AlgorithmKind::Audio) {
        for (Item* item : items.items) {
            if (!item->LoadData()) return false;
        }
        if ((algorithm.flags & kTakesRange) == 0) items.rangeOn = false;
    }
    AlgorithmRun run{items, call.values};
    if (!algorithm.run(run)) return false;
    text = run.text;
    return true;
}

} // namespace kv
