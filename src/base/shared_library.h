// Libraries that are opened when a format needs them.
#pragma once

#include <initializer_list>
#include <memory>

namespace kv {

/// A shared library by its published name, kept open as long as this lives.
class SharedLibrary {
public:
    /// The first of the names that can be opened; null when none can.
    static std::unique_ptr<SharedLibrary> open(std::initializer_list<const char*> names);
    ~SharedLibrary();
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    /// Points `function` at the library's function of that name; false when it has none.
    template <class F>
    bool bind(F*& function, const char* name) const {
        function = reinterpret_cast<F*>(symbol(name));
        return function != nullptr;
    }

private:
    explicit SharedLibrary(void* handle) : handle_(handle) {}
    void* symbol(const char* name) const;
    void* handle_;
};

} // namespace kv
