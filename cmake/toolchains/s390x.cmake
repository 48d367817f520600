# Cross build for 64-bit s390x, big-endian: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/s390x.cmake
# -DVLANLUA_SYSROOT=DIR (scripts/cross.sh s390x does it all).
set(VLANLUA_CROSS_TRIPLET s390x-linux-gnu)
set(VLANLUA_CROSS_PROCESSOR s390x)
set(VLANLUA_CROSS_QEMU qemu-s390x)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux.cmake)
