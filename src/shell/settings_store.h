// The settings as a file: one table of name, kind, default and member drives loading, saving and the
// command line.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "model/app_settings.h"

namespace kv {

inline constexpr std::string_view kVersionNumber = "11.4";

struct SettingInfo {
    std::string_view name; ///< dotted, as "load.bConfirm"
    std::string_view kind; ///< "flag", "integer", "text", "list", "array" or "switches"
};
/// All settings, in stored order.
std::span<const SettingInfo> settingInfos();

/// `$XDG_CONFIG_HOME/kelvane/settings.toml`, by default below `~/.config`.
std::filesystem::path defaultSettingsFile();
/// Where saved states stand: `$XDG_DATA_HOME/kelvane`, by default below `~/.local/share`.
std::filesystem::path stateFolder();

struct SettingsLoad {
    bool firstRun = false; ///< nothing of any version was stored
    std::string complaint; ///< what of the file was damaged and is left at its default; empty if nothing
};
/// Reads the settings of a TOML file over the defaults. A missing file is a first run; a value of another
/// kind or size than expected leaves the default in force.
SettingsLoad LoadSettings(const std::filesystem::path& file, AppSettings& settings);

/// Writes all settings, keeping values of the file that this version doesn't know. The file changes as a
/// whole or not at all.
bool SaveSettings(const std::filesystem::path& file, const AppSettings& settings);

/// There is a setting of this name, or a switch of the parameter set, as "pset.7" or
/// "pset.LFOs: Ramp time"; else false with the error pair set.
bool isSetting(std::string_view name);
/// A value as text: true or false, a number, the text itself, an array in brackets, or the name of a
/// parameter set (its digits when it has none). Empty for a name that there isn't.
std::string settingText(const AppSettings& settings, std::string_view name);
/// Takes a value from such a text. False with the error pair set for an unknown name or an unfit text.
bool setSetting(AppSettings& settings, std::string_view name, std::string_view text);
bool resetSetting(AppSettings& settings, std::string_view name);

} // namespace kv
