# MORVENA_SN_SANITIZE compiles all code of this tree with a sanitizer. The server
# itself is not compiled so: tools/server.sh preloads the sanitizer's run-time
# library, as MORVENA_SN_BUILD/sanitizer.env says. No report is suppressed.

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
  # detect_leaks: the server frees much of its memory only by ending.
  # detect_stack_use_after_return: the server measures the stack from the address
  # of a local variable, so local variables have to lie on the real stack.
  # detect_odr_violation: plug-ins bind their own symbols, so each has its copy of
  # the inline variables.
  set(options "ASAN_OPTIONS=detect_leaks=0:abort_on_error=1:detect_stack_use_after_return=0:detect_odr_violation=0")
elseif(MORVENA_SN_SANITIZE STREQUAL "undefined")
  set(library libubsan.so)
  # mysqld exports no run-time type information, so the vptr check cannot work.
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
# In instrumented code g++ reports uninitialised variables that are none.
add_compile_options(-Wno-error=maybe-uninitialized)
