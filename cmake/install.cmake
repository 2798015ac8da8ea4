# Installation: headers, the three libraries, the two executables, one
# pkg-config file per library, a CMake package (find_package(vxShell)) and
# the manual pages.
include(CMakePackageConfigHelpers)

# The installed tree is relocatable: the programs find the libraries beside
# them in ../lib, and a library finds its sister libraries in its own
# directory, wherever the tree is unpacked (a phone's root file system
# image, /opt, a test's temporary directory).
file(RELATIVE_PATH VX_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(vxsim PROPERTIES INSTALL_RPATH "$ORIGIN/${VX_BIN_TO_LIB}")
# vxShell carries its libraries' code and needs no run path (the loader
# then looks for libc nowhere but where libc is).
set_target_properties(vxclient mconf mutil PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS vxclient mconf mutil EXPORT vxShellTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS vxShell vxsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
file(GLOB VX_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${VX_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT vxShellTargets NAMESPACE vxShell::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxShell)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vxShellConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vxShellConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxShell)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vxShellConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vxShellConfig.cmake ${PROJECT_BINARY_DIR}/vxShellConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vxShell)

# pkg-config files: name, description, extra Libs, Requires. The prefix in
# them is the one of the installation itself (cmake --install --prefix, or
# /usr in a Debian package), so the file is written at install time: a
# template with everything else filled in now, the prefix filled in then.
function(vx_pkgconfig name desc requires)
  set(PC_NAME ${name})
  set(PC_DESC "${desc}")
  set(PC_REQUIRES "${requires}")
  set(PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
  set(template ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc.in)
  set(final ${PROJECT_BINARY_DIR}/pkgconfig/install/${name}.pc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/lib.pc.in ${template} @ONLY)
  install(CODE "configure_file([[${template}]] [[${final}]] @ONLY)")
  install(FILES ${final} DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
vx_pkgconfig(vxclient "Client library of the voxalis media service" "")
vx_pkgconfig(mutil "File and string helpers" "")
vx_pkgconfig(mconf "INI-style configuration store" "mutil")

# Manual pages, compressed as Debian wants them (gzip -n: no name or time
# stamp inside, so the package is reproducible).
find_program(VX_GZIP gzip)
file(GLOB VX_MAN_PAGES ${PROJECT_SOURCE_DIR}/man/*.[1-8])
set(VX_MAN_OUTPUTS "")
foreach(page IN LISTS VX_MAN_PAGES)
  get_filename_component(name ${page} NAME)
  string(REGEX REPLACE ".*\\.([1-8])$" "\\1" section ${name})
  if(VX_GZIP)
    set(out ${PROJECT_BINARY_DIR}/man/${name}.gz)
    add_custom_command(OUTPUT ${out}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND sh -c "\"$0\" -9nc \"$1\" > \"$2\"" ${VX_GZIP} ${page} ${out}
      DEPENDS ${page} VERBATIM)
    list(APPEND VX_MAN_OUTPUTS ${out})
  else()
    set(out ${page})
  endif()
  install(FILES ${out} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
add_custom_target(vx_man_pages ALL DEPENDS ${VX_MAN_OUTPUTS})
