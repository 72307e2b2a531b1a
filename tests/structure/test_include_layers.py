#!/usr/bin/env python3
"""Every #include in src/ stays in its own folder or goes down the layers:
system < logging < settings < printers, webupdate < updater (printers and webupdate side by side).
Prints each line that climbs, with its file and line number, and fails when there is one."""

import os
import re
import sys

LAYERS = {"system": 0, "logging": 1, "settings": 2, "printers": 3, "webupdate": 3, "updater": 4}
INCLUDE = re.compile(r'\s*#\s*include\s+"([^"/]+)/')

src = sys.argv[1]
climbing = []
for folder, layer in LAYERS.items():
    for name in sorted(os.listdir(os.path.join(src, folder))):
        path = os.path.join(src, folder, name)
        for number, line in enumerate(open(path, errors="replace"), 1):
            match = INCLUDE.match(line)
            if match and match.group(1) != folder and LAYERS.get(match.group(1), 99) >= layer:
                climbing.append("%s:%d: %s/ may not include %s/: %s" % (
                    path, number, folder, match.group(1), line.strip()))
print("\n".join(climbing) or "Every include of src/ stays in its folder or goes down the layers.")
sys.exit(1 if climbing else 0)
