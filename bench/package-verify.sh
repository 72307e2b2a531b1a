#!/usr/bin/env bash
# The trusted publishers' check of a 100 MB package against `sha256sum` of the same file, measured
# in one run: a throwaway publisher signs a package container (standins/webupdater/package_pe.py)
# of about 100 MB, then rounds alternate between `sha256sum` of it and cvpkgbench.exe (the copy into the
# verified folder and the verification, timed inside the Wine process), and their medians are
# compared (target: at most 2). The publisher's root is made trusted through
# scripts/with-trusted-root.sh, which needs root, `unshare -m` and `mount`; elsewhere the
# benchmark is skipped, and says so (a refused package is deleted, so rounds cannot repeat).
#   package-verify.sh BUILD_DIR     (WINEPREFIX: the bench's prefix)
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
rounds=5
if "$here/../scripts/with-trusted-root.sh" /dev/null true 2>&1 | grep -q "not made a trusted root"; then
  echo "package check: skipped: its throwaway root can be trusted by Wine only as root with"\
       "unshare -m and mount"
  exit 0
fi
work=$(mktemp -d "$build/package-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
cat > x509.cnf <<'CNF'
[req]
distinguished_name = dn
[dn]
[root]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign
[signer]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
CNF
openssl req -x509 -newkey rsa:2048 -nodes -keyout root.key -out root.pem -days 2 \
  -subj "/CN=Orrery Bench Root" -config x509.cnf -extensions root 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout signer.key -out signer.csr \
  -subj "/CN=Orrery Bench Publisher" -config x509.cnf 2>/dev/null
openssl x509 -req -in signer.csr -CA root.pem -CAkey root.key -CAcreateserial -CAserial root.srl \
  -days 2 -out signer.pem -extfile x509.cnf -extensions signer 2>/dev/null
hash=$(openssl x509 -in signer.pem -pubkey -noout | openssl pkey -pubin -outform DER |
       sha256sum | cut -c1-64)
{ printf 'ORRERY-PACKAGE 1\r\n--- file: catalog.bin\r\n'; head -c $((75 * 1024 * 1024)) /dev/urandom |
  base64 -w 76; } > package.txt
python3 "$here/../standins/webupdater/package_pe.py" package.pe package.txt
osslsigncode sign -certs signer.pem -key signer.key -h sha256 -in package.pe -out package.pkg >/dev/null
rm package.pe package.txt
package=$(winepath -w "$work/package.pkg")
size=$(stat -c %s package.pkg)
cp "$build/bin/cvpkgbench.exe" .
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
sums=() admits=()
for _ in $(seq "$rounds"); do
  start=$(date +%s%N)
  sha256sum package.pkg >/dev/null
  sums+=($(( ($(date +%s%N) - start) / 1000 )))
  out=$("$here/../scripts/with-trusted-root.sh" root.pem wine cvpkgbench.exe "$package" "$hash" 2>&1) ||
    { echo "$out" >&2; exit 1; }
  admits+=($(echo "$out" | sed -n 's/^admit_ms=//p' | tr -d '\r'))
done
sum_ms=$(printf '%s\n' "${sums[@]}" | median | awk '{ printf "%.1f", $1 / 1000 }')
admit_ms=$(printf '%s\n' "${admits[@]}" | median)
echo "package check: a signed package of $((size / 1024 / 1024)) MB, median of $rounds alternating rounds"
echo "  sha256sum of the file:                              $sum_ms ms"
echo "  copy into the verified folder and verify (admit):   $admit_ms ms"
awk -v a="$admit_ms" -v s="$sum_ms" 'BEGIN { printf "  ratio copy+verify / sha256sum: %.2f (target: at most 2)\n", a / s }'
