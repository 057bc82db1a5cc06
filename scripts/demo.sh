#!/usr/bin/env bash
# The main job from nothing: installs what is missing, builds the tool, makes a small real app, starts
# a stand-in release service on this machine and hands the app off twice, as an .ipa and from an
# Xcode archive. Ends with status 0 only if the service accepted both and their signatures hold.
#
# usage: demo.sh [--ipa FILE --keychain PATH]
#   --ipa       hand off this signed .ipa in place of the app made here
#   --keychain  PKCS #12 file, PEM file or folder that holds the key for the .ipa's profile
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  sed -n '2,/^set /{s/^# \{0,1\}//p}' scripts/demo.sh >&2
  exit 64
}

ipa=
keychain=
while [ $# -gt 0 ]; do
  [ $# -ge 2 ] || usage
  case $1 in
    --ipa) ipa=$(realpath "$2") ;;
    --keychain) keychain=$(realpath "$2") ;;
    *) usage ;;
  esac
  shift 2
done
if [ -n "$ipa" ] && [ -z "$keychain" ]; then
  echo "demo: an .ipa of your own needs the keychain with its key (--keychain)" >&2
  exit 64
fi

headline() { printf '\n== %s\n\n' "$*"; }

# Shows a command as one would type it, then runs it.
show() {
  printf '$'
  printf ' %q' "$@"
  printf '\n\n'
  "$@"
}

headline "Build"
scripts/install-packages.sh
cmake --preset dev >/dev/null
cmake --build --preset dev --target sendoff codesign codesign_allocate xcrun
sendoff=$PWD/build/bin/sendoff
codesign=$PWD/build/libexec/sendoff/codesign

work=$(mktemp -d "${TMPDIR:-/tmp}/sendoff-demo-XXXXXX")
service=
clean_up() {
  [ -z "$service" ] || kill "$service" 2>/dev/null || true
  rm -rf "$work"
}
trap clean_up EXIT
mkdir "$work/temporary" "$work/received"
export TMPDIR=$work/temporary

root=()
if [ -z "$ipa" ]; then
  headline "A small app: universal executable, profile, identity, signature"
  scripts/make-demo-app.sh "$work/app" "$codesign"
  ipa=$work/app/Example.ipa
  keychain=$work/app/keychain.pem
  root=(--root "$work/app/root.crt")
  unzip -Z1 "$ipa"
fi
scripts/make-demo-archive.sh "$ipa" "$work/Example.xcarchive"
printf 'Faster start.\nGrüße aus der Werkstatt.\n' >"$work/notes.txt"

headline "A stand-in for the release service"
key=$(openssl rand -hex 20)
secret=$(openssl rand -hex 32)
tests/runs/service.py --key "$key" --secret "$secret" --save "$work/received" "${root[@]}" \
  >"$work/service.log" &
service=$!
for _ in $(seq 100); do
  endpoint=$(sed -n 's/^listening on //p' "$work/service.log")
  [ -z "$endpoint" ] || break
  kill -0 "$service"
  sleep 0.1
done
echo "It listens on $endpoint, compares every byte it gets with what the build says about itself,"
echo "and refuses whatever is not exactly right."

# hand_off HEADLINE COMMAND...: runs the tool, then shows what the service got meanwhile.
accepted=0
hand_off() {
  headline "$1"
  shift
  local seen status=0
  seen=$(wc -c <"$work/service.log")
  show "$@" || status=$?
  printf '\nexit status %s; what the service received:\n\n' "$status"
  tail -c +$((seen + 1)) "$work/service.log"
  [ "$status" -ne 0 ] || accepted=$((accepted + 1))
}

export CODE_SIGN_KEYCHAIN=$keychain
hand_off "Hand off an .ipa, with notes, testers and groups" \
  "$sendoff" "$key" "$secret" -ipaPath "$ipa" -notesPath "$work/notes.txt" \
  -emails "anna@example.org, ben@example.org" -groupAliases "nightly" \
  -QuorvantileAPIEndpoint "$endpoint"
hand_off "Hand off an Xcode archive, as its After Archive step does" \
  env ARCHIVE_PRODUCTS_PATH="$work/Example.xcarchive/Products" \
  "$sendoff" "$key" "$secret" -notifications NO -QuorvantileAPIEndpoint "$endpoint"

headline "The signatures of what arrived"
verified=0
for received in "$work"/received/*.ipa; do
  [ -f "$received" ] || continue
  (cd "$work" && rm -rf Payload && unzip -q "$received")
  if show "$codesign" -vv "$work"/Payload/*.app; then verified=$((verified + 1)); fi
done

kill "$service"
strict=0
wait "$service" || strict=$?
service=
headline "Result"
echo "accepted: $accepted of 2; signatures that hold: $verified of 2"
[ "$accepted" -eq 2 ] && [ "$verified" -eq 2 ] && [ "$strict" -eq 0 ]
