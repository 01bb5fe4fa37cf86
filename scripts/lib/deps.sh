# Installs the Debian packages the project needs, once. Sourced by the scripts in scripts/.
# Quick no-op when everything is present: one dpkg-query call, no apt at all.

QUELIX_PACKAGES=(
  build-essential cmake ninja-build pkg-config clang-format
  qtbase5-dev qtbase5-dev-tools qttools5-dev qttools5-dev-tools libqt5svg5-dev
  libqt5x11extras5-dev libxcb1-dev libxcb-keysyms1-dev libxcb-xtest0-dev
  qtwebengine5-dev qtmultimedia5-dev libqt5multimedia5-plugins
  libqt5sql5-sqlite libsqlite3-dev libqt5sql5-psql postgresql qttranslations5-l10n
  libqxmpp-dev libcpp-httplib-dev libssl-dev qtkeychain-qt5-dev
  prosody python3-slixmpp openssl ejabberd erlang-p1-sqlite3
  xvfb xauth fonts-noto-color-emoji fonts-wqy-microhei
  g++-mingw-w64-x86-64-posix
)

# Only scripts/fuzz needs these: the fuzzing compiler and its runtime.
QUELIX_FUZZ_PACKAGES=(clang-14 libclang-rt-14-dev)

quelix_missing_packages() {
  local wanted=("$@")
  [ $# -eq 0 ] && wanted=("${QUELIX_PACKAGES[@]}")
  local installed
  installed=$(dpkg-query -W -f='${Package} ${db:Status-Abbrev}\n' "${wanted[@]}" 2>/dev/null |
    awk '$2 ~ /^ii/ {print $1}')
  local p
  for p in "${wanted[@]}"; do
    grep -qx "$p" <<<"$installed" || echo "$p"
  done
}

quelix_install_fuzz_deps() {
  quelix_install_deps "${QUELIX_FUZZ_PACKAGES[@]}"
}

quelix_install_deps() {
  local missing
  missing=$(quelix_missing_packages "$@")
  [ -z "$missing" ] && return 0
  echo "quelix: installing missing packages:" $missing
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  # Another apt run may hold the lock for a while (a parallel build on the same machine).
  local tries=0
  until $sudo apt-get install -y -q --no-install-recommends $missing; do
    tries=$((tries + 1))
    if [ $tries -eq 1 ]; then $sudo apt-get update -q || true; fi
    if [ $tries -ge 5 ]; then echo "quelix: package installation failed" >&2; return 1; fi
    sleep 5
  done
  # Prosody and ejabberd are started privately by the scripts, never as system services.
  local service
  for service in prosody ejabberd; do
    if command -v systemctl >/dev/null 2>&1; then $sudo systemctl disable --now $service >/dev/null 2>&1 || true; fi
    $sudo service $service stop >/dev/null 2>&1 || true
  done
}
