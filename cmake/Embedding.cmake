# Builds FILES (a list of name=path) into the library `target`. HEADER declares FUNCTION in NAMESPACE,
# which returns a TYPE of name and bytes for each file.
function(glintmark_embed target)
  cmake_parse_arguments(arg "" "HEADER;NAMESPACE;TYPE;FUNCTION" "FILES" ${ARGN})
  set(script ${PROJECT_SOURCE_DIR}/cmake/EmbedFiles.cmake)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/EmbeddedFiles.cpp)
  list(TRANSFORM arg_FILES REPLACE "^[^=]*=" "" OUTPUT_VARIABLE paths)
  add_custom_command(
    OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} "-DFILES=${arg_FILES}" -DHEADER=${arg_HEADER}
            -DNAMESPACE=${arg_NAMESPACE} -DTYPE=${arg_TYPE} -DFUNCTION=${arg_FUNCTION}
            -DOUTPUT=${source} -P ${script}
    DEPENDS ${paths} ${script}
    VERBATIM)
  target_sources(${target} PRIVATE ${source})
endfunction()
