#!/usr/bin/python3
"""Responses that end in noise: what is found of decays that are known, and what is not claimed.

usage: measure_response_test.py MEASURE_DIR
"""

import pathlib
import sys
import tempfile

import numpy as np
import soundfile

sys.path.insert(0, sys.argv[1])
from brisel_measure import analysis, render, report  # noqa: E402

RATE = 48000
rng = np.random.default_rng(1)


def measured(t60, noise_db, seconds, start=0.1):
    """The report of a mono file: decaying noise behind a pause, in noise so far below it."""
    sound = np.zeros(int((start + seconds) * RATE))
    time = np.arange(sound.size - int(start * RATE)) / RATE
    sound[-time.size :] = rng.standard_normal(time.size) * 10 ** (-3 * time / t60)
    sound[-time.size] = 3.0
    sound += rng.standard_normal(sound.size) * 10 ** (noise_db / 20)
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "room.wav"
        soundfile.write(path, 0.1 * sound, RATE, "FLOAT")
        return report.figures(render.load(path))


for t60 in (0.4, 1.0, 2.5):
    found = measured(t60, noise_db=-52, seconds=1.6 * t60)
    assert abs(found["onset_s"] - 0.1) < 0.001, found["onset_s"]
    assert abs(found["broadband"]["range_db"] - 52) < 2, found["broadband"]
    assert abs(found["noise_dbfs"] + 72) < 1, found["noise_dbfs"]
    rows = [found["broadband"]] + [band for band in found["bands"] if band["centre_hz"] >= 1000]
    for row in rows:  # the same without noise scatters by 1.5 %
        for key in ("t20_s", "t30_s"):
            assert abs(row[key] / t60 - 1) < 0.03, (t60, key, row)
    lost = 10 ** (-6 * 0.080 / t60)
    c80 = 10 * np.log10((1 - lost) / lost)
    assert abs(found["broadband"]["c80_db"] - c80) < 0.3, (found["broadband"], c80)

found = measured(1.0, noise_db=-40, seconds=2)
assert found["broadband"]["t30_s"] is None and abs(found["broadband"]["t20_s"] - 1) < 0.03, found
assert any("1 kHz: only" in text and "no T30" in text for text in found["warnings"]), found
try:
    measured(0.001, noise_db=-3, seconds=1)
    raise AssertionError("noise alone has a decay")
except ValueError as error:
    assert "no decay" in str(error), error

# With what would have come, the decay curve is straight to its end.
sound = rng.standard_normal(2 * RATE) * 10 ** (-3 * np.arange(2 * RATE) / RATE)
sound += rng.standard_normal(2 * RATE) * 10 ** (-50 / 20)
decay = analysis.find_decay(sound, RATE)
curve = analysis.decay_curve(sound, decay)
assert abs(curve[-1] + 60 * decay.end / RATE) < 2 and abs(decay.end / RATE - 50 / 60) < 0.04, decay

# A file that is cut off and goes on as silence promises no more than it holds.
sound = rng.standard_normal(3 * RATE) * 10 ** (-3 * np.arange(3 * RATE) / RATE / 2)
sound[int(1.7 * RATE) :] = 0  # after 51 dB
assert abs(report.decay_figures(sound, RATE, True)["t30_s"] / 2 - 1) < 0.03
sound[int(0.9 * RATE) :] = 0  # after 27 dB
assert np.isnan(report.decay_figures(sound, RATE, True)["t20_s"])

# A density that falls again counts from when it stays; times and until are seconds.
times = np.arange(0, 1, 0.01)
density = np.where((times > 0.1) & ~((times > 0.3) & (times < 0.4)), 1.0, 0.5)
assert np.isclose(analysis.stays_mixed(times, density, 1), 0.4)
assert np.isclose(analysis.stays_mixed(times, density, 0.25), analysis.mixing_time(times, density))
assert np.isnan(analysis.stays_mixed(times, density, 0.35))
