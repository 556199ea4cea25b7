# Sets `result` to the sources in the current folder and, with RECURSE, below it. main.cpp is left out:
# each is a separate program.
function(glintmark_sources result)
  set(how GLOB)
  if("RECURSE" IN_LIST ARGN)
    set(how GLOB_RECURSE)
  endif()
  file(${how} sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

# A room is one folder and one library. Its sources are all source files in the folder, so a new
# file needs no entry anywhere. It may include the headers of the libraries that it links.
function(glintmark_room name)
  cmake_parse_arguments(arg "RECURSE" "" "LINK" ${ARGN})
  glintmark_sources(sources ${ARGN})
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_LINK})
endfunction()

# The tests of one room in one executable.
function(glintmark_tests name)
  cmake_parse_arguments(arg "RECURSE" "TIMEOUT" "LINK;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  glintmark_sources(sources ${ARGN})
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} test_main)
  target_precompile_headers(${name} REUSE_FROM test_main)
  target_compile_definitions(${name} PRIVATE
    GLINTMARK_TEST_DATA="tests/data")  # relative, so that clones can share compiled objects
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()

# For programs that are started with an empty environment, which cannot name the file for the
# coverage record.
function(glintmark_record_coverage main)
  if(GLINTMARK_COVERAGE)
    set_source_files_properties(${main} PROPERTIES COMPILE_OPTIONS
      -fprofile-instr-generate=${CMAKE_BINARY_DIR}/profiles/%m.profraw)
  endif()
endfunction()
