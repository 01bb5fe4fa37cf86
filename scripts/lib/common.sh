# Shared by the scripts in scripts/: where the project is, and how it is built.
QUELIX_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
QUELIX_BUILD="$QUELIX_ROOT/build"
source "$QUELIX_ROOT/scripts/lib/deps.sh"

quelix_build() {
  if [ ! -f "$QUELIX_BUILD/CMakeCache.txt" ]; then
    cmake -S "$QUELIX_ROOT" -B "$QUELIX_BUILD" -G Ninja -DQUELIX_WERROR=ON >/dev/null || return 1
  fi
  cmake --build "$QUELIX_BUILD" -j "$(nproc)" "$@"
}
