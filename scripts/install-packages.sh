#!/usr/bin/env bash
# Installs the Debian packages named as arguments that are missing. Quiet, and
# without the network, when there is nothing to do.
set -euo pipefail

missing=()
for package in "$@"; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null; then
  as_root=(sudo)
else
  echo "Missing packages, and neither root nor sudo to install them: ${missing[*]}" >&2
  echo "Ask an administrator for: apt-get install ${missing[*]}" >&2
  exit 1
fi

echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" apt-get install -y \
       --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  exit 1
fi
