#!/usr/bin/env python3
"""Derives the literal numbers of the simulator's tests: an independent simulation of one small capture.

Written from the description of the generator (random.hpp, event_source.hpp) and from the capture format, with Python's
integers and doubles; nothing of the simulator runs here. The first random numbers of a seed, and the FNV-1a hash of the
whole capture file in each encoding.

    python3 derive_captures.py          prints them
    python3 derive_captures.py --check  prints those that the tests do not have; status 1 when there are any
"""
import math
import sys
from pathlib import Path

M64 = (1 << 64) - 1


class Random:
    def __init__(self, seed):
        v = (seed + 0x9E3779B97F4A7C15) & M64
        v = (v ^ v >> 30) * 0xBF58476D1CE4E5B9 & M64
        v = (v ^ v >> 27) * 0x94D049BB133111EB & M64
        self.counter = v ^ v >> 31

    def next(self):
        self.counter = (self.counter + 0xA0761D6478BD642F) & M64
        product = self.counter * (self.counter ^ 0xE7037ED1A0B428DB)
        return product >> 64 ^ product & M64


LN2 = 0xB17217F7D1CF79AB


def logarithm_table():
    table, log = [], LN2
    for n in range(256, 512):
        table.append((log, M64 // n))
        odd = 2 * n + 1
        power, k = M64 // odd, 1
        while power:
            log -= 2 * power // k
            power //= odd * odd
            k += 2
    return table


LOGS = logarithm_table()


def exponential(random):
    u = random.next() | 1
    zeros = 64 - u.bit_length()
    mantissa = u << zeros
    log, reciprocal = LOGS[mantissa >> 55 & 255]
    step = (mantissa << 9 & M64) * reciprocal >> 64
    log = log - step + (step >> 32) ** 2 // 2
    return zeros * (LN2 >> 6) + (log >> 6)


class Jitter:
    def __init__(self, sigma):
        self.sigma, self.second = float(sigma), None

    def next(self, random):
        if self.second is not None:
            value, self.second = self.second, None
            return value
        while True:
            bits = random.next()
            x, y = ((v ^ 1 << 31) - (1 << 31) for v in (bits & 0xFFFFFFFF, bits >> 32))
            square = x * x + y * y
            if 0 < square < 1 << 62:
                break
        scale = math.sqrt(float(exponential(random)) * 2.0**-57 / float(square)) * self.sigma
        rounded = lambda v: (math.trunc(v * 65536.0) + 32768) >> 16
        self.second = rounded(float(y) * scale)
        return rounded(float(x) * scale)


# --channels 0,1,2 --rate 1000000,500000,200000 --pair-channels 2,0 --pair-rate 300000 --delay -700 --jitter 90
# --dead-time 30ns --start 5us --seed 42 --tags 5000
RATES, PAIR_RATE, A, B, DELAY, JITTER = [1000000, 500000, 200000, 0], 300000, 2, 0, -700, 90
DEAD, START, SEED, TAGS = 30000, 5000000, 42, 5000


def events():
    """Everything that happens, sorted; far more than is needed."""
    random, jitter = Random(SEED), Jitter(JITTER)
    total = sum(RATES) + PAIR_RATE
    ends = [(sum(RATES[: c + 1]) << 63) // total for c in range(4)]
    mean = (10**12 << 28) // total
    gap = lambda: exponential(random) * mean + (1 << 85) >> 86
    shift_a = max(10 * JITTER - DELAY, 0)
    shift_b = shift_a + DELAY
    out = []
    arrival = START - (max(shift_a, shift_b) + 10 * JITTER) + gap()
    for order in range(2 * TAGS):
        draw = random.next() >> 1
        origin = sum(draw >= end for end in ends)
        if origin < 4:
            out.append((arrival, 1, order, origin))
        else:  # of equal times a click on its way comes first, A before B
            out.append((arrival + shift_a, 0, 0, A))
            out.append((arrival + shift_b + jitter.next(random), 0, 1, B))
        arrival += gap()
    out = [event for event in out if START <= event[0] < arrival]
    return [(time, channel) for time, _, _, channel in sorted(out)]


def tags(stored):
    last, out = {}, []
    for time, channel in events():
        time = stored(time)
        if channel in last and time - last[channel] < DEAD:
            continue
        last[channel] = time
        out.append((channel, time))
    assert len(out) >= TAGS
    return out[:TAGS]


def header(stream_format, tag_format, delta_bits, quantum):
    return (
        '{"file_type":"orvo_timing_raw_stream_capture","schema_version":1,"created_utc":"1970-01-01T00:00:00.000000Z",'
        '"application":"vq_simulate_stream_file","device_product":"simulation","device_serial":"seed 42","device_port":"",'
        f'"stream_format":"{stream_format}","mode":"external","stream_transport":"usb","raw64_tag_format":"{tag_format}",'
        f'"channel_mask":7,"tdl_index":0,"packed_delta_config":{{"delta_bits":{delta_bits},"quantum_ps":{quantum}}}}}'
    ).encode()


def words(values, size):
    return b"".join(value.to_bytes(size, "big") for value in values)


def raw64():
    return header("raw64", "ps", 16, 8), words((c << 61 | t for c, t in tags(lambda t: t)), 8)


def raw_cf():
    def split(t):
        coarse = -(-t // 3333)
        return coarse, (2 * (coarse * 3333 - t) + 18) // 37

    def stored(t):
        coarse, fine = split(t)
        return coarse * 3333 - (37 * fine + 1) // 2

    def word(c, t):
        coarse, fine = split(t)
        return c << 61 | 0xA5C3 << 45 | coarse << 13 | fine

    return header("raw64", "raw_cf", 16, 8), words((word(c, t) for c, t in tags(stored)), 8)


def delta32(every=100):
    out, last, count = [], {}, {}
    for c, t in tags(lambda t: t):
        delta = t - last.get(c, t)
        if count.get(c, 0) % every == 0:
            out += [0xEB5A55AA, 0xAA000000 | t & 0x1FFFFFF, 0xCA000000 | t >> 25]
            delta = 0
        elif delta >> 25:
            out.append(0x8A000000 | delta >> 25)
        out.append(0x14000000 | c << 29 | delta & 0x1FFFFFF)
        last[c], count[c] = t, count.get(c, 0) + 1
    return header("delta32", "ps", 16, 8), words(out, 4)


def packed(bits=12, shift=3, every=100):
    records, last, count = [], {}, {}
    ones = (1 << bits) - 1
    record = lambda c, flag, payload: c << bits + 1 | flag << bits | payload
    pieces = (bits + 40) // bits
    lead_in = -(-8 * 65 // (bits + 3))
    records += [record(0, 1, 0)] * lead_in
    for c, t in tags(lambda t: t >> shift << shift):
        quanta = t - last.get(c, t) >> shift
        units = quanta >> bits
        if count.get(c, 0) == 0 or units > (ones - 1) * (pieces + 1):
            records.append(record(c, 1, ones))
            records += [record(c, 0, t >> shift >> bits * i & ones) for i in range(pieces)]
            records.append(record(c, 0, 0))
            count[c] = every
        else:
            while units:
                records.append(record(c, 1, min(units, ones - 1)))
                units -= min(units, ones - 1)
            records.append(record(c, 0, quanta & ones))
        last[c] = t
        count[c] -= 1
    stream = "".join(format(value, f"0{bits + 3}b") for value in records)
    stream += format(record(0, 1, ones), f"0{bits + 3}b")[: -len(stream) % 8]
    return header("packed_delta", "ps", bits, 8), words((int(stream[i : i + 8], 2) for i in range(0, len(stream), 8)), 1)


def fnv1a(data):
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & M64
    return value


def derived():
    """The test that has the numbers, what they are, and the numbers as they stand there."""
    random = Random(1)
    yield "simulate/random_test.cpp", "seed 1", ", ".join(f"{random.next():#018x}" for _ in range(3))
    random = Random(1)
    yield "simulate/random_test.cpp", "exponential of seed 1", ", ".join(str(exponential(random)) for _ in range(3))
    random, jitter = Random(1), Jitter(1000000)
    yield "simulate/random_test.cpp", "jitter of seed 1", ", ".join(str(jitter.next(random)) for _ in range(4))
    for name, capture in (("raw64", raw64), ("raw_cf", raw_cf), ("delta32", delta32), ("packed_delta", packed)):
        json, payload = capture()
        data = b"TAGCAP1\n" + len(json).to_bytes(4, "little") + json + payload
        yield "run/simulated_files_test.cpp", f"{name}: bytes and hash", f"{len(data)}, {fnv1a(data):#018x}"


tests = Path(__file__).parent.parent
check = sys.argv[1:] == ["--check"]
missing = False
for test, name, numbers in derived():
    if check and numbers in (tests / test).read_text():
        continue
    print(f"{test}, {name}: {numbers}")
    missing = True
sys.exit(check and missing)
