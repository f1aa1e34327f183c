# MORVENA_SN_SANITIZE: everything of ours is compiled with a sanitizer. The server
# is not: it gets the sanitizer's run-time library preloaded, by what
# MORVENA_SN_BUILD/sanitizer.env tells tools/server.sh. Nothing is suppressed.

set(MORVENA_SN_SANITIZE "" CACHE STRING "address, undefined, thread, or nothing")
set(MORVENA_SN_SANITIZER_LIBRARY "")
if(NOT MORVENA_SN_SANITIZE)
  file(REMOVE "${MORVENA_SN_BUILD}/sanitizer.env")
  return()
endif()

set(MORVENA_SN_SANITIZER_FLAGS -fsanitize=${MORVENA_SN_SANITIZE}
  -fno-omit-frame-pointer)
if(MORVENA_SN_SANITIZE STREQUAL "address")
  set(library libasan.so)
  # The host keeps much to its end, and is not asked about it. It measures the
  # stack from the address of a local of ours, which has to be on the stack. The
  # modules bind their symbols to themselves, so each has the inline variables.
  set(options "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1:detect_stack_use_after_return=0:detect_odr_violation=0")
elseif(MORVENA_SN_SANITIZE STREQUAL "undefined")
  set(library libubsan.so)
  # What the host's classes are at run time it tells nobody.
  list(APPEND MORVENA_SN_SANITIZER_FLAGS -fno-sanitize=vptr)
  set(options "UBSAN_OPTIONS=halt_on_error=1:abort_on_error=1:print_stacktrace=1")
elseif(MORVENA_SN_SANITIZE STREQUAL "thread")
  set(library libtsan.so)
  set(options "TSAN_OPTIONS=halt_on_error=1")
else()
  message(FATAL_ERROR "no such sanitizer: ${MORVENA_SN_SANITIZE}")
endif()

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${library}
  OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(MORVENA_SN_SANITIZER_LIBRARY "${found}" REALPATH)
file(WRITE "${MORVENA_SN_BUILD}/sanitizer.env"
  "MYSQLD_PRELOAD=${MORVENA_SN_SANITIZER_LIBRARY}\n${options}\n")
add_compile_options(${MORVENA_SN_SANITIZER_FLAGS})
add_link_options(${MORVENA_SN_SANITIZER_FLAGS})
# Instrumented code looks to the compiler as if it used what it does not.
add_compile_options(-Wno-error=maybe-uninitialized)
