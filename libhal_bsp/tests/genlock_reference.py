#!/usr/bin/env python3
"""The genlock controller a second time, written from its description alone, against the library.

Usage: genlock_reference.py GENLOCK_CASES [COUNT [SEED]]

GENLOCK_CASES is the program that sends random records through the library. Every clock, state and
error that a step leaves, and what switching on makes of the raster, has to be the same bit for
bit. A million records:

    libhal_bsp/tests/genlock_reference.py build/release/libhal_bsp/tests/genlock_cases 1000000
"""
import math
import struct
import subprocess
import sys

WORD = 1 << 64
LAYOUT = struct.Struct("<Q6d" + "ddIIII" * 2 + "ddIii3H6x")
SECOND = 100_000_000_000  # of a rate in 1/100 Hz, in nanoseconds


def switch_on(rate, width, height):
    """Result, clock, range, largest step."""
    if 0 in (rate, width, height):
        return -1, 0, 0.0, 0.0
    clock = rate * (width * height % (1 << 32)) // 100 % (1 << 32)
    return 0, clock, clock * 0.0006, clock * 0.0001


def phase(stamp, rate):
    """Signed size and sign of the error, or nothing."""
    period = SECOND // rate
    edge = (stamp - stamp * rate % WORD % SECOND // rate) % WORD
    if edge >= stamp:
        return (edge - stamp, -1) if edge - stamp <= period >> 1 else None
    late = stamp - edge
    if late > period // 2 + period:
        return None
    if late >= period:
        return late - period, 1
    return (period - late, -1) if late >= period // 2 else (late, 1)


def as_word(value, otherwise):
    if math.isnan(value):
        return otherwise
    return int(min(max(value, 0.0), 4294967295.0))


def step(stamp, tuning, state, rate, width, height):
    """Result and new state; a state is sum, previous error, next clock, clock, state, first."""
    kp, ki, kd, center, reach, largest = tuning
    total, previous, following, clock, now, first = state
    if now in (0, 4):
        return 0, state
    if 0 in (rate, width, height):
        return -1, state
    error = phase(stamp, rate)
    if error is None:
        return -1, state
    size = float(error[0])
    now = 3 if size < 20000 else 2
    if size < 4500:
        return 0, (total, previous, following, clock, now, first)
    x = (size - 4500) * error[1]
    if first == 1:
        previous, first = x, 0
    total += x
    answer = kp * x + ki * total + kd * (x - previous)
    change = clock / 1e9 * answer * float(clock // width // height)
    if change > largest:
        change = largest
    elif largest + change < 0:
        change = -largest
    wanted = clock + change
    if wanted > center + reach:
        wanted = center + reach
    elif wanted < center - reach:
        wanted = center - reach
    return 0, (total, x, as_word(wanted, following), following, now, first)


def same(one, other):
    return all(a == b or (a != a and b != b) for a, b in zip(one, other))


def differences(data, shown):
    count = 0
    for case in LAYOUT.iter_unpack(data):
        stamp, tuning, before, after = case[0], case[1:7], case[7:13], case[13:19]
        width_of, step_of, clock, switched, result = case[19:24]
        raster = case[24:27]
        expected, state = step(stamp, tuning, before, *raster)
        if not (expected == result and same(state, after)
                and switch_on(*raster) == (switched, clock, width_of, step_of)):
            count += 1
            if count + shown <= 3:
                print("differs:", case, "expected", expected, state, switch_on(*raster))
    return count


def main():
    program, count, seed = (sys.argv[1:] + ["50000", "1"][len(sys.argv) - 2:])[:3]
    chunk = LAYOUT.size * 10000
    seen = wrong = 0
    with subprocess.Popen([program, count, seed], stdout=subprocess.PIPE) as cases:
        while data := cases.stdout.read(chunk):
            seen += len(data) // LAYOUT.size
            wrong += differences(data, wrong)
    print(f"{seen} records, {wrong} differences")
    return 0 if wrong == 0 and seen == int(count) and cases.returncode == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
