#!/usr/bin/env bash
# What a whole run costs beside a shell script that does the same work with the same children.
#
# An app of 200 MB in 3,000 files is handed off by .ipa to a server that only reads, by the tool and
# by the script in turns. Both use the same stand-ins for the signing tools. Prints each pair of
# times in seconds, and the ratio of the medians (tool / script); more than 1.05 is too much.
#
# usage: whole-run.sh [BUILD_FOLDER [ROUNDS]]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
sendoff=$(realpath "${1:-$here/../build}")/bin/sendoff
rounds=${2:-5}

work=$(mktemp -d "${TMPDIR:-/tmp}/sendoff-bench-XXXXXX")
server=
clean_up() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  rm -rf "$work"
}
trap clean_up EXIT

# Stand-ins that do nothing but what the tool waits for.
mkdir "$work/tools"
cat >"$work/tools/xcrun" <<SCRIPT
#!/bin/sh
echo "$work/tools/\$2"
SCRIPT
cat >"$work/tools/codesign" <<'SCRIPT'
#!/bin/sh
[ "$1" = --display ] || exit 0
echo '<plist version="1.0"><dict/></plist>' >"$3"
echo '<plist version="1.0"><dict/></plist>' >"${5#:}"
SCRIPT
printf '#!/bin/sh\n' >"$work/tools/codesign_allocate"
chmod +x "$work"/tools/*
export PATH=$work/tools:$PATH

"$here/../scripts/make-demo-app.sh" "$work/app" true
export CODE_SIGN_KEYCHAIN=$work/app/keychain.pem
app=$work/app/Payload/Example.app
# Half text, half noise, as code and pictures are.
python3 - "$app" <<'SCRIPT'
import os, random, sys
random.seed(1)
SIZE = 200 * 1000 * 1000 // 3000
for n in range(3000):
    folder = os.path.join(sys.argv[1], f"folder{n // 100}")
    os.makedirs(folder, exist_ok=True)
    text = b"The quick brown fox %d. " % n * (SIZE // 40)
    with open(os.path.join(folder, f"file{n}"), "wb") as file:
        file.write(text[: SIZE // 2] + random.randbytes(SIZE - SIZE // 2))
SCRIPT
ipa=$work/Large.ipa
(cd "$work/app" && zip -q --symlinks -r "$ipa" Payload)

python3 "$here/reading-server.py" >"$work/port" &
server=$!
while [ ! -s "$work/port" ]; do kill -0 "$server"; sleep 0.1; done
endpoint=http://127.0.0.1:$(cat "$work/port")
key=0123456789012345678901234567890123456789

by_tool() {
  TMPDIR=$1 "$sendoff" "$key" 0 -ipaPath "$ipa" -QuorvantileAPIEndpoint "$endpoint" >"$work/log" ||
    { cat "$work/log" >&2; exit 1; }
}

by_script() {
  local temporary=$1 payload=$1/packing/Payload
  "$(/usr/bin/which unzip)" -qo "$ipa" -d "$temporary/Large"
  local app=$temporary/Large/Payload/Example.app codesign allocate
  codesign=$("$(/usr/bin/which xcrun)" --find codesign)
  allocate=$("$(/usr/bin/which xcrun)" --find codesign_allocate)
  mkdir -p "$payload" "$temporary/distributions"
  cp -a "$app" "$payload/"
  local copy=$payload/Example.app
  local sign=(env -i "CODESIGN_ALLOCATE=$allocate" "$codesign")
  "${sign[@]}" -vv "$copy"
  "${sign[@]}" --display --resource-rules "$payload/rules" --entitlements ":$payload/rights" "$copy"
  "${sign[@]}" --sign X --all-architectures --force --entitlements "$payload/rights" "$copy"
  "${sign[@]}" -vv "$copy"
  rm "$payload/rules" "$payload/rights"
  (cd "$temporary/packing" && env -i "$(/usr/bin/which zip)" -q --symlinks -r \
    "$temporary/distributions/x.ipa" Payload)
  rm -rf "$temporary/packing"
  curl -sf -o /dev/null "$endpoint/validate"
  curl -sf -o /dev/null -H Expect: -F "distribution[file]=@$temporary/distributions/x.ipa" \
    "$endpoint/distributions"
  rm -rf "$app" "$temporary/distributions/x.ipa"
}

export sendoff key ipa endpoint work
export -f by_tool by_script

# measured BY: "seconds processor-seconds peak-KiB" of one run in a temporary folder of its own.
measured() {
  local temporary=$work/temporary
  mkdir "$temporary"
  sync
  python3 "$here/measured.py" bash -euo pipefail -c '"$0" "$1"' "$1" "$temporary"
  rm -rf "$temporary"
}

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# ratio COLUMN: of the medians.
ratio() {
  awk "BEGIN { printf \"%.3f\", $(cut -d' ' -f"$1" "$work/tool" | median) / \
    $(cut -d' ' -f"$1" "$work/script" | median) }"
}

by_tool_first=1
printf 'tool: seconds, processor   script: seconds, processor\n'
for _ in $(seq "$rounds"); do
  # Whoever runs first warms the caches for the other; they take turns at it.
  if [ "$by_tool_first" -eq 1 ]; then
    tool=$(measured by_tool); script=$(measured by_script)
  else
    script=$(measured by_script); tool=$(measured by_tool)
  fi
  by_tool_first=$((1 - by_tool_first))
  echo "$tool" >>"$work/tool"
  echo "$script" >>"$work/script"
  printf '%-26s %s\n' "${tool% *}" "${script% *}"
done
printf 'ratios of the medians: %s by time, %s by processor time (bar 1.05)\n' "$(ratio 1)" "$(ratio 2)"
# The .ipa that is uploaded is about the one that came.
awk "BEGIN { printf \"peak resident set: %d KiB of %d allowed\\n\", \
  $(cut -d' ' -f3 "$work/tool" | sort -n | tail -1), 1.1 * $(stat -c %s "$ipa") / 1024 + 24 * 1024 }"
