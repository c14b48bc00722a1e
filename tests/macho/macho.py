"""Reads what the checks need of a 64-bit Mach-O executable whose pointers are not chained."""

import re
import struct
import subprocess


def output(*command):
    """What an LLVM tool says about the executable."""
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class Executable:
    def __init__(self, path):
        self.path = path
        with open(path, "rb") as file:
            self.bytes = file.read()
        headers = output("llvm-objdump-19", "--macho", "--private-headers", path)
        self.header = headers.split("Load command 0")[0].split()
        self.commands = [
            [line.strip() for line in command.splitlines()]
            for command in re.split(r"Load command \d+\n", headers)[1:]
        ]
        self.sections = {}
        for section in re.split(r"\nSection\n", headers)[1:]:
            own = section.split("\nLoad command")[0]
            fields = dict(re.findall(r"^ *(sectname|segname|addr|size|offset) +(\S+)", own, re.M))
            self.sections[fields["segname"], fields["sectname"]] = (
                int(fields["addr"], 16), int(fields["size"], 16), int(fields["offset"]))

    def values(self, name):
        """Every value that a load command gives for a field, in order."""
        lines = [line.split(None, 1) for command in self.commands for line in command]
        return [line[1] for line in lines if len(line) == 2 and line[0] == name]

    def section(self, segment, name):
        _, size, offset = self.sections[segment, name]
        return self.bytes[offset:offset + size]

    def texts(self):
        """Every text of the program, as often as it is there."""
        read_only = self.section("__TEXT", "__cstring") + b"\0" + self.section("__TEXT", "__const")
        return [text.decode("utf-8", "replace") for text in read_only.split(b"\0")]

    def at(self, address, layout):
        for start, size, offset in self.sections.values():
            if start <= address < start + size:
                return struct.unpack_from(layout, self.bytes, offset + address - start)
        raise ValueError(f"no section is at {address:#x}")

    def text(self, address):
        for start, size, offset in self.sections.values():
            if start <= address < start + size:
                begin = offset + address - start
                return self.bytes[begin:self.bytes.index(b"\0", begin)].decode()
        raise ValueError(f"no section is at {address:#x}")

    def protocols(self):
        """For each protocol the selectors and extended types of its methods, as declared."""
        result = {}
        # In the order of the record: its own lists, class methods in between, and the types.
        (start, size, _) = self.sections["__DATA", "__objc_protolist"]
        for entry in range(start, start + size, 8):
            (protocol,) = self.at(entry, "<Q")
            _, name, _, *lists, _ = self.at(protocol, "<8Q")
            (types,) = self.at(protocol + 72, "<Q")
            selectors = [selector for methods in lists for selector in self.methods(methods)]
            result[self.text(name)] = [
                (selector, self.text(self.at(types + 8 * index, "<Q")[0]))
                for index, selector in enumerate(selectors)]
        return result

    def methods(self, address):
        """The selectors of a list of methods, as ordered there."""
        return [selector for selector, _ in self.typed_methods(address)]

    def typed_methods(self, address):
        """The selectors and plain types of a list of methods, as ordered there."""
        if not address:
            return []
        size, count = self.at(address, "<2I")
        entries = [self.at(address + 8 + index * size, "<2Q") for index in range(count)]
        return [(self.text(selector), self.text(types)) for selector, types in entries]

    def classes(self):
        """For each class the selectors and plain types of the instance methods of its own."""
        result = {}
        (start, size, _) = self.sections["__DATA_CONST", "__objc_classlist"]
        for entry in range(start, start + size, 8):
            (described,) = self.at(entry, "<Q")
            (data,) = self.at(described + 32, "<Q")
            name, base_methods = self.at((data & ~7) + 24, "<2Q")  # the low bits are flags
            result[self.text(name)] = self.typed_methods(base_methods)
        return result
