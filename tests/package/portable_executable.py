"""As much of a 64-bit Windows image as the tests of the package look at."""
import struct


class Image:
    def __init__(self, octets):
        self.octets = octets
        pe = self.unpack("<I", 60)[0]
        assert octets[pe:pe + 4] == b"PE\0\0", "no Windows image"
        count, optional = self.unpack("<H", pe + 6)[0], self.unpack("<H", pe + 20)[0]
        assert self.unpack("<H", pe + 24)[0] == 0x20B, "no 64-bit image"
        self.flags = self.unpack("<H", pe + 24 + 70)[0]
        # (address, size) of the sixteen directories.
        self.directories = [self.unpack("<II", pe + 24 + 112 + 8 * i) for i in range(16)]
        # (name, size, address, size in the file, place in the file, characteristics)
        self.sections = [self.unpack("<8sIIII12xI", pe + 24 + optional + 40 * i) for i in range(count)]

    def unpack(self, format, offset):
        return struct.unpack_from(format, self.octets, offset)

    def section_of(self, address):
        for section in self.sections:
            if section[2] <= address < section[2] + max(section[1], section[3]):
                return section
        raise ValueError("no section at %#x" % address)

    def offset(self, address):
        section = self.section_of(address)
        return address - section[2] + section[4]

    def text(self, address):
        start = self.offset(address)
        return self.octets[start:self.octets.index(b"\0", start)].decode("ascii")

    def writable(self, directory):
        """Whether what a directory names lies in memory that can be written."""
        return bool(self.section_of(self.directories[directory][0])[5] & 0x80000000)

    def exports(self):
        """Name to address."""
        count, functions, names, ordinals = self.unpack("<IIII", self.offset(self.directories[0][0]) + 24)
        found = {}
        for i in range(count):
            name = self.unpack("<I", self.offset(names) + 4 * i)[0]
            index = self.unpack("<H", self.offset(ordinals) + 2 * i)[0]
            found[self.text(name)] = self.unpack("<I", self.offset(functions) + 4 * index)[0]
        return found

    def debug_file(self):
        """The name of the symbol file, as a debugger reads it."""
        address, size = self.directories[6]
        for entry in range(self.offset(address), self.offset(address) + size, 28):
            kind, length, _, place = self.unpack("<12xIIII", entry)
            if kind == 2:
                assert self.octets[place:place + 4] == b"RSDS"
                return self.octets[place + 24:place + length].split(b"\0")[0].decode("ascii")
        return None
