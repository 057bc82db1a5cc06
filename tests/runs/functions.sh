# Helpers for the shell commands of rows. Variables are those of Run.variables in run.py.

# not COMMAND...: fails where the command succeeds, which "!" does not in a script that ends at errors.
not() { ! "$@"; }

# plist FILE KEY=VALUE...: changes a property list. See edit_plist.py.
plist() { python3 -S -E "$RUNS/edit_plist.py" "$@"; }

# profile KEY=VALUE...: changes the app's provisioning profile and signs it again.
profile() {
  openssl cms -verify -noverify -inform DER -in "$P" -out "$P.plist" 2>/dev/null
  plist "$P.plist" "$@"
  openssl cms -sign -binary -nodetach -outform DER -in "$P.plist" -signer "$MADE/leaf.crt" \
    -inkey "$MADE/leaf.key" -out "$P"
  rm "$P.plist"
}

# sign [OPTION...]: signs the app with the identity of its profile.
sign() {
  "$TOOLS/codesign" --force --sign "iPhone Distribution" --keychain "$MADE/keychain.pem" "$@" "$A"
}

# pack [NAME...]: makes $IPA of Payload and what else is named, and an archive of the app. What is
# there already stays.
pack() {
  cd "$F"
  [ -e "$IPA" ] || zip -q --symlinks -r "$IPA" Payload "$@"
  [ -e "$ARCHIVE" ] || archive
}

# entry NAME CONTENT [link | SIZE]: adds an entry of any name to $IPA, which zip itself would not do. The content
# of a link is where it leads to. The archive's directory has the SIZE.
entry() {
  python3 -c 'import stat, sys, zipfile
archive, name, content, more = sys.argv[1:]
entry = zipfile.ZipInfo(name)
entry.create_system = 3
entry.external_attr = ((stat.S_IFLNK if more == "link" else stat.S_IFREG) | 0o755) << 16
with zipfile.ZipFile(archive, "a") as file:
    file.writestr(entry, content)
    entry.file_size = int(more) if more.isdigit() else entry.file_size' "$IPA" "$1" "$2" "${3:-}" 2>/dev/null
}

archive() {
  mkdir -p "$ARCHIVE/Products/Applications"
  cp -a "$F"/Payload/*.app "$ARCHIVE/Products/Applications"
  cp "$MADE/Example.xcarchive/Info.plist" "$ARCHIVE"
}

# link TARGET ARCHITECTURE MINIMUM_OS [LINKER_OPTION...]: a real Mach-O file, for iOS or $PLATFORM. $DEBUG is
# an option of the compiler, $SDK its version if not 12.1.
link() {
  local platform=${PLATFORM:-ios}
  echo 'int main(void) { return 0; }' >"$W/main.c"
  "$LLVM/clang" -target "$2-apple-$platform$3" -Os -ffreestanding ${DEBUG:-} -c "$W/main.c" -o "$W/main.o"
  "$LLVM/ld64.lld" -arch "$2" -platform_version "$platform" "$3" "${SDK:-12.1}" -o "$1" "$W/main.o" "${@:4}"
}

# bundle FOLDER IDENTIFIER EXECUTABLE: a bundle with a copy of this executable.
bundle() {
  mkdir -p "$1"
  local name=${1##*/}
  cp "$3" "$1/${name%.*}"
  cat >"$1/Info.plist" <<PLIST
<plist><dict><key>CFBundleExecutable</key><string>${name%.*}</string>
<key>CFBundleIdentifier</key><string>$2</string></dict></plist>
PLIST
}

# macho [COMMAND:CONTENT...]: prints a Mach-O file for arm64 with these load commands. Content is hex digits or,
# for a library, its path.
macho() {
  python3 -S -E -c 'import struct, sys
commands = []
for argument in sys.argv[1:]:
    command, _, text = argument.partition(":")
    path = text.encode().ljust(len(text) // 8 * 8 + 8, b"\0")
    content = struct.pack("<4I", 24, 0, 0, 0) + path if text[0] == "/" else bytes.fromhex(text)
    commands.append(struct.pack("<2I", int(command, 16), 8 + len(content)) + content)
body = b"".join(commands)
header = struct.pack("<8I", 0xfeedfacf, 0x100000c, 0, 2, len(commands), len(body), 0x200085, 0)
sys.stdout.buffer.write(header + body)' "$@"
}

# json PATH [FILE]: what the document has at "a.b.0.c", "*" being every item; the document is what was printed.
json() {
  python3 -S -E -c 'import json, sys
values = [json.load(open(sys.argv[2]))]
for key in sys.argv[1].split("."):
    lists = [list(value) if key == "*" else [value[int(key) if isinstance(value, list) else key]] for value in values]
    values = [item for items in lists for item in items]
for value in values:
    print(value if isinstance(value, str) else json.dumps(value))' "$1" "${2:-$OUT}"
}

# flip FILE OFFSET: changes one bit of this byte.
flip() {
  local byte
  byte=$(od -An -tu1 -j "$2" -N 1 "$1")
  printf "\\x$(printf %x $((byte ^ 16)))" |dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# tool NAME SCRIPT: a program that is found before all others of its name. It knows $TOOLS and $W.
tool() {
  mkdir -p "$W/tools"
  printf '#!/bin/sh\nTOOLS=%s\nW=%s\n%s\n' "$TOOLS" "$W" "$2" >"$W/tools/$1"
  chmod +x "$W/tools/$1"
}

# hex DIGITS...: prints these bytes.
hex() { python3 -S -E -c 'import sys; sys.stdout.buffer.write(bytes.fromhex(" ".join(sys.argv[1:])))' "$@"; }

# noise SIZE: bytes that do not shrink, the same each time.
noise() { openssl enc -aes-128-ctr -nosalt -K 0 -iv 0 -in /dev/zero 2>/dev/null | head -c "$1"; }

# server_certificate: $FOLDER/$HOSTS.pem, issued by the authority beside it.
server_certificate() {
  mkdir -p "$FOLDER"
  cd "$FOLDER"
  [ -e authority.pem ] || openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -keyout authority.key -out authority.pem -subj "/CN=sendoff test authority" -days 30 2>/dev/null
  local names=DNS:${HOSTS//,/,DNS:} days=30
  case $HOSTS in
    localhost) names+=,IP:127.0.0.1 ;;
    expired) names=DNS:localhost,IP:127.0.0.1 days=-1 ;;
  esac
  openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout server.key \
    -out server.csr -subj "/CN=server" 2>/dev/null
  echo "subjectAltName=$names" >server.cnf
  openssl x509 -req -in server.csr -CA authority.pem -CAkey authority.key -CAcreateserial \
    -days "$days" -extfile server.cnf -out server.crt 2>/dev/null
  cat server.crt server.key >"$HOSTS.pem"
}

# identity NAME [COMMON_NAME [TEAM [DAYS]]]: other people's certificates in $W/NAME.
identity() { "$SCRIPTS/make-demo-identity.sh" "$W/$1" "${@:2}"; }

# as USER COMMAND...: runs it as this user, for whom permissions count. Only root can; for others they
# count anyway.
as() {
  local user=$1
  shift
  if [ "$(id -u)" -ne 0 ]; then "$@"; else setpriv --reuid "$user" --regid "$user" --clear-groups "$@"; fi
}

# unread: makes descriptor 4 a pipe that nobody reads.
unread() {
  mkfifo "$W/unread"
  exec 3<>"$W/unread" 4>"$W/unread" 3<&-
}

# judge CODE [OPTION...]: what another verifier and codesign say about it; options are the former's.
judge() {
  python3 -B "$RUNS/../support/check_signature.py" --root "$MADE/root.crt" "$@"
  "$TOOLS/codesign" -v --deep "$1"
}

# resources: some of every kind that the rules for them know, with links and awkward names.
resources() {
  mkdir -p empty Base.lproj deep/er X.dSYM/Contents
  local name
  for name in 'a&b <c>.txt' 'back\slash' {en,Base}.lproj/a en.lproj/locversion.plist version.plist \
    {,deep/er/}.DS_Store X.dSYM/Contents/x Zo{ë,$'e\xcc\x88'}.txt deep/CodeResources; do
    echo "$name" >"$name"
  done
  ln -s deep/er link
  ln -s nowhere en.lproj/dangling
}

# nested: one of everything that an app may have inside, and what only looks like code.
nested() {
  bundle Frameworks/F.framework com.example.f "$LIBRARY"
  cp "$LIBRARY" Frameworks/libswiftCore.dylib
  bundle PlugIns/E.appex com.example.demo.e "$MADE/arm64"
  cp embedded.mobileprovision PlugIns/E.appex
  cp "$LIBRARY" PlugIns/E.appex/libinner.dylib
  PLATFORM=watchos link "$W/watch" arm64_32 8.0
  bundle Watch/W.app com.example.w "$W/watch"
  bundle Watch/W.app/PlugIns/WE.appex com.example.w.e "$W/watch"
  mkdir R.bundle tests
  echo '<plist><dict><key>CFBundleExecutable</key><string>no</string></dict></plist>' >R.bundle/Info.plist
  printf '\xcf\xfa\xed\xfe and no more' >tests/not-really.o
}
