# The target morvena_sn_host: compile flags and headers of the host server, as
# tools/host.sh found them in MORVENA_SN_HOST.

if(NOT EXISTS "${MORVENA_SN_HOST}/host.cmake")
  message(FATAL_ERROR "${MORVENA_SN_HOST} holds no host: run 'make host' first")
endif()
include("${MORVENA_SN_HOST}/host.cmake")
file(READ "${MORVENA_SN_HOST}/version" HOST_VERSION)
string(STRIP "${HOST_VERSION}" HOST_VERSION)

# A compiler that knows only a draft of the host's standard takes the standard
# before it: headers of that draft's library may be incomplete.
include(CheckCXXSourceCompiles)
if(HOST_STANDARD MATCHES "23|2b")
  set(CMAKE_REQUIRED_FLAGS "${HOST_STANDARD}")
  check_cxx_source_compiles("
    #if __cplusplus < 202302L
    #error
    #endif
    int main() {}" MORVENA_SN_CXX23)
  unset(CMAKE_REQUIRED_FLAGS)
  if(NOT MORVENA_SN_CXX23)
    string(REGEX REPLACE "2[3b]" "20" HOST_STANDARD "${HOST_STANDARD}")
  endif()
endif()

add_library(morvena_sn_host INTERFACE)
target_compile_definitions(morvena_sn_host INTERFACE ${HOST_DEFINITIONS})
target_compile_options(morvena_sn_host INTERFACE
  "$<$<COMPILE_LANGUAGE:CXX>:${HOST_STANDARD}>" ${HOST_OPTIONS})
target_link_options(morvena_sn_host INTERFACE ${HOST_OPTIONS})
# As system headers: our warnings are about our files.
target_include_directories(morvena_sn_host SYSTEM INTERFACE ${HOST_INCLUDES})
