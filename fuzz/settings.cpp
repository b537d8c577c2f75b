// Any text as a settings file: values are in their ranges, and what is saved is loaded again.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "require.h"
#include "shell/settings_store.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kv;
    static const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("kelvane-fuzz-" + std::to_string(::getpid()) + ".toml");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    AppSettings settings;
    LoadSettings(path, settings);
    fuzz::require(settings.app.iPaneSplit >= 221, "a value below its least is raised");
    fuzz::require(settings.app.LastFilesA.size() <= 16, "a list is cut");
    if (!SaveSettings(path, settings)) return 0;
    AppSettings again;
    fuzz::require(LoadSettings(path, again).complaint.empty(), "what is saved is sound");
    for (const SettingInfo& info : settingInfos()) {
        fuzz::require(settingText(settings, info.name) == settingText(again, info.name),
                      "saved and loaded again");
    }
    std::filesystem::remove(path);
    return 0;
}
