# kv_module(NAME SOURCES ... [DEPENDS ...] [LIBRARIES ...])
#
# One folder of src/, one static library kv_NAME. DEPENDS names modules whose headers this module's
# headers and sources may include; they must have been added before, so that arrows can't form a cycle.
# LIBRARIES are outside libraries. The build checks each #include against DEPENDS.
function(kv_module name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;LIBRARIES")
  add_library(kv_${name} STATIC ${arg_SOURCES})
  target_include_directories(kv_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(kv_${name} PRIVATE kv_flags)
  foreach(library IN LISTS arg_LIBRARIES)
    target_link_libraries(kv_${name} PRIVATE ${library})
  endforeach()

  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
  set(allowed ${folder})
  foreach(dependency IN LISTS arg_DEPENDS)
    if(NOT TARGET kv_${dependency})
      message(FATAL_ERROR "${folder}: depends on ${dependency}, which does not stand below it")
    endif()
    target_link_libraries(kv_${name} PUBLIC kv_${dependency})
    get_target_property(below kv_${dependency} KV_FOLDERS)
    list(APPEND allowed ${below})
  endforeach()
  list(REMOVE_DUPLICATES allowed)
  set_target_properties(kv_${name} PROPERTIES KV_FOLDERS "${allowed}")

  set(absolute ${arg_SOURCES})
  list(TRANSFORM absolute PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set(stamp ${CMAKE_CURRENT_BINARY_DIR}/kv_${name}.includes)
  add_custom_command(OUTPUT ${stamp}
    COMMAND ${CMAKE_COMMAND} "-DFILES=${absolute}" "-DALLOWED=${allowed}"
            -DROOT=${PROJECT_SOURCE_DIR}/src -DSTAMP=${stamp}
            -P ${PROJECT_SOURCE_DIR}/cmake/CheckIncludes.cmake
    DEPENDS ${absolute} ${PROJECT_SOURCE_DIR}/cmake/CheckIncludes.cmake
    COMMENT "Checking the includes of ${folder}" VERBATIM)
  add_custom_target(kv_${name}_includes ALL DEPENDS ${stamp})
endfunction()

# kv_test(NAME SOURCES ... DEPENDS modules...): one test binary, named after the folder that it tests.
function(kv_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS;LIBRARIES")
  add_executable(test_${name} ${arg_SOURCES})
  # The build folder's places.h tells where the sources and the corpus are: on the command line these paths would
  # keep other clones from sharing the compiler cache.
  target_include_directories(test_${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_BINARY_DIR}/tests)
  list(TRANSFORM arg_DEPENDS PREPEND kv_)
  target_link_libraries(test_${name} PRIVATE ${arg_DEPENDS} ${arg_LIBRARIES} kv_flags GTest::gmock GTest::gtest_main)
  target_compile_options(test_${name} PRIVATE -O0) # half the time to compile; what they test is optimized
  gtest_discover_tests(test_${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS "${name}" TIMEOUT 120 ENVIRONMENT ASAN_OPTIONS=allocator_may_return_null=1)
endfunction()

# kv_fuzz(NAME SOURCE DEPENDS modules...): a fuzz target over fuzz/seeds/NAME. With libFuzzer it fuzzes;
# in other builds it is linked to a driver that replays the seeds, as a test.
function(kv_fuzz name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SOURCE" "DEPENDS")
  list(TRANSFORM arg_DEPENDS PREPEND kv_)
  set(seeds ${PROJECT_SOURCE_DIR}/fuzz/seeds/${name})
  if(KV_FUZZ)
    add_executable(fuzz_${name} ${arg_SOURCE})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    add_test(NAME fuzz.${name}.seeds COMMAND fuzz_${name} -runs=0 ${seeds})
  else()
    add_executable(fuzz_${name} ${arg_SOURCE} ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
    add_test(NAME fuzz.${name}.seeds COMMAND fuzz_${name} ${seeds})
  endif()
  target_link_libraries(fuzz_${name} PRIVATE ${arg_DEPENDS} kv_flags)
endfunction()
