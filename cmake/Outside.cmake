# What a plug-in that is built elsewhere needs: its flags as words for a shell
# (`make flags`), and the package that `cmake --install` writes. Both say what
# morvena_sn_plugin() says.

set(cshim "${PROJECT_SOURCE_DIR}/storage/morvena_sn/cshim")

# --- words --------------------------------------------------------------------

set(compile ${HOST_STANDARD} -fPIC ${HOST_OPTIONS})
foreach(definition ${HOST_DEFINITIONS})
  list(APPEND compile "-D${definition}")
endforeach()
list(APPEND compile "-I${cshim}")
foreach(folder ${HOST_INCLUDES})
  list(APPEND compile -isystem "${folder}")
endforeach()
# The flags may stand before the source that needs the library.
set(link -shared ${HOST_OPTIONS} -Wl,--enable-new-dtags "-Wl,-rpath,$ORIGIN"
  -Wl,--push-state,--no-as-needed "${MORVENA_SN_PLUGINS}/morvena_sn.so"
  -Wl,--pop-state)
foreach(part compile link)
  list(JOIN ${part} " " words)
  file(WRITE "${MORVENA_SN_BUILD}/flags/${part}" "${words}\n")
endforeach()

# --- package ------------------------------------------------------------------

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
set(package "${CMAKE_INSTALL_LIBDIR}/cmake/morvena_sn")
set(MORVENA_SN_HEADERS "${CMAKE_INSTALL_INCLUDEDIR}/morvena_sn")
set(MORVENA_SN_MODULE "${CMAKE_INSTALL_LIBDIR}/morvena_sn/morvena_sn.so")
set(config "${PROJECT_BINARY_DIR}/package/morvena_snConfig.cmake")
configure_package_config_file(cmake/morvena_snConfig.cmake.in "${config}"
  INSTALL_DESTINATION "${package}"
  PATH_VARS MORVENA_SN_HEADERS MORVENA_SN_MODULE)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/package/morvena_snConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)

# The headers that need no server header, and the C++ form of cursor.h.
file(GLOB headers CONFIGURE_DEPENDS "${cshim}/cursor.h" "${cshim}/cursor*.hpp")
install(FILES ${headers} DESTINATION "${MORVENA_SN_HEADERS}")
install(PROGRAMS "${MORVENA_SN_PLUGINS}/morvena_sn.so"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/morvena_sn")
install(PROGRAMS "${MORVENA_SN_CHECK_SYMBOLS}" DESTINATION "${package}")
install(FILES "${config}"
  "${PROJECT_BINARY_DIR}/package/morvena_snConfigVersion.cmake"
  "${PROJECT_SOURCE_DIR}/cmake/Plugin.cmake" "${MORVENA_SN_EXPORTS}"
  DESTINATION "${package}")
