# Common part of the cross toolchains: Debian's cross compilers for the
# triple VX_TARGET_TRIPLE, the target's libraries and headers under
# /usr/<triple>, and qemu's user-mode emulator to run what is built (tests,
# test discovery, the children that the end-to-end tests start).
# The including file sets CMAKE_SYSTEM_PROCESSOR, VX_TARGET_TRIPLE and
# VX_QEMU_NAME first.
set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${VX_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${VX_TARGET_TRIPLE}-g++)

# Libraries, headers and CMake packages come from the target's tree only;
# programs (pkg-config, qemu, gzip) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${VX_TARGET_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# qemu-user runs the target's programs; -L points its ELF interpreter and
# the dynamic loader's default paths at the cross libc. The absolute path
# matters: the test support starts children with execve, which does not
# search PATH.
find_program(VX_QEMU ${VX_QEMU_NAME} NO_CMAKE_FIND_ROOT_PATH)
if(VX_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${VX_QEMU} -L /usr/${VX_TARGET_TRIPLE})
else()
  message(WARNING "${VX_QEMU_NAME} not found (package qemu-user): "
                  "the ${VX_TARGET_TRIPLE} build works, its tests cannot run")
endif()
