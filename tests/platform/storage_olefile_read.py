"""Reads a compound file with olefile and prints what the storage tests compare.

Usage: storage_olefile_read.py FILE STREAM
Prints the root's class id (upper-case text), then the stream's bytes in hex, one line each.
"""
import sys
import uuid

import olefile

path, stream = sys.argv[1], sys.argv[2]
if not olefile.isOleFile(path):
    sys.exit("not a compound file")
ole = olefile.OleFileIO(path)
clsid = ole.root.clsid or "00000000-0000-0000-0000-000000000000"
print("{" + str(uuid.UUID(clsid)).upper() + "}")
print(ole.openstream(stream).read().hex())
ole.close()
