"""Mach-O files as lines: the code by digests of its parts, the signature by what it says."""
import hashlib
import struct

from comparing import der

THIN = {b"\xce\xfa\xed\xfe": ("<", 28), b"\xcf\xfa\xed\xfe": ("<", 32),
        b"\xfe\xed\xfa\xce": (">", 28), b"\xfe\xed\xfa\xcf": (">", 32)}
FAT = b"\xca\xfe\xba\xbe"
CODE_SIGNATURE = 0x1D
SUPER_BLOB, DIRECTORY, XML, MESSAGE = 0xFADE0CC0, 0xFADE0C02, 0xFADE7171, 0xFADE0B01
HASHES = {1: "sha1", 2: "sha256", 3: "sha256", 4: "sha384"}


def is_macho(data):
    return data[:4] in THIN or (data[:4] == FAT and len(data) > 8 and data[7] < 20)


def slices(data):
    """The images (offset, contents) of a file; of a thin one it is the file."""
    if data[:4] != FAT:
        return [(0, data)]
    count = min(struct.unpack_from(">I", data, 4)[0], 20)
    found = []
    for index in range(count):
        if len(data) >= 28 + index * 20:
            offset, size = struct.unpack_from(">II", data, 16 + index * 20)
            found.append((offset, data[offset:offset + size]))
    return found


def signature_range(image):
    """Start and end of the signature in an image; None without one."""
    if image[:4] not in THIN:
        return None
    order, at = THIN[image[:4]]
    try:
        for _ in range(min(struct.unpack_from(order + "I", image, 16)[0], 1000)):
            command, size = struct.unpack_from(order + "II", image, at)
            if command == CODE_SIGNATURE:
                start, length = struct.unpack_from(order + "II", image, at + 8)
                return (start, start + length) if start <= len(image) else None
            at += max(size, 8)
    except struct.error:
        pass
    return None


def blobs(signature):
    """The blobs (slot, magic, whole blob) of an embedded signature."""
    try:
        magic, _, count = struct.unpack_from(">III", signature)
        if magic != SUPER_BLOB or count > 100:
            return []
        found = []
        for index in range(count):
            slot, offset = struct.unpack_from(">II", signature, 12 + index * 8)
            kind, size = struct.unpack_from(">II", signature, offset)
            found.append((slot, kind, signature[offset:offset + size]))
        return found
    except struct.error:
        return []


def directory_digest(directory):
    return hashlib.new(HASHES.get(directory[37], "sha256"), directory).digest()


def is_blob(data):
    """Whether this is a part of a signature that stands in a file of its own."""
    if len(data) < 48:
        return False
    kind, size = struct.unpack_from(">II", data)
    return kind in (DIRECTORY, MESSAGE) and size == len(data)


def lone_blob_lines(data, tree):
    yield from blob_lines(0, struct.unpack_from(">I", data)[0], data, tree)


def code_digests(data):
    """The digests by which code is named: those of all code directories of a file."""
    if is_blob(data) and data[:4] == DIRECTORY.to_bytes(4, "big"):
        yield directory_digest(data)
    if not is_macho(data):
        return
    for _, image in slices(data):
        place = signature_range(image)
        for _, kind, blob in blobs(image[slice(*place)]) if place else []:
            if kind == DIRECTORY and len(blob) > 44:
                yield directory_digest(blob)


def part_lines(data):
    """Digests of some sixty parts, so that a difference shows where it is."""
    part = max(4096, -(-len(data) // 60 // 4096) * 4096)
    for at in range(0, len(data), part):
        yield f"  at {at:#x}: {hashlib.sha256(data[at:at + part]).hexdigest()[:24]}"


def directory_lines(directory, tree):
    """A code directory: digests of files by name, all else exactly."""
    hash_offset, _, special = struct.unpack_from(">III", directory, 16)
    size = directory[36]
    rest = bytearray(directory)
    for slot in range(special, 0, -1):
        at = hash_offset - slot * size
        yield f"    slot -{slot}: {tree.name(directory[at:at + size])}"
        rest[at:at + size] = bytes(size)
    yield f"    rest: {hashlib.sha256(rest).hexdigest()}"
    yield f"    fields: {directory[8:44].hex()}"


def blob_lines(slot, kind, blob, tree):
    yield f"  blob {slot:#x}, {kind:#x}, {len(blob)} bytes"
    if kind == DIRECTORY and len(blob) > 44:
        yield from directory_lines(blob, tree)
    elif kind == XML:
        yield from ("    " + line for line in blob[8:].decode("utf-8", "replace").splitlines())
    elif kind == MESSAGE and len(blob) > 8:
        yield from message_lines(blob[8:], tree)
    else:
        yield f"    {der.digits(blob)}"


def message_lines(message, tree):
    try:
        yield from ["    " + line for line in der.signed_message_lines(message, tree)]
    except (der.DerError, IndexError):
        yield f"    {der.digits(message)}"


def own_names(signature, tree):
    """The tree with the digests of this signature's directories, which its message covers."""
    for slot, kind, blob in blobs(signature):
        if kind == DIRECTORY and len(blob) > 44:
            for algorithm in ("sha1", "sha256"):
                digest = hashlib.new(algorithm, blob).digest()
                tree.names()[digest] = f"{algorithm} of directory {slot:#x}"
            tree.names()[directory_digest(blob)[:20]] = f"digest of directory {slot:#x}"


def image_lines(image, tree):
    place = signature_range(image)
    code = image[:place[0]] if place else image
    yield f"  image of {len(image)} bytes, {len(code)} of them code"
    yield from part_lines(code)
    if not place:
        return
    signature = image[slice(*place)]
    found = blobs(signature)
    yield f"  signature of {len(signature)} bytes"
    if not found:
        yield f"  {der.digits(signature)}"
    own_names(signature, tree)
    for slot, kind, blob in found:
        yield from blob_lines(slot, kind, blob, tree)
    if len(image) > place[1]:
        yield f"  behind the signature: {der.digits(image[place[1]:])}"


def lines(data, tree):
    """All of a Mach-O file."""
    images = slices(data)
    if data[:4] == FAT:
        table = data[:8 + 20 * len(images)]
        yield f"universal file of {len(data)} bytes: {der.digits(table)}"
        covered = table
        gaps = bytearray(data)
        for offset, image in images:
            gaps[offset:offset + len(image)] = bytes(len(image))
        yield f"  between the images: {hashlib.sha256(bytes(gaps[len(covered):])).hexdigest()[:24]}"
    for _, image in images:
        yield from image_lines(image, tree)
