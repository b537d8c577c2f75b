#include "base/shared_library.h"

#include <dlfcn.h>

namespace kv {

std::unique_ptr<SharedLibrary> SharedLibrary::open(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (void* handle = ::dlopen(name, RTLD_NOW | RTLD_LOCAL))
            return std::unique_ptr<SharedLibrary>(new SharedLibrary(handle));
    }
    return nullptr;
}

SharedLibrary::~SharedLibrary() {
    ::dlclose(handle_);
}

void* SharedLibrary::symbol(const char* name) const {
    return ::dlsym(handle_, name);
}

} // namespace kv
