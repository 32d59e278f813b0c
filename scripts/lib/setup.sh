# shellcheck shell=bash
# What the scripts need on the machine. Sourced by them; installs only what is missing.

# shellcheck disable=SC2034 # the lists are used by their purposes' names

# One list a purpose: "package" or "package:how to tell that it is there", where that is a command
# (cmd=NAME), a pkg-config module (lib=NAME), a module of the system's Python (python=NAME) or a
# file (file=PATH).
wrixel2_build_packages=(
  g++:cmd=g++
  cmake:cmd=cmake
  ninja-build:cmd=ninja
  pkg-config:cmd=pkg-config
  ccache:cmd=ccache
  libsystemd-dev:lib=libsystemd
  libplist-dev:lib=libplist-2.0
  nettle-dev:lib=nettle
  libfmt-dev:lib=fmt
  libsqlite3-dev:lib=sqlite3
  libcli11-dev:lib=CLI11
  libtomlplusplus-dev:lib=tomlplusplus
)
wrixel2_run_packages=(
  dbus-daemon:cmd=dbus-daemon
  systemd:cmd=busctl
  libnotify-bin:cmd=notify-send
)
wrixel2_test_packages=(
  "${wrixel2_run_packages[@]}"
  libgtest-dev:lib=gtest
  libglib2.0-bin:cmd=gdbus
  xdg-dbus-proxy:cmd=xdg-dbus-proxy
  strace:cmd=strace
  clang-19:cmd=clang++-19
  clang-format-19:cmd=clang-format-19
  clang-tidy-19:cmd=clang-tidy-19
)
wrixel2_bench_packages=(
  dbus-daemon:cmd=dbus-daemon
  libbenchmark-dev:lib=benchmark
)
wrixel2_coverage_packages=(
  gcovr:cmd=gcovr
)
wrixel2_fuzz_packages=(
  clang-19:cmd=clang++-19
  libclang-rt-19-dev:file=/usr/lib/llvm-19/lib/clang/19/lib/linux
  llvm:cmd=llvm-symbolizer
)

wrixel2_radio_packages=(
  dbus-daemon:cmd=dbus-daemon
  bluez:cmd=bluetoothd
  bluez-test-tools:cmd=btvirt
  qemu-system-x86:cmd=qemu-system-x86_64
  busybox-static:cmd=busybox
  kmod:cmd=modprobe
  xz-utils:cmd=xz
  python3-dbus:python=dbus
  python3-gi:python=gi
)

wrixel2_is_there() { # HOW
  case $1 in
    python=*) /usr/bin/python3 -c "import ${1#python=}" ;;
    cmd=*) command -v "${1#cmd=}" ;;
    lib=*) pkg-config --exists "${1#lib=}" ;;
    file=*) [ -e "${1#file=}" ] ;;
  esac >/dev/null 2>&1
}

# ensure_packages build|run|test|bench...: installs with apt-get what these purposes need and the machine
# lacks. Fails, naming the packages, where they cannot be installed.
ensure_packages() {
  local purpose entry missing=()
  for purpose in "$@"; do
    local -n entries="wrixel2_${purpose}_packages"
    for entry in "${entries[@]}"; do
      wrixel2_is_there "${entry#*:}" || missing+=("${entry%%:*}")
    done
  done
  [ ${#missing[@]} -eq 0 ] && return

  if ! command -v apt-get >/dev/null; then
    echo "Missing here, and there is no apt-get to install it: ${missing[*]}" >&2
    return 1
  fi
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  echo "Installing ${missing[*]}" >&2
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq)
  "${apt[@]}" update >&2 &&
    "${apt[@]}" install -y --no-install-recommends "${missing[@]}" >&2
}

# The option with which cmake compiles through ccache, where there is one.
compiler_launcher() {
  if command -v ccache >/dev/null; then
    echo -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
  fi
}
