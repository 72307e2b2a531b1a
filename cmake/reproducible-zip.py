#!/usr/bin/env python3
"""Usage: reproducible-zip.py ZIP EPOCH

Rewrites ZIP in place with the same entries and contents, so that it is the same bytes wherever it
is made: entries in name order, each with the time EPOCH (the ZIP format's resolution: two
seconds, and no earlier than 1980), Unix permissions 0755 for programs and 0644 for other files,
and no owner, extra field or comment (an archiver records the builder's user and clock there).
"""

import os
import sys
import time
import zipfile

archive, epoch = sys.argv[1], int(sys.argv[2])
stamp = max(time.gmtime(epoch)[:6], (1980, 1, 1, 0, 0, 0))
with zipfile.ZipFile(archive) as source:
    entries = sorted((info.filename, source.read(info)) for info in source.infolist())
with zipfile.ZipFile(archive + ".new", "w") as target:
    for name, data in entries:
        info = zipfile.ZipInfo(name, stamp)
        info.create_system = 3  # Unix, whose permissions follow.
        mode = 0o40755 if name.endswith("/") else 0o100755 if name.endswith(".exe") else 0o100644
        info.external_attr = mode << 16 | (0x10 if name.endswith("/") else 0)  # 0x10: a folder.
        target.writestr(info, data, compress_type=zipfile.ZIP_DEFLATED, compresslevel=9)
os.replace(archive + ".new", archive)
