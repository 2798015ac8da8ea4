# 64-bit ARM (Debian arm64):
#   cmake --workflow --preset arm64
# Needs g++-aarch64-linux-gnu, and qemu-user to run the tests.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(VX_TARGET_TRIPLE aarch64-linux-gnu)
set(VX_QEMU_NAME qemu-aarch64)
set(VX_DEB_ARCH arm64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
