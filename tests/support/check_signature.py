#!/usr/bin/env python3
"""Recomputes everything that a code signature says, from the bytes alone.

usage: check_signature.py CODE [--root ROOT.pem] [--adhoc] [--entitlements FILE]

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
PLATFORMS = {0x24: 1, 0x25: 2, 0x2F: 3, 0x30: 4}
SHA1_BEFORE = {1: (10, 11, 4), 2: (11, 0, 0), 3: (11, 0, 0), 4: (12, 0, 0)}
EXEC_FLAGS = {
    "get-task-allow": 0x10, "run-unsigned-code": 0x10, "com.apple.private.cs.debugger": 0x20,
    "dynamic-codesigning": 0x40, "com.apple.private.skip-library-validation": 0x80,
    "com.apple.private.amfi.can-load-cdhash": 0x100,
    "com.apple.private.amfi.can-execute-cdhash": 0x200,
}
problems = []


def expect(what, found, wanted):
    if found != wanted:
        problems.append(f"{what}: {found!r}, not {wanted!r}")


def be32(data, at):
    return struct.unpack_from(">I", data, at)[0]


class Slice:
    def __init__(self, data):
        self.data = data
        magic, self.cpu, self.subtype, self.filetype, count, size, _ = struct.unpack_from("<7I", data)
        is64 = magic == 0xFEEDFACF
        at = 32 if is64 else 28
        end = at + size
        self.signature = self.minimum = self.platform = self.info = None
        for _ in range(count):
            cmd, length = struct.unpack_from("<2I", data, at)
            if cmd in (0x1, 0x19):
                self.segment(at, is64)
            elif cmd == 0x1D:
                self.signature = struct.unpack_from("<2I", data, at + 8)
            elif cmd == 0x32:
                self.platform, self.minimum = struct.unpack_from("<2I", data, at + 8)
            elif cmd in PLATFORMS:
                self.platform = PLATFORMS[cmd]
                self.minimum = struct.unpack_from("<I", data, at + 8)[0]
            at += length
        expect("end of load commands", at, end)

    def segment(self, at, is64):
        form = "<16s4Q4I" if is64 else "<16s4I4I"
        name, _, vmsize, offset, size, _, _, sections, _ = struct.unpack_from(form, self.data, at + 8)
        if name.startswith(b"__TEXT\0"):
            self.text = (offset, size)
        if name.startswith(b"__LINKEDIT"):
            self.linkedit = (offset, size, vmsize)
        first = at + 8 + struct.calcsize(form)
        for i in range(sections):
            section = first + i * (80 if is64 else 68)
            if self.data[section:section + 11] == b"__info_plis":
                size, where = struct.unpack_from("<QI" if is64 else "<II", self.data,
                                                 section + (40 if is64 else 36))
                self.info = self.data[where:where + size]

    def minimum_version(self):
        return (self.minimum >> 16, self.minimum >> 8 & 255, self.minimum & 255)

    def wants_sha1(self):
        return (self.minimum is not None and self.platform in SHA1_BEFORE
                and self.minimum_version() < SHA1_BEFORE[self.platform])


def slices_of(path):
    data = open(path, "rb").read()
    if be32(data, 0) != 0xCAFEBABE:
        return [Slice(data)]
    result, end = [], 8
    for i in range(be32(data, 4)):
        _, _, offset, size, align = struct.unpack_from(">5I", data, 8 + 20 * i)
        expect(f"slice {i} alignment", (align, offset % 0x4000), (14, 0))
        expect(f"slice {i} distance", 0 <= offset - end < 0x4000 or i == 0, True)
        end = offset + size
        result.append(Slice(data[offset:end]))
    expect("end of universal file", len(data), end)
    return result


def blobs_of(area):
    expect("superblob magic", be32(area, 0), 0xFADE0CC0)
    length, count = be32(area, 4), be32(area, 8)
    at, result, last = 12 + 8 * count, {}, -1
    for i in range(count):
        slot, offset = be32(area, 12 + 8 * i), be32(area, 16 + 8 * i)
        expect(f"blob {slot:#x} offset", offset, at)
        expect(f"blob {slot:#x} ascends", slot > last, True)
        last = slot
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
        size = 1
        while not -(1 << 8 * size - 1) <= value < 1 << 8 * size - 1:
            size += 1
        return der(2, value.to_bytes(size, "big", signed=True))
    if isinstance(value, str):
        return der(12, value.encode())
    if isinstance(value, list):
        return der(0x30, b"".join(map(entitlements_der, value)))
    pairs = sorted((key.encode(), item) for key, item in value.items())
    return der(0xB0, b"".join(der(0x30, der(12, key) + entitlements_der(item))
                              for key, item in pairs))


def elements(data):
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


def check_directory(cd, piece, blobs, hash_type, context):
    name = {1: "sha1", 2: "sha256"}[hash_type]
    digest = lambda data: hashlib.new(name, data).digest()
    size = len(digest(b""))
    version, flags, hash_at, ident_at, specials, pages, limit = struct.unpack_from(">7I", cd, 8)
    expect("version", version, 0x20400)
    expect("hash", tuple(cd[36:39]), (size, hash_type, 0))
    wanted_shift = 14 if piece.cpu in ARM64_TYPES and piece.platform != 3 else 12
    expect("page shift", cd[39], wanted_shift)
    expect("code limit", limit, piece.signature[0])
    expect("length", be32(cd, 4), hash_at + pages * size)
    page = 1 << wanted_shift
    hashes = b"".join(digest(piece.data[i:min(i + page, limit)]) for i in range(0, limit, page))
    expect("page hashes", cd[hash_at:] == hashes, True)
    identifier = cd[ident_at:cd.index(b"\0", ident_at)].decode()
    expect("adhoc flag", flags & 2, 2 if context["adhoc"] else 0)
    team_at = be32(cd, 48)
    expect("team", bool(team_at), not context["adhoc"])
    expect("executable segment", struct.unpack_from(">2Q", cd, 64), piece.text)
    wanted_flags = 0
    if piece.filetype == MH_EXECUTE:
        wanted_flags = 1
        for key, flag in EXEC_FLAGS.items():
            if context["entitlements"].get(key) is True:
                wanted_flags |= flag
    expect("executable segment flags", struct.unpack_from(">Q", cd, 80)[0], wanted_flags)
    content = {slot: blobs[slot] for slot in (2, 5, 7) if slot in blobs}
    if context["info"] is not None or piece.info is not None:
        content[1] = context["info"] if context["info"] is not None else piece.info
    if context["seal"] is not None:
        content[3] = context["seal"]
    expect("special slots", specials, max(content))
    for slot in range(1, specials + 1):
        wanted = digest(content[slot]) if slot in content else bytes(size)
        expect(f"special slot {slot}", cd[hash_at - slot * size:hash_at - (slot - 1) * size], wanted)
    return identifier, digest(cd)


def check_cms(message, primary, hashes, root):
    with tempfile.TemporaryDirectory() as folder:
        for name, data in (("cms", message), ("cd", primary)):
            open(os.path.join(folder, name), "wb").write(data)
        run = subprocess.run(
            ["openssl", "cms", "-verify", "-inform", "DER", "-in", folder + "/cms", "-content",
             folder + "/cd", "-binary", *(["-CAfile", root] if root else ["-noverify"]),
             "-purpose", "any", "-out", os.devnull],
            capture_output=True, text=True, check=False)
    expect("openssl cms -verify", (run.returncode, run.stderr.strip()[:200] if run.returncode else ""),
           (0, ""))
    signed_data = elements(elements(elements(message)[0][1])[1][1])[0][1]
    fields = elements(signed_data)
    certificates = [whole for _, _, whole in elements(fields[3][1])]
    expect("certificates sorted", certificates, sorted(certificates, key=lambda c: (len(c), c)))
    signer = elements(elements(fields[-1][1])[0][1])
    attributes = elements([content for tag, content, _ in signer if tag == 0xA0][0])
    wholes = [whole for _, _, whole in attributes]
    expect("attributes sorted", wholes, sorted(wholes))
    values = {}
    for _, content, _ in attributes:
        oid, value_set = elements(content)
        values[oid[1].hex()] = elements(value_set[1])
    plist = plistlib.loads(elements(values["2a864886f763640901"][0][2])[0][1])
    expect("cdhashes", plist, {"cdhashes": [value[:20] for _, value in hashes]})
    oids = {1: "2b0e03021a", 2: "608648016503040201"}
    found = [tuple(part[1] for part in elements(content))
             for _, content, _ in values["2a864886f763640902"]]
    expect("hash agility", found,
           sorted((bytes.fromhex(oids[kind]), value) for kind, value in hashes))


def check_slice(piece, context):
    if piece.signature is None:
        problems.append("a slice is not signed")
        return None
    offset, size = piece.signature
    expect("end of signature", offset + size, len(piece.data))
    expect("alignment of signature", (offset % 16, size % 16), (0, 0))
    start, length, vmsize = piece.linkedit
    expect("end of __LINKEDIT", start + length, len(piece.data))
    expect("__LINKEDIT vmsize", vmsize, (length + 0x3FFF) // 0x4000 * 0x4000)
    blobs = blobs_of(piece.data[offset:offset + size])
    context = dict(context, entitlements={})
    is_main = piece.filetype == MH_EXECUTE
    if 5 in blobs:
        context["entitlements"] = plistlib.loads(blobs[5][8:])
        form = der(0x70, der(2, b"\1") + entitlements_der(context["entitlements"]))
        expect("DER entitlements", blobs[7][8:], form)
        expect("entitlements on", is_main, True)
    if context["wanted_entitlements"] is not None and is_main:
        expect("entitlements text", blobs[5][8:], context["wanted_entitlements"])
    kinds = [1, 2] if context["sha1"] else [2]
    directories = [blobs[slot] for slot in sorted(blobs) if slot == 0 or 0x1000 <= slot < 0x1005]
    expect("number of directories", len(directories), len(kinds))
    results = [check_directory(cd, piece, blobs, kind, context)
               for cd, kind in zip(directories, kinds)]
    reserve = 12 + 8 * len(blobs) + 18000 + sum(
        len(blob) + (96 - 88 if blob in directories else 0)
        for slot, blob in blobs.items() if slot != 0x10000)
    expect("room for the signature", size, (reserve + 15) // 16 * 16)
    expect("requirements", blobs[2][:4].hex(), "fade0c01")
    expect("wrapper", blobs[0x10000][:4].hex(), "fade0b01")
    if context["adhoc"]:
        expect("ad-hoc wrapper", len(blobs[0x10000]), 8)
    else:
        hashes = list(zip(kinds, (full for _, full in results)))
        check_cms(blobs[0x10000][8:], directories[0], hashes, context["root"])
    return results[0][0]


def winner(rules, path):
    best, best_weight = None, None
    for pattern, rule in rules.items():
        if not re.search(pattern, path, re.DOTALL):
            continue
        rule = {"omit": not rule} if isinstance(rule, bool) else rule
        rank = (rule.get("weight", 1), bool(rule.get("omit")))
        if best is None or rank > best_weight:
            best, best_weight = rule, rank
    return best


def check_seal(base, executable, seal_bytes, sha1):
    seal = plistlib.loads(seal_bytes)
    entries = {}
    for folder, names, files in os.walk(base):
        relative = os.path.relpath(folder, base)
        prefix = "" if relative == "." else relative + "/"
        if not prefix:
            names[:] = [n for n in names if n not in ("_CodeSignature", "_MASReceipt")]
        for name in files + [n for n in names if os.path.islink(os.path.join(folder, n))]:
            if prefix + name not in ("CodeResources", executable):
                entries[prefix + name] = os.path.join(folder, name)
    files, files2 = {}, {}
    for path, full in entries.items():
        rule, rule2 = winner(seal["rules"], path), winner(seal["rules2"], path)
        link = os.path.islink(full)
        data = b"" if link else open(full, "rb").read()
        if rule and not rule.get("omit") and not link:
            digest = hashlib.sha1(data).digest()
            files[path] = {"hash": digest, "optional": True} if rule.get("optional") else digest
        if rule2 and not rule2.get("omit"):
            item = {"symlink": os.readlink(full)} if link else {"hash2": hashlib.sha256(data).digest()}
            if sha1 and not link:
                item["hash"] = hashlib.sha1(data).digest()
            if rule2.get("optional"):
                item["optional"] = True
            files2[path] = item
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
    base, executable, info, seal = None, options.code, None, None
    if os.path.isdir(options.code):
        base = options.code
        info = open(os.path.join(base, "Info.plist"), "rb").read()
        executable = os.path.join(base, plistlib.loads(info)["CFBundleExecutable"])
        seal = open(os.path.join(base, "_CodeSignature", "CodeResources"), "rb").read()
    pieces = slices_of(executable)
    context = {"info": info, "seal": seal, "adhoc": options.adhoc, "root": options.root,
               "sha1": any(piece.wants_sha1() for piece in pieces), "wanted_entitlements": None}
    if options.entitlements:
        context["wanted_entitlements"] = open(options.entitlements, "rb").read()
    identifiers = {check_slice(piece, context) for piece in pieces}
    expect("identifiers of all slices", len(identifiers), 1)
    if base and not options.no_seal_check:
        check_seal(base, os.path.relpath(executable, base), seal, context["sha1"])
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
