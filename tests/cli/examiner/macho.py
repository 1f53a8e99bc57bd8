"""Mach-O files as <mach-o/loader.h> lays them out: slices, load commands, segments, sections."""
import struct

LC_SEGMENT, LC_SYMTAB, LC_LOAD_DYLIB, LC_SEGMENT_64 = 0x1, 0x2, 0xC, 0x19
LC_CODE_SIGNATURE, LC_VERSION_MIN_IPHONEOS, LC_BUILD_VERSION = 0x1D, 0x25, 0x32
LC_VERSION_MIN_WATCHOS = 0x30
DYLIB_COMMANDS = {0xC, 0x80000018, 0x8000001F, 0x20, 0x80000023}
MH_EXECUTE = 2
CPU_NAMES = {(12, 9): "armv7", (12, 11): "armv7s", (0x0100000C, 0): "arm64"}
S_ZEROFILL = 1


class Command:
    """One load command: its number, its bytes and its offset in the slice."""

    def __init__(self, number, offset, data):
        self.number, self.offset, self.data = number, offset, data

    def dylib_name(self):
        start = struct.unpack_from("<I", self.data, 8)[0]
        return self.data[start:].split(b"\0", 1)[0].decode()


class Segment:
    """A segment with its sections as (name, address, size, file offset, flags)."""

    def __init__(self, command):
        data = command.data
        self.command = command
        self.name = text16(data, 8)
        # Ranges, place of the section count, size of the header and of a section's record, a
        # section's ranges and the place of its flags.
        if command.number == LC_SEGMENT:
            ranges, count_at, header, record, section, flags_at = "<4I", 48, 56, 68, "<3I", 56
        else:
            ranges, count_at, header, record, section, flags_at = "<4Q", 64, 72, 80, "<QQI", 64
        self.vmaddr, self.vmsize, self.fileoff, self.filesize = struct.unpack_from(ranges, data, 24)
        self.sections = []
        for index in range(struct.unpack_from("<I", data, count_at)[0]):
            at = header + index * record
            address, size, offset = struct.unpack_from(section, data, at + 32)
            flags = struct.unpack_from("<I", data, at + flags_at)[0]
            self.sections.append((text16(data, at), address, size, offset, flags))


class Slice:
    """One architecture's image; `data` is its bytes alone."""

    def __init__(self, data):
        self.data = data
        (magic, cpu, subtype, self.filetype, count, self.commands_size,
         self.flags) = struct.unpack_from("<7I", data)
        if magic not in (0xFEEDFACE, 0xFEEDFACF):
            raise ValueError(f"not a Mach-O image (magic {magic:#x})")
        self.arch = CPU_NAMES.get((cpu, subtype & 0xFFFFFF), f"{cpu:#x}/{subtype:#x}")
        self.header_size = 28 if magic == 0xFEEDFACE else 32
        self.commands = []
        at = self.header_size
        for _ in range(count):
            number, size = struct.unpack_from("<2I", data, at)
            self.commands.append(Command(number, at, data[at:at + size]))
            at += size
        if at != self.header_size + self.commands_size:
            raise ValueError("the load commands do not fill sizeofcmds")
        self.segments = [Segment(command) for command in self.commands
                         if command.number in (LC_SEGMENT, LC_SEGMENT_64)]

    def segment(self, name):
        return next(segment for segment in self.segments if segment.name == name)

    def dylibs(self):
        return [command.dylib_name() for command in self.commands
                if command.number in DYLIB_COMMANDS]

    def signature_range(self):
        """(offset, size) of the signature, or None."""
        for command in self.commands:
            if command.number == LC_CODE_SIGNATURE:
                return struct.unpack_from("<2I", command.data, 8)
        return None

    def minimum_version(self):
        """The lowest system version as (platform word, major)."""
        for command in self.commands:
            if command.number == LC_VERSION_MIN_IPHONEOS:
                return "ios", struct.unpack_from("<I", command.data, 8)[0] >> 16
            if command.number == LC_VERSION_MIN_WATCHOS:
                return "watchos", struct.unpack_from("<I", command.data, 8)[0] >> 16
            if command.number == LC_BUILD_VERSION:
                platform, version = struct.unpack_from("<2I", command.data, 8)
                return {2: "ios", 4: "watchos"}.get(platform, str(platform)), version >> 16
        return "none", 0

    def contents(self):
        """{(segment, section): (address, bytes)} of every section that has bytes in the file."""
        found = {}
        for segment in self.segments:
            for name, address, size, offset, flags in segment.sections:
                if flags & 0xFF != S_ZEROFILL:
                    found[segment.name, name] = (address, self.data[offset:offset + size])
        return found


def text16(data, at):
    return data[at:at + 16].split(b"\0", 1)[0].decode()


def slices(path):
    """The slices of a thin or universal file, in file order."""
    with open(path, "rb") as file:
        data = file.read()
    if data[:4] != b"\xca\xfe\xba\xbe":
        return [Slice(data)]
    found = []
    for index in range(struct.unpack_from(">I", data, 4)[0]):
        cpu, subtype, offset, size, align = struct.unpack_from(">5I", data, 8 + 20 * index)
        if offset % (1 << align) != 0 or offset + size > len(data):
            raise ValueError(f"slice {index} lies at {offset}, size {size}, alignment 2^{align}")
        image = Slice(data[offset:offset + size])
        if struct.unpack_from("<2I", image.data, 4) != (cpu, subtype):
            raise ValueError(f"slice {index} is of another architecture than the header says")
        found.append(image)
    return found


def is_macho(path):
    with open(path, "rb") as file:
        magic = file.read(4)
    return magic in (b"\xca\xfe\xba\xbe", b"\xce\xfa\xed\xfe", b"\xcf\xfa\xed\xfe")
