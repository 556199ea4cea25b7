# Functions that the scripts share. Source this file from the top of the checkout.

# So that the compiler cache can cache precompiled headers, and share objects between clones.
export CCACHE_SLOPPINESS=pch_defines,time_macros
export CCACHE_BASEDIR="$PWD"
export CCACHE_NOHASHDIR=1

# say TEXT...: prints a heading with the time since the script began.
say() { printf '\n== %s (%d:%02d)\n' "$*" $((SECONDS / 60)) $((SECONDS % 60)); }

# packages_of GROUP...: prints the packages of these groups in scripts/packages.
packages_of() {
  local group
  for group in "$@"; do
    sed -n "s/^$group: //p" scripts/packages
  done | tr ' ' '\n' | sort -u
}

# install_missing GROUP...: installs those packages of these groups that are not installed yet.
install_missing() {
  local package missing=()
  while read -r package; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done < <(packages_of "$@")
  [ ${#missing[@]} -eq 0 ] && return
  if ! command -v apt-get >/dev/null; then
    printf 'Please install what corresponds to these Debian packages: %s\n' "${missing[*]}" >&2
    return 1
  fi
  say "Installing ${missing[*]}"
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
    --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures the preset and builds the targets, or the default ones.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  ninja -C "build/$preset" --quiet "$@"
}
