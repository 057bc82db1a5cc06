#!/usr/bin/env bash
# Makes an identity to sign with in FOLDER: the certificates root, issuer and leaf (.crt), their keys
# (.key), leaf.der, and keychain.pem with all that signing takes. The leaf is valid for DAYS from now.
#
# usage: make-demo-identity.sh FOLDER [COMMON_NAME [TEAM [DAYS]]]
set -euo pipefail

folder=${1:?usage: make-demo-identity.sh FOLDER [COMMON_NAME [TEAM [DAYS]]]}
name=${2:-iPhone Distribution: Example Corp (ABCDE12345)}
team=${3:-ABCDE12345}
leaf_days=${4:-365}

# certificate NAME SUBJECT EXTENSIONS [ISSUER]; without an issuer it signs itself.
certificate() {
  local name=$1 subject=$2 extensions=$3 issuer=${4:-$1} days=365
  [ "$name" != leaf ] || days=$leaf_days
  openssl ecparam -name prime256v1 -genkey -noout -out "$folder/$name.key"
  openssl req -new -utf8 -key "$folder/$name.key" -subj "$subject" -out "$folder/$name.csr"
  printf '%b' "$extensions" >"$folder/$name.cnf"
  local signer=(-CA "$folder/$issuer.crt" -CAkey "$folder/$issuer.key" -CAcreateserial)
  [ "$issuer" != "$name" ] || signer=(-signkey "$folder/$name.key")
  openssl x509 -req -days "$days" -sha256 -in "$folder/$name.csr" -extfile "$folder/$name.cnf" \
    "${signer[@]}" -out "$folder/$name.crt" 2>/dev/null
}

mkdir -p "$folder"
authority='basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n'
certificate root "/CN=Demo Root CA/O=Example Corp" "${authority}subjectKeyIdentifier=hash\n"
certificate issuer "/CN=Demo Developer Relations CA/O=Example Corp" \
  "${authority}1.2.840.113635.100.6.2.1=ASN1:NULL\n" root
certificate leaf "/CN=$name/OU=$team/O=Example Corp" \
  "keyUsage=critical,digitalSignature\nextendedKeyUsage=critical,codeSigning\n1.2.840.113635.100.6.1.4=ASN1:NULL\n" \
  issuer
openssl x509 -in "$folder/leaf.crt" -outform DER -out "$folder/leaf.der"
umask 077
cat "$folder"/leaf.{key,crt} "$folder"/{issuer,root}.crt >"$folder/keychain.pem"
