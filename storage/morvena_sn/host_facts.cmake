# What a host may have been patched to offer, found by looking at its headers.
# Sets in the caller's scope HOST_HAS_READVIEW_CLONE (ReadView has a member
# clone()) and HOST_HAS_MVCC_VIEW_INSERT_AFTER, each 0 or 1.

function(morvena_sn_look_for name header pattern)
  file(STRINGS "${header}" lines REGEX "${pattern}")
  # Comments talk about functions as well.
  list(FILTER lines EXCLUDE REGEX "^[ \t]*(//|/?\\*)")
  if(lines)
    set(${name} 1 PARENT_SCOPE)
  else()
    set(${name} 0 PARENT_SCOPE)
  endif()
endfunction()

macro(morvena_sn_host_facts innobase_include)
  morvena_sn_look_for(HOST_HAS_READVIEW_CLONE
    "${innobase_include}/read0types.h" "(^|[^A-Za-z0-9_])clone[ \t]*\\(")
  morvena_sn_look_for(HOST_HAS_MVCC_VIEW_INSERT_AFTER
    "${innobase_include}/read0read.h"
    "(^|[^A-Za-z0-9_])view_insert_after[ \t]*\\(")
endmacro()
