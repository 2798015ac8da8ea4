# 32-bit ARM hard-float, the phone's processor (Debian armhf):
#   cmake --workflow --preset armhf
# Needs g++-arm-linux-gnueabihf, and qemu-user to run the tests.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(VX_TARGET_TRIPLE arm-linux-gnueabihf)
set(VX_QEMU_NAME qemu-arm)
set(VX_DEB_ARCH armhf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
