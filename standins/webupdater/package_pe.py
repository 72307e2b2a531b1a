#!/usr/bin/env python3
"""The stand-in library's package container: a PE32+ DLL with no code whose one section, ".orpkg",
holds the package (the text of Package.h), so that Authenticode can sign it and Wine's
WinVerifyTrust checks its digest (which it does for PE files, not for CAB or MSI files).

    package_pe.py OUT IN     writes the container of the package file IN to OUT

The same package always gives the same bytes. The stand-in finds the section by its name
(Package::fromContainer()).
"""

import struct
import sys

SECTION = b".orpkg\0\0"
FILE_ALIGNMENT = 0x200
SECTION_ALIGNMENT = 0x1000


def align(value, alignment):
    return (value + alignment - 1) // alignment * alignment


def make_pe(payload):
    """The container of `payload` (bytes, not empty)."""
    raw_size = align(len(payload), FILE_ALIGNMENT)
    image_size = SECTION_ALIGNMENT + align(len(payload), SECTION_ALIGNMENT)
    dos = b"MZ" + b"\0" * 0x3A + struct.pack("<I", 0x40)
    coff = struct.pack("<HHIIIHH", 0x8664, 1, 0, 0, 0, 240,
                       0x2022)  # an executable image, large addresses, a DLL
    optional = struct.pack("<HBBIIIII", 0x20B, 0, 0, 0, raw_size, 0, 0, SECTION_ALIGNMENT)
    optional += struct.pack("<QII", 0x180000000, SECTION_ALIGNMENT, FILE_ALIGNMENT)
    optional += struct.pack("<HHHHHHI", 6, 0, 0, 0, 6, 0, 0)
    optional += struct.pack("<IIIHH", image_size, FILE_ALIGNMENT, 0, 2, 0x100)  # NX compatible
    optional += struct.pack("<QQQQII", 0x100000, 0x1000, 0x100000, 0x1000, 0, 16)
    optional += b"\0" * (16 * 8)  # data directories: osslsigncode fills in the certificate table
    section = SECTION + struct.pack("<IIIIIIHHI", len(payload), SECTION_ALIGNMENT, raw_size,
                                    FILE_ALIGNMENT, 0, 0, 0, 0,
                                    0x40000040)  # initialised data, readable
    headers = dos + b"PE\0\0" + coff + optional + section
    assert len(optional) == 240 and len(headers) <= FILE_ALIGNMENT
    return (headers.ljust(FILE_ALIGNMENT, b"\0") + payload).ljust(FILE_ALIGNMENT + raw_size, b"\0")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[2], "rb") as f:
        payload = f.read()
    with open(sys.argv[1], "wb") as f:
        f.write(make_pe(payload))


if __name__ == "__main__":
    main()
