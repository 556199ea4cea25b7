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

# missing_of GROUP...: prints those packages of these groups that are not installed yet.
missing_of() {
  local package
  while read -r package; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      echo "$package"
  done < <(packages_of "$@")
}

# as_root COMMAND...: runs the command as root.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# install_packages PACKAGE...: installs the packages.
install_packages() {
  [ $# -gt 0 ] || return 0
  if ! command -v apt-get >/dev/null; then
    printf 'Please install what corresponds to these Debian packages: %s\n' "$*" >&2
    return 1
  fi
  say "Installing $*"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
    --no-install-recommends "$@" >/dev/null
}

# install_missing GROUP...: installs those packages of these groups that are not installed yet.
install_missing() {
  local missing
  mapfile -t missing < <(missing_of "$@")
  install_packages "${missing[@]}"
}

# install_available GROUP...: the same for packages that the caller can do without. A package that
# this release of the distribution does not have is named and left out.
install_available() {
  local package missing=() absent=()
  while read -r package; do
    if apt-cache show "$package" >/dev/null 2>&1; then
      missing+=("$package")
    else
      absent+=("$package")
    fi
  done < <(missing_of "$@")
  [ ${#absent[@]} -eq 0 ] || say "Not in this release, left out: ${absent[*]}"
  install_packages "${missing[@]}"
}

# release: prints the code name of the Debian release that runs here.
release() { (. /etc/os-release && echo "$VERSION_CODENAME"); }

# mirror: prints the address from which apt gets this machine's release.
mirror() {
  # The code names of updates have two words.
  apt-get indextargets --format '$(CODENAME) $(REPO_URI)' 'Identifier: Packages' 'Origin: Debian' |
    sed -n 's/^[a-z]* //p' | head -n 1
}

# clean_root RELEASE: makes a minimal system of this Debian release, with git to clone with, unless
# it exists. Prints the path of its tar file. Needs root.
clean_root() {
  local tar=$PWD/build/roots/$1.tar
  if [ ! -e "$tar" ]; then
    install_missing cleanroot >&2
    mkdir -p build/roots
    rm -rf "$tar.new"
    debootstrap --variant=minbase --include=git,ca-certificates "$1" "$tar.new" "$(mirror)" \
      >"build/roots/$1.log"
    rm -f "$tar.new"/var/cache/apt/archives/*.deb
    tar -C "$tar.new" -cf "$tar.part" .
    mv "$tar.part" "$tar"
    rm -rf "$tar.new"
  fi
  echo "$tar"
}

# build PRESET [TARGET...]: configures the preset and builds the targets, or the default ones.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  ninja -C "build/$preset" --quiet "$@"
}
