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
$(base64 "$folder/leaf.der")
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
"$here/make-demo-identity.sh" "$folder"
make_app "$folder/Payload/Example.app"
sign_app "$folder/Payload/Example.app"
(cd "$folder" && zip -q --symlinks -r Example.ipa Payload)
"$here/make-demo-archive.sh" "$folder/Example.ipa" "$folder/Example.xcarchive"
