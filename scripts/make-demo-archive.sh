#!/usr/bin/env bash
# Makes an Xcode archive of the app in an .ipa.
#
# usage: make-demo-archive.sh IPA ARCHIVE
set -euo pipefail

usage="usage: make-demo-archive.sh IPA ARCHIVE"
ipa=$(realpath "${1:?$usage}")
archive=${2:?$usage}
mkdir -p "$archive/Products/Applications"
unpacked=$(mktemp -d)
trap 'rm -rf "$unpacked"' EXIT
# unzip takes the archive's name for a pattern, but not the link's.
ln -s "$ipa" "$unpacked/app.ipa"
(cd "$unpacked" && unzip -q app.ipa)
apps=("$unpacked"/Payload/*.app)
[ -d "${apps[0]}" ] || { echo "make-demo-archive: no app in $ipa" >&2; exit 1; }
name=$(basename "${apps[0]}" .app)
cp -a "${apps[0]}" "$archive/Products/Applications/"
escaped=$(printf '%s' "$name" | sed 's/&/\&amp;/g; s/</\&lt;/g')
cat >"$archive/Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
<key>CreationDate</key><date>$(date -u +%Y-%m-%dT%H:%M:%SZ)</date>
<key>Name</key><string>$escaped</string>
<key>ApplicationProperties</key>
<dict><key>ApplicationPath</key><string>Applications/$escaped.app</string></dict>
</dict>
</plist>
PLIST
