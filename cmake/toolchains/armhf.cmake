# Cross build for 32-bit ARM with hardware floating point, little-endian: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake
# -DVLANLUA_SYSROOT=DIR (scripts/cross.sh armhf does it all).
set(VLANLUA_CROSS_TRIPLET arm-linux-gnueabihf)
set(VLANLUA_CROSS_PROCESSOR arm)
set(VLANLUA_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
# The compiler notes, for every std::vector growth, that GCC 7.1 changed how such arguments are
# passed on this ABI; the whole program is built by one compiler, so the note says nothing here.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
