#!/usr/bin/python3
"""brisel_measure.analysis on synthetic responses with known answers, and one report of a setting.

usage: measure_test.py MEASURE_DIR RENDERER
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy as np

RENDERER = sys.argv.pop()
MEASURE = pathlib.Path(sys.argv.pop())
sys.dont_write_bytecode = True
sys.path.insert(0, str(MEASURE))
from brisel_measure import analysis  # noqa: E402

RATE = 48000
TIME = np.arange(3 * RATE) / RATE


def noise(seconds, seed):
    return np.random.default_rng(seed).standard_normal(int(seconds * RATE))


def decaying_noise(t60, seconds, seed):
    sound = noise(seconds, seed)
    return sound * 10 ** (-3 * np.arange(sound.size) / RATE / t60)


class Decay(unittest.TestCase):
    def test_exponential_noise_gives_its_t60_within_one_percent(self):
        for t60 in (0.3, 8.0):
            times = analysis.decay_times(decaying_noise(t60, 1.5 * t60, seed=1), RATE)
            for name in ("t20_s", "t30_s"):
                self.assertAlmostEqual(times[name] / t60, 1, delta=0.01, msg=f"{name} of {t60} s")

    def test_two_slopes_are_told_apart_by_edt_t20_and_t30(self):
        # The quick slope rules the first 10 dB, the slow one, 25 dB weaker, what is below -30 dB.
        sound = decaying_noise(0.2, 3, 2) + 10 ** (-35 / 20) * decaying_noise(2, 3, 3)
        times = analysis.decay_times(sound, RATE)
        self.assertAlmostEqual(times["edt_s"], 0.2, delta=0.02)
        self.assertGreater(times["t30_s"], 1.2 * times["t20_s"])
        slow = analysis.decay_time(analysis.decay_curve(sound), RATE, -35, -60)
        self.assertAlmostEqual(slow, 2, delta=0.04)

    def test_each_octave_shows_its_own_decay(self):
        # Tones: a band-limited decay of a known time each, without noise's own scatter.
        times = {63: 0.3, 250: 1.2, 1000: 0.8, 4000: 0.4, 16000: 0.15}
        sound = sum(np.cos(2 * np.pi * f * TIME) * 10 ** (-3 * TIME / t) for f, t in times.items())
        for centre, t60 in times.items():
            measured = analysis.decay_times(analysis.octave_band(sound, centre, RATE), RATE)
            self.assertAlmostEqual(measured["t30_s"] / t60, 1, delta=0.02, msg=f"{centre} Hz")


class Response(unittest.TestCase):
    def test_two_pulses_give_clarity_definition_and_onset(self):
        pulses = np.zeros(RATE)
        pulses[0], pulses[int(0.06 * RATE)], pulses[int(0.2 * RATE)] = 1, 1, 0.5
        self.assertAlmostEqual(analysis.clarity(pulses, RATE), 10 * np.log10(2 / 0.25))
        self.assertAlmostEqual(analysis.definition(pulses, RATE), 100 / 2.25)
        response = np.zeros(1000)
        response[[100, 200, 300]] = 0.09, -0.11, 1  # the first within 20 dB of the peak counts
        self.assertEqual(analysis.onset(response), 200)
        self.assertRaises(ValueError, analysis.onset, np.zeros(10))

    def test_noise_has_echo_density_one_and_sparse_echoes_that_of_their_count(self):
        _, density = analysis.echo_density(decaying_noise(1.0, 1, seed=4), RATE)
        self.assertAlmostEqual(density.mean(), 1, delta=0.03)
        # Equal echoes so rare that each exceeds the root mean square: the share of samples that are
        # echoes, over 0.3173.
        train = np.zeros(RATE)
        train[::48] = 1
        times, density = analysis.echo_density(train, RATE)
        self.assertAlmostEqual(density.mean() * 0.3173 * 48, 1, delta=0.02)
        self.assertTrue(np.isnan(analysis.mixing_time(times, density)))
        train[int(0.4 * RATE) :] = noise(1, seed=5)[int(0.4 * RATE) :]
        measured = analysis.mixing_time(*analysis.echo_density(train, RATE))
        self.assertAlmostEqual(measured, 0.4, delta=analysis.ECHO_WINDOW / 2)

    def test_noise_is_as_flat_as_noise_and_resonances_are_not(self):
        sound = noise(2, seed=6)
        flatness = analysis.spectral_flatness(sound, RATE)
        self.assertAlmostEqual(flatness, np.exp(-0.5772), delta=0.01)
        comb = sound.copy()
        comb[480:] += 0.99 * sound[:-480]
        self.assertLess(analysis.spectral_flatness(comb, RATE), 0.4)

    def test_mixtures_have_the_correlation_of_their_gains_within_one_millisecond(self):
        a, b = noise(5, seed=7), noise(5, seed=8)
        for gain in (0.0, 0.9):
            curve = analysis.cross_correlation(a, gain * a + np.sqrt(1 - gain**2) * b, RATE)
            self.assertAlmostEqual(curve[len(curve) // 2], gain, delta=0.01)
        self.assertAlmostEqual(analysis.iacc(a[40:], a[:-40], RATE), 1, delta=0.01)
        self.assertLess(analysis.iacc(a[60:], a[:-60], RATE), 0.1)


@unittest.skipUnless(pathlib.Path(RENDERER).is_file(), "there is no renderer")
class Report(unittest.TestCase):
    def test_a_report_holds_what_was_set(self):
        with tempfile.TemporaryDirectory() as folder:
            program = [MEASURE / "brisel-measure", "-o", folder + "/a report", "--no-pictures"]
            settings = ["--renderer", RENDERER, "--size", "20ms", "--decay", "0.6", "--damp", "0.5"]
            subprocess.run(program + settings, check=True, stdout=subprocess.DEVNULL)
            report = json.loads(pathlib.Path(folder, "a report/report.json").read_text())
            self.assertEqual((report["settings"]["size_s"], report["settings"]["mix"]), (0.02, 1))
            self.assertAlmostEqual(report["onset_s"], 0.02, delta=0.001)
            for band in report["bands"][3:]:  # below, one short response scatters too much
                self.assertAlmostEqual(band["t30_s"] / band["set_t30_s"], 1, delta=0.05)
            wrong = subprocess.run(program + ["--decay", "99"], capture_output=True, text=True)
            self.assertEqual(wrong.returncode, 2)
            self.assertIn("--decay", wrong.stderr)


if __name__ == "__main__":
    unittest.main()
