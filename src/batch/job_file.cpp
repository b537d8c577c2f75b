// Batch jobs as TOML.
#define TOML_EXCEPTIONS 0
#define TOML_ASSERT(condition) static_cast<void>(0) // it asserts what damaged files don't keep
#include <fmt/format.h>
#include <toml++/toml.h>

#include <string>

#include "base/run_context.h"
#include "batch/batch_job.h"
#include "samples/toml_text.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "batch";

template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

bool unfit(std::string_view key) {
    return Fail(kContext, "The job file has an unfit value for \"{}\"", key);
}

template <class T>
bool takeNumber(const toml::node& value, const BatchOption& option, T& to) {
    const auto number = value.value_exact<i64>();
    if (!number || *number < option.least || *number > option.most) return unfit(option.name);
    to = static_cast<T>(*number);
    return true;
}

bool takeOption(const toml::node& value, const BatchOption& option, BatchJob& job) {
    return std::visit(Overloaded{[&](bool BatchJob::*member) {
                                     const auto flag = value.value_exact<bool>();
                                     if (flag) job.*member = *flag;
                                     return flag.has_value() || unfit(option.name);
                                 },
                                 [&](auto member) { return takeNumber(value, option, job.*member); }},
                      option.member);
}

bool takeTexts(const toml::node& value, std::string_view key, std::vector<std::string>& texts) {
    const toml::array* list = value.as_array();
    if (!list) return unfit(key);
    for (const toml::node& entry : *list) {
        const auto text = entry.value_exact<std::string>();
        if (!text) return unfit(key);
        texts.push_back(*text);
    }
    return true;
}

bool takeEffects(const toml::node& value, BatchJob& job) {
    const toml::array* list = value.as_array();
    if (!list) return unfit("effects");
    for (const toml::node& entry : *list) {
        const toml::table* table = entry.as_table();
        if (!table) return unfit("effects");
        const auto effect = (*table)["effect"].value<std::string>();
        if (!effect) return unfit("effects");
        job.plugins.push_back({*effect, (*table)["settings"].value_or(std::string())});
    }
    return true;
}

/// Everything but the options of the table and the outputs, which need the mode.
bool takeOther(std::string_view key, const toml::node& value, BatchJobFile& file) {
    BatchJob& job = file.job;
    const auto text = value.value_exact<std::string>();
    if (key == "inputs") return takeTexts(value, key, file.inputs);
    if (key == "algorithms") return takeTexts(value, key, job.algorithms);
    if (key == "effects") return takeEffects(value, job);
    if (key == "outputs") return value.is_array() || unfit(key);
    if (!text) {
        return key == "mode" || key == "output-dir" || key == "silence-threshold"
                   ? unfit(key)
                   : Fail(kContext, "There is no \"{}\" in a job file", key);
    }
    if (key == "output-dir") {
        job.outputDir = *text;
        return true;
    }
    if (key == "silence-threshold") {
        job.thresholdInDb = !text->ends_with('%');
        return readLevel(*text, job.silenceThreshold);
    }
    if (key != "mode") return Fail(kContext, "There is no \"{}\" in a job file", key);
    for (std::size_t i = 0; i < batchModes().size(); ++i) {
        if (batchModes()[i].slug != *text) continue;
        job.mode = static_cast<BatchMode>(i);
        return true;
    }
    return unfit(key);
}

bool takeOutputs(const toml::table& table, BatchJob& job) {
    std::vector<std::string> texts;
    const toml::node* list = table.get("outputs");
    if (list && !takeTexts(*list, "outputs", texts)) return false;
    for (const std::string& text : texts) {
        BatchOutput output;
        if (!readOutput(text, job.mode, output)) return false;
        job.outputs.push_back(output);
    }
    return true;
}

const BatchOption* optionOf(std::string_view name) {
    for (const BatchOption& option : batchOptions()) {
        if (option.name == name) return &option;
    }
    return nullptr;
}

/// A basic string of TOML.
std::string tomlString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += fmt::format("\\{}", c);
        else if (static_cast<u8>(c) < 32 || c == 127)
            out += fmt::format("\\u{:04X}", static_cast<u8>(c));
        else
            out += c;
    }
    return out + "\"";
}

void addTexts(std::string& out, std::string_view key, const std::vector<std::string>& texts) {
    if (texts.empty()) return;
    out += fmt::format("{} = [\n", key);
    for (const std::string& text : texts) out += fmt::format("    {},\n", tomlString(text));
    out += "]\n";
}

} // namespace

bool parseJobFile(std::string_view text, BatchJobFile& file) {
    std::size_t line = 0;
    const std::optional<std::string> ascii = asciiToml(text, line);
    if (!ascii) return Fail(kContext, "Line {} of the job file can't be understood", line);
    const toml::parse_result parsed = toml::parse(*ascii);
    if (!parsed) {
        return Fail(kContext, "Line {} of the job file can't be understood: {}",
                    parsed.error().source().begin.line, parsed.error().description());
    }
    file = {};
    for (const auto& [key, value] : parsed.table()) {
        const BatchOption* option = optionOf(key.str());
        if (!(option ? takeOption(value, *option, file.job) : takeOther(key.str(), value, file)))
            return false;
    }
    return takeOutputs(parsed.table(), file.job);
}

std::string jobFileText(const BatchJobFile& file) {
    const BatchJob& job = file.job;
    std::string out = fmt::format("mode = \"{}\"\n", infoOf(job.mode).slug);
    std::vector<std::string> outputs;
    for (const BatchOutput& output : job.outputs) outputs.push_back(outputText(output));
    addTexts(out, "outputs", outputs);
    out += fmt::format("output-dir = {}\n", tomlString(job.outputDir.string()));
    for (const BatchOption& option : batchOptions()) {
        std::visit([&](auto member) { out += fmt::format("{} = {}\n", option.name, job.*member); },
                   option.member);
    }
    out += fmt::format("silence-threshold = \"{}\"\n", levelText(job.silenceThreshold, job.thresholdInDb));
    addTexts(out, "algorithms", job.algorithms);
    addTexts(out, "inputs", file.inputs);
    for (const BatchEffect& effect : job.plugins) {
        out += fmt::format("\n[[effects]]\neffect = {}\nsettings = {}\n", tomlString(effect.effect),
                           tomlString(effect.settings));
    }
    return out;
}

} // namespace kv
