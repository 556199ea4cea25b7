# The variables that a preset may change, in addition to CMake's own. Everything else is the same in
# every build.
set(GLINTMARK_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, separated by commas")
set(GLINTMARK_PRODUCT_PAGE "" CACHE STRING
    "Address of the product's web page, opened from the menu; empty: the installed page")
option(GLINTMARK_COVERAGE "Record line coverage (Clang)" OFF)
option(GLINTMARK_TESTS "Build the tests" ON)
option(GLINTMARK_BENCH "Build the benchmarks" OFF)
option(GLINTMARK_FUZZ "Build the fuzz targets (Clang)" OFF)

# The presets for development and scripts/test make warnings errors
# (CMAKE_COMPILE_WARNING_AS_ERROR). The preset "release" does not, so that a compiler with new
# warnings still builds the program.
add_compile_options(
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wformat=2
  -Werror=format-security)  # in every build: a format string from outside is an attack
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-Wlogical-op -Wduplicated-cond -Wduplicated-branches)
  # Off: when GCC 12 inlines std::variant and std::vector, it wrongly warns of null dereferences and of
  # uninitialised members. Clang and the sanitizers find the real ones.
  add_compile_options(-Wno-null-dereference -Wno-maybe-uninitialized)
endif()

add_compile_definitions(_GLIBCXX_ASSERTIONS)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
  # Not every compiler has these, and not for every processor.
  include(CheckCXXCompilerFlag)
  set(CMAKE_REQUIRED_FLAGS -Werror)  # Clang accepts flags for other processors with a warning
  foreach(flag -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard
          -ftrivial-auto-var-init=zero)
    string(MAKE_C_IDENTIFIER "COMPILER_HAS${flag}" available)
    check_cxx_compiler_flag(${flag} ${available})
    if(${available})
      add_compile_options(${flag})
    endif()
  endforeach()
  unset(CMAKE_REQUIRED_FLAGS)
  include(CheckCXXSourceCompiles)
  check_cxx_source_compiles("#ifndef __PIE__
    #error
    #endif
    int main() {}" COMPILER_MAKES_PIE)
  if(NOT COMPILER_MAKES_PIE)  # Debian's compilers make it by default
    add_compile_options(-fPIE)
    add_link_options(-pie)
  endif()
endif()

# For all targets: some libraries need it, and all users of a precompiled header must use the same
# options.
add_compile_options(-pthread)
add_link_options(-pthread)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options("SHELL:-Xclang -fno-pch-timestamp")  # or ccache cannot cache the headers
endif()

if(GLINTMARK_SANITIZE)
  add_compile_definitions(GLINTMARK_SANITIZED)
  add_compile_options(-fsanitize=${GLINTMARK_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  if(GLINTMARK_SANITIZE MATCHES "undefined")
    # Off: this check probes memory through a pipe. The decoder's sandbox allows none, and a process
    # without free descriptors cannot make one. AddressSanitizer finds most calls on dead objects.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  add_link_options(-fsanitize=${GLINTMARK_SANITIZE})
endif()
if(GLINTMARK_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # lets the fuzzer see which code it reaches
endif()
if(GLINTMARK_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
