#!/bin/bash
# Makes the certificates of the demo and the tests, new ones each time: nothing here is a secret
# and nobody trusts them.
#
#   identities.sh FOLDER
#
# For each NAME of root, intermediate, admin, branch, maker and developer it writes NAME.key and
# NAME.pem; for all but the first two also NAME.p12 (password "demo"), to be imported into a keychain, and
# NAME.keychain.pem (key, certificate and chain), which serves as a keychain by its path.
# root.sha1 is the root's hash: TOVREK_TRUSTED_ROOT_SHA1 with it lets codesign take these
# certificates for such that belong to a team.
set -eu
export LC_ALL=C.UTF-8
folder=$1
config=$(cd "$(dirname "$0")" && pwd)/identities.cnf
days=3650
mkdir -p "$folder"
cd "$folder"
umask 077

# certificate NAME SECTION ISSUER COMMON-NAME UNIT ORGANISATION
certificate() {
  local name=$1 section=$2 issuer=$3
  export CERT_NAME=$4 CERT_UNIT=$5 CERT_ORGANISATION=$6
  openssl req -new -config "$config" -newkey rsa:2048 -noenc -keyout "$name.key" -out "$name.csr" \
    2>/dev/null
  local sign=(-CA "$issuer.pem" -CAkey "$issuer.key")
  if [ "$issuer" = self ]; then sign=(-signkey "$name.key"); fi
  openssl x509 -req -sha256 -days $days -in "$name.csr" -out "$name.pem" \
    -extfile "$config" -extensions "$section" "${sign[@]}" 2>/dev/null
  rm "$name.csr"
}

# identity NAME: the files that hold a key together with its certificates.
identity() {
  cat "$1.key" "$1.pem" intermediate.pem root.pem >"$1.keychain.pem"
  cat intermediate.pem root.pem >chain.tmp
  openssl pkcs12 -export -inkey "$1.key" -in "$1.pem" -certfile chain.tmp -passout pass:demo \
    -name "$(openssl x509 -in "$1.pem" -noout -subject -nameopt multiline,utf8,-esc_msb |
             sed -n 's/^ *commonName *= //p')" -out "$1.p12"
  rm chain.tmp
}

certificate root root self "Demo Root CA" "Demo Certification Authority" "Demo Authority"
certificate intermediate intermediate root "Demo Device Relations CA" "G1" "Demo Authority"
certificate admin distribution intermediate \
  "iPhone Distribution: Example Corporation (EXAMPLE123)" EXAMPLE123 "Example Corporation"
certificate branch distribution intermediate \
  "iPhone Distribution: Example Branch (EXAMPLE456)" EXAMPLE456 "Example Branch"
certificate maker distribution intermediate \
  "iPhone Distribution: Orvane Systems, Inc. (ORVANE1234)" ORVANE1234 "Orvane Systems, Inc."
certificate developer development intermediate \
  "iPhone Developer: Sam Sample (SAMPLE0001)" SAMPLE0001 "Sam Sample"
for name in admin branch maker developer; do identity $name; done
openssl x509 -in root.pem -noout -fingerprint -sha1 | sed 's/.*=//; s/://g' >root.sha1
