#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The library of a glTF reader stays inside of ours: nothing of it is exported, and nothing is looked for elsewhere.
Arguments: nm, the shared library."""

import subprocess
import sys


def symbols(*options):
    return subprocess.run([sys.argv[1], "-C", *options, sys.argv[2]], capture_output=True, text=True, check=True).stdout.splitlines()


inside = [line for line in symbols() if "tinygltf::" in line]
outside = [line for line in symbols("-D") if "tinygltf" in line]
public = [line for line in symbols("-D") if "::importModel(" in line]
if not inside or not public:
    sys.exit(f"{sys.argv[2]}: it has no reader of glTF, or nm cannot tell")
if outside:
    sys.exit("\n".join([f"{sys.argv[2]}: {len(outside)} symbols of tinygltf are not its own:", *outside[:10]]))
