// Libraries that are opened when they are needed and not linked: a program without them does all but what
// takes them.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

namespace kv {

/// A shared library, open as long as the object lives, and what was looked up in it. Meant to be a member
/// beside the functions that it fills:
///     struct Codec {
///         SharedLibrary library{"libcodec1", {"libcodec.so.1"}};
///         decltype(codec_open)* open = nullptr;
///         Codec() { library.bind(open, "codec_open"); }
///     };
class SharedLibrary {
public:
    /// Opens the first of `names` that can be opened; `package` is the Debian package that brings it.
    SharedLibrary(std::string_view package, std::initializer_list<const char*> names);

    /// Looks a function up. What isn't there becomes null, and the library isn't `ready`.
    template <class F>
    SharedLibrary& bind(F*& function, const char* name) {
        function = reinterpret_cast<F*>(symbol(name));
        return *this;
    }

    /// The library is open and all that was bound is there. If not, sets the error pair to a message that
    /// names the package to install.
    bool ready(std::string_view context) const;

private:
    struct Close {
        void operator()(void* handle) const;
    };
    void* symbol(const char* name);

    std::unique_ptr<void, Close> handle_;
    std::string package_;
    std::string name_;    ///< of the library that was opened, or of the one that was wanted first
    std::string missing_; ///< the first function that isn't there
};

} // namespace kv
