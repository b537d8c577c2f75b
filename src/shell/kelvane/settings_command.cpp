// `kelvane settings`: the table of settings, value by value.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "formats/framework/parameter_sets.h"
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

int listParameterSets() {
    const ParameterSet& active = settings().pset;
    for (std::size_t i = 0; i < namedParameterSets(); ++i) {
        fmt::print("{} {}\n", parameterSetName(i) == parameterSetName(active) ? '*' : ' ',
                   parameterSetName(i));
    }
    fmt::print("\n");
    for (std::size_t i = 0; i < kSwitchCount; ++i) {
        fmt::print("{:2} {:3} {}\n", i, active.switches[i] != 0 ? "on" : "off", switchNames()[i]);
    }
    return kDone;
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
    if (options.action == "pset") return listParameterSets();
    if (!isSetting(options.name)) {
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
