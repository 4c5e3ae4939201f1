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
# Without root or apt-get it names what is missing and the one command that installs it.
ensure_packages() {
  local missing=() item
  for item in "$@"; do
    probe_present "${item%%:*}" || missing+=("${item#*:}")
  done
  ((${#missing[@]} == 0)) && return 0
  # One package may stand behind several probes: name it once.
  mapfile -t missing < <(printf '%s\n' "${missing[@]}" | awk '!seen[$0]++')
  if [[ $(id -u) -eq 0 ]] && command -v apt-get >/dev/null 2>&1; then
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  else
    echo "Missing packages: ${missing[*]}; install them as root with: apt-get install -y ${missing[*]}" >&2
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

# The CLI reads its command line and the profiles of `torvixe run` with CLI11 and writes its
# --json documents with nlohmann-json; both builds take their headers from the host (the
# Windows build copies them into its build tree).
cli_headers=(/usr/include/CLI/CLI.hpp:libcli11-dev /usr/include/nlohmann/json.hpp:nlohmann-json3-dev)
linux_tools=(cmake:cmake ninja:ninja-build g++:g++ pkg-config:pkg-config
  /usr/include/gtest/gtest.h:libgtest-dev /usr/include/gmock/gmock.h:libgmock-dev
  /usr/include/benchmark/benchmark.h:libbenchmark-dev "${cli_headers[@]}")
# The Windows build: the MinGW compiler and GoogleTest's sources (built with the tests).
windows_build_tools=(cmake:cmake ninja:ninja-build x86_64-w64-mingw32-g++-posix:g++-mingw-w64-x86-64-posix
  /usr/src/googletest/CMakeLists.txt:googletest "${cli_headers[@]}")
# Its test programs run under the command `wine` (package wine); the 64-bit loader comes with
# the package wine64.
windows_tools=("${windows_build_tools[@]}" wine:wine /usr/lib/wine/wine64:wine64)

# The fuzz targets: clang and its libFuzzer runtime; one of them drives the CLI's parser.
fuzz_tools=(cmake:cmake ninja:ninja-build clang++:clang
  '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a:libclang-rt-14-dev'
  "${cli_headers[@]}")

# The Python package runs on Debian's python3 with Debian's numpy, and its tests with Debian's
# pytest: /usr/bin/python3 by its full path, since another python3 earlier on PATH does not see
# Debian's packages.
debian_python=/usr/bin/python3
python_tools=("$debian_python:python3" /usr/lib/python3/dist-packages/numpy/__init__.py:python3-numpy)
pytest_tools=(/usr/lib/python3/dist-packages/pytest/__init__.py:python3-pytest)

configure_linux() {
  [[ -f $linux_build/build.ninja ]] ||
    cmake -S "$root" -B "$linux_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
}
configure_windows() {
  [[ -f $windows_build/build.ninja ]] ||
    cmake -S "$root" -B "$windows_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake" >/dev/null
}
