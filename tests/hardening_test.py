#!/usr/bin/env python3
"""hardening_test.py BRANCH BINARY...: what cmake/hardening.cmake asks for stands in the binaries.

BRANCH is the instruction that jumps may go to, as objdump writes it, or empty where there is none.
"""
import re, subprocess, sys


def out(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout


branch, binaries = sys.argv[1], sys.argv[2:]
wrong = []
for binary in binaries:
    library = ".so" in binary
    said = out("readelf", "-W", "-h", "-l", "-d", "--dyn-syms", binary)
    first = out("objdump", "-d", "--no-show-raw-insn", binary,
                "--disassemble=" + ("_Z14Picture_Reasonv" if library else "main"))
    for what, pattern, text in (
            ("code at random addresses", r"Type: +DYN" if library else r"FLAGS_1.* PIE", said),
            ("symbols bound before main", r"FLAGS_1.* NOW", said),
            ("tables read-only after that", r"GNU_RELRO", said),
            ("no code on the stack", r"GNU_STACK +(\w+ +){5}RW +0x", said),
            ("guarded stacks", r"UND __stack_chk_fail\b", said),
            ("checked calls", r"UND __\w+_chk\b", said),
            ("marked targets of jumps", r">:\n +\w+:\t" + (branch or r"\w"), first)):
        if not re.search(pattern, text):
            wrong.append(f"{binary}: {what} missing")
print("\n".join(wrong) or f"{len(binaries)} binaries are hardened")
sys.exit(bool(wrong) or not binaries)
