#!/usr/bin/env bash
# The signed files of the trusted publishers' tests, made with a throwaway PKI on the Linux side:
#   make-fixtures.sh OUT PACKAGE_PE LIBRARY
# OUT gets root.pem (the test root, which scripts/with-trusted-root.sh makes trusted) and
# unknown-root.pem (never trusted); for each signer, <name>.hash (its public key's SHA-256):
# listed, second (both code signing, under the test root), unlisted (the same), stranger (code
# signing, under the unknown root), server (server authentication only); the package container
# (standins/webupdater/package_pe.py) of a package that writes trusted.txt, as unsigned.pkg,
# <signer>.pkg signed by each, and changed.pkg (listed.pkg with one byte of its package changed);
# the stand-in library LIBRARY signed by unlisted (unlisted-library.dll) and by listed
# (listed-library.dll).
set -euo pipefail
out=$1 package_pe=$2 library=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/x509.cnf" <<'CNF'
[req]
distinguished_name = dn
[dn]
[root]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[codesigning]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = codeSigning
authorityKeyIdentifier = keyid
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
authorityKeyIdentifier = keyid
CNF
mkdir -p "$out"
root() {  # name, subject
  openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/$1.key" -out "$out/$1.pem" -days 3650 \
    -subj "$2" -config "$work/x509.cnf" -extensions root 2>/dev/null
}
signer() {  # name, issuing root, extensions
  openssl req -newkey rsa:2048 -nodes -keyout "$work/$1.key" -out "$work/$1.csr" \
    -subj "/O=Orrery Tests/CN=Orrery Test Publisher $1" -config "$work/x509.cnf" 2>/dev/null
  openssl x509 -req -in "$work/$1.csr" -CA "$out/$2.pem" -CAkey "$work/$2.key" \
    -CAserial "$work/$2.srl" -CAcreateserial \
    -out "$work/$1.pem" -days 3650 -extfile "$work/x509.cnf" -extensions "$3" 2>/dev/null
  openssl x509 -in "$work/$1.pem" -pubkey -noout | openssl pkey -pubin -outform DER |
    sha256sum | cut -c1-64 > "$out/$1.hash"
}
sign() {  # signer, input, output
  rm -f "$3"
  osslsigncode sign -certs "$work/$1.pem" -key "$work/$1.key" -h sha256 -in "$2" -out "$3" >/dev/null
}
root root "/CN=Orrery Test Root"
root unknown-root "/CN=Orrery Unknown Root"
for name in listed second unlisted; do signer "$name" root codesigning; done
signer stranger unknown-root codesigning
signer server root server
printf 'ORRERY-PACKAGE 1\r\n--- file: trusted.txt\r\nverified bytes\r\n' > "$work/package.txt"
python3 "$package_pe" "$out/unsigned.pkg" "$work/package.txt"
for name in listed second unlisted stranger server; do
  sign "$name" "$out/unsigned.pkg" "$out/$name.pkg"
done
# One byte of the package's text, after signing: "verified" becomes "verifieD".
cp "$out/listed.pkg" "$out/changed.pkg"
offset=$(grep -abo 'verified bytes' "$out/changed.pkg" | head -1 | cut -d: -f1)
printf 'D' | dd of="$out/changed.pkg" bs=1 seek=$((offset + 7)) conv=notrunc 2>/dev/null
sign unlisted "$library" "$out/unlisted-library.dll"
sign listed "$library" "$out/listed-library.dll"
