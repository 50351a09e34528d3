#!/usr/bin/env python3
"""Works out the expected reports in this folder from the report formats, with unbounded integers and exact fractions.

It shares nothing with the tool: every pair of events is compared with every other, sums are fractions, the square root
is taken with 60 digits. Paths and the age of the input are left as @INPUT@, @PREFIX@ and @AGE@; the tests fill them in.

    python3 derive.py          rewrites the files beside it
    python3 derive.py --check  names those that differ; status 1 when any does
"""
import sys
from decimal import Decimal, getcontext
from fractions import Fraction
from pathlib import Path

getcontext().prec = 60
CHECK = sys.argv[1:] == ['--check']
different = []


def rounded_bin(difference, width):
    """The nearest multiple of the width, as a count of widths; halves (of the halved integer width) go outwards."""
    magnitude = (abs(difference) + width // 2) // width
    return magnitude if difference >= 0 else -magnitude


def histogram(a, b, reach, width, offset):
    bins = -(-2 * reach // width)
    bins += 1 - bins % 2
    centres = [width * (i - bins // 2) for i in range(bins)]
    counts = [0] * bins
    for x in a:
        for y in b:
            difference = y - x - offset
            index = rounded_bin(difference, width) + bins // 2
            if abs(difference) <= reach and 0 <= index < bins:
                counts[index] += 1
    return centres, counts


def moments(centres, counts):
    total = sum(counts)
    if total == 0:
        return 0.0, 0.0
    mean = float(Fraction(sum(n * x for n, x in zip(counts, centres)), total))
    variance = sum(n * (x - Fraction(mean)) ** 2 for n, x in zip(counts, centres)) / total
    return mean, float((Decimal(variance.numerator) / Decimal(variance.denominator)).sqrt())


def estimated_offset(a, b):
    def nearest(x):
        return min((y - x for y in b), key=lambda d: (abs(d), -d))
    a = sorted(a)
    step = max(1, len(a) // 4000)
    sample = sorted(nearest(x) for x in a[::step][:4000])
    return sample[len(sample) // 2] if sample and b else 0


def svg(centres, counts, channels, offset, rms):
    peak = max(counts)
    peak_centre = centres[counts.index(peak)]
    first, span = centres[0], centres[-1] - centres[0]
    top = max(peak, 1)

    def x_of(t):
        return 70 + int((t - first) / float(span) * 810.0 + 0.5) if span else 70

    def height(n):
        return int(n / float(top) * 270.0 + 0.5)

    a, b = channels
    lines = [
        '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 900 360" font-family="sans-serif" font-size="11">',
        '<rect width="900" height="360" fill="white"/>',
        f'<text x="450" y="22" text-anchor="middle" font-size="14">xcorr ch{a} vs ch{b}  offset {offset} ps, '
        f'peak {peak}, RMS {int(rms + 0.5)} ps</text>',
        '<line x1="70" y1="310" x2="880" y2="310" stroke="black"/>',
        '<line x1="70" y1="40" x2="70" y2="310" stroke="black"/>',
    ]
    for k in range(5):
        t = first + k * span // 4
        lines += [f'<line x1="{x_of(t)}" y1="310" x2="{x_of(t)}" y2="314" stroke="black"/>',
                  f'<text x="{x_of(t)}" y="328" text-anchor="middle">{t}</text>']
    lines += [f'<text x="475" y="352" text-anchor="middle">delta t (ps, ch{b} - ch{a}, offset removed)</text>']
    for k in range(5):
        v = k * top // 4
        lines += [f'<line x1="66" y1="{310 - height(v)}" x2="70" y2="{310 - height(v)}" stroke="black"/>',
                  f'<text x="62" y="{314 - height(v)}" text-anchor="end">{v}</text>']
    lines += ['<text x="15" y="175" text-anchor="middle" transform="rotate(-90 15 175)">counts</text>']
    width = max(810 // len(counts) - 1, 1)
    for centre, n in zip(centres, counts):
        if height(n) > 0:
            lines += [f'<rect x="{x_of(centre) - width // 2}" y="{310 - height(n)}" width="{width}" '
                      f'height="{height(n)}" fill="steelblue"/>']
    at = x_of(peak_centre)
    lines += [f'<line x1="{at}" y1="40" x2="{at}" y2="310" stroke="crimson" stroke-dasharray="4,3"/>', '</svg>']
    return lines


def json(header, tags, channels, reach, width, offset, centres, counts):
    mean, rms = moments(centres, counts)
    peak = max(counts)
    return [
        '{',
        '  "source_file":"@INPUT@",',
        f'  "stream_format":"{header[0]}",',
        f'  "mode":"{header[1]}",',
        f'  "transport":"{header[2]}",',
        '  "packed_delta_bits":16,',
        '  "packed_delta_quantum_ps":8,',
        f'  "decoded_tags":{sum(map(len, tags))},',
        '  "channel_counts":{' + ','.join(f'"ch{c}":{len(tags[c])}' for c in range(4)) + '},',
        '  "xcorr":{',
        f'    "channel_a":{channels[0]},',
        f'    "channel_b":{channels[1]},',
        f'    "range_ps":{reach},',
        f'    "bin_ps":{width},',
        f'    "offset_ps":{offset},',
        f'    "total_coincidences":{sum(counts)},',
        f'    "peak_count":{peak},',
        f'    "peak_ps":{centres[counts.index(peak)]},',
        '    "moment_fit":{',
        f'      "mean_ps":{mean:.3f},',
        f'      "sigma_ps":{rms:.3f},',
        f'      "fwhm_ps":{rms * 2.354820045:.3f}',
        '    }',
        '  }',
        '}',
    ]


def summary(tags, channels, centres, counts):
    peak = max(counts)
    return [
        'Orvo timing stream-file cross-correlation verification',
        'mode=offline_existing_file',
        'input=@INPUT@',
        'input_age_seconds=@AGE@',
        'csv=@PREFIX@.csv',
        'json=@PREFIX@.json',
        'svg=@PREFIX@.svg',
        f'decoded_tags={sum(map(len, tags))}',
        f'ch{channels[0]}={len(tags[channels[0]])}',
        f'ch{channels[1]}={len(tags[channels[1]])}',
        f'coincidences={sum(counts)}',
        f'peak_count={peak}',
        f'peak_ps={centres[counts.index(peak)]}',
        f'rms_ps={moments(centres, counts)[1]:.1f}',
    ]


def reports(name, tags, channels=(0, 1), reach=5000, width=8, offset=None, header=('raw64', 'external', 'usb')):
    a, b = tags[channels[0]], tags[channels[1]]
    if offset is None:
        offset = estimated_offset(a, b)
    centres, counts = histogram(a, b, reach, width, offset)
    files = {
        '.csv': ['bin_center_ps,count'] + [f'{x},{n}' for x, n in zip(centres, counts)],
        '.json': json(header, tags, channels, reach, width, offset, centres, counts),
        '.svg': svg(centres, counts, channels, offset, moments(centres, counts)[1]),
        '.summary.txt': summary(tags, channels, centres, counts),
    }
    for suffix, lines in files.items():
        path = Path(__file__).parent / (name + suffix)
        content = ('\n'.join(lines) + '\n').encode()
        if not CHECK:
            path.write_bytes(content)
        elif not path.is_file() or path.read_bytes() != content:
            different.append(path.name)


# The generated capture: channel 1 follows channel 0 by 160 ps, every 20 ns.
periodic = range(10_000, 40_010_000, 20_000)
reports('synthetic', [list(periodic), [t + 160 for t in periodic], [], []])

# Fourteen events on channel 2, each with a partner on channel 0 about 1200 ps earlier; the last partner is one
# picosecond too far away. Channels 1 and 3 are counted but not analysed.
spread = [-500, -37, -5, 5, -4, 4, 0, 3, 15, 16, 20, 24, 500, 501]
clicks = [1_000_000 * (i + 1) for i in range(len(spread))]
pairs = [[t - 1200 + d for t, d in zip(clicks, spread)], [7], clicks, [8, 9]]
reports('pairs', pairs, channels=(2, 0), reach=500, width=10, offset=-1200)

# No event at all; three bins.
reports('no_tags', [[], [], [], []], reach=100, width=100)

# Ten pairs and a bin wider than the whole window: one bin, no span to draw over. The header words are not the defaults.
ten = list(range(1000, 11_000, 1000))
reports('one_bin', [ten, [t + 52 for t in ten], [], []], reach=4, width=8, offset=50, header=('raw64', 'internal', 'usb_async'))

# Bins of 10^17 ps, and an offset that moves the only pair three bins down.
reports('vast', [[1000], [1160], [], []], reach=10**18, width=10**17, offset=3 * 10**17)

if different:
    sys.exit('not as derived: ' + ', '.join(different))
