#!/bin/sh
# Signs apps again and compares with a program that only reads every file once into SHA-1 and
# SHA-256: how much does signing cost beyond the hashing that it cannot do without?
#
# usage: bench/signing.sh BUILD_FOLDER [TURNS]
#
# BUILD_FOLDER has `codesign` and, made with -DSENDOFF_BENCH=ON, `read-and-hash`. Both run in turns
# on the same app, with everything in the page cache; the medians and their ratio are printed, with
# the most private memory that signing took. Needs python3, openssl, clang and ld64.lld.
set -eu

build=$(cd "${1:?usage: signing.sh BUILD_FOLDER [TURNS]}" && pwd)
turns=${2:-9}
llvm=$(llvm-config --bindir)
work=$(mktemp -d "${TMPDIR:-/tmp}/sendoff-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

mkdir -m 700 keys
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Bench Signer/OU=BENCH/O=Bench" \
    -addext extendedKeyUsage=critical,codeSigning -keyout keys/key.pem -out keys/cert.pem 2>/dev/null
cat keys/cert.pem >>keys/key.pem && rm keys/cert.pem && chmod 600 keys/key.pem

echo 'int main(void) { return 0; }' >main.c
"$llvm/clang" -target arm64-apple-ios15.0 -c main.c -o main.o

# NAME FILES BYTES_PER_FILE BYTES_IN_EXECUTABLE
make_app() {
    python3 - "$@" <<'PYTHON'
import os, random, sys
name, count, size, inside = sys.argv[1], *map(int, sys.argv[2:5])
rng = random.Random(7)
block = rng.randbytes(1 << 20)
os.makedirs(name + ".app")
for i in range(count):
    folder = f"{name}.app/assets/{i // 200:03}"
    if i % 200 == 0:
        os.makedirs(folder)
    at = rng.randrange(len(block))
    data = (block[at:] + block * (size // len(block) + 1))[:size]
    with open(f"{folder}/file-{i:05}.bin", "wb") as file:
        file.write(i.to_bytes(4, "big") + data[4:])
with open("blob", "wb") as file:
    for i in range(0, inside, len(block)):
        file.write(block[:inside - i])
with open(name + ".app/Info.plist", "w") as file:
    file.write('<plist version="1.0"><dict><key>CFBundleExecutable</key><string>X</string>'
               '<key>CFBundleIdentifier</key><string>com.example.bench</string></dict></plist>')
PYTHON
    "$llvm/ld64.lld" -arch arm64 -platform_version ios 15.0 15.0 -sectcreate __DATA __blob blob \
        main.o -o "$1.app/X"
    rm blob
    sign "$1"
}

sign() {
    "$build/libexec/sendoff/codesign" --sign "Bench Signer" --all-architectures --force \
        --keychain keys "$1.app"
}

measure() {
    python3 - "$build" "$turns" "$@" <<'PYTHON'
import os, statistics, subprocess, sys, threading, time
build, turns, name, bar = sys.argv[1], int(sys.argv[2]), sys.argv[3], float(sys.argv[4])
hashing = [f"{build}/bench/bin/read-and-hash", f"{name}.app"]
signing = [f"{build}/libexec/sendoff/codesign", "--sign", "Bench Signer", "--all-architectures",
           "--force", "--keychain", "keys", f"{name}.app"]

def run(command):
    start = time.perf_counter()
    subprocess.run(command, check=True, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start

def private_memory(command):
    """Largest anonymous memory of the process, in MB, looked at while it runs."""
    child = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    most = 0
    while child.poll() is None:
        try:
            with open(f"/proc/{child.pid}/status") as file:
                for line in file:
                    if line.startswith("RssAnon:"):
                        most = max(most, int(line.split()[1]))
        except OSError:
            pass
        time.sleep(0.001)
    return most / 1024

run(hashing), run(signing)
times = [(run(hashing), run(signing)) for _ in range(turns)]
hashed, signed = (statistics.median(column) for column in zip(*times))
ratio = statistics.median(s / h for h, s in times)
print(f"{name:12} hashing {hashed * 1000:7.1f} ms, signing {signed * 1000:7.1f} ms, "
      f"ratio {ratio:.2f} (bar {bar}), private memory {private_memory(signing):.0f} MB")
PYTHON
}

make_app many 3000 69905 0
make_app large 3 1000 209715200
make_app thousands 20000 10000 0
measure many 1.3
measure large 1.3
measure thousands 1.6
