# Installs `file` below the system's configuration folder. The folder is chosen at installation, since
# a package and "cmake --install --prefix" may name another prefix than the build did. By the GNU
# standards /etc belongs to the prefix /usr, and every other prefix has an "etc" below it.
function(glintmark_install_configuration file folder)
  get_filename_component(source ${file} ABSOLUTE)
  install(CODE "
    set(configuration [[${CMAKE_INSTALL_SYSCONFDIR}]])
    if(NOT IS_ABSOLUTE \"\${configuration}\")
      if(CMAKE_INSTALL_PREFIX MATCHES [[^/usr/?$]])
        set(configuration \"/\${configuration}\")
      else()
        set(configuration \"\${CMAKE_INSTALL_PREFIX}/\${configuration}\")
      endif()
    endif()
    file(INSTALL DESTINATION \"\${configuration}/${folder}\" TYPE FILE
         FILES [[${source}]])")
endfunction()

# Installs the D-Bus service file that `template`, which ends in ".in", describes. Its PROGRAM becomes
# the absolute path of the installed program, which only the installation knows.
function(glintmark_install_bus_service template)
  get_filename_component(source ${template} ABSOLUTE)
  get_filename_component(name ${template} NAME_WLE)
  set(configured ${CMAKE_CURRENT_BINARY_DIR}/${name})
  install(CODE "
    set(PROGRAM [[${CMAKE_INSTALL_BINDIR}/${PROJECT_NAME}]])
    if(NOT IS_ABSOLUTE \"\${PROGRAM}\")
      set(PROGRAM \"\${CMAKE_INSTALL_PREFIX}/\${PROGRAM}\")
    endif()
    configure_file([[${source}]] [[${configured}]] @ONLY)")
  install(FILES ${configured} DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
endfunction()

# Sets `result` to the compressed copy of `file` in the current binary folder. The build makes the copy,
# with the same bytes each time.
function(glintmark_compressed file result)
  get_filename_component(name ${file} NAME)
  set(compressed ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
  add_custom_command(
    OUTPUT ${compressed}
    COMMAND gzip -9 --no-name --stdout ${file} > ${compressed}
    DEPENDS ${file} VERBATIM)
  set(${result} ${compressed} PARENT_SCOPE)
endfunction()
