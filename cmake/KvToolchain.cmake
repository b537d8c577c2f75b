# Compiler cache and a fast linker where present, and the flags that all of our code is built with.

find_program(KV_CCACHE ccache)
if(KV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KV_CCACHE})
endif()

find_program(KV_MOLD mold)
find_program(KV_LLD ld.lld)
if(KV_MOLD)
  add_link_options(-fuse-ld=mold)
elseif(KV_LLD)
  add_link_options(-fuse-ld=lld)
endif()

# A shared library that nothing is used of must not be loaded at every start.
add_link_options(-Wl,--as-needed)

add_library(kv_flags INTERFACE)
target_compile_options(kv_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(kv_flags INTERFACE -Wno-restrict) # false alarms on std::string, GCC bug 105329
endif()
# One meaning of float arithmetic everywhere: no fused multiply-add behind our back.
target_compile_options(kv_flags INTERFACE -ffp-contract=off)

if(KV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KV_FUZZ AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "KV_FUZZ needs clang++")
endif()
if(KV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
