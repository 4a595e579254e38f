"""Sound files of most formats, built from samples."""

import array
import random
import struct


def noise(size):
    """Noise without the bytes 0 and 255: no sample is silent, none can start a frame of MPEG audio."""
    return bytes(random.Random(size).choices(range(1, 255), k=size))


def swapped(data):
    """The same 16-bit samples with their bytes in the other order."""
    samples = array.array("H", data)
    samples.byteswap()
    return samples.tobytes()


def wav(data, bits=16, channels=2, tag=1, hz=44100):
    form = struct.pack("<HHIIHH", tag, channels, hz, hz * channels * bits // 8, channels * bits // 8, bits)
    return struct.pack("<4sI4s4sI16s4sI", b"RIFF", len(data) + 36, b"WAVE", b"fmt ", 16, form, b"data", len(data)) + data


def au(data, encoding=3, channels=2):
    return struct.pack(">4sIIIII", b".snd", 24, len(data), encoding, 11025, channels) + data


def aiff(data):
    rate = struct.pack(">HQ", 16383 + 14, 22050 << 49)
    common = struct.pack(">4sIHIH", b"COMM", 18, 2, len(data) // 4, 16) + rate
    chunks = common + struct.pack(">4sIII", b"SSND", len(data) + 8, 0, 0) + data
    return struct.pack(">4sI4s", b"FORM", len(chunks) + 4, b"AIFF") + chunks


def svx(data):
    chunks = struct.pack(">4sIIIIHBBI", b"VHDR", 20, len(data), 0, 0, 8363, 1, 0, 65536)
    chunks += struct.pack(">4sI4s4sI", b"ANNO", 4, b"Hi\x1b!", b"BODY", len(data)) + data
    return struct.pack(">4sI4s", b"FORM", len(chunks) + 4, b"8SVX") + chunks


def voc(data):
    return b"Creative Voice File\x1a" + struct.pack("<HHHIBB", 26, 0x10A, 0x1129, len(data) + 2 << 8 | 1, 131, 0) + data


def module(command=0xD00):
    """A module of one row of three ticks, or with another command in it; its instrument is looped noise."""
    samples = struct.pack(">22sHBBHH", b"na\xefve", 100, 0, 64, 0, 100) + bytes(30) * 30
    row = struct.pack(">IIII", 0x01AC1F03, command, 0, 0)
    return struct.pack(">20s930sBB128s4s", b"A song", samples, 1, 127, b"", b"M.K.") + row + bytes(63 * 16) + noise(200)
