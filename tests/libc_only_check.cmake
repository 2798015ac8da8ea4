# Nothing but libc at run time: each file NEEDS only libc, the dynamic loader
# and the project's own libraries, so that a phone image without the C++
# runtime carries it. Run by CTest:
#   cmake -DREADELF=<readelf> -DFILES=<file>;<file>... -P libc_only_check.cmake
set(allowed "^(libc\\.so\\.[0-9]+|ld-linux[-a-z0-9_]*\\.so\\.[0-9]+|lib(vxclient|mconf|mutil)\\.so\\.[0-9]+)$")
set(faults)
foreach(file IN LISTS FILES)
  execute_process(COMMAND ${READELF} -d ${file} OUTPUT_VARIABLE dyn RESULT_VARIABLE rc)
  string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]*\\]" entries "${dyn}")
  string(REGEX REPLACE "[^;]*\\[([^]]*)\\]" "\\1" needed "${entries}")
  foreach(lib IN LISTS needed)
    if(NOT lib MATCHES "${allowed}")
      list(APPEND faults "${file} needs ${lib}")
    endif()
  endforeach()
  # A file without libc among its needs was not read right.
  if(NOT rc EQUAL 0 OR NOT needed MATCHES "libc\\.so")
    list(APPEND faults "${file}: NEEDED '${needed}' (readelf status ${rc})")
  endif()
endforeach()
if(faults)
  list(JOIN faults "\n  " text)
  message(FATAL_ERROR "more than libc at run time:\n  ${text}")
endif()
