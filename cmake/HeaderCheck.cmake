# Every header compiles alone, and twice: one source per header, built with the tests.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  app/*.h watcher/*.h webloc/*.h favicon/*.h icon/*.h platform/*.h)
set(header_sources)
foreach(header IN LISTS headers)
  string(REPLACE "/" "_" name ${header})
  set(source ${CMAKE_BINARY_DIR}/headers/${name}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
  list(APPEND header_sources ${source})
endforeach()
add_library(header_check OBJECT ${header_sources})
target_link_libraries(header_check PRIVATE platform_linux platform_image)
target_include_directories(header_check PRIVATE ${PROJECT_SOURCE_DIR})
