#include "formats/media/media_library.h"

#include <filesystem>

#include "base/run_context.h"

namespace kv {
namespace {

constexpr const char* kFileName = "kelvane-libav.so";
constexpr std::string_view kPackage = "kelvane-libav, which also needs libavformat59 and libavcodec59";

} // namespace

MediaLibrary::MediaLibrary(std::initializer_list<const char*> names) : library_(kPackage, names) {
    MediaModuleEntry* entry = nullptr;
    library_.bind(entry, kMediaModuleEntry);
    if (entry) module_ = entry();
}

const MediaModule* MediaLibrary::module(std::string_view context) const {
    if (!library_.ready(context)) return nullptr;
    if (module_ && module_->version == kMediaModuleVersion) return module_;
    Fail(context, "The module {} belongs to another version of the program. Please update the package {}.",
         kFileName, kPackage);
    return nullptr;
}

const MediaModule* mediaModule(std::string_view context) {
    static const MediaLibrary& library = *[] {
        std::error_code ignored;
        const std::filesystem::path folder =
            std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
        const std::string beside = folder / kFileName;
        const std::string installed = folder / "../lib/kelvane" / kFileName;
        return new MediaLibrary({kFileName, beside.c_str(), installed.c_str()}); // open to the end
    }();
    return library.module(context);
}

} // namespace kv
