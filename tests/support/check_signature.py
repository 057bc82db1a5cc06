#!/usr/bin/env python3
"""Recomputes everything that a code signature says, from the bytes alone.

usage: check_signature.py CODE [--root ROOT.pem] [--adhoc] [--entitlements FILE] [--no-seal-check]

CODE is a bundle or a Mach-O file. Prints one line for each thing that is wrong; status 1 then.
Without a root certificate the signer's chain is not verified.
Shares nothing with the programs that it checks. The CMS is left to openssl.
"""
import argparse
import hashlib
import os
import plistlib
import re
import struct
import subprocess
import sys
import tempfile

MH_EXECUTE = 2
ARM64_TYPES = (0x0100000C, 0x0200000C)
TVOS = 3
# Of the version-min commands, and the minimum version (packed) from which each platform reads SHA-256.
PLATFORMS = {0x24: 1, 0x25: 2, 0x2F: TVOS, 0x30: 4}
SHA256_SINCE = {1: 0xA0B04, 2: 0xB0000, TVOS: 0xB0000, 4: 0xC0000}
EXEC_FLAGS = {
    "get-task-allow": 0x10, "run-unsigned-code": 0x10, "com.apple.private.cs.debugger": 0x20,
    "dynamic-codesigning": 0x40, "com.apple.private.skip-library-validation": 0x80,
    "com.apple.private.amfi.can-load-cdhash": 0x100, "com.apple.private.amfi.can-execute-cdhash": 0x200,
}
DIGESTS = {1: ("sha1", "2b0e03021a"), 2: ("sha256", "608648016503040201")}
problems = []


def expect(what, found, wanted):
    if found != wanted:
        problems.append(f"{what}: {found!r}, not {wanted!r}")


def read(*path):
    with open(os.path.join(*path), "rb") as file:
        return file.read()


def be32(data, at, count=1):
    values = struct.unpack_from(f">{count}I", data, at)
    return values if count > 1 else values[0]


class Slice:
    def __init__(self, data):
        self.data = data
        magic, self.cpu, _, self.filetype, count, size, _ = struct.unpack_from("<7I", data)
        is64 = magic == 0xFEEDFACF
        self.signature = self.info = None
        self.platform, self.minimum = 0, 0
        self.segments = {}
        at = 32 if is64 else 28
        end = at + size
        for _ in range(count):
            cmd, length, first, second = struct.unpack_from("<4I", data, at)
            if cmd in (0x1, 0x19):
                self.segment(at + 8, "Q" if is64 else "I")
            elif cmd == 0x1D:
                self.signature = first, second
            elif cmd == 0x32:
                self.platform, self.minimum = first, second
            elif cmd in PLATFORMS:
                self.platform, self.minimum = PLATFORMS[cmd], first
            at += length
        expect("end of load commands", at, end)
        self.wants_sha1 = self.minimum < SHA256_SINCE.get(self.platform, 0)
        self.page_shift = 14 if self.cpu in ARM64_TYPES and self.platform != TVOS else 12

    def segment(self, at, word):
        command = struct.Struct(f"<16s4{word}4I")
        name, _, memory, offset, size, _, _, sections, _ = command.unpack_from(self.data, at)
        self.segments[name.rstrip(b"\0")] = offset, size, memory
        section = struct.Struct(f"<16s16s2{word}I" + ("28x" if word == "Q" else "24x"))
        for i in range(sections):
            name, _, _, size, where = section.unpack_from(self.data, at + command.size + i * section.size)
            if name.rstrip(b"\0") == b"__info_plist":
                self.info = self.data[where:where + size]


def slices_of(path):
    data = read(path)
    if be32(data, 0) != 0xCAFEBABE:
        return [Slice(data)]
    result, end = [], 8
    for i in range(be32(data, 4)):
        _, _, offset, size, align = be32(data, 8 + 20 * i, 5)
        expect(f"slice {i} alignment", (align, offset % 0x4000), (14, 0))
        expect(f"slice {i} distance", 0 <= offset - end < 0x4000 or i == 0, True)
        end = offset + size
        result.append(Slice(data[offset:end]))
    expect("end of universal file", len(data), end)
    return result


def blobs_of(area):
    magic, length, count = be32(area, 0, 3)
    expect("superblob magic", magic, 0xFADE0CC0)
    at, result = 12 + 8 * count, {}
    for i in range(count):
        slot, offset = be32(area, 12 + 8 * i, 2)
        expect(f"blob {slot:#x} offset", offset, at)
        expect(f"blob {slot:#x} ascends", slot > max(result, default=-1), True)
        at = offset + be32(area, offset + 4)
        result[slot] = area[offset:at]
    expect("superblob length", length, at)
    expect("bytes behind the superblob", area[length:].strip(b"\0"), b"")
    return result


def der(tag, content):
    size = len(content)
    if size < 128:
        return bytes([tag, size]) + content
    digits = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(digits)]) + digits + content


def entitlements_der(value):
    if isinstance(value, bool):
        return der(1, b"\xff" if value else b"\0")
    if isinstance(value, int):
        positive = value if value >= 0 else ~value
        return der(2, value.to_bytes(positive.bit_length() // 8 + 1, "big", signed=True))
    if isinstance(value, str):
        return der(12, value.encode())
    if isinstance(value, list):
        return der(0x30, b"".join(map(entitlements_der, value)))
    pairs = sorted((key.encode(), item) for key, item in value.items())
    return der(0xB0, b"".join(der(0x30, der(12, key) + entitlements_der(item)) for key, item in pairs))


def elements(data):
    """What DER consists of: (tag, content, whole)."""
    at, result = 0, []
    while at < len(data):
        start, size = at, data[at + 1]
        at += 2
        if size & 0x80:
            digits = size & 0x7F
            size = int.from_bytes(data[at:at + digits], "big")
            at += digits
        result.append((data[start], data[at:at + size], data[start:at + size]))
        at += size
    return result


def check_directory(cd, piece, content, kind, entitlements, adhoc):
    """`content` is what the special slots cover. Returns the identifier and the whole hash."""
    digest = lambda data: hashlib.new(DIGESTS[kind][0], data).digest()
    size = len(digest(b""))
    version, flags, hash_at, ident_at, specials, pages, limit = be32(cd, 8, 7)
    expect("version", version, 0x20400)
    expect("hash", tuple(cd[36:39]), (size, kind, 0))
    expect("page shift", cd[39], piece.page_shift)
    expect("code limit", limit, piece.signature[0])
    expect("length", be32(cd, 4), hash_at + pages * size)
    page = 1 << piece.page_shift
    hashes = b"".join(digest(piece.data[i:min(i + page, limit)]) for i in range(0, limit, page))
    expect("page hashes", cd[hash_at:] == hashes, True)
    expect("adhoc flag", flags & 2, 2 if adhoc else 0)
    expect("team", bool(be32(cd, 48)), not adhoc)
    expect("executable segment", struct.unpack_from(">2Q", cd, 64), piece.segments[b"__TEXT"][:2])
    wanted_flags = 0
    if piece.filetype == MH_EXECUTE:
        wanted_flags = 1
        for key, flag in EXEC_FLAGS.items():
            wanted_flags |= flag if entitlements.get(key) is True else 0
    expect("executable segment flags", struct.unpack_from(">Q", cd, 80)[0], wanted_flags)
    expect("special slots", specials, max(content))
    for slot in range(1, specials + 1):
        wanted = digest(content[slot]) if slot in content else bytes(size)
        expect(f"special slot {slot}", cd[hash_at - slot * size:hash_at - (slot - 1) * size], wanted)
    return cd[ident_at:cd.index(b"\0", ident_at)].decode(), digest(cd)


def check_cms(message, primary, hashes, root):
    with tempfile.NamedTemporaryFile() as content:
        content.write(primary)
        content.flush()
        run = subprocess.run(
            ["openssl", "cms", "-verify", "-inform", "DER", "-content", content.name, "-binary", "-purpose", "any",
             "-out", os.devnull, *(["-CAfile", root] if root else ["-noverify"])],
            input=message, capture_output=True, check=False)
    expect("openssl cms -verify", f"{run.returncode} {run.stderr[:200]}" if run.returncode else "", "")
    fields = elements(elements(elements(elements(message)[0][1])[1][1])[0][1])
    certificates = [whole for _, _, whole in elements(fields[3][1])]
    expect("certificates sorted", certificates, sorted(certificates, key=lambda c: (len(c), c)))
    signer = elements(elements(fields[-1][1])[0][1])
    attributes = elements(next(content for tag, content, _ in signer if tag == 0xA0))
    wholes = [whole for _, _, whole in attributes]
    expect("attributes sorted", wholes, sorted(wholes))
    values = {}
    for _, content, _ in attributes:
        oid, value_set = elements(content)
        values[oid[1].hex()] = elements(value_set[1])
    plist = plistlib.loads(elements(values["2a864886f763640901"][0][2])[0][1])
    expect("cdhashes", plist, {"cdhashes": [value[:20] for _, value in hashes]})
    found = [tuple(part[1] for part in elements(content)) for _, content, _ in values["2a864886f763640902"]]
    expect("hash agility", found, sorted((bytes.fromhex(DIGESTS[kind][1]), value) for kind, value in hashes))


def check_slice(piece, info, seal, kinds, options):
    """Returns the identifier."""
    if piece.signature is None:
        problems.append("a slice is not signed")
        return None
    offset, size = piece.signature
    expect("end of signature", offset + size, len(piece.data))
    expect("alignment of signature", (offset % 16, size % 16), (0, 0))
    start, length, memory = piece.segments[b"__LINKEDIT"]
    expect("end of __LINKEDIT", start + length, len(piece.data))
    expect("__LINKEDIT vmsize", memory, (length + 0x3FFF) // 0x4000 * 0x4000)
    blobs = blobs_of(piece.data[offset:offset + size])
    entitlements = {}
    if 5 in blobs:
        entitlements = plistlib.loads(blobs[5][8:])
        expect("DER entitlements", blobs[7][8:], der(0x70, der(2, b"\1") + entitlements_der(entitlements)))
        expect("entitlements on", piece.filetype, MH_EXECUTE)
    if options.entitlements and piece.filetype == MH_EXECUTE:
        expect("entitlements text", blobs[5][8:], read(options.entitlements))
    covered = {1: piece.info if info is None else info, 3: seal, **{slot: blobs.get(slot) for slot in (2, 5, 7)}}
    covered = {slot: content for slot, content in covered.items() if content is not None}
    directories = [blobs[slot] for slot in sorted(blobs) if slot == 0 or 0x1000 <= slot < 0x1005]
    expect("number of directories", len(directories), len(kinds))
    results = [check_directory(cd, piece, covered, kind, entitlements, options.adhoc)
               for cd, kind in zip(directories, kinds)]
    reserve = 12 + 8 * len(blobs) + 18000 + 8 * len(directories) + sum(
        len(blob) for slot, blob in blobs.items() if slot != 0x10000)
    expect("room for the signature", size, (reserve + 15) // 16 * 16)
    expect("requirements", blobs[2][:4].hex(), "fade0c01")
    expect("wrapper", blobs[0x10000][:4].hex(), "fade0b01")
    if options.adhoc:
        expect("ad-hoc wrapper", len(blobs[0x10000]), 8)
    else:
        hashes = [(kind, whole) for kind, (_, whole) in zip(kinds, results)]
        check_cms(blobs[0x10000][8:], directories[0], hashes, options.root)
    return results[0][0]


def winner(rules, path):
    """The heaviest rule for a path, an omitting one before others; absent if it says to omit."""
    matching = [{"omit": not rule} if isinstance(rule, bool) else rule
                for pattern, rule in rules.items() if re.search(pattern, path, re.DOTALL)]
    best = max(matching, key=lambda rule: (rule.get("weight", 1), bool(rule.get("omit"))), default={"omit": True})
    return None if best.get("omit") else best


def check_seal(base, executable, seal_bytes, sha1):
    seal = plistlib.loads(seal_bytes)
    files, files2 = {}, {}
    for folder, names, others in os.walk(base):
        if folder == base:
            names[:] = [name for name in names if name not in ("_CodeSignature", "_MASReceipt")]
        for name in others + [name for name in names if os.path.islink(os.path.join(folder, name))]:
            full = os.path.join(folder, name)
            path = os.path.relpath(full, base)
            if path in ("CodeResources", executable):
                continue
            rule, rule2 = winner(seal["rules"], path), winner(seal["rules2"], path)
            link = os.path.islink(full)
            digest = {} if link else {"hash": hashlib.sha1(read(full)).digest()}
            if rule and not link:
                files[path] = dict(digest, optional=True) if rule.get("optional") else digest["hash"]
            if rule2:
                files2[path] = {"symlink": os.readlink(full)} if link else {
                    "hash2": hashlib.sha256(read(full)).digest(), **(digest if sha1 else {})}
                files2[path].update({"optional": True} if rule2.get("optional") else {})
    expect("sealed files", seal["files"], files)
    expect("sealed files2", seal["files2"], files2)
    text = plistlib.dumps(dict(seal, files=files, files2=files2), sort_keys=True)
    expect("seal text", seal_bytes, re.sub(rb"<real>(\d+)\.0</real>", rb"<real>\1</real>", text))
    expect("leftovers", os.listdir(os.path.join(base, "_CodeSignature")), ["CodeResources"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("code")
    parser.add_argument("--root")
    parser.add_argument("--adhoc", action="store_true")
    parser.add_argument("--entitlements")
    parser.add_argument("--no-seal-check", action="store_true")
    options = parser.parse_args()
    base = options.code
    executable, info, seal = base, None, None
    if os.path.isdir(base):
        info, seal = read(base, "Info.plist"), read(base, "_CodeSignature", "CodeResources")
        executable = os.path.join(base, plistlib.loads(info)["CFBundleExecutable"])
    pieces = slices_of(executable)
    sha1 = any(piece.wants_sha1 for piece in pieces)
    identifiers = {check_slice(piece, info, seal, [1, 2] if sha1 else [2], options) for piece in pieces}
    expect("identifiers of all slices", len(identifiers), 1)
    if seal is not None and not options.no_seal_check:
        check_seal(base, os.path.relpath(executable, base), seal, sha1)
    print(*problems, sep="\n", end="\n" if problems else "")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
