#define TOML_EXCEPTIONS 0
#define TOML_ASSERT(condition) static_cast<void>(0) // it asserts what damaged files don't keep
#include "shell/settings_store.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <variant>
#include <vector>

#include "base/byte_sink.h"
#include "base/byte_source.h"
#include "base/run_context.h"
#include "base/text.h"
#include "formats/framework/parameter_sets.h"
#include "samples/text_codec.h"
#include "samples/toml_text.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

using List = std::vector<std::string>;
/// A setting's place in the structure; its type is the setting's kind.
using Ref =
    std::variant<bool*, i8*, i32*, std::string*, List*, std::span<i32>, std::span<u16>, std::span<u8>>;

struct Setting {
    std::string_view name;
    Ref (*at)(AppSettings&);
    std::size_t limit = 0; ///< of a text in characters or a list in entries; 0: none
    i32 least = INT32_MIN; ///< a number below is raised to it
};

#define KV_SETTING(path, ...)                                                                  \
    Setting {                                                                                  \
#path, [](AppSettings & s) -> Ref { return place(s.path); } __VA_OPT__(, ) __VA_ARGS__ \
    }

template <class T>
Ref place(T& member) {
    return &member;
}
template <class T, std::size_t N>
Ref place(std::array<T, N>& member) {
    return std::span<T>(member);
}
Ref place(ParameterSet& set) {
    return std::span<u8>(set.switches);
}

constexpr std::size_t kPath = 259; // characters of a path

const Setting kSettings[] = {
    KV_SETTING(app.LastFilesA, 16),
    KV_SETTING(app.LastPathsA, 10),
    KV_SETTING(app.aiLastExp),
    KV_SETTING(app.ptLastPos),
    KV_SETTING(app.ptLastSize),
    KV_SETTING(app.iPaneSplit, 0, 221),
    KV_SETTING(app.awColWidths),
    KV_SETTING(app.bAutoProp),
    KV_SETTING(app.bDispBankPrgs),
    KV_SETTING(app.bDispLoBank),
    KV_SETTING(app.bAutoSelWaveforms),
    KV_SETTING(app.bAutoSelCollItems),
    KV_SETTING(app.bPersistentState),
    KV_SETTING(app.bShowNoteNames),
    KV_SETTING(app.cOctMidC),
    KV_SETTING(load.bConfirm),
    KV_SETTING(load.bAutoSplitStereo),
    KV_SETTING(load.bAutoMergeStereo),
    KV_SETTING(load.bAutoMoveArticulation),
    KV_SETTING(load.bAutoAppend32),
    KV_SETTING(load.bAutoBid2Fwd),
    KV_SETTING(load.bAutoRev2Fwd),
    KV_SETTING(load.bAutoSortColl),
    KV_SETTING(load.bAutoSortWaves),
    KV_SETTING(load.bTakeGain),
    KV_SETTING(mt.bEnable),
    KV_SETTING(mt.iInDev),
    KV_SETTING(mt.iOutDev),
    KV_SETTING(mt.dwSampleRate),
    KV_SETTING(mt.dwmsLatency),
    KV_SETTING(mt.bVKeyb),
    KV_SETTING(mt.acVKeys, 36),
    KV_SETTING(ap.iOutDev),
    KV_SETTING(ap.iOscType),
    KV_SETTING(ap.ptLastPos),
    KV_SETTING(ap.bOpenNew),
    KV_SETTING(ap.iInDev),
    KV_SETTING(ap.iInRate),
    KV_SETTING(ap.iInChannels),
    KV_SETTING(ap.iInBits),
    KV_SETTING(ap.bTrackInEditor),
    KV_SETTING(sds.iOutDev),
    KV_SETTING(sds.iInDev),
    KV_SETTING(sds.iChannel),
    KV_SETTING(sds.iBaseSample),
    KV_SETTING(sds.iSCSIDev),
    KV_SETTING(sds.iOutBits),
    KV_SETTING(rawio.iCDDev),
    KV_SETTING(rawio.iFDDev),
    KV_SETTING(rawio.bDelayedLoad),
    KV_SETTING(rawio.bReplaceColl),
    KV_SETTING(app.wszWave, kPath),
    KV_SETTING(app.wszMidi, kPath),
    KV_SETTING(app.wszKeyb, kPath),
    KV_SETTING(app.szVSTPaths),
    KV_SETTING(pset),
    KV_SETTING(sall.iMode),
    KV_SETTING(sall.bSubDirs),
    KV_SETTING(misc.iAutoRegionMaxDown),
    KV_SETTING(misc.iAutoRegionMaxUp),
    KV_SETTING(fm2wt.dwSampleRate),
    KV_SETTING(fm2wt.dwmsMaxLength),
    KV_SETTING(fm2wt.dwmsMinLength),
    KV_SETTING(fm2wt.iNumWaves),
    KV_SETTING(mid2wav.dwSampleRate),
    KV_SETTING(mid2wav.bStereo),
    KV_SETTING(mid2wav.bReverb),
    KV_SETTING(mid2wav.bHiFi),
    KV_SETTING(mid2wav.bDeleteSrc),
    KV_SETTING(mid2wav.bNormalizePeak),
    KV_SETTING(mid2wav.bDeleteSilence),
    KV_SETTING(mid2wav.wszGMBank, kPath),
    KV_SETTING(mid2wav.iMaxPolyphony),
    KV_SETTING(fmt.mp3.bWriteID3),
    KV_SETTING(fmt.mp3.bWriteAPE),
    KV_SETTING(fmt.mp3.bWriteJS),
    KV_SETTING(fmt.mp2.bWriteID3),
    KV_SETTING(fmt.mp2.bWriteJS),
    KV_SETTING(fmt.aac.bWriteID3),
    KV_SETTING(fmt.aac.bWriteAPE),
    KV_SETTING(fmt.aac.bWriteMS),
    KV_SETTING(fmt.vox.dwDataFormat),
    KV_SETTING(fmt.sd2.dwSampleRate),
    KV_SETTING(fmt.sd2.iChannels),
    KV_SETTING(fmt.sd2.iBits),
};
#undef KV_SETTING

const Setting* findSetting(std::string_view name) {
    for (const Setting& setting : kSettings) {
        if (setting.name == name) return &setting;
    }
    Fail("Settings", "There is no setting \"{}\"", name);
    return nullptr;
}

// The three forms of a value: a TOML node, a text, and the member. Each is an overload for each kind.

template <class T>
bool inRange(i64 value) {
    return value >= std::numeric_limits<T>::min() && value <= std::numeric_limits<T>::max();
}

/// Reads a node into a value; false when it is of another kind, size or range.
bool fromNode(const toml::node& node, bool* value, const Setting&) {
    const auto stored = node.value_exact<bool>();
    if (stored) *value = *stored;
    return stored.has_value();
}

template <class T>
bool fromNode(const toml::node& node, T* value, const Setting& setting) requires std::is_integral_v<T> {
    const auto stored = node.value_exact<i64>();
    if (!stored || !inRange<T>(*stored)) return false;
    *value = static_cast<T>(std::max<i64>(*stored, setting.least));
    return true;
}

bool fromNode(const toml::node& node, std::string* value, const Setting& setting) {
    const auto stored = node.value_exact<std::string>();
    if (!stored) return false;
    *value = setting.limit == 0 ? *stored : std::string(cutToCharacters(*stored, setting.limit));
    return true;
}

bool fromNode(const toml::node& node, List* value, const Setting& setting) {
    const toml::array* array = node.as_array();
    if (!array) return false;
    List list;
    for (const toml::node& entry : *array) {
        const auto text = entry.value_exact<std::string>();
        if (!text) return false;
        if (list.size() < setting.limit) list.push_back(*text);
    }
    *value = std::move(list);
    return true;
}

template <class T>
bool fromNode(const toml::node& node, std::span<T> value, const Setting&) {
    const toml::array* array = node.as_array();
    if (!array || array->size() != value.size()) return false;
    std::vector<T> numbers;
    for (const toml::node& entry : *array) {
        const auto number = entry.value_exact<i64>();
        if (!number || !inRange<T>(*number)) return false;
        numbers.push_back(static_cast<T>(*number));
    }
    std::copy(numbers.begin(), numbers.end(), value.begin());
    return true;
}

/// A text as the file can hold it, which is UTF-8.
std::string storable(const std::string& text) {
    return isUtf8(text) ? text : AnsiToUtf8(text);
}

void toNode(toml::table& table, std::string_view key, bool* value) {
    table.insert_or_assign(key, *value);
}
void toNode(toml::table& table, std::string_view key, std::string* value) {
    table.insert_or_assign(key, storable(*value));
}
template <class T>
void toNode(toml::table& table, std::string_view key, T* value) requires std::is_integral_v<T> {
    table.insert_or_assign(key, static_cast<i64>(*value));
}
void toNode(toml::table& table, std::string_view key, List* value) {
    toml::array array;
    for (const std::string& entry : *value) array.push_back(storable(entry));
    table.insert_or_assign(key, std::move(array));
}
template <class T>
void toNode(toml::table& table, std::string_view key, std::span<T> value) {
    toml::array array;
    for (const T number : value) array.push_back(static_cast<i64>(number));
    table.insert_or_assign(key, std::move(array));
}

std::string_view kindOf(const bool*) {
    return "flag";
}
std::string_view kindOf(const i8*) {
    return "integer";
}
std::string_view kindOf(const i32*) {
    return "integer";
}
std::string_view kindOf(const std::string*) {
    return "text";
}
std::string_view kindOf(const List*) {
    return "list";
}
std::string_view kindOf(std::span<i32>) {
    return "array";
}
std::string_view kindOf(std::span<u16>) {
    return "array";
}
std::string_view kindOf(std::span<u8>) {
    return "switches";
}

/// The table that holds a dotted name's last part, made on the way where `make` says so.
toml::table* tableOf(toml::table& root, std::string_view& name, bool make) {
    toml::table* table = &root;
    for (std::size_t point = name.find('.'); point != std::string_view::npos; point = name.find('.')) {
        const std::string_view group = name.substr(0, point);
        name.remove_prefix(point + 1);
        toml::node* node = table->get(group);
        if (make && (!node || !node->is_table())) {
            table->insert_or_assign(group, toml::table());
            node = table->get(group);
        }
        table = node ? node->as_table() : nullptr;
        if (!table) return nullptr;
    }
    return table;
}

/// The values of a text; nothing, with the first problem in `problem`, when it is damaged.
std::optional<toml::table> parseToml(std::string_view text, std::string& problem) {
    std::size_t strayLine = 0;
    const std::optional<std::string> ascii = asciiToml(text, strayLine);
    if (!ascii) {
        problem = fmt::format("line {}: a character that can't stand there", strayLine);
        return {};
    }
    toml::parse_result parsed = toml::parse(*ascii);
    if (parsed) return std::move(parsed).table();
    problem = fmt::format("line {}: {}", parsed.error().source().begin.line, parsed.error().description());
    return {};
}

/// The parsed file; nothing when it is missing, with `damage` filled when it can't be parsed.
toml::table parseFile(const fs::path& file, bool& exists, std::string& damage) {
    constexpr u64 kLargest = 1 << 20;
    const std::shared_ptr<ByteSource> source = openFileSource(file);
    exists = source != nullptr;
    if (!exists) return {};
    Bytes bytes(static_cast<std::size_t>(std::min(source->size(), kLargest)));
    bytes.resize(source->readAt(0, bytes));
    std::string problem;
    if (std::optional<toml::table> table = parseToml(textOf(bytes), problem)) return *std::move(table);
    damage = fmt::format("Settings: {} is damaged ({}), defaults are in force", file.native(), problem);
    return {};
}

/// Without a choice of the user's, a bank that the system has.
std::string systemBank() {
    for (const char* path : {"/usr/share/sounds/dls/gm.dls", "/usr/share/sounds/sf2/default-GM.sf2",
                             "/usr/share/soundfonts/default.sf2", "/usr/share/sounds/sf2/FluidR3_GM.sf2"}) {
        std::error_code ignored;
        if (fs::exists(path, ignored)) return path;
    }
    return {};
}

} // namespace

std::span<const SettingInfo> settingInfos() {
    static const std::vector<SettingInfo> infos = [] {
        std::vector<SettingInfo> list;
        AppSettings defaults;
        for (const Setting& setting : kSettings) {
            const auto kind = std::visit([](auto value) { return kindOf(value); }, setting.at(defaults));
            list.push_back({setting.name, kind});
        }
        return list;
    }();
    return infos;
}

namespace {

/// A folder of the XDG Base Directory Specification.
fs::path userFolder(const char* variable, const char* belowHome) {
    const char* set = std::getenv(variable);
    const char* home = std::getenv("HOME");
    return set && *set == '/' ? fs::path(set) : fs::path(home ? home : "/") / belowHome;
}

} // namespace

fs::path defaultSettingsFile() {
    return userFolder("XDG_CONFIG_HOME", ".config") / "kelvane" / "settings.toml";
}

fs::path stateFolder() {
    return userFolder("XDG_DATA_HOME", ".local/share") / "kelvane";
}

SettingsLoad LoadSettings(const fs::path& file, AppSettings& settings) {
    SettingsLoad result;
    bool exists = false;
    toml::table root = parseFile(file, exists, result.complaint);
    result.firstRun = !root.contains("VersionNumber");
    std::string unfit;
    for (const Setting& setting : kSettings) {
        std::string_view key = setting.name;
        const toml::table* table = tableOf(root, key, false);
        const toml::node* node = table ? table->get(key) : nullptr;
        if (!node) continue;
        const bool fits =
            std::visit([&](auto value) { return fromNode(*node, value, setting); }, setting.at(settings));
        if (!fits) unfit += fmt::format("{}{}", unfit.empty() ? "" : ", ", setting.name);
    }
    if (!unfit.empty()) {
        result.complaint =
            fmt::format("Settings: unfit values in {}, defaults are in force for {}", file.native(), unfit);
    }
    std::error_code ignored;
    std::string& bank = settings.mid2wav.wszGMBank;
    if (bank.empty() || !fs::exists(bank, ignored)) bank = systemBank();
    return result;
}

bool SaveSettings(const fs::path& file, const AppSettings& settings) {
    bool exists = false;
    std::string damage;
    toml::table root = parseFile(file, exists, damage);
    std::error_code ignored;
    if (!damage.empty()) fs::rename(file, file.native() + ".damaged", ignored); // it may be worth mending
    root.insert_or_assign("VersionNumber", kVersionNumber);
    AppSettings copy = settings;
    for (const Setting& setting : kSettings) {
        std::string_view key = setting.name;
        toml::table& table = *tableOf(root, key, true);
        std::visit([&](auto value) { toNode(table, key, value); }, setting.at(copy));
    }
    std::ostringstream text;
    text << root << '\n';
    std::error_code failed;
    if (file.has_parent_path()) fs::create_directories(file.parent_path(), failed);
    const std::unique_ptr<SaveFile> save = SaveFile::create(file);
    if (save && save->write(bytesOf(text.str())) && save->commit()) return true;
    return Fail("Settings", "Could not write {}", file.native());
}

namespace {

/// The switch that a name like "pset.7" or "pset.LFOs: Ramp time" stands for.
std::optional<Switch> switchOf(std::string_view name) {
    constexpr std::string_view kGroup = "pset.";
    if (!name.starts_with(kGroup)) return {};
    name.remove_prefix(kGroup.size());
    for (std::size_t i = 0; i < kSwitchCount; ++i) {
        if (equalIgnoringCase(name, switchNames()[i]) || name == fmt::to_string(i))
            return static_cast<Switch>(i);
    }
    return {};
}

} // namespace

bool isSetting(std::string_view name) {
    return switchOf(name) || findSetting(name);
}

std::string settingText(const AppSettings& settings, std::string_view name) {
    if (const std::optional<Switch> one = switchOf(name)) return settings.pset[*one] ? "true" : "false";
    const Setting* setting = findSetting(name);
    if (!setting) return {};
    AppSettings copy = settings;
    if (auto value = setting->at(copy); const std::string* const* text = std::get_if<std::string*>(&value))
        return **text;
    if (std::holds_alternative<std::span<u8>>(setting->at(copy))) {
        const std::string_view set = parameterSetName(copy.pset);
        return set == kCustomSet ? parameterSetText(copy.pset) : std::string(set);
    }
    toml::table table;
    std::visit([&](auto value) { toNode(table, "x", value); }, setting->at(copy));
    std::ostringstream out;
    table.get("x")->visit([&](const auto& node) { out << node; });
    return out.str();
}

bool setSetting(AppSettings& settings, std::string_view name, std::string_view text) {
    if (const std::optional<Switch> one = switchOf(name)) {
        const bool on = text == "true" || text == "1" || text == "on";
        if (!on && text != "false" && text != "0" && text != "off")
            return Fail("Settings", "\"{}\" is no value for \"{}\", which takes a flag", text, name);
        settings.pset.set(*one, on);
        return true;
    }
    const Setting* setting = findSetting(name);
    if (!setting) return false;
    const Ref value = setting->at(settings);
    if (std::string* const* member = std::get_if<std::string*>(&value)) {
        **member = setting->limit == 0 ? text : cutToCharacters(text, setting->limit);
        return true;
    }
    if (std::holds_alternative<std::span<u8>>(value)) {
        const std::optional<ParameterSet> set = parameterSetOf(text);
        if (!set)
            return Fail("Settings", "\"{}\" takes the name of a set or {} digits 0 or 1", name, kSwitchCount);
        settings.pset = *set;
        return true;
    }
    if (std::holds_alternative<bool*>(value) && (text == "0" || text == "1"))
        text = text == "1" ? "true" : "false";
    std::string problem;
    const std::optional<toml::table> parsed = parseToml(fmt::format("x = {}", text), problem);
    const toml::node* node = parsed ? parsed->get("x") : nullptr;
    const bool fits = node && parsed->size() == 1 &&
                      std::visit([&](auto member) { return fromNode(*node, member, *setting); }, value);
    if (fits) return true;
    const auto kind = std::visit([](auto member) { return kindOf(member); }, value);
    return Fail("Settings", "\"{}\" is no value for \"{}\", which takes {} {}", text, name,
                kind == "integer" || kind == "array" ? "an" : "a", kind);
}

bool resetSetting(AppSettings& settings, std::string_view name) {
    if (const std::optional<Switch> one = switchOf(name)) {
        settings.pset.set(*one, ParameterSet()[*one]);
        return true;
    }
    const Setting* setting = findSetting(name);
    if (!setting) return false;
    AppSettings defaults;
    toml::table table;
    std::visit([&](auto value) { toNode(table, "x", value); }, setting->at(defaults));
    return std::visit([&](auto value) { return fromNode(*table.get("x"), value, *setting); },
                      setting->at(settings));
}

} // namespace kv
