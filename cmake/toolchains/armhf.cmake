# Cross build for 32-bit ARM with hardware floating point, little-endian: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake
# -DVLANLUA_SYSROOT=DIR (scripts/cross.sh armhf does it all).
set(VLANLUA_CROSS_TRIPLET arm-linux-gnueabihf)
set(VLANLUA_CROSS_PROCESSOR arm)
set(VLANLUA_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
