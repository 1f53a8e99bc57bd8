"""Embedded code signatures: the blobs, their hashes and the CMS over them."""
import functools
import hashlib
import os
import plistlib
import ssl
import struct
import subprocess
import tempfile

from . import der, macho

CODE_DIRECTORY, REQUIREMENTS, SUPERBLOB = 0xFADE0C02, 0xFADE0C01, 0xFADE0CC0
XML_ENTITLEMENTS, DER_ENTITLEMENTS, WRAPPER = 0xFADE7171, 0xFADE7172, 0xFADE0B01
SLOT_INFO, SLOT_REQUIREMENTS, SLOT_RESOURCES, SLOT_XML, SLOT_DER = 1, 2, 3, 5, 7
SLOT_ALTERNATE, SLOT_CMS = 0x1000, 0x10000
HASHES = {1: ("sha1", 20), 2: ("sha256", 32)}
CDHASHES_PLIST, CDHASHES_FULL = "1.2.840.113635.100.9.1", "1.2.840.113635.100.9.2"
DIGESTS = {"1.3.14.3.2.26": "sha1", "2.16.840.1.101.3.4.2.1": "sha256"}


class CodeDirectory:
    """A code directory's fields; `blob` is the whole of it."""

    def __init__(self, blob):
        self.blob = blob
        (magic, length, self.version, self.flags, hash_offset, ident_offset, special, code,
         self.code_limit, hash_size, hash_type, self.platform, page) = struct.unpack_from(
             ">9I4B", blob)
        if magic != CODE_DIRECTORY or length != len(blob):
            raise ValueError("not a code directory")
        self.hash_name, size = HASHES[hash_type]
        if size != hash_size:
            raise ValueError(f"{self.hash_name} hashes of {hash_size} bytes")
        self.page_size = 1 << page
        self.identifier = c_string(blob, ident_offset)
        team_offset = struct.unpack_from(">I", blob, 48)[0] if self.version >= 0x20200 else 0
        self.team = c_string(blob, team_offset) if team_offset else None
        self.segment_base, self.segment_limit, self.segment_flags = (
            struct.unpack_from(">3Q", blob, 64) if self.version >= 0x20400 else (0, 0, 0))

        def hash_at(index):
            start = hash_offset + index * size
            if start < 0 or start + size > len(blob):
                raise ValueError("a hash lies outside the code directory")
            return blob[start:start + size]

        self.pages = [hash_at(index) for index in range(code)]
        self.special = {slot: hash_at(-slot) for slot in range(1, special + 1)}

    def digest(self, data):
        return hashlib.new(self.hash_name, data).digest()


class Signature:
    """The superblob of one slice."""

    def __init__(self, image):
        found = image.signature_range()
        if found is None:
            raise ValueError("not signed")
        offset, size = found
        data = image.data[offset:offset + size]
        magic, length, count = struct.unpack_from(">3I", data)
        if magic != SUPERBLOB or length > size:
            raise ValueError("no signature where the load command points")
        if data[length:].strip(b"\0"):
            raise ValueError("something follows the signature")
        index = [struct.unpack_from(">2I", data, 12 + 8 * i) for i in range(count)]
        if [slot for slot, _ in index] != sorted({slot for slot, _ in index}):
            raise ValueError("the signature's index is not sorted")
        self.blobs = {}
        for slot, at in index:
            blob_length = struct.unpack_from(">I", data, at + 4)[0]
            self.blobs[slot] = data[at:at + blob_length]
        self.directories = [CodeDirectory(self.blobs[slot]) for slot in sorted(self.blobs)
                            if slot == 0 or SLOT_ALTERNATE <= slot < SLOT_ALTERNATE + 5]

    def xml_entitlements(self):
        """The entitlements' property list text, or None."""
        blob = self.blobs.get(SLOT_XML)
        return None if blob is None else blob[8:]

    def der_entitlements(self):
        blob = self.blobs.get(SLOT_DER)
        return None if blob is None else der.entitlements(blob[8:])


def c_string(data, at):
    return data[at:data.index(b"\0", at)].decode()


def problems(image, root, info_plist=None, resources=None, identifier=None):
    """What is wrong with a slice's signature, as a list of texts.

    `root` is the PEM file of the only trusted certificate; `info_plist` and `resources` are the
    bytes of the bundle's Info.plist and CodeResources and `identifier` is the bundle's, all None
    for a plain file.
    """
    try:
        signature = Signature(image)
    except (ValueError, struct.error, KeyError) as error:
        return [str(error)]
    found = placement_problems(image)
    for directory in signature.directories:
        texts = directory_problems(image, signature, directory, info_plist, resources)
        found += [f"{directory.hash_name}: {text}" for text in texts]
        if identifier not in (None, directory.identifier):
            found.append(f"{directory.hash_name}: signed as {directory.identifier}")
    found += choice_problems(image, signature)
    found += entitlement_problems(image, signature)
    found += cms_problems(signature, root)
    return found


def placement_problems(image):
    offset, size = image.signature_range()
    link_edit = image.segment("__LINKEDIT")
    found = []
    if offset % 16 != 0:
        found.append(f"the signature's offset {offset} is no multiple of 16")
    if offset + size != len(image.data):
        found.append("the signature does not end with the slice")
    if link_edit.fileoff + link_edit.filesize != len(image.data):
        found.append("__LINKEDIT does not end with the slice")
    if link_edit.vmsize < link_edit.filesize:
        found.append("__LINKEDIT's memory is smaller than its file data")
    return found


def directory_problems(image, signature, directory, info_plist, resources):
    found = []
    if directory.version < 0x20400:
        found.append(f"version {directory.version:#x} is too old for today's devices")
    if directory.code_limit != image.signature_range()[0]:
        found.append("the code limit is not where the signature starts")
    pages = [image.data[at:min(at + directory.page_size, directory.code_limit)]
             for at in range(0, directory.code_limit, directory.page_size)]
    if len(pages) != len(directory.pages):
        found.append(f"{len(directory.pages)} page hashes for {len(pages)} pages")
    found += [f"page {index} has another hash"
              for index, (page, digest) in enumerate(zip(pages, directory.pages))
              if directory.digest(page) != digest]
    hashed = {SLOT_INFO: info_plist, SLOT_RESOURCES: resources}
    hashed |= {slot: signature.blobs.get(slot) for slot in (SLOT_REQUIREMENTS, SLOT_XML, SLOT_DER)}
    for slot in sorted(set(directory.special) | set(hashed)):
        data, digest = hashed.get(slot), directory.special.get(slot, b"").strip(b"\0")
        if data is None and digest:
            found.append(f"slot {slot} has a hash of nothing")
        elif data is not None and directory.special.get(slot) != directory.digest(data):
            found.append(f"slot {slot} has another hash")
    text = image.segment("__TEXT")
    if (directory.segment_base, directory.segment_limit) != (text.fileoff, text.filesize):
        found.append("the executable segment's range is not __TEXT's")
    if bool(directory.segment_flags & 1) != (image.filetype == macho.MH_EXECUTE):
        found.append("the main binary flag does not fit the file type")
    return found


def choice_problems(image, signature):
    """Systems before iOS 11 know SHA-1 only, later ones want SHA-256."""
    platform, major = image.minimum_version()
    expected = ["sha1", "sha256"] if platform == "ios" and major < 11 else ["sha256"]
    names = [directory.hash_name for directory in signature.directories]
    if platform == "ios" and names != expected:
        return [f"code directories {names} for {platform} {major}"]
    if "sha256" not in names:
        return ["no SHA-256 code directory"]
    return []


def entitlement_problems(image, signature):
    xml = signature.xml_entitlements()
    if image.filetype != macho.MH_EXECUTE:
        return ["entitlements in a library"] if xml else []
    if xml is None:
        return ["DER entitlements without XML ones"] if SLOT_DER in signature.blobs else []
    try:
        if plistlib.loads(xml) != signature.der_entitlements():
            return ["the XML and DER entitlements differ"]
    except (ValueError, IndexError, KeyError) as error:
        return [f"unreadable entitlements: {error}"]
    return []


def cms_problems(signature, root):
    blob = signature.blobs.get(SLOT_CMS, b"")
    if len(blob) <= 8 or struct.unpack_from(">I", blob)[0] != WRAPPER:
        return ["no CMS signature"]
    error = verified(signature.directories[0].blob, blob[8:], root)
    if error is not None:
        return [f"openssl refuses the CMS signature: {error}"]
    return attribute_problems(signature, blob[8:])


SIGNED_BY = {}  # certificates, by the contents and the CMS that they proved to have signed


@functools.cache  # code that a test leaves alone comes by again and again
def verified(content, cms, root):
    """What openssl has against a CMS over the content, None if nothing. Without a root nobody is
    asked to vouch for the certificate that signed it."""
    trust = ["-CAfile", root, "-purpose", "any", "-ignore_critical"] if root else ["-noverify"]
    with tempfile.NamedTemporaryFile() as file, tempfile.NamedTemporaryFile("r") as signed_by:
        file.write(content)
        file.flush()
        run = subprocess.run(
            ["openssl", "cms", "-verify", "-binary", "-inform", "DER", "-content", file.name,
             "-out", os.devnull, "-signer", signed_by.name, *trust], input=cms, capture_output=True)
        SIGNED_BY[content, cms] = signed_by.read()
    return None if run.returncode == 0 else run.stderr.decode().strip()


def attribute_problems(signature, cms):
    """The two signed attributes that name every code directory's hash."""
    attributes = {}
    for node in der.parse(cms).walk():
        if node.tag == 0x30 and len(node.children) == 2 and node.children[0].tag == 0x06:
            name = der.object_identifier(node.children[0].content)
            if node.children[1].tag == 0x31:
                attributes[name] = node.children[1].children
    expected = {directory.hash_name: directory.digest(directory.blob)
                for directory in signature.directories}
    found = []
    if CDHASHES_PLIST not in attributes:
        found.append("no attribute with the list of code directory hashes")
    else:
        listed = plistlib.loads(attributes[CDHASHES_PLIST][0].content)["cdhashes"]
        if listed != [digest[:20] for digest in expected.values()]:
            found.append("the attribute's list has other code directory hashes")
    full = {DIGESTS[der.object_identifier(value.children[0].content)]: value.children[1].content
            for value in attributes.get(CDHASHES_FULL, [])}
    if full != expected:
        found.append("the attribute with the full hashes differs from the code directories")
    return found


def signer_certificate(image):
    """The certificate that signed a slice, in DER, without asking whether it is good."""
    found = Signature(image)
    signed = found.directories[0].blob, found.blobs[SLOT_CMS][8:]
    if not SIGNED_BY.get(signed) and (error := verified(*signed, None)):
        raise ValueError(error)
    return ssl.PEM_cert_to_DER_cert(SIGNED_BY[signed])


def signer(image):
    """The common name of the certificate that signed a slice."""
    return der.common_name(signer_certificate(image)) or "nobody"
