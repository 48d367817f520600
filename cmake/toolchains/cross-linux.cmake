# What every cross build shares: Debian's cross compiler for VLANLUA_CROSS_TRIPLET, the target's
# Lua and SQLite unpacked into the sysroot VLANLUA_SYSROOT (scripts/cross.sh makes it), and
# qemu-user running the target's programs: the test binaries through ctest's emulator, the
# script-level tests through the target's own lua5.4 under it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${VLANLUA_CROSS_PROCESSOR})
set(CMAKE_C_COMPILER ${VLANLUA_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${VLANLUA_CROSS_TRIPLET}-g++)

# try_compile projects run this file again; they get the sysroot passed on.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VLANLUA_SYSROOT)
if(NOT VLANLUA_SYSROOT)
  message(FATAL_ERROR "set VLANLUA_SYSROOT to the target's unpacked packages (scripts/cross.sh makes it)")
endif()

# Headers and libraries come from the sysroot (and the cross compiler's own folders); programs
# from the build machine.
set(CMAKE_FIND_ROOT_PATH ${VLANLUA_SYSROOT} /usr/${VLANLUA_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_LIBRARY_ARCHITECTURE ${VLANLUA_CROSS_TRIPLET})

# pkg-config answers for the target's .pc files, with the sysroot in front of their paths.
set(ENV{PKG_CONFIG_LIBDIR} "${VLANLUA_SYSROOT}/usr/lib/${VLANLUA_CROSS_TRIPLET}/pkgconfig:${VLANLUA_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${VLANLUA_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")

# The target's headers that Debian keeps per architecture (Lua's configuration among them), where
# the build machine's compiler finds its own.
string(APPEND CMAKE_C_FLAGS_INIT " -isystem ${VLANLUA_SYSROOT}/usr/include/${VLANLUA_CROSS_TRIPLET}")
string(APPEND CMAKE_CXX_FLAGS_INIT " -isystem ${VLANLUA_SYSROOT}/usr/include/${VLANLUA_CROSS_TRIPLET}")

# The libraries in the sysroot need their own dependencies found when linking.
foreach(dir lib usr/lib)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${VLANLUA_SYSROOT}/${dir}/${VLANLUA_CROSS_TRIPLET}")
  string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${VLANLUA_SYSROOT}/${dir}/${VLANLUA_CROSS_TRIPLET}")
  string(APPEND CMAKE_MODULE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${VLANLUA_SYSROOT}/${dir}/${VLANLUA_CROSS_TRIPLET}")
endforeach()

# The target's programs run under qemu-user, which finds their loader and libraries in the sysroot.
find_program(VLANLUA_QEMU ${VLANLUA_CROSS_QEMU} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VLANLUA_QEMU} -L ${VLANLUA_SYSROOT})
# The script-level tests run on the target's own interpreter.
set(VLANLUA_LUA_INTERP ${VLANLUA_SYSROOT}/usr/bin/lua5.4)
