// The loadable module for media containers, opened when it is first needed.
#pragma once

#include <initializer_list>
#include <string_view>

#include "base/shared_library.h"
#include "formats/media/media_module.h"

namespace kv {

/// A module that was looked for under some names.
class MediaLibrary {
public:
    explicit MediaLibrary(std::initializer_list<const char*> names);
    /// Its functions. Null with the error pair set when it can't be opened or was built for another version
    /// of the program.
    const MediaModule* module(std::string_view context) const;

private:
    SharedLibrary library_;
    const MediaModule* module_ = nullptr;
};

/// The module of this program: where the loader finds it, else beside the program or in ../lib/kelvane as
/// seen from there. Null with the error pair set when there is none.
const MediaModule* mediaModule(std::string_view context);

} // namespace kv
