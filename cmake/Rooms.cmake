# A room is one folder and one library. Its sources are those that lie in the folder, so a new file
# needs no entry anywhere; what it may include follows from what it links.
function(glintmark_room name)
  cmake_parse_arguments(arg "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${arg_LINK})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${arg_LINK})
endfunction()

# The tests of one room: every *Test.cpp of the folder in one executable.
function(glintmark_tests name)
  cmake_parse_arguments(arg "" "TIMEOUT" "LINK;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} test_main)
  target_precompile_headers(${name} REUSE_FROM test_main)
  target_compile_definitions(${name} PRIVATE
    GLINTMARK_TEST_DATA="tests/data")  # relative, so that clones can share compiled objects
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
