// `kelvane settings`: the table of settings, value by value.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/settings_store.h"

namespace kv {
namespace {

int listSettings(bool json) {
    nlohmann::ordered_json object;
    for (const SettingInfo& info : settingInfos()) {
        const std::string value = settingText(settings(), info.name);
        if (json)
            object[std::string(info.name)] = value;
        else
            fmt::print("{} = {}\n", info.name, value);
    }
    if (json)
        fmt::print("{}\n", object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return kDone;
}

bool known(const std::string& name) {
    for (const SettingInfo& info : settingInfos()) {
        if (info.name == name) return true;
    }
    return Fail("Settings", "There is no setting \"{}\"", name);
}

bool save(const SettingsOptions& options) {
    return SaveSettings(options.file, settings());
}

} // namespace

int runSettings(const SettingsOptions& options) {
    if (options.action == "list") return listSettings(options.json);
    if (options.action == "reset" && options.name.empty()) {
        settings() = AppSettings();
        return save(options) ? kDone : reportFailure();
    }
    if (!known(options.name)) {
        reportFailure();
        return kUsage;
    }
    if (options.action == "get") {
        fmt::print("{}\n", settingText(settings(), options.name));
        return kDone;
    }
    const bool changed = options.action == "set" ? setSetting(settings(), options.name, options.value)
                                                 : resetSetting(settings(), options.name);
    return changed && save(options) ? kDone : reportFailure();
}

} // namespace kv
