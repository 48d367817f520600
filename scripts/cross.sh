#!/usr/bin/env bash
# Cross-builds the project for ARCH (aarch64, armhf or s390x) and runs every test under qemu-user:
#   bash scripts/cross.sh s390x
# Installs what is missing on the build machine (the cross compiler, qemu-user, the rest of
# scripts/setup.sh). The target's Lua 5.4 and SQLite packages, with what its interpreter needs at
# run time, are fetched with apt-get download through a private package list of the target's
# architecture and unpacked with dpkg -x into build-cross-ARCH/sysroot: nothing of the target's is
# installed into the system. GoogleTest is built from Debian's sources with the cross compiler.
set -euo pipefail
cd "$(dirname "$0")/.."

arch=${1:-}
case "$arch" in
  aarch64) triplet=aarch64-linux-gnu   debarch=arm64 ;;
  armhf)   triplet=arm-linux-gnueabihf debarch=armhf ;;
  s390x)   triplet=s390x-linux-gnu     debarch=s390x ;;
  *) echo "usage: $0 aarch64|armhf|s390x" >&2; exit 2 ;;
esac

bash scripts/setup.sh "g++-$triplet" qemu-user

root=$PWD/build-cross-$arch
sysroot=$root/sysroot
toolchain=$PWD/cmake/toolchains/$arch.cmake

# The target's packages: what the build links and what the tests run (the interpreter and every
# library it and the test programs load).
packages=(liblua5.4-dev liblua5.4-0 lua5.4 libsqlite3-dev libsqlite3-0
          libc6 libgcc-s1 libstdc++6 libreadline8 libtinfo6)
fetch_sysroot() {
  local apt=$root/apt
  local opts=(-qq -o "Dir::State::Lists=$apt/lists" -o "Dir::State::status=$apt/status"
              -o "Dir::Cache=$apt/cache" -o "APT::Architecture=$debarch" -o "APT::Architectures::=$debarch")
  [ "$(id -u)" -ne 0 ] || opts+=(-o "APT::Sandbox::User=root")  # root: no _apt user for files in build/
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$root/debs"
  : > "$apt/status"
  if ! apt-get "${opts[@]}" update; then  # a mirror in the middle of a sync fails one list, not all
    echo "some $debarch package lists could not be fetched; taking the packages from those that were" >&2
  fi
  rm -f "$root"/debs/*.deb
  (cd "$root/debs" && apt-get "${opts[@]}" download "${packages[@]}")
  rm -rf "$sysroot"
  for deb in "$root"/debs/*.deb; do
    dpkg -x "$deb" "$sysroot"
  done
  echo "${packages[*]}" > "$sysroot/.packages"
}
if [ "$(cat "$sysroot/.packages" 2>/dev/null)" != "${packages[*]}" ]; then
  echo "==== fetching the $debarch packages into $sysroot"
  fetch_sysroot
fi

cross_cmake=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DVLANLUA_SYSROOT="$sysroot")
if [ ! -f "$root/googletest/lib/cmake/GTest/GTestConfig.cmake" ]; then
  echo "==== building GoogleTest for $arch"
  cmake -S /usr/src/googletest -B "$root/googletest-build" "${cross_cmake[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$root/googletest" >/dev/null
  cmake --build "$root/googletest-build" -j2 >/dev/null
  cmake --install "$root/googletest-build" >/dev/null
fi

# The build machine's own module and cfgdb, which read and write the target's database files in
# the file check; shared by every target.
echo "==== building the module for the build machine"
host=$PWD/build-cross-host
cmake -S . -B "$host" -DCMAKE_BUILD_TYPE=Release -DVLANLUA_TESTS=OFF -DVLANLUA_BENCH=OFF -DVLANLUA_WERROR=ON >/dev/null
cmake --build "$host" -j2 --target vlanluaext cfgdb >/dev/null

echo "==== building for $arch"
cmake -S . -B "$root/tree" "${cross_cmake[@]}" -DGTest_DIR="$root/googletest/lib/cmake/GTest" \
      -DVLANLUA_WERROR=ON -DVLANLUA_BENCH=OFF -DVLANLUA_HOST_LUA_DIR="$host/lua" >/dev/null
cmake --build "$root/tree" -j2
echo "==== every test on $arch under qemu-user"
(cd "$root/tree" && ctest --output-on-failure -j2)
