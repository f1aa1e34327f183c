# Shared objects that the server loads. Projects that find the installed package
# use this file too.

# morvena_sn_plugin(NAME SOURCE...): NAME.so with the host's flags, without a
# prefix. It finds what it links of ours in its own folder.
function(morvena_sn_plugin name)
  add_library(${name} SHARED ${ARGN})
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    POSITION_INDEPENDENT_CODE ON
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
  if(MORVENA_SN_PLUGINS)
    set_target_properties(${name} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY "${MORVENA_SN_PLUGINS}")
  endif()
  target_link_options(${name} PRIVATE -Wl,--enable-new-dtags)
  target_link_libraries(${name} PRIVATE morvena_sn_host)
endfunction()

# morvena_sn_check_symbols(NAME [LIBRARY-TARGET...]): the build fails when NAME
# needs a symbol that neither the server nor one of the targets has.
# MORVENA_SN_CHECK_SYMBOLS is the script, MORVENA_SN_EXPORTS lists the server's.
function(morvena_sn_check_symbols name)
  set(libraries ${MORVENA_SN_SANITIZER_LIBRARY})
  foreach(library ${ARGN})
    list(APPEND libraries "$<TARGET_FILE:${library}>")
  endforeach()
  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${name}.symbols")
  add_custom_command(
    OUTPUT "${stamp}"
    COMMAND "${MORVENA_SN_CHECK_SYMBOLS}" "${MORVENA_SN_EXPORTS}"
      "$<TARGET_FILE:${name}>" ${libraries}
    COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}"
    DEPENDS ${name} ${ARGN} "${MORVENA_SN_CHECK_SYMBOLS}" "${MORVENA_SN_EXPORTS}"
    COMMENT "Checking the symbols of ${name}.so" VERBATIM)
  add_custom_target(${name}_symbols ALL DEPENDS "${stamp}")
endfunction()
