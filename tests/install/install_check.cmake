# The installed tree as an application developer and the phone get it.
# Run by CTest as a script:
#   cmake -DBIN_DIR=<build> -DWORK_DIR=<scratch> -DSOURCE_DIR=<this dir>
#         -DLIBDIR=<lib> -DBINDIR=<bin> -DINCLUDEDIR=<include> -DMANDIR=<share/man>
#         -DCXX=<compiler> -DPKG_CONFIG=<pkg-config> [-DEMULATOR=a|b|c]
#         [-DCONSUMER_PROJECT=ON -DGENERATOR=<gen>] -P install_check.cmake
# 1. cmake --install into a temporary root (DESTDIR) with prefix /usr;
# 2. every file a developer needs is there, and the pkg-config files name /usr;
# 3. the installed vxShell and vxsim start from that tree without help
#    (they find their libraries through their relative run path);
# 4. a small program compiles and links with pkg-config's flags alone
#    (PKG_CONFIG_LIBDIR and PKG_CONFIG_SYSROOT_DIR point into the tree) and
#    runs against the installed library;
# 5. natively, the same program builds through find_package(vxShell).
# EMULATOR is the cross build's emulator with '|' between its words.
cmake_minimum_required(VERSION 3.25)

foreach(var BIN_DIR WORK_DIR SOURCE_DIR LIBDIR BINDIR INCLUDEDIR MANDIR CXX PKG_CONFIG)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "install_check.cmake: ${var} is not set")
  endif()
endforeach()
string(REPLACE "|" ";" emulator "${EMULATOR}")

function(fail)
  string(JOIN "" text ${ARGN})
  message(FATAL_ERROR "${text}")
endfunction()

# Runs a command, fails the test unless it ends with status `want`; the
# output lands in <prefix>_out.
function(run want prefix)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc STREQUAL "${want}")
    string(JOIN " " cmd ${ARGN})
    fail("`${cmd}` ended with ${rc}, not ${want}\nstdout:\n${out}\nstderr:\n${err}")
  endif()
  set(${prefix}_out "${out}" PARENT_SCOPE)
endfunction()

set(root ${WORK_DIR}/root)
set(usr ${root}/usr)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# 1. Install.
run(0 install ${CMAKE_COMMAND} -E env DESTDIR=${root}
    ${CMAKE_COMMAND} --install ${BIN_DIR} --prefix /usr)

# 2. The files.
set(expected
  ${BINDIR}/vxShell ${BINDIR}/vxsim
  ${LIBDIR}/libvxclient.so ${LIBDIR}/libmconf.so ${LIBDIR}/libmutil.so
  ${INCLUDEDIR}/vxclient.h ${INCLUDEDIR}/mconf.h
  ${LIBDIR}/pkgconfig/vxclient.pc ${LIBDIR}/pkgconfig/mconf.pc ${LIBDIR}/pkgconfig/mutil.pc
  ${LIBDIR}/cmake/vxShell/vxShellConfig.cmake ${LIBDIR}/cmake/vxShell/vxShellConfigVersion.cmake
  ${LIBDIR}/cmake/vxShell/vxShellTargets.cmake)
foreach(f IN LISTS expected)
  if(NOT EXISTS ${usr}/${f})
    fail("not installed: /usr/${f}")
  endif()
endforeach()
foreach(page vxShell.1 vxsim.1)
  if(NOT EXISTS ${usr}/${MANDIR}/man1/${page}.gz AND NOT EXISTS ${usr}/${MANDIR}/man1/${page})
    fail("manual page not installed: /usr/${MANDIR}/man1/${page}[.gz]")
  endif()
endforeach()
foreach(pc vxclient mconf mutil)
  file(STRINGS ${usr}/${LIBDIR}/pkgconfig/${pc}.pc prefix_line REGEX "^prefix=")
  if(NOT prefix_line STREQUAL "prefix=/usr")
    fail("${pc}.pc: '${prefix_line}', not the install prefix 'prefix=/usr'")
  endif()
endforeach()

# 3. The programs run from the tree as they are: no LD_LIBRARY_PATH.
run(1 shell ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${emulator} ${usr}/${BINDIR}/vxShell)
if(NOT shell_out MATCHES "Options:")
  fail("vxShell without arguments printed no usage text:\n${shell_out}")
endif()
run(0 sim ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${emulator} ${usr}/${BINDIR}/vxsim --help)
if(NOT sim_out MATCHES "Usage: vxsim")
  fail("vxsim --help printed no usage:\n${sim_out}")
endif()

# 4. pkg-config alone, looking only into the tree.
set(pc_env PKG_CONFIG_PATH= PKG_CONFIG_LIBDIR=${usr}/${LIBDIR}/pkgconfig PKG_CONFIG_SYSROOT_DIR=${root})
run(0 flags ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --cflags --libs vxclient)
string(STRIP "${flags_out}" flags)
if(NOT flags MATCHES "-I${usr}/${INCLUDEDIR}" OR NOT flags MATCHES "-L${usr}/${LIBDIR}"
   OR NOT flags MATCHES "-lvxclient")
  fail("pkg-config --cflags --libs vxclient: '${flags}'")
endif()
# mconf requires mutil: the chain resolves inside the tree as well.
run(0 conf ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --libs mconf)
if(NOT conf_out MATCHES "-lmconf" OR NOT conf_out MATCHES "-lmutil")
  fail("pkg-config --libs mconf: '${conf_out}'")
endif()

separate_arguments(flag_list UNIX_COMMAND "${flags}")
run(0 cc ${CXX} -std=c++17 ${SOURCE_DIR}/tiny_client.cpp ${flag_list} -o ${WORK_DIR}/tiny_client)
run(0 tiny ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${usr}/${LIBDIR} ${emulator} ${WORK_DIR}/tiny_client)
if(NOT tiny_out MATCHES "registApplication:-16 unregistApplication:-7")
  fail("tiny client: ${tiny_out}")
endif()

# 5. The CMake package (natively: a cross build would need its toolchain
# file and a re-rooted search).
if(CONSUMER_PROJECT)
  set(gen_args "")
  if(GENERATOR)
    set(gen_args -G ${GENERATOR})
  endif()
  run(0 configure ${CMAKE_COMMAND} ${gen_args} -S ${SOURCE_DIR} -B ${WORK_DIR}/consumer
      -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${usr})
  run(0 build ${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
  run(0 consumer ${WORK_DIR}/consumer/tiny_client)
  if(NOT consumer_out MATCHES "registApplication:-16 unregistApplication:-7")
    fail("tiny client built by find_package(vxShell): ${consumer_out}")
  endif()
endif()

file(REMOVE_RECURSE ${WORK_DIR})
message(STATUS "installed tree: files, programs, pkg-config and the client library all work")
