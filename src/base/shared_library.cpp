#include "base/shared_library.h"

#include <dlfcn.h>

#include "base/run_context.h"

namespace kv {

SharedLibrary::SharedLibrary(std::string_view package, std::initializer_list<const char*> names)
    : package_(package) {
    for (const char* name : names) {
        handle_.reset(::dlopen(name, RTLD_NOW | RTLD_LOCAL));
        if (handle_ || name_.empty()) name_ = name;
        if (handle_) return;
    }
}

void SharedLibrary::Close::operator()(void* handle) const {
    ::dlclose(handle);
}

void* SharedLibrary::symbol(const char* name) {
    void* const found = handle_ ? ::dlsym(handle_.get(), name) : nullptr;
    if (!found && missing_.empty()) missing_ = name;
    return found;
}

bool SharedLibrary::ready(std::string_view context) const {
    if (!handle_)
        return Fail(context, "The library {} could not be opened. Please install the package {}.", name_,
                    package_);
    if (!missing_.empty())
        return Fail(context, "The library {} is too old: it lacks {}. Please update the package {}.", name_,
                    missing_, package_);
    return true;
}

} // namespace kv
