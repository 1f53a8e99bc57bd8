"""A set of files, in a folder or an archive, and the names of digests over them.

A signature holds digests of files that are different in each run. Such a digest is shown as what it
is a digest of, which says more than a mask: a wrong one stays a number and is seen.
"""
import base64
import binascii
import hashlib
import re

from comparing import macho

SEALED_VALUE = re.compile(r"<data>\s*([A-Za-z0-9+/=\s]+?)\s*</data>")


class Tree:
    def __init__(self, files, masks):
        self.files = files  # contents by path
        self.masks = masks
        self._names = None

    def names(self):
        """The names of digests: SHA-1 and SHA-256 of each file, and the digests that name code."""
        if self._names is None:
            self._names = {}
            for path, content in sorted(self.files.items()):
                self._add_file(path, content)
        return self._names

    def _add_file(self, path, content):
        for algorithm in ("sha1", "sha256"):
            digest = hashlib.new(algorithm, content).digest()
            self._names.setdefault(digest, f"{algorithm} of {path}")
        for digest in macho.code_digests(content):
            self._names.setdefault(digest[:20], f"code digest of {path}")

    def name(self, digest):
        """What this is a digest of, else its digits."""
        return self.names().get(digest) or digest.hex()

    def with_named_digests(self, text):
        """The text of a property list, digests in base64 replaced by what they are digests of."""
        def named(match):
            try:
                digest = base64.b64decode("".join(match[1].split()), validate=True)
            except (ValueError, binascii.Error):
                return match[0]
            name = self.names().get(digest)
            return f"<data>{name}</data>" if name else match[0]
        return SEALED_VALUE.sub(named, text)
