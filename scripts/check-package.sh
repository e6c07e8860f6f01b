#!/usr/bin/env bash
# Looks at the Debian package given as argument: what lintian says, and whether what it
# installs works from the directory where it is unpacked.
set -euo pipefail
package=$(realpath "${1:?}")
cd "$(dirname "$0")/.."
source scripts/packages.sh
scripts/install-packages.sh "${package_check_packages[@]}"
lintian --fail-on error,warning "$package"

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
dpkg-deb -x "$package" "$root"
for page in "$root"/usr/share/man/man?/*; do
  man -l --warnings "$page" >/dev/null
done
[ "$(env -u MVKDIR sh -c '. "$0"; echo "$MVKDIR"' "$root/etc/profile.d/pvbconditioner.sh")" = \
  /usr/share/pvbconditioner ]
bash -c 'source "$0"; COMP_WORDS=(pvb d); COMP_CWORD=1; _pvb; [[ ${COMPREPLY[*]} == *diff* ]]' \
  "$root/usr/share/bash-completion/completions/pvb"
export MVKDIR=$root/usr/share/pvbconditioner
{ "$root/usr/bin/pvbconditioner" OpFile=none OptimizeTimePlates=yes ATEFamily=v93000 2>&1 || true; } |
  grep '^pmode is: 3$' >/dev/null
"$root/usr/share/doc/pvbconditioner/examples/run.sh" "$root/usr/bin" >/dev/null
