# Debian package of everything cmake/install.cmake installs: vxShell, vxsim,
# the three libraries, the headers, the pkg-config files, the CMake package
# and the manual pages, under /usr. One package per architecture: the native
# build gives the host's (amd64), the cross builds armhf and arm64.
#   cpack --preset deb | armhf | arm64     (after the build of that preset)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vxshell)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "diagnostic shell and client library for the voxalis media service")
set(CPACK_PACKAGE_DESCRIPTION
"vxShell exercises the media service of the IP telephone from its console:
one request, a tone or wave file, the relay listener, or an interactive menu
of RTP sessions, recordings and endurance tests. The package also holds
vxsim, a stand-in for the service, and the client library libvxclient with
its headers, pkg-config files and CMake package for application developers.")
set(VX_PACKAGE_CONTACT "vxShell maintainers <vxshell@localhost>" CACHE STRING
    "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${VX_PACKAGE_CONTACT}")
# Install into the staging tree with DESTDIR and the prefix /usr, so that the
# prefix the install rules see (and write into the pkg-config files) is /usr
# itself, not the staging directory.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

# Architecture: a toolchain file names its Debian architecture (VX_DEB_ARCH);
# a native build asks dpkg, or maps the processor name.
if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  if(VX_DEB_ARCH)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${VX_DEB_ARCH})
  else()
    find_program(VX_DPKG dpkg)
    if(VX_DPKG AND NOT CMAKE_CROSSCOMPILING)
      execute_process(COMMAND ${VX_DPKG} --print-architecture
                      OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                      OUTPUT_STRIP_TRAILING_WHITESPACE)
    endif()
    if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
      set(vx_arch_map x86_64=amd64 aarch64=arm64 arm=armhf armv7l=armhf i686=i386 i386=i386)
      foreach(pair IN LISTS vx_arch_map)
        string(REPLACE "=" ";" pair "${pair}")
        list(GET pair 0 proc)
        list(GET pair 1 arch)
        if(CMAKE_SYSTEM_PROCESSOR STREQUAL proc)
          set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${arch})
        endif()
      endforeach()
    endif()
    if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
      message(WARNING "no Debian architecture for processor '${CMAKE_SYSTEM_PROCESSOR}'; "
                      "set CPACK_DEBIAN_PACKAGE_ARCHITECTURE")
    endif()
  endif()
endif()

# Dependencies: libc alone (every shipped file is built by vx_libc_only, and
# the test Build.ShippedFilesNeedOnlyLibc holds them to it). Written out
# rather than computed by dpkg-shlibdeps, which cannot tell a cross build's
# target libc from the host's cross packages (libc6-armhf-cross). 2.34 is
# the oldest glibc with the symbol versions the binaries need (it folded
# libpthread into libc); scripts/check-deb.sh checks it against every package.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34)")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)

include(CPack)
