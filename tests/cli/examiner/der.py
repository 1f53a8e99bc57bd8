"""A small reader of DER (X.690): enough for CMS attributes, entitlements and names."""


class Node:
    """One value: its tag byte, its content and, when constructed, its children."""

    def __init__(self, tag, content):
        self.tag, self.content = tag, content
        self.children = list(nodes(content)) if tag & 0x20 else []

    def walk(self):
        yield self
        for child in self.children:
            yield from child.walk()


def nodes(data):
    at = 0
    while at < len(data):
        tag, length, start = data[at], data[at + 1], at + 2
        if length & 0x80:
            count = length & 0x7F
            length = int.from_bytes(data[start:start + count], "big")
            start += count
        if start + length > len(data):
            raise ValueError("a DER value reaches past its parent")
        yield Node(tag, data[start:start + length])
        at = start + length


def parse(data):
    found = list(nodes(data))
    if len(found) != 1:
        raise ValueError(f"{len(found)} DER values instead of one")
    return found[0]


def object_identifier(content):
    numbers, value = [content[0] // 40, content[0] % 40], 0
    for byte in content[1:]:
        value = value << 7 | byte & 0x7F
        if not byte & 0x80:
            numbers.append(value)
            value = 0
    return ".".join(map(str, numbers))


def entitlements(data):
    """The dictionary of a DER entitlements blob, keys checked to be sorted."""
    root = parse(data)
    if root.tag != 0x70 or [child.tag for child in root.children] != [0x02, 0xB0]:
        raise ValueError("the DER entitlements have another shape")
    if root.children[0].content != b"\x01":
        raise ValueError("the DER entitlements are not of version 1")
    return entitlement_value(root.children[1])


def entitlement_value(node):
    if node.tag == 0x01:
        return {b"\x00": False, b"\xff": True}[node.content]
    if node.tag == 0x02:
        return int.from_bytes(node.content, "big", signed=True)
    if node.tag == 0x0C:
        return node.content.decode()
    if node.tag == 0x30:
        return [entitlement_value(child) for child in node.children]
    if node.tag == 0xB0:
        pairs = [(pair.children[0].content, pair.children[1]) for pair in node.children]
        keys = [key for key, _ in pairs]
        if keys != sorted(set(keys)):
            raise ValueError("the keys of the DER entitlements are not sorted")
        return {key.decode(): entitlement_value(value) for key, value in pairs}
    raise ValueError(f"unknown DER entitlement value {node.tag:#x}")


def common_name(certificate):
    """The first common name of a certificate's subject, or None."""
    subject = parse(certificate).children[0].children[5]
    for part in subject.walk():
        if part.tag == 0x30 and part.children and part.children[0].content == b"\x55\x04\x03":
            value = part.children[1]
            return value.content.decode({0x1E: "utf-16-be"}.get(value.tag, "utf-8"))
    return None
