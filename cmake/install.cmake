# Installation: headers, the three libraries, the two executables, one
# pkg-config file per library and a CMake package (find_package(vxShell)).
include(CMakePackageConfigHelpers)

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

# pkg-config files: name, description, extra Libs, Requires.
function(vx_pkgconfig name desc requires)
  set(PC_NAME ${name})
  set(PC_DESC "${desc}")
  set(PC_REQUIRES "${requires}")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/lib.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
vx_pkgconfig(vxclient "Client library of the voxalis media service" "")
vx_pkgconfig(mutil "File and string helpers" "")
vx_pkgconfig(mconf "INI-style configuration store" "mutil")
