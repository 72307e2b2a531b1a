#!/bin/sh
# Runs COMMAND with the certificate CA_PEM trusted as a root by the Wine processes it starts:
#   with-trusted-root.sh CA_PEM COMMAND [ARGUMENT...]
# Wine reads its root certificates from the host's /etc/ssl/certs/ca-certificates.crt (a
# certificate added to a prefix's Root store is not used), so COMMAND runs in a private mount
# namespace where a copy of that bundle with CA_PEM appended is bound over it. That needs root,
# `unshare -m` and `mount` (util-linux, mount); where it cannot be made, COMMAND runs as it is, and this says so on stderr (the
# tests that need the root then skip, naming why). The host's own bundle is never changed.
# (POSIX sh: bash warns on stderr about a locale of LC_ALL that the host lacks, which the Windows
# programs are given.)
set -eu
ca=$1
shift
bundle=/etc/ssl/certs/ca-certificates.crt
copy=$(mktemp)
trap 'rm -f "$copy"' EXIT
cat "$bundle" "$ca" > "$copy"
status=0
if [ "$(id -u)" -eq 0 ] &&
   unshare -m sh -c 'mount --bind "$0" "$1"' "$copy" "$bundle" 2>/dev/null; then
  unshare -m sh -c 'mount --bind "$0" '"$bundle"' && exec "$@"' "$copy" "$@" || status=$?
else
  echo "with-trusted-root.sh: $ca is not made a trusted root: that needs root and unshare -m" >&2
  "$@" || status=$?
fi
exit $status
