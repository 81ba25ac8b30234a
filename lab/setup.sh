# Sourced by demo, test, bench and check: installs everything that a fresh Debian 12 needs.
# Every function prints what it does and ends the command on failure.

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export LC_ALL=C.UTF-8

say() { printf '\n== %s\n' "$*"; }
fail() { printf '%s\n' "$*" >&2; exit 1; }

need_root() {
  [ "$(id -u)" = 0 ] || fail "This command needs root: it installs packages and makes network namespaces."
}

need_namespaces() {
  ip netns add velmarine-probe 2>/dev/null && ip netns del velmarine-probe \
    || fail "This command needs network namespaces (ip netns add failed); run it on a machine or in a container that allows them."
  [ -c /dev/net/tun ] || fail "This command needs /dev/net/tun."
}

# Compiles the one npm package with a native part, because lab/.npmrc disables all install scripts. Debian's node-gyp
# finds the headers of Debian's Node.js; any other Node.js brings its own.
compile_snap7() {
  local prefix
  prefix=$(node -p "path.resolve(process.execPath, '../..')")
  [ -f "$prefix/include/node/node.h" ] && export npm_config_nodedir=$prefix
  (cd "$repo/lab" && npm_config_build_from_source=true npm rebuild node-snap7 --ignore-scripts=false \
    >"$repo/build/snap7.log" 2>&1) || { tail -40 "$repo/build/snap7.log"; fail "Compiling node-snap7 failed."; }
  [ -f "$repo/lab/node_modules/node-snap7/build/Release/node_snap7.node" ] || fail "node-snap7 has no native part."
}

# Runs COMMAND..., which installs packages, but keeps installed servers from starting: the lab starts its own.
without_starting() {
  local policy=/usr/sbin/policy-rc.d made='' code=0
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod +x "$policy"
    made=yes
  fi
  DEBIAN_FRONTEND=noninteractive "$@" || code=$?
  [ -z "$made" ] || rm "$policy"
  return "$code"
}

# leave_off PACKAGE...: keeps servers that were installed only for the lab from starting at the next boot.
leave_off() {
  [ -d /run/systemd/system ] || return 0
  local name
  for name in "$@"; do
    case $name in
      vsftpd | tftpd-hpa | openvpn) systemctl disable -q "$name" ;;
      openssh-server) systemctl disable -q ssh ;;
    esac
  done
}

# install_packages [LIST...]: installs the missing packages of lab/packages.txt and those lists, and the npm packages
# of lab/package.json.
install_packages() {
  local missing=() name
  while read -r name; do
    dpkg-query -W -f='${Status}' "$name" 2>/dev/null | grep -q 'ok installed' || missing+=("$name")
  done < <(grep -hv '^#' "$repo/lab/packages.txt" "$@")
  command -v npm >/dev/null || missing+=(nodejs npm)
  if [ ${#missing[@]} -gt 0 ]; then
    need_root
    say "Installing ${#missing[@]} packages: ${missing[*]}"
    apt-get update -qq || fail "apt-get update failed."
    without_starting apt-get install -y -qq --no-install-recommends "${missing[@]}" \
      >"$repo/build/apt.log" 2>&1 || { tail -20 "$repo/build/apt.log"; fail "Installing packages failed."; }
    leave_off "${missing[@]}"
  fi
  if ! locale -a | grep -qi '^zh_CN\.utf-\?8$'; then
    say "Making the locale zh_CN.UTF-8"
    localedef -i zh_CN -f UTF-8 zh_CN.UTF-8 || fail "The locale could not be made."
  fi
  if ! cmp -s "$repo/lab/package-lock.json" "$repo/lab/node_modules/.lock-installed"; then
    say "Installing npm packages"
    (cd "$repo/lab" && npm ci --no-audit --no-fund --loglevel=error) || fail "npm ci failed."
    compile_snap7
    cp "$repo/lab/package-lock.json" "$repo/lab/node_modules/.lock-installed"
  fi
}

# For ./test judges only: Java (190 MB) and npm packages (210 MB).
install_judges() {
  if ! command -v java >/dev/null; then
    need_root
    say "Installing Java"
    apt-get update -qq || fail "apt-get update failed."
    apt-get install -y -qq --no-install-recommends default-jre-headless >"$repo/build/apt.log" 2>&1 \
      || { tail -20 "$repo/build/apt.log"; fail "Installing Java failed."; }
  fi
  if ! cmp -s "$repo/lab/judges/package-lock.json" "$repo/lab/judges/node_modules/.lock-installed"; then
    say "Installing npm packages of the judges"
    (cd "$repo/lab/judges" && npm ci --no-audit --no-fund --loglevel=error) || fail "npm ci failed."
    cp "$repo/lab/judges/package-lock.json" "$repo/lab/judges/node_modules/.lock-installed"
  fi
}

# build PRESET [TARGET...]: configures and builds, showing the compiler's output only when it fails.
build() {
  local preset=$1 log="$repo/build/$1.log"
  shift
  say "Building $preset"
  (cd "$repo" && cmake --preset "$preset" >"$log" 2>&1) || { tail -40 "$log"; fail "Configuring $preset failed."; }
  (cd "$repo" && cmake --build --preset "$preset" -j "$(nproc)" ${1:+--target "$@"} >>"$log" 2>&1) \
    || { tail -80 "$log"; fail "Building $preset failed."; }
}

mkdir -p "$repo/build"
