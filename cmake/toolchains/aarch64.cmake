# Cross build for 64-bit ARM, little-endian: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64.cmake
# -DVLANLUA_SYSROOT=DIR (scripts/cross.sh aarch64 does it all).
set(VLANLUA_CROSS_TRIPLET aarch64-linux-gnu)
set(VLANLUA_CROSS_PROCESSOR aarch64)
set(VLANLUA_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
