# Shared by the scripts: where things are and how missing tools get installed.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
linux_build="$root/build/linux"
windows_build="$root/build/windows"
asan_build="$root/build/asan"
tsan_build="$root/build/tsan"
jobs=$(nproc 2>/dev/null || echo 2)

# probe_present PROBE — a command name, or an absolute path (a glob is allowed) that must exist.
probe_present() {
  if [[ $1 == /* ]]; then
    compgen -G "$1" >/dev/null
  else
    command -v "$1" >/dev/null 2>&1
  fi
}

# ensure_packages "probe:package" ... — installs the packages whose probe is missing (apt-get,
# when run as root), then checks every probe again, so that a package that does not provide
# what was probed for is named here rather than showing up later as a test that cannot run.
ensure_packages() {
  local missing=() item
  for item in "$@"; do
    probe_present "${item%%:*}" || missing+=("${item#*:}")
  done
  ((${#missing[@]} == 0)) && return 0
  if [[ $(id -u) -eq 0 ]] && command -v apt-get >/dev/null 2>&1; then
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  else
    echo "Missing packages: ${missing[*]}" >&2
    echo "Install them (as root: apt-get install ${missing[*]}) and run this again." >&2
    return 1
  fi
  local still=()
  for item in "$@"; do
    probe_present "${item%%:*}" || still+=("${item%%:*} (package ${item#*:})")
  done
  ((${#still[@]} == 0)) && return 0
  echo "Still missing after the install: ${still[*]}" >&2
  return 1
}

# CLI11 reads the command line of `torvixe` and the profiles of `torvixe run`; both builds take
# its headers from the host (the Windows build copies them into its build tree).
linux_tools=(cmake:cmake ninja:ninja-build g++:g++ pkg-config:pkg-config
  /usr/include/gtest/gtest.h:libgtest-dev /usr/include/gmock/gmock.h:libgmock-dev
  /usr/include/benchmark/benchmark.h:libbenchmark-dev /usr/include/CLI/CLI.hpp:libcli11-dev)
# The test programs run under the command `wine` (package wine); its 64-bit loader comes with
# the package wine64.
windows_tools=(x86_64-w64-mingw32-g++-posix:g++-mingw-w64-x86-64-posix wine:wine /usr/lib/wine/wine64:wine64
  /usr/src/googletest/CMakeLists.txt:googletest)

# The fuzz targets: clang and its libFuzzer runtime.
fuzz_tools=(clang++:clang
  '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a:libclang-rt-14-dev')

configure_linux() {
  [[ -f $linux_build/build.ninja ]] ||
    cmake -S "$root" -B "$linux_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
}
configure_windows() {
  [[ -f $windows_build/build.ninja ]] ||
    cmake -S "$root" -B "$windows_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake" >/dev/null
}
