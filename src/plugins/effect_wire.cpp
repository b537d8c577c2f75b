#include "plugins/effect_wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>

#include "samples/text_codec.h"

namespace kv {
namespace {

/// Takes fields off the front of a record; whoever asked for one too many finds `good` false.
class FieldReader {
public:
    explicit FieldReader(std::string_view record) : rest_(record) {}

    std::string text() {
        const std::size_t end = rest_.find(kFieldEnd);
        if (end == std::string_view::npos) good_ = false;
        std::string field(rest_.substr(0, end));
        rest_.remove_prefix(good_ ? end + 1 : rest_.size());
        return field;
    }
    u32 number() {
        const std::string field = text();
        u32 number = 0;
        const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
        if (error != std::errc() || end != field.data() + field.size()) good_ = false;
        return number;
    }
    f32 real() { return std::bit_cast<f32>(number()); }
    /// A number of things of which each takes at least one byte.
    u32 count() {
        const u32 count = number();
        if (count > rest_.size()) good_ = false;
        return good_ ? count : 0;
    }
    bool good() const { return good_; }

private:
    std::string_view rest_;
    bool good_ = true;
};

class FieldWriter {
public:
    void text(std::string_view text) {
        record += cleanText(text);
        record += kFieldEnd;
    }
    void number(u64 number) { record += fmt::format("{}{}", number, kFieldEnd); }
    void real(f32 value) { number(std::bit_cast<u32>(value)); }

    std::string record;
};

constexpr u32 kToggled = 1, kInteger = 2, kLogarithmic = 4;

EffectParameter unpackParameter(FieldReader& fields) {
    EffectParameter parameter;
    parameter.symbol = fields.text();
    parameter.label = fields.text();
    parameter.minimum = fields.real();
    parameter.maximum = fields.real();
    parameter.defaultValue = fields.real();
    const u32 flags = fields.number();
    parameter.toggled = (flags & kToggled) != 0;
    parameter.integer = (flags & kInteger) != 0;
    parameter.logarithmic = (flags & kLogarithmic) != 0;
    parameter.port = fields.number();
    return parameter;
}

} // namespace

std::string cleanText(std::string_view text) {
    std::string clean = isUtf8(text) ? std::string(text) : AnsiToUtf8(text);
    const auto control = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
    std::replace_if(clean.begin(), clean.end(), control, ' ');
    return clean;
}

std::string packEffect(const EffectInfo& effect) {
    FieldWriter fields;
    for (const std::string& text : {effect.id, effect.name, effect.maker}) fields.text(text);
    for (const auto& ports : {effect.inputs, effect.outputs}) {
        fields.number(ports.size());
        for (const u32 port : ports) fields.number(port);
    }
    fields.number(static_cast<u32>(effect.latencyPort + 1));
    fields.number(effect.index);
    fields.number(effect.parameters.size());
    for (const EffectParameter& parameter : effect.parameters) {
        fields.text(parameter.symbol);
        fields.text(parameter.label);
        fields.real(parameter.minimum);
        fields.real(parameter.maximum);
        fields.real(parameter.defaultValue);
        fields.number((parameter.toggled ? kToggled : 0) | (parameter.integer ? kInteger : 0) |
                      (parameter.logarithmic ? kLogarithmic : 0));
        fields.number(parameter.port);
    }
    return fields.record;
}

std::optional<EffectInfo> unpackEffect(std::string_view record) {
    FieldReader fields(record);
    EffectInfo effect;
    for (std::string* text : {&effect.id, &effect.name, &effect.maker}) *text = fields.text();
    for (std::vector<u32>* ports : {&effect.inputs, &effect.outputs}) {
        for (u32 left = fields.count(); left > 0; --left) ports->push_back(fields.number());
    }
    effect.latencyPort = saturate<i32>(fields.number()) - 1;
    effect.index = fields.number();
    for (u32 left = fields.count(); left > 0; --left) effect.parameters.push_back(unpackParameter(fields));
    if (!fields.good()) return {};
    return effect;
}

} // namespace kv
