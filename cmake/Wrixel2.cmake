# How this project's targets are made: one static library a folder, whose link dependencies are the
# arrows that docs/architecture.md draws.

add_library(wrixel2_options INTERFACE)
target_include_directories(wrixel2_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(
  wrixel2_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wimplicit-fallthrough)
# What g++ 12 wrongly says of its own library's variant, vector and string when it optimises.
# Unoptimised builds and clang keep these warnings.
target_compile_options(
  wrixel2_options
  INTERFACE
    "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-maybe-uninitialized;-Wno-restrict;-Wno-array-bounds;-Wno-stringop-overread>"
)
if(WRIXEL2_WERROR)
  target_compile_options(wrixel2_options INTERFACE -Werror)
endif()
if(WRIXEL2_SANITIZE)
  target_compile_options(wrixel2_options INTERFACE -fsanitize=${WRIXEL2_SANITIZE}
                                                   -fno-sanitize-recover=all
                                                   -fno-omit-frame-pointer)
  target_link_options(wrixel2_options INTERFACE -fsanitize=${WRIXEL2_SANITIZE})
endif()
if(WRIXEL2_COVERAGE)
  target_compile_options(wrixel2_options INTERFACE --coverage)
  target_link_options(wrixel2_options INTERFACE --coverage)
endif()
if(WRIXEL2_FUZZ)
  target_compile_options(wrixel2_options INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(wrixel2_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# A program that is idle for hours keeps what its start has touched, whole pages of it. A shared C++
# runtime is touched all over by its own initialisation; what is linked in is what is used. A program
# with a shared library of C++ is left with the shared runtime: neither an exception nor an object
# passes from one runtime to another. Without a separator of its own {fmt} asks the locale for one, and
# with that all of the runtime's locales are in.
if(WRIXEL2_SMALL)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  add_compile_definitions("FMT_STATIC_THOUSANDS_SEPARATOR=','")
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(LINKER:--gc-sections LINKER:--as-needed)
endif()

# wrixel2_prefer_archive(TARGET FILE): links the imported target's library from its archive, where
# there is one.
function(wrixel2_prefer_archive target file)
  find_library(archive_of_${file} ${file})
  if(archive_of_${file})
    set_target_properties(${target} PROPERTIES INTERFACE_LINK_LIBRARIES "${archive_of_${file}}")
  endif()
endfunction()

# wrixel2_library(NAME SOURCES file... [USES target...] [PRIVATE_USES target...])
function(wrixel2_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;PRIVATE_USES" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(
    ${name}
    PUBLIC wrixel2_options ${ARG_USES}
    PRIVATE ${ARG_PRIVATE_USES})
endfunction()

# wrixel2_compile_for_time(FILE...): what every message passes through, in a build that else looks at
# size. To be called where the files' library is made.
function(wrixel2_compile_for_time)
  if(WRIXEL2_SMALL)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O2)
  endif()
endfunction()

# wrixel2_program(NAME SOURCES file... USES target... [SHARED_RUNTIME]): the last for one that uses a
# shared library of C++.
function(wrixel2_program name)
  cmake_parse_arguments(ARG "SHARED_RUNTIME" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(WRIXEL2_SMALL AND NOT ARG_SHARED_RUNTIME)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  target_link_libraries(${name} PRIVATE wrixel2_options ${ARG_USES})
  target_compile_definitions(${name} PRIVATE WRIXEL2_VERSION="${PROJECT_VERSION}")
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# wrixel2_test(NAME SOURCES file... USES target...): one GoogleTest program a layer.
function(wrixel2_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE wrixel2_options ${ARG_USES} GTest::gtest GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 60)
endfunction()

# wrixel2_fuzz(NAME USES target...): one libFuzzer program, of NAME.cpp, with what all of them share.
function(wrixel2_fuzz name)
  cmake_parse_arguments(ARG "" "" "USES" ${ARGN})
  add_executable(wrixel2_fuzz_${name} ${name}.cpp)
  target_link_libraries(wrixel2_fuzz_${name} PRIVATE wrixel2_options wrixel2_fuzzing ${ARG_USES})
  target_link_options(wrixel2_fuzz_${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(wrixel2_fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY
                                                        ${CMAKE_BINARY_DIR}/fuzz)
endfunction()
