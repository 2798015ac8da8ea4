# The manual pages agree with the programs and render cleanly.
#   cmake -DSOURCE_DIR=<repo> [-DGROFF=<groff>] -P man_check.cmake
# - the OPTIONS section of vxShell.1 has an entry (.B/.BI \-X) for every
#   letter of the shell's getopt option string, and none for a letter that
#   the string lacks;
# - vxsim.1 likewise for every long option of vxsim's option table;
# - with groff at hand, both pages format without a single warning.
cmake_minimum_required(VERSION 3.25)

if(NOT SOURCE_DIR)
  message(FATAL_ERROR "man_check.cmake: SOURCE_DIR is not set")
endif()
set(errors "")

# The entries of the OPTIONS section of a page (up to its next heading or
# subheading): the option words that open a .B or .BI line there; a '\-' of
# roff is a plain '-' here.
function(page_options page out_section)
  file(READ ${page} text)
  string(REPLACE "\\-" "-" text "${text}")
  set(section "")
  string(FIND "${text}" "\n.SH OPTIONS\n" at)
  if(at GREATER_EQUAL 0)
    math(EXPR at "${at} + 2") # past the newline and the heading's dot
    string(SUBSTRING "${text}" ${at} -1 body)
    set(cut -1)
    foreach(heading "\n.SH " "\n.SS ")
      string(FIND "${body}" "${heading}" h)
      if(h GREATER_EQUAL 0 AND (cut EQUAL -1 OR h LESS cut))
        set(cut ${h})
      endif()
    endforeach()
    string(SUBSTRING "${body}" 0 ${cut} section)
  endif()
  string(REGEX MATCHALL "\n\\.BI? -[-A-Za-z0-9]+" sec "${section}")
  string(REGEX REPLACE "\n\\.BI? " "" sec "${sec}")
  set(${out_section} "${sec}" PARENT_SCOPE)
endfunction()

# --- vxShell: the getopt string ----------------------------------------
file(GLOB shell_sources ${SOURCE_DIR}/shell/*.cpp)
set(optstring "")
foreach(src IN LISTS shell_sources)
  file(READ ${src} code)
  if(code MATCHES "getopt\\([^,)]*,[^,)]*,[ \n]*\"([^\"]*)\"")
    set(optstring "${CMAKE_MATCH_1}")
  endif()
endforeach()
if(optstring STREQUAL "")
  message(FATAL_ERROR "no getopt option string found in shell/*.cpp")
endif()
string(REPLACE ":" "" letters "${optstring}")
string(REGEX MATCHALL "." letters "${letters}")

page_options(${SOURCE_DIR}/man/vxShell.1 shell_section)
foreach(l IN LISTS letters)
  if(NOT "-${l}" IN_LIST shell_section)
    string(APPEND errors "vxShell.1: OPTIONS has no entry for option -${l}\n")
  endif()
endforeach()
foreach(o IN LISTS shell_section)
  string(SUBSTRING "${o}" 1 -1 l)
  if(NOT l IN_LIST letters)
    string(APPEND errors "vxShell.1: option ${o} is documented but the shell has no such option\n")
  endif()
endforeach()

# --- vxsim: the long options ---------------------------------------------
file(GLOB sim_sources ${SOURCE_DIR}/sim/*.cpp)
set(long_options "")
foreach(src IN LISTS sim_sources)
  file(READ ${src} code)
  string(REGEX MATCHALL "{\"[-a-z0-9]+\", *(no|required|optional)_argument" found "${code}")
  foreach(f IN LISTS found)
    string(REGEX REPLACE "^{\"([-a-z0-9]+)\".*" "--\\1" name "${f}")
    list(APPEND long_options ${name})
  endforeach()
endforeach()
if(NOT long_options)
  message(FATAL_ERROR "no long option table found in sim/*.cpp")
endif()
page_options(${SOURCE_DIR}/man/vxsim.1 sim_section)
foreach(o IN LISTS long_options)
  if(NOT o IN_LIST sim_section)
    string(APPEND errors "vxsim.1: OPTIONS has no entry for option ${o}\n")
  endif()
endforeach()
foreach(o IN LISTS sim_section)
  if(NOT o IN_LIST long_options)
    string(APPEND errors "vxsim.1: option ${o} is documented but vxsim has no such option\n")
  endif()
endforeach()

# --- rendering -------------------------------------------------------------
if(GROFF)
  foreach(page vxShell.1 vxsim.1)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C.UTF-8
                            ${GROFF} -man -Tutf8 -ww -z ${SOURCE_DIR}/man/${page}
                    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0 OR NOT err STREQUAL "")
      string(APPEND errors "${page}: groff (status ${rc}) warns:\n${err}")
    endif()
  endforeach()
else()
  message(STATUS "groff not found: the pages were checked against the programs, not rendered")
endif()

if(NOT errors STREQUAL "")
  message(FATAL_ERROR "${errors}")
endif()
list(LENGTH letters nl)
list(LENGTH long_options nsim)
message(STATUS "vxShell.1 covers ${nl} options, vxsim.1 ${nsim}")
