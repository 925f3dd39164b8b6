#!/usr/bin/python3
"""brisel_measure.analysis on synthetic responses with known answers.

usage: measure_test.py MEASURE_DIR
"""

import sys
import unittest

import numpy as np

sys.path.insert(0, sys.argv.pop(1))
from brisel_measure import analysis  # noqa: E402

RATE = 48000


def noise(seconds, seed):
    return np.random.default_rng(seed).standard_normal(int(seconds * RATE))


def decaying_noise(t60, seconds, seed):
    sound = noise(seconds, seed)
    return sound * 10 ** (-3 * np.arange(sound.size) / RATE / t60)


class Decay(unittest.TestCase):
    def test_exponential_noise_gives_its_t60_within_one_percent(self):
        for t60 in (0.3, 1.0, 2.5, 8.0):
            times = analysis.decay_times(decaying_noise(t60, 1.5 * t60, seed=1), RATE)
            for name in ("t20_s", "t30_s"):
                self.assertAlmostEqual(times[name] / t60, 1, delta=0.01, msg=f"{name} of {t60} s")

    def test_two_slopes_are_told_apart_by_edt_and_t30(self):
        # The quick slope rules the first 10 dB, the slow one, 25 dB weaker, what is below -30 dB.
        quick, slow = decaying_noise(0.2, 3, seed=2), decaying_noise(2, 3, seed=3)
        times = analysis.decay_times(quick + 10 ** (-35 / 20) * slow, RATE)
        self.assertAlmostEqual(times["edt_s"], 0.2, delta=0.02)
        curve = analysis.decay_curve(quick + 10 ** (-35 / 20) * slow)
        self.assertAlmostEqual(analysis.decay_time(curve, RATE, -35, -60), 2, delta=0.04)

    def test_each_octave_shows_its_own_decay(self):
        # Tones: a band-limited decay of a known time each, without noise's own scatter.
        t = np.arange(3 * RATE) / RATE
        times = {63: 1.8, 250: 1.2, 1000: 0.8, 4000: 0.4, 16000: 0.15}
        sound = sum(
            np.cos(2 * np.pi * centre * t) * 10 ** (-3 * t / t60) for centre, t60 in times.items()
        )
        for centre, t60 in times.items():
            measured = analysis.decay_times(analysis.octave_band(sound, centre, RATE), RATE)
            self.assertAlmostEqual(measured["t30_s"] / t60, 1, delta=0.01, msg=f"{centre} Hz")

    def test_a_short_decay_in_a_low_band_is_not_the_filters_own(self):
        spread = []
        for seed in range(40):
            band = analysis.octave_band(decaying_noise(0.3, 1, 100 + seed), 63, RATE)
            spread.append(analysis.decay_times(band, RATE)["t30_s"])
        self.assertAlmostEqual(np.median(spread), 0.3, delta=0.03)

    def test_a_curve_that_ends_too_early_gives_no_time(self):
        curve = -30 * np.arange(RATE) / RATE
        self.assertTrue(np.isnan(analysis.decay_time(curve, RATE, -5, -35)))
        self.assertAlmostEqual(analysis.decay_time(curve, RATE, -5, -25), 2, delta=1e-6)

    def test_the_set_decay_meets_its_ends_and_falls_between(self):
        frequency = np.array([0, 100, 1000, 5000, 24000])
        times = analysis.set_decay_time(frequency, RATE, 2.0, 0.5, 2400)
        self.assertAlmostEqual(times[0], 2.0)
        self.assertAlmostEqual(times[-1], 0.5)
        self.assertTrue((np.diff(times) < 0).all())
        self.assertTrue((analysis.set_decay_time(frequency, RATE, 2.0, 0, 2400) == 2).all())

    def test_an_octave_of_different_decays_shows_the_t30_that_is_expected_of_it(self):
        # Noise whose every frequency decays as set, made of many narrow bands.
        ends, loop = (1.0, 0.1), 2400
        t = np.arange(RATE) / RATE
        frequency = np.arange(250, 16000, 10.0)
        times = analysis.set_decay_time(frequency, RATE, *ends, loop)
        phases = np.random.default_rng(10).uniform(0, 2 * np.pi, frequency.size)
        sound = sum(
            np.cos(2 * np.pi * f * t + phase) * 10 ** (-3 * t / t60)
            for f, t60, phase in zip(frequency, times, phases)
        )
        for centre in (1000, 4000):
            band = analysis.octave_band(sound, centre, RATE)
            measured = analysis.decay_times(band, RATE)["t30_s"]
            expected = analysis.set_octave_t30(centre, RATE, *ends, loop)
            self.assertAlmostEqual(measured / expected, 1, delta=0.05, msg=f"{centre} Hz")


class EarlyAndLate(unittest.TestCase):
    def test_two_pulses_give_clarity_and_definition(self):
        pulses = np.zeros(RATE)
        pulses[0], pulses[int(0.06 * RATE)], pulses[int(0.2 * RATE)] = 1, 1, 0.5
        self.assertAlmostEqual(analysis.clarity(pulses, RATE), 10 * np.log10(2 / 0.25))
        self.assertAlmostEqual(analysis.definition(pulses, RATE), 100 / 2.25)

    def test_an_exponential_has_the_clarity_of_its_formula(self):
        t60 = 1.2
        lost = 10 ** (-6 * 0.080 / t60)  # the share of the energy that comes after 80 ms
        measured = analysis.clarity(10 ** (-3 * np.arange(3 * RATE) / RATE / t60), RATE)
        self.assertAlmostEqual(measured, 10 * np.log10((1 - lost) / lost), delta=0.01)

    def test_the_onset_is_the_first_sample_within_20_db_of_the_peak(self):
        response = np.zeros(1000)
        response[[100, 200, 300]] = 0.09, -0.11, 1
        self.assertEqual(analysis.onset(response), 200)
        with self.assertRaises(ValueError):
            analysis.onset(np.zeros(10))


class EchoDensity(unittest.TestCase):
    def test_noise_has_density_one_whatever_its_decay(self):
        _, density = analysis.echo_density(decaying_noise(1.0, 1, seed=4), RATE)
        self.assertAlmostEqual(density.mean(), 1, delta=0.03)
        self.assertLess(density.std(), 0.1)

    def test_sparse_echoes_have_the_density_of_their_count(self):
        # Equal echoes so rare that each exceeds the root mean square: the share of samples that are
        # echoes, over 0.3173.
        for per_second in (100, 1000, 4000):
            train = np.zeros(RATE)
            train[:: RATE // per_second] = 1
            _, density = analysis.echo_density(train, RATE)
            self.assertAlmostEqual(density.mean() * 0.3173 * RATE / per_second, 1, delta=0.02)

    def test_the_mixing_time_of_echoes_that_turn_to_noise_is_found(self):
        train = np.zeros(RATE)
        train[:: RATE // 200] = 1
        change = 0.4
        sound = noise(1, seed=5)
        sound[: int(change * RATE)] = train[: int(change * RATE)]
        measured = analysis.mixing_time(*analysis.echo_density(sound, RATE))
        self.assertAlmostEqual(measured, change, delta=analysis.ECHO_WINDOW / 2)
        self.assertTrue(np.isnan(analysis.mixing_time(*analysis.echo_density(train, RATE))))


class Spectrum(unittest.TestCase):
    def test_noise_is_as_flat_as_noise_and_resonances_are_not(self):
        sound = noise(2, seed=6)
        self.assertAlmostEqual(
            analysis.spectral_flatness(sound, RATE), analysis.NOISE_FLATNESS, delta=0.01
        )
        comb = sound.copy()
        comb[480:] += 0.99 * sound[:-480]
        self.assertLess(analysis.spectral_flatness(comb, RATE), 0.4)

    def test_smoothing_keeps_a_flat_spectrum_and_the_power_of_a_line(self):
        pulse = np.zeros(RATE)
        pulse[0] = 1
        _, _, average = analysis.smoothed_spectrum(pulse, RATE)
        self.assertTrue(np.allclose(average, 1))
        tone = np.sin(2 * np.pi * 1000 * np.arange(RATE) / RATE)
        frequency, power, average = analysis.smoothed_spectrum(tone, RATE)
        bins = 1000 * (2 ** (1 / 6) - 2 ** (-1 / 6))
        self.assertAlmostEqual(average[1000] * bins / power[1000], 1, delta=0.01)


class Correlation(unittest.TestCase):
    def test_mixtures_have_the_correlation_of_their_gains(self):
        a, b = noise(5, seed=7), noise(5, seed=8)
        for gain in (0.0, 0.3, 0.9):
            other = gain * a + np.sqrt(1 - gain * gain) * b
            curve = analysis.cross_correlation(a, other, RATE)
            self.assertAlmostEqual(curve[len(curve) // 2], gain, delta=0.01)

    def test_a_delay_within_one_millisecond_counts_and_a_longer_one_does_not(self):
        sound = noise(1, seed=9)
        self.assertAlmostEqual(analysis.iacc(sound[40:], sound[:-40], RATE), 1, delta=0.01)
        self.assertLess(analysis.iacc(sound[60:], sound[:-60], RATE), 0.1)
        times, at_zero, largest = analysis.correlation_over_time(sound, -sound, RATE)
        self.assertAlmostEqual(times[0], 0.025)
        self.assertTrue(np.allclose(at_zero, -1) and np.allclose(largest, 1))


if __name__ == "__main__":
    unittest.main()
