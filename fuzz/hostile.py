#!/usr/bin/env python3
"""Picture files made to cost as much as possible: sizes that the data cannot fill, the best ratio of each
compression, empty scans, strips listed repeatedly, countless frames and chunks.

hostile.py write FOLDER       writes them
hostile.py run TESSVIEW [BYTES] [NAME]
                              runs the program's --info and --convert on each, or on those of one class
                              of size and with such names, and prints the cost; exit status 1 if a file
                              costs more than its size allows
hostile.py quick TESSVIEW     files of up to 100 KB, --info only, without time limits: a test
"""
import os, resource, struct, subprocess, sys, tempfile, zlib

# Limits by file size: bytes, seconds of processor time, MB of memory.
CLASSES = [(1000, 0.2, 64), (100_000, 1, 512), (10_000_000, 5, 4096)]
# Sides that files claim: some impossible for the smaller files, some barely possible.
SIDES = [(100, 100), (2600, 2600), (3600, 3600), (10000, 10000), (11500, 11500), (65528, 200), (8, 65535)]


def fit(head, unit, size, tail=b""):
    """head, as many units as fit, tail"""
    return head + unit * max(0, (size - len(head) - len(tail)) // len(unit)) + tail


def bits(text):
    text += "0" * (-len(text) % 8)
    return int(text, 2).to_bytes(len(text) // 8, "big")


# BMP: little-endian header of 40 bytes
def bmp(depth, compression, unit, used=0):
    def make(size, w, h):
        at = 54 + 4 * (used or (1 << depth if depth <= 8 else 0))
        head = struct.pack("<2sIIIIiiHHIIiiII", b"BM", size, 0, at, 40, w, h, 1, depth, compression, 0,
                           0, 0, used, 0)
        return fit(head.ljust(at, b"\xAA"), unit, size)
    return make


# TGA
def tga(kind, depth, unit, mapped=0):
    def make(size, w, h):
        entries = min(mapped, max(0, size // 8))
        head = struct.pack("<BBBHHBHHHHBB", 0, mapped > 0, kind, 0, entries, 32 if mapped else 0, 0, 0, w, h,
                           depth, 0)
        return fit(head + bytes(4 * entries), unit, size)
    return make


# PCX
def pcx(planes, depth, unit, line=None):
    def make(size, w, h):
        head = struct.pack("<BBBBHHHHHH48sBBHH", 10, 5, 1, depth, 0, 0, w - 1, h - 1, 72, 72, bytes(48), 0,
                           planes, line or min(65534, (w * depth + 7) // 8), 1)
        return fit(head.ljust(128, b"\0"), unit, size, b"\x0C" + bytes(768) if size > 2000 else b"")
    return make


def pnm(magic, rest, unit):
    return lambda size, w, h: fit(b"%s\n%d %d\n%s" % (magic, w, h, rest), unit, size)


def pam(depth, top, unit):
    return lambda size, w, h: fit(b"P7\nWIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL %d\nENDHDR\n" %
                                  (w, h, depth, top), unit, size)


def xbm(unit):
    return lambda size, w, h: fit(b"#define a_width %d\n#define a_height %d\nstatic char a_bits[] = {" %
                                  (w, h), unit, size)


# ILBM
def ilbm(kind, planes, unit, mask=0, before=b""):
    def make(size, w, h):
        head = struct.pack(">4sI4s4sIHHhhBBBBHBBHH", b"FORM", size, kind, b"BMHD", 20, w, h, 0, 0, planes, mask,
                           1, 0, 0, 1, 1, w, h)
        head += before * (size // 2 // len(before)) if before else b""
        return fit(head + b"BODY" + struct.pack(">I", size), unit, size)
    return make


def ham(unit, planes=8):
    def make(size, w, h):
        head = b"HAM%d" % planes + struct.pack(">HHBB", w // 8, h, planes, 1)
        return fit(head.ljust(100, b"\0") + bytes(192 if planes == 8 else 32), unit, size)
    return make


def sprites(size, w, h):
    return fit(b"SPR1.0\0" + bytes([255, w & 255, h & 255]), b"\1\2\3", size)


# GIF
def lzw(size):
    """codes that each stand for one byte more than the one before, as long as 12 bits hold"""
    text, width, code, out = 0, 9, 258, 0
    codes = [256, 0] + list(range(258, 4096))
    position = 0
    while position // 8 < size:
        width, table = 9, 257
        for c in codes:
            text |= c << position
            position += width
            table += c != 256
            width = 12 if table > 2047 else 11 if table > 1023 else 10 if table > 511 else 9
        if position // 8 > 20000:
            break
    block = text.to_bytes(position // 8 + 1, "little")
    return (block * (size // len(block) + 1))[:size]


def blocks(data):
    return b"".join(bytes([len(data[i:i + 255])]) + data[i:i + 255] for i in range(0, len(data), 255)) + b"\0"


def gif(frame, screen=None):
    """frame(size, w, h): the repeated part"""
    def make(size, w, h):
        head = b"GIF89a" + struct.pack("<HHBBB", *(screen or (w, h)), 0x80, 0, 0) + bytes(6)
        return fit(head, frame(size - 25, w, h), size, b";")
    return make


def gif_frame(data, control=b"", flags=0):
    return lambda size, w, h: (control + struct.pack("<BHHHHBB", 44, 0, 0, w, h, flags, 8) +
                               (blocks(lzw(max(1, size - size // 200 - 40))) if data is None else data))


CLEAR = b"\x21\xF9\4\x09\0\0\0\0"

# PNG
SIGNATURE = b"\x89PNG\r\n\x1a\n"


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def zeros(size):
    """a zlib stream of at most this size with as many zeros as possible"""
    pack = zlib.compressobj(9)
    start, full = pack.compress(bytes(1 << 20)) + pack.flush(zlib.Z_SYNC_FLUSH), b""
    pack.compress(b"")
    unit = pack.compress(bytes(1 << 20)) + pack.flush(zlib.Z_SYNC_FLUSH)
    if size < len(start) + len(unit):
        return zlib.compress(bytes(max(1, size - 30) * 1000), 9)[:size]
    return fit(start, unit, size)


def png(depth, kind, interlace=0, before=lambda size: b"", share=1.0, data=zeros):
    def make(size, w, h):
        head = SIGNATURE + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, depth, kind, 0, 0, interlace))
        head += chunk(b"PLTE", b"\1\2\3") if kind == 3 else b""
        head += before(size - len(head) - 100)
        return head + chunk(b"IDAT", data(max(9, int((size - len(head) - 30) * share)))) + chunk(b"IEND", b"")
    return make


def texts(size):
    stream = zeros(min(1000, size // 2))
    return fit(b"", chunk(b"zTXt", b"a\0\0" + stream) + chunk(b"iTXt", b"a\0\1\0\0\0" + stream), size)


# JPEG: Huffman tables of one code, "0", which means no difference, an end of block, or a run of 32767
# ends of band
def segment(marker, data):
    return struct.pack(">BBH", 0xFF, marker, len(data) + 2) + data


def jpeg(frame, scan, factors=(0x11, 0x11, 0x11), symbol=0, before=lambda size: b"", body=b"",
         restart=0):
    def make(size, w, h):
        n = len(factors)
        head = b"\xFF\xD8" + before(size)
        head += segment(0xDB, b"\0" + b"\1" * 64)
        head += segment(frame, struct.pack(">BHHB", 8, h, w, n) +
                        b"".join(bytes([i + 1, f, 0]) for i, f in enumerate(factors)))
        head += segment(0xC4, b"\0\1" + bytes(15) + b"\0" + b"\x10\1" + bytes(15) + bytes([symbol]))
        head += segment(0xDD, struct.pack(">H", restart)) if restart else b""
        if body is None:  # one scan with all the bits
            return fit(head + scan, b"\0", size, b"\xFF\xD9")
        if not scan:
            return fit(head, body, size, b"\xFF\xD9")
        return fit(head, scan + body, size, b"\xFF\xD9")
    return make


def sos(components, first, last, approximation):
    return segment(0xDA, bytes([len(components)]) + b"".join(bytes([c, 0]) for c in components) +
                   bytes([first, last, approximation]))


ALL, DC, AC, REFINE, ONE = (sos((1, 2, 3), 0, 63, 0), sos((1, 2, 3), 0, 0, 1), sos((1,), 1, 63, 1),
                            sos((1,), 1, 63, 0x10), sos((1,), 0, 63, 0))
RUNS = bits("0" + "1" * 14 + "0" + "1" * 14).replace(b"\xFF", b"\xFF\0") * 3


def exif(picture, share=0.5):
    """an Exif segment with a thumbnail that is a hostile picture"""
    def make(size):
        inner = picture(min(60000, int(size * share)), 2040, 2048)
        tiff = struct.pack("<2sHIH", b"II", 42, 8, 0) + struct.pack("<I", 14) + struct.pack("<H", 3)
        for tag, value in ((259, 6), (513, 14 + 2 + 36 + 4), (514, len(inner))):
            tiff += struct.pack("<HHII", tag, 4, 1, value)
        return segment(0xE1, b"Exif\0\0" + tiff + bytes(4) + inner)
    return make


def directories(size):
    """Exif segments full of directories that refer to each other"""
    entry = struct.pack("<HHII", 34665, 4, 1, 8)
    one = b"Exif\0\0" + struct.pack("<2sHIH", b"II", 42, 8, 255) + entry * min(255, max(1, size // 14 - 30))
    return fit(b"", segment(0xE1, one + struct.pack("<I", 8)), size // 2)


# TIFF
def tiff(compression, data, count=1, rows=None, samples=1, depth=8, photometric=1, tile=0, pages=0, extra=(),
         spread=False, magic=42):
    """count: of strips or tiles, which share their bytes unless spread"""
    def make(size, w, h):
        used = min(count if count else 1 << 30, max(1, size // (8 if count != 0 else 4) // 2))
        body = data(max(1, size - 300 - 8 * used))
        entries = [(256, 4, 1, w), (257, 4, 1, h), (258, 3, 1, depth), (259, 3, 1, compression),
                   (262, 3, 1, photometric), (277, 3, 1, samples), *extra]
        place = 8 + 2 + 12 * (len(entries) + 5) + 4 + 40
        offsets, counts = place, place + 4 * used
        start = counts + 4 * used
        step = len(body) // used if spread else 0
        names = (322, 323, 324, 325) if tile else (None, 278, 273, 279)
        if tile:
            entries += [(names[0], 4, 1, tile)]
        entries += [(names[1], 4, 1, tile or rows or max(1, -(-h // used))),
                    (names[2], 4, used, offsets if used > 1 else start),
                    (names[3], 4, used, counts if used > 1 else len(body))]
        entries.sort()
        out = struct.pack("<2sHIH", b"II", magic, 8, len(entries))
        out += b"".join(struct.pack("<HHII", *e) for e in entries) + bytes(4)
        out = out.ljust(place, b"\0") + b"".join(struct.pack("<I", start + i * step) for i in range(used))
        out += struct.pack("<I", step or len(body)) * used + body
        if pages:
            chain, out = b"", out.ljust(len(out) + len(out) % 2, b"\0")[:size // 2]
            while len(out) + len(chain) + 6 < size:
                chain += struct.pack("<HI", 0, len(out) + len(chain) + 6)
            at = 10 + 12 * len(entries)
            out = out[:at] + struct.pack("<I", len(out)) + out[at + 4:] + chain
        return out[:size]
    return make


def packbits(size):
    return b"\x81\0" * (size // 2)


def tiff_lzw(size):
    out, code = [256, 0], 258
    while len(out) < min(size, 3000):
        out += [code]
        code += 1
        if code > 4093:
            break
    width, table, text = 9, 258, ""
    for i, c in enumerate(out):
        text += format(c, "0%db" % width)
        table += i > 1
        width = 12 if table >= 2047 else 11 if table >= 1023 else 10 if table >= 511 else 9
    one = bits(text)
    return (one * (size // len(one) + 1))[:size]


def stream(frame, scan, **more):
    """a JPEG stream for TIFF of 64 x 64 pixels, or of the size claimed"""
    return lambda side: lambda size: jpeg(frame, scan, **more)(min(size, 500), side, side)


def plain(value=b"\x55"):
    return lambda size: value * size


SOF0, SOF2 = 0xC0, 0xC2
THUMB = jpeg(SOF2, REFINE, symbol=0xE0, body=RUNS)
CASES = {
    "bmp plain 1": bmp(1, 0, b"\xA5"),
    "bmp plain 8": bmp(8, 0, b"\xA5"),
    "bmp plain 24": bmp(24, 0, b"\xA5"),
    "bmp rle8 runs": bmp(8, 1, b"\xFF\1"),
    "bmp rle4 runs": bmp(4, 2, b"\xFF\x12"),
    "bmp rle8 ends of lines": bmp(8, 1, b"\0\0"),
    "bmp rle8 deltas": bmp(8, 1, b"\0\2\0\1\1\1"),
    "bmp rle8 empty literals": bmp(8, 1, b"\0\3abc\0\0\2\0\0"),
    "tga plain": tga(2, 24, b"\xA5"),
    "tga runs 8": tga(11, 8, b"\xFF\1"),
    "tga runs 32": tga(10, 32, b"\xFF\1\2\3\4"),
    "tga runs of a map": tga(9, 8, b"\xFF\1", 65535),
    "pcx runs 1": pcx(1, 1, b"\xFF\x55"),
    "pcx runs 4 x 1": pcx(4, 1, b"\xFF\x55"),
    "pcx runs 4 x 2": pcx(4, 2, b"\xFF\x55"),
    "pcx runs 8": pcx(1, 8, b"\xFF\x55"),
    "pcx runs 24": pcx(3, 8, b"\xFF\x55"),
    "pcx long lines": pcx(4, 8, b"\xFF\x55", 65534),
    "pnm bits as text": pnm(b"P1", b"", b"1"),
    "pnm bits": pnm(b"P4", b"", b"\x55"),
    "pnm text": pnm(b"P3", b"65535\n", b"1 "),
    "pnm blanks": pnm(b"P2", b"255\n", b"  \n\t"),
    "pnm comments": pnm(b"P2", b"#", b"\n#"),
    "pnm bytes": pnm(b"P6", b"255\n", b"\x55"),
    "pam depths": pam(4, 65535, b"\x55"),
    "xbm numbers": xbm(b"0,"),
    "xbm hex": xbm(b"0xFF, "),
    "xbm blanks": xbm(b"  "),
    "xbm names": lambda size, w, h: fit(b"", b"#define a_width %d\n" % w, size,
                                        b"#define a_height 9\nstatic char a_bits[] = {1};"),
    "ilbm runs 1": ilbm(b"ILBM", 1, b"\x81\0"),
    "ilbm runs 8": ilbm(b"ILBM", 8, b"\x81\xFF"),
    "ilbm runs 24": ilbm(b"ILBM", 24, b"\x81\x55"),
    "ilbm runs 32": ilbm(b"ILBM", 32, b"\x81\x55"),
    "ilbm mask": ilbm(b"ILBM", 1, b"\x81\x55", 1),
    "ilbm no runs": ilbm(b"ILBM", 8, b"\x80"),
    "ilbm chunks": ilbm(b"ILBM", 8, b"\x81\0", 0, b"ANNO\0\0\0\0"),
    "ilbm palettes": ilbm(b"ILBM", 8, b"\x81\0", 0, b"CMAP\0\0\0\3abc\0"),
    "pbm runs": ilbm(b"PBM ", 8, b"\x81\x55"),
    "acbm": ilbm(b"ACBM", 8, b"\x81\x55"),
    "ham8 runs": ham(b"\1\xFE\xFF\0"),
    "ham6 runs": ham(b"\1\xFE\xFF\0", 6),
    "sprites": sprites,
    "gif lzw": gif(gif_frame(None)),
    "gif lzw interlaced": gif(gif_frame(None, flags=0x40)),
    "gif frames without data": gif(gif_frame(b"\0")),
    "gif frames that clear": gif(gif_frame(b"\2\0\1\0", CLEAR)),
    "gif small frames": gif(lambda size, w, h: CLEAR + struct.pack("<BHHHHBB", 44, 0, 0, 1, 1, 0, 8) + b"\2\0\1\0"),
    "gif frames on a small screen": gif(gif_frame(b"\0"), (1, 1)),
    "gif lzw on a small screen": gif(gif_frame(None), (1, 1)),
    "gif clear codes": gif(lambda size, w, h: gif_frame(blocks(b"\0\1" * (size // 2 - 20)))(size, w, h)),
    "gif small blocks": gif(lambda size, w, h: gif_frame(b"\1\0" * (size // 2 - 20) + b"\0")(size, w, h)),
    "gif extensions": gif(lambda size, w, h: b"\x21\xFE\0"),
    "gif comment": gif(lambda size, w, h: b"\x21\xFE" + blocks(b"a" * (size * 9 // 10))),
    "png 1": png(1, 0),
    "png 1 of a palette": png(1, 3),
    "png 8": png(8, 0),
    "png rgb": png(8, 2),
    "png rgba": png(8, 6),
    "png 16": png(16, 6),
    "png interlaced 1": png(1, 0, 1),
    "png interlaced rgba": png(8, 6, 1),
    "png little data": png(1, 3, share=0.2),
    "png texts": png(8, 0, before=texts, share=0.1),
    "png empty chunks": png(8, 0, before=lambda size: chunk(b"IDAT", b"") * (size // 13)),
    "png blocks": png(1, 0, data=lambda size: b"\x78\xDA" + b"\0\0\0\xFF\xFF" * (size // 5)),
    "png dynamic blocks": png(1, 0, data=lambda size: b"\x78\xDA" + bytes.fromhex(
        "04c08104000000009056ff13180402") * (size // 15)),
    "jpeg baseline": jpeg(SOF0, ALL, body=None),
    "jpeg factors": jpeg(SOF0, ALL, (0x44, 0x11, 0x11), body=None),
    "jpeg four": jpeg(SOF0, sos((1, 2, 3, 4), 0, 63, 0), (0x22, 0x11, 0x11, 0x22), body=None),
    "jpeg restarts": jpeg(SOF0, ALL, (0x11, 0x11, 0x11), body=b"\0\xFF\xD0", restart=1),
    "jpeg sequential scans": jpeg(SOF0, ONE, body=b""),
    "jpeg sequential scans with bits": jpeg(SOF0, ONE, body=bytes(40)),
    "jpeg empty scans": jpeg(SOF2, DC),
    "jpeg empty refining scans": jpeg(SOF2, REFINE),
    "jpeg progressive": jpeg(SOF2, DC, body=None),
    "jpeg runs": jpeg(SOF2, AC, symbol=0xE0, body=RUNS),
    "jpeg refining runs": jpeg(SOF2, REFINE, symbol=0xE0, body=RUNS),
    "jpeg runs of one": jpeg(SOF2, REFINE, (0x11,), symbol=0xE0, body=RUNS),
    "jpeg refining bits": jpeg(SOF2, sos((1, 2, 3), 0, 0, 0x10), body=bytes(64)),
    "jpeg coefficients": jpeg(SOF0, ALL, symbol=0x01, body=None),
    "jpeg tables": jpeg(SOF0, b"", body=segment(0xC4, b"\0\1" + bytes(15) + b"\0") * 2),
    "jpeg scans with tables": jpeg(SOF2, DC, body=segment(0xC4, b"\0\1" + bytes(15) + b"\0")),
    "jpeg thumbnail": jpeg(SOF2, REFINE, symbol=0xE0, body=RUNS, before=exif(THUMB)),
    "jpeg thumbnail of empty scans": jpeg(SOF2, DC, before=exif(jpeg(SOF2, DC))),
    "jpeg jfif thumbnail": jpeg(SOF0, ALL, body=None, before=lambda size: segment(
        0xE0, b"JFIF\0\1\2\0\0\1\0\1\xFF\xFF" + bytes(max(0, min(65000, size - 400))))),
    "jpeg exif directories": jpeg(SOF0, ALL, body=None, before=directories),
    "tiff plain 1": tiff(1, plain(), depth=1),
    "tiff plain": tiff(1, plain()),
    "tiff one strip many times": tiff(1, plain(), 0),
    "tiff one packed strip many times": tiff(32773, packbits, 0),
    "tiff one deflated strip many times": tiff(8, zeros, 0),
    "tiff one fax strip many times": tiff(4, plain(b"\xFF"), 0, depth=1),
    "tiff one JPEG strip many times": tiff(7, stream(SOF2, REFINE, symbol=0xE0, body=RUNS)(4096), 0, samples=3,
                                           photometric=2),
    "tiff JPEG": tiff(7, lambda size: jpeg(SOF2, REFINE, symbol=0xE0, body=RUNS)(size, 3600, 3600), samples=3,
                      photometric=2),
    "tiff JPEG tiles": tiff(7, stream(SOF0, ALL, body=None)(256), 0, samples=3, photometric=6, tile=256),
    "tiff packbits": tiff(32773, packbits),
    "tiff packbits rgb 16": tiff(32773, packbits, samples=3, depth=16, photometric=2),
    "tiff lzw": tiff(5, tiff_lzw),
    "tiff lzw differences": tiff(5, tiff_lzw, samples=3, photometric=2, extra=((317, 3, 1, 2),)),
    "tiff deflate 1": tiff(8, zeros, depth=1),
    "tiff deflate rgb": tiff(8, zeros, samples=3, photometric=2),
    "tiff deflate planes": tiff(8, zeros, 4, samples=4, photometric=5, extra=((284, 3, 1, 2),), rows=65535),
    "tiff deflate 16 samples": tiff(8, zeros, samples=16, photometric=2),
    "tiff deflate ycbcr": tiff(8, zeros, samples=3, photometric=6),
    "tiff alpha": tiff(8, zeros, samples=4, photometric=2, extra=((338, 3, 1, 1),)),
    "tiff group 4": tiff(4, plain(b"\xFF"), depth=1),
    "tiff group 3": tiff(3, plain(b"\xB2"), depth=1),
    "tiff rle": tiff(2, plain(b"\x35"), depth=1),
    "tiff small tiles": tiff(1, plain(), 0, tile=16),
    "tiff tiles of one": tiff(8, zeros, 0, tile=1),
    "tiff large tiles": tiff(8, zeros, 2, tile=60000, depth=1),
    "tiff large samples": tiff(8, zeros, 2, tile=20000, depth=16, samples=4, photometric=2),
    "tiff strips of a row": tiff(32773, packbits, 0, rows=1, spread=True),
    "tiff pages": tiff(1, plain(), pages=1),
    "tiff palette": tiff(8, zeros, photometric=3, extra=((320, 3, 768, 8),)),
}


def runs(quick, wanted=""):
    """name, bytes, goals"""
    for size, seconds, memory in CLASSES[:2 if quick else 3]:
        if wanted and int(wanted) != size:
            continue
        for name, make in CASES.items():
            for w, h in SIDES[3:4] if quick else SIDES[3:5] if size > 1 << 20 else SIDES:
                data = make(size, w, h)
                if len(data) <= size * 1.024:
                    yield "%s %dx%d" % (name, w, h), data, seconds, memory


def measure(command):
    """seconds of processor time, MB at the peak, exit status"""
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                             preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (30, 30)))
    child.stderr.read()
    _, status, used = os.wait4(child.pid, 0)
    child.returncode = 0
    return used.ru_utime + used.ru_stime, used.ru_maxrss / 1024, os.waitstatus_to_exitcode(status)


def run(program, quick, wanted, only):
    worst, failed, count = {}, 0, 0
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "hostile")
        for name, data, seconds, memory in runs(quick, wanted):
            if only not in name:
                continue
            size = len(data)
            with open(path, "wb") as file:
                file.write(data)
            for out in [None] if quick else [None, "png"] if size > 1 << 20 else [None, "pam", "png"]:
                out = out and os.path.join(folder, "out." + out)
                took, peak, status = measure([program, "--info", path] if not out else
                                             [program, "--convert", path, out])
                what = (name.split()[0], seconds, os.path.splitext(out)[1] if out else "info")
                count += 1
                mark = worst.setdefault(what, [0, 0, "", ""])
                if took > mark[0]:
                    mark[0], mark[2] = took, name
                if peak > mark[1]:
                    mark[1], mark[3] = peak, name
                bad = status not in (0, 1) or peak > memory or (took > seconds and not quick)
                if bad:
                    failed += 1
                    print("beyond: %-50s %8d bytes %-5s %6.2f s %6.0f MB, status %d" %
                          (name, size, what[2], took, peak, status), flush=True)
                if out and os.path.exists(out):
                    os.remove(out)
    print("%-6s %9s %-5s %7s %7s  %s" % ("format", "bytes", "", "CPU s", "MB", "the slowest; the largest"))
    for (form, seconds, mode), (took, peak, slow, large) in sorted(worst.items()):
        size = next(c[0] for c in CLASSES if c[1] == seconds)
        print("%-6s %9d %-5s %7.2f %7.0f  %s; %s" % (form, size, mode, took, peak, slow, large))
    print("%d runs, %d beyond what their size allows" % (count, failed))
    return failed != 0


def main():
    mode, target = sys.argv[1:3]
    if mode != "write":
        classes = [word for word in sys.argv[3:] if word.isdigit()]
        sys.exit(run(target, mode == "quick", "".join(classes),
                     " ".join(word for word in sys.argv[3:] if word not in classes)))
    for i, (name, data, _, _) in enumerate(runs(False)):
        with open(os.path.join(target, "%04d %s" % (i, name)), "wb") as file:
            file.write(data)


main()
