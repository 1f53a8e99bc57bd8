"""As much of DER as signed messages need."""
import hashlib

SIGNED_DATA = bytes.fromhex("06092a864886f70d010702")
SIGNING_TIME = "2a864886f70d010905"
SEQUENCE, SET, OID, OCTETS = 0x30, 0x31, 0x06, 0x04
CONTEXT_0, CONTEXT_1 = 0xA0, 0xA1


class DerError(ValueError):
    pass


def item(data, start=0):
    """The item (tag, contents, whole encoding) that starts there."""
    if start + 2 > len(data):
        raise DerError("cut short")
    tag, size, at = data[start], data[start + 1], start + 2
    if size == 0x80:
        raise DerError("of no stated length")
    if size > 0x80:
        count = size & 0x7F
        size, at = int.from_bytes(data[at:at + count], "big"), at + count
    if at + size > len(data):
        raise DerError("cut short")
    return tag, data[at:at + size], data[start:at + size]


def items(data):
    """The items that stand one behind the other."""
    at, found = 0, []
    while at < len(data):
        found.append(item(data, at))
        at += len(found[-1][2])
    return found


def digits(data):
    if len(data) <= 64:
        return data.hex()
    return f"{len(data)} bytes {hashlib.sha256(data).hexdigest()}"


def attribute_lines(attribute, tree):
    """One line for each value of an attribute."""
    oid, values = items(attribute)[:2]
    for tag, content, _ in items(values[1]):
        if oid[1].hex() == SIGNING_TIME:
            shown = tree.masks.text(content.decode("ascii", "replace"))
        else:
            shown = shown_value(tag, content, tree)
        yield f"  attribute {oid[1].hex()}: {shown}"


def shown_value(tag, content, tree):
    """A value with the digests in it named."""
    if tag in (SEQUENCE, SET):
        return "(" + ", ".join(shown_value(*part[:2], tree) for part in items(content)) + ")"
    if content.startswith(b"<?xml"):
        return tree.with_named_digests(content.decode("utf-8", "replace"))
    return tree.name(content) if tag == OCTETS else digits(content)


def signer_lines(signer, tree):
    """What one signer of a message says. The signature's value covers the time: its size counts."""
    for tag, content, whole in items(signer):
        if tag == CONTEXT_0 or tag == CONTEXT_1:
            kind = "signed" if tag == CONTEXT_0 else "unsigned"
            yield f"  {kind} attributes"
            for _, attribute, _ in items(content):
                yield from attribute_lines(attribute, tree)
        elif tag == OCTETS:
            yield f"  signature of {len(content)} bytes"
        else:
            yield f"  {digits(whole)}"


def signed_message_lines(data, tree):
    """A signed message (CMS) as lines; raises DerError when it is none."""
    tag, content, whole = item(data)
    if tag != SEQUENCE or not content.startswith(SIGNED_DATA) or data[len(whole):].strip(b"\0"):
        raise DerError("no signed message")
    message = items(items(items(content)[1][1])[0][1])
    yield f"signed message of {len(whole)} bytes"
    for tag, content, whole in message[:-1]:
        if tag == CONTEXT_0:
            for _, _, certificate in items(content):
                yield f"certificate {hashlib.sha1(certificate).hexdigest()}"
        else:
            yield f"part {digits(whole)}"
    for _, signer, _ in items(message[-1][1]):
        yield "signer"
        yield from signer_lines(signer, tree)
