# Shared objects that the server loads.

# morvena_sn_plugin(NAME SOURCE...): MORVENA_SN_PLUGINS/NAME.so. What it links
# of ours is found beside it.
function(morvena_sn_plugin name)
  add_library(${name} SHARED ${ARGN})
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    LIBRARY_OUTPUT_DIRECTORY "${MORVENA_SN_PLUGINS}"
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN")
  target_link_options(${name} PRIVATE -Wl,--enable-new-dtags)
  target_link_libraries(${name} PRIVATE morvena_sn_host)
endfunction()

# morvena_sn_check_symbols(NAME [LIBRARY-TARGET...]): the build fails when NAME
# needs a symbol that neither the server nor one of the targets has.
function(morvena_sn_check_symbols name)
  set(libraries ${MORVENA_SN_SANITIZER_LIBRARY})
  foreach(library ${ARGN})
    list(APPEND libraries "$<TARGET_FILE:${library}>")
  endforeach()
  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${name}.symbols")
  set(script "${PROJECT_SOURCE_DIR}/tools/check_symbols.sh")
  set(exports "${MORVENA_SN_HOST}/exports.txt")
  add_custom_command(
    OUTPUT "${stamp}"
    COMMAND "${script}" "${exports}" "$<TARGET_FILE:${name}>" ${libraries}
    COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}"
    DEPENDS ${name} ${ARGN} "${script}" "${exports}"
    COMMENT "Checking the symbols of ${name}.so" VERBATIM)
  add_custom_target(${name}_symbols ALL DEPENDS "${stamp}")
endfunction()
