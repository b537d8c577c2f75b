#pragma once
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "model/app_settings.h"
namespace kv {
struct SettingInfo {
    std::string_view name;
};
inline std::span<const SettingInfo> settingInfos() {
    return {};
}
inline std::string settingText(const AppSettings&, std::string_view) {
    return {};
}
inline bool setSetting(AppSettings&, std::string_view, std::string_view) {
    return true;
}
inline bool resetSetting(AppSettings&, std::string_view) {
    return true;
}
inline bool SaveSettings(const std::filesystem::path&, const AppSettings&) {
    return true;
}
struct SettingsLoad {
    std::string complaint;
};
inline SettingsLoad LoadSettings(const std::filesystem::path&, AppSettings&) {
    return {};
}
inline std::filesystem::path defaultSettingsFile() {
    return {};
}
} // namespace kv
