# Sourced: require_packages PACKAGE... installs those of the Debian packages
# that are missing, and nothing when all are there.

require_packages() {
  missing=
  for package in "$@"; do
    if ! dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed'; then
      missing="$missing $package"
    fi
  done
  [ -n "$missing" ] || return 0
  as_root=
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  echo "installing$missing"
  # shellcheck disable=SC2086 # a list of words on purpose
  $as_root apt-get -qq update &&
    $as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install \
      $missing >/dev/null
}
