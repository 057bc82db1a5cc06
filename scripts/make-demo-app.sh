#!/usr/bin/env bash
# Makes a small real app in FOLDER: Example.app, packed as Example.ipa and inside Example.xcarchive,
# and keychain.pem with the identity that its provisioning profile lists.
#
# usage: make-demo-app.sh FOLDER CODESIGN
set -euo pipefail

usage="usage: make-demo-app.sh FOLDER CODESIGN"
folder=${1:?$usage}
codesign=${2:?$usage}
here=$(cd "$(dirname "$0")" && pwd)
llvm=$(llvm-config --bindir)
identifier=com.example.demo
team=ABCDE12345

# One slice of the executable, as an iOS linker makes it.
slice() {
  local architecture=$1
  "$llvm/clang" -target "$architecture-apple-ios9.0" -Os -ffreestanding \
    -c "$folder/main.c" -o "$folder/$architecture.o"
  "$llvm/ld64.lld" -arch "$architecture" -platform_version ios 9.0 12.1 \
    -o "$folder/$architecture" "$folder/$architecture.o"
}

make_executable() {
  echo 'int main(void) { return 0; }' >"$folder/main.c"
  slice armv7
  slice arm64
  "$llvm/llvm-lipo" -create -output "$folder/universal" "$folder/armv7" "$folder/arm64"
  cp "$folder/universal" "$1"
}

# certificate NAME SUBJECT EXTENSIONS [ISSUER]; without an issuer it signs itself.
certificate() {
  local name=$1 subject=$2 extensions=$3 issuer=${4:-$1}
  openssl ecparam -name prime256v1 -genkey -noout -out "$folder/$name.key"
  openssl req -new -utf8 -key "$folder/$name.key" -subj "$subject" -out "$folder/$name.csr"
  printf '%b' "$extensions" >"$folder/$name.cnf"
  local signer=(-CA "$folder/$issuer.crt" -CAkey "$folder/$issuer.key" -CAcreateserial)
  [ "$issuer" != "$name" ] || signer=(-signkey "$folder/$name.key")
  openssl x509 -req -days 365 -sha256 -in "$folder/$name.csr" -extfile "$folder/$name.cnf" \
    "${signer[@]}" -out "$folder/$name.crt" 2>/dev/null
}

make_identity() {
  local authority='basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n'
  certificate root "/CN=Demo Root CA/O=Example Corp" "${authority}subjectKeyIdentifier=hash\n"
  certificate issuer "/CN=Demo Developer Relations CA/O=Example Corp" \
    "${authority}1.2.840.113635.100.6.2.1=ASN1:NULL\n" root
  certificate leaf "/CN=iPhone Distribution: Example Corp ($team)/OU=$team/O=Example Corp" \
    "keyUsage=critical,digitalSignature\nextendedKeyUsage=critical,codeSigning\n1.2.840.113635.100.6.1.4=ASN1:NULL\n" \
    issuer
  (
    umask 077
    cat "$folder"/leaf.{key,crt} "$folder"/{issuer,root}.crt >"$folder/keychain.pem"
  )
}

plist_head='<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">'

entitlements="<key>application-identifier</key><string>$team.$identifier</string>
<key>com.apple.developer.team-identifier</key><string>$team</string>
<key>get-task-allow</key><false/>
<key>beta-reports-active</key><true/>"

make_profile() {
  cat >"$folder/profile.plist" <<PLIST
$plist_head
<dict>
<key>Name</key><string>Demo Distribution</string>
<key>UUID</key><string>11111111-2222-3333-4444-555555555555</string>
<key>TeamName</key><string>Example Corp</string>
<key>TeamIdentifier</key><array><string>$team</string></array>
<key>ApplicationIdentifierPrefix</key><array><string>$team</string></array>
<key>CreationDate</key><date>2015-03-01T12:00:00Z</date>
<key>ExpirationDate</key><date>2045-03-01T12:00:00Z</date>
<key>Entitlements</key><dict>$entitlements</dict>
<key>ProvisionedDevices</key><array>
<string>2b6f0cc904d137be2e1730235f5664094b831186</string>
<string>aa6f0cc904d137be2e1730235f5664094b8311aa</string>
</array>
<key>DeveloperCertificates</key><array><data>
$(openssl x509 -in "$folder/leaf.crt" -outform DER | base64)
</data></array>
</dict>
</plist>
PLIST
  openssl cms -sign -binary -nodetach -outform DER -in "$folder/profile.plist" \
    -signer "$folder/leaf.crt" -inkey "$folder/leaf.key" -out "$1"
}

make_app() {
  local app=$1
  mkdir -p "$app/en.lproj" "$app/de.lproj"
  make_executable "$app/Example"
  make_profile "$app/embedded.mobileprovision"
  cat >"$app/Info.plist" <<PLIST
$plist_head
<dict>
<key>CFBundleIdentifier</key><string>$identifier</string>
<key>CFBundleName</key><string>Example</string>
<key>CFBundleExecutable</key><string>Example</string>
<key>CFBundlePackageType</key><string>APPL</string>
<key>CFBundleShortVersionString</key><string>1.2</string>
<key>CFBundleVersion</key><string>345</string>
<key>MinimumOSVersion</key><string>9.0</string>
<key>UIDeviceFamily</key><array><integer>1</integer><integer>2</integer></array>
</dict>
</plist>
PLIST
  printf 'APPL????' >"$app/PkgInfo"
  echo '"CFBundleDisplayName" = "Example";' >"$app/en.lproj/InfoPlist.strings"
  echo '"CFBundleDisplayName" = "Beispiel";' >"$app/de.lproj/InfoPlist.strings"
  head -c 20000 /dev/zero >"$app/Icon.png"
  ln -s Icon.png "$app/Icon@2x.png"
}

# Xcode hands over signed apps, so this one is signed too.
sign_app() {
  printf '%s\n<dict>%s</dict>\n</plist>\n' "$plist_head" "$entitlements" >"$folder/entitlements.plist"
  "$codesign" --force --sign "iPhone Distribution: Example Corp ($team)" \
    --keychain "$folder/keychain.pem" --entitlements "$folder/entitlements.plist" "$1"
}

rm -rf "$folder"
mkdir -p "$folder/Payload"
make_identity
make_app "$folder/Payload/Example.app"
sign_app "$folder/Payload/Example.app"
(cd "$folder" && zip -q --symlinks -r Example.ipa Payload)
"$here/make-demo-archive.sh" "$folder/Example.ipa" "$folder/Example.xcarchive"
