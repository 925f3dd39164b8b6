"""From an impulse response to figures: pure functions on numpy arrays, without files or pictures.

Responses are float arrays of one channel or with a column for each; the energies of several
channels add up. They are free of noise, but for `find_decay`, which tells a decay from the noise
that it falls into. Times are in seconds, frequencies in Hz, levels in dB.

Sources
  ISO 3382-1:2009, Acoustics: Measurement of room acoustic parameters, part 1: decay, clarity,
      definition, onset, interaural cross-correlation.
  M. R. Schroeder, New method of measuring reverberation time, JASA 37, 1965: backward integration.
  F. Jacobsen, J. H. Rindel, Time reversed decay measurements, J. Sound Vib. 117, 1987.
  A. Lundeby, T. E. Vigran, H. Bietz, M. Vorlaender, Uncertainties of measurements in room
      acoustics, Acustica 81, 1995: where a decay meets the noise.
  C. C. J. M. Hak, R. H. C. Wenmaekers, L. C. J. van Luxemburg, Measuring room impulse responses:
      impact of the decay range on derived room acoustic parameters, Acta Acustica 98, 2012.
  M. Guski, M. Vorlaender, Comparison of noise compensation methods for room acoustic impulse
      response evaluations, Acta Acustica 100, 2014.
  J. S. Abel, P. Huang, A simple, robust measure of reverberation echo density, AES Convention 121,
      2006.
"""

import dataclasses

import numpy as np
from scipy import signal, special

OCTAVES = (63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000)  # nominal centres, Hz

ECHO_WINDOW = 0.020  # seconds, the window of Abel and Huang
# At 48 kHz the density of Gaussian noise scatters around 1 with a standard deviation of 0.04; a
# response counts as mixed once its density comes as near to 1 as that of noise always is.
MIXED = 0.9
# And it stays mixed from when its density no longer falls below this: five standard deviations of
# noise, which 0.9 is not far enough for. Looked for while the first 30 dB decay: later, damping
# leaves so narrow a band that its density scatters more than that of noise.
STAYS_MIXED = 0.8
STAYS_UNTIL = -30  # dB of the decay curve

# The range between the loudest moment and the noise, in dB, that a decay time needs: 10 dB more
# than the levels that it is fitted to (ISO 3382-1; Hak et al.).
RANGE_NEEDED = {"edt_s": 20, "t20_s": 35, "t30_s": 45}

# EDT over T30 beyond which, or beyond whose inverse, a decay is not called straight.
STRAIGHT = 1.25

# The spectral flatness of Gaussian noise: the power of one line of its spectrum is exponentially
# distributed, whose geometric mean is exp(-0.5772...) of the mean.
NOISE_FLATNESS = float(np.exp(-np.euler_gamma))


def decibels(power):
    """10 log10, with silence at -300 dB."""
    return 10 * np.log10(np.maximum(power, 1e-30))


def hertz(frequency):
    """A frequency as people write it: 500 Hz, 2 kHz."""
    return f"{frequency:g} Hz" if frequency < 1000 else f"{frequency / 1000:g} kHz"


def octave_centres(rate):
    """The octave bands that lie wholly below half the sample rate."""
    return [centre for centre in OCTAVES if centre * np.sqrt(2) < rate / 2]


def energy(response):
    """The energy of each frame, channels added up, in double precision."""
    return np.square(response, dtype=float).reshape(len(response), -1).sum(axis=1)


def onset(response):
    """Index of the onset: the first frame within 20 dB of the loudest (ISO 3382-1)."""
    level = energy(response)
    peak = level.max(initial=0)
    if peak == 0:
        raise ValueError("the response is silent")
    return int(np.argmax(level >= 0.01 * peak))


def octave_filter(centre, rate):
    """The Butterworth band-pass of one octave, 24 dB an octave, as second-order sections."""
    edges = (centre / np.sqrt(2), centre * np.sqrt(2))
    return signal.butter(4, edges, btype="bandpass", fs=rate, output="sos")


def octave_band(response, centre, rate):
    """The response within one octave.

    The filter runs backwards in time, so that its own decay precedes the sound instead of
    lengthening it (Jacobsen and Rindel): without that, T30 of a short decay in a low band would be
    the filter's own.
    """
    return signal.sosfilt(octave_filter(centre, rate), response[::-1], axis=0)[::-1]


def decay_curve(response, decay=None):
    """The energy still to come at each sample, in dB below the whole (Schroeder integration).

    With a `Decay`, up to where it ends, less the noise and with what would have come beyond.
    """
    level = energy(response) if decay is None else energy(response[: decay.end]) - decay.noise
    remaining = np.cumsum(level[::-1])[::-1] + (0 if decay is None else decay.beyond)
    if remaining.size == 0 or remaining[0] <= 0:
        raise ValueError("the response is silent")
    with np.errstate(divide="ignore"):
        return 10 * np.log10(np.maximum(remaining, 0) / remaining[0])


@dataclasses.dataclass
class Decay:
    """How a response falls into noise; see `find_decay`."""

    end: int  # where the decay meets the noise, in samples
    beyond: float = 0.0  # energy that it would have had from there on
    noise: float = 0.0  # energy of a frame of it
    range_db: float = np.inf  # between the loudest moment and the noise


def find_decay(response, rate):
    """Where a decay meets the noise (Lundeby et al.), of a response that begins at its onset.

    The level is averaged over intervals, a line fitted to its decay and brought to an intersection
    with the level of the noise, which is taken from what follows it; intervals and fit follow from
    the line found before, for five times at most. What the decay would have held beyond is that of
    an exponential with the slope of the line (ISO 3382-1). None if there is no decay above the
    noise.
    """
    level = energy(response)
    # Silence at the end is none of the room's: what is before it tells of the noise, or is cut off.
    level = level[: np.flatnonzero(level)[-1] + 1] if level.any() else level[:0]
    if len(level) < rate // 20:
        return None

    def averages(size):
        count = len(level) // size
        return decibels(level[: count * size].reshape(count, size).mean(axis=1))

    def line(size, first, last):  # level in dB at sample 0, and dB a sample
        at = (np.arange(first, last) + 0.5) * size
        slope, start = np.polyfit(at, averages(size)[first:last], 1)
        return start, slope

    size = max(1, min(int(0.020 * rate), len(level) // 50))
    noise = decibels(level[-len(level) // 10 :].mean())
    shown = averages(size)
    peak = int(np.argmax(shown))
    loudest = shown[peak]
    last = peak + int(np.argmax(shown[peak:] < noise + 8))
    if last - peak < 3:
        return None
    start, slope = line(size, peak, last)
    cross = 0
    for _ in range(5):
        if slope >= 0:
            return None
        before, cross = cross, (noise - start) / slope
        size = max(1, int(-10 / slope / 6))  # six intervals for 10 dB
        quiet = min(int(cross - 8 / slope), int(0.9 * len(level)))
        noise = decibels(level[quiet:].mean())
        shown = averages(size)
        peak = int(np.argmax(shown))
        last = peak + int(np.argmax(shown[peak:] < noise + 8))
        first = max(peak, last - 12)  # 20 dB
        if last - first < 3:
            break
        start, slope = line(size, first, last)
        if abs(cross - before) < size / 2:
            break
    end = int(np.clip((noise - start) / slope, 1, len(level)))
    # The integral of the exponential from the intersection on.
    beyond = 10 ** ((start + slope * end) / 10) * 10 / (-slope * np.log(10))
    return Decay(end, float(beyond), float(10 ** (noise / 10)), float(loudest - noise))


def decay_time(curve, rate, upper, lower):
    """The time of a fall by 60 dB, from a line fitted to the curve between two levels in dB.

    ISO 3382-1: EDT 0 to -10, T20 -5 to -25, T30 -5 to -35. NaN if the curve does not pass both
    levels.
    """
    if not curve[-1] < lower:
        return np.nan
    first = int(np.argmax(curve <= upper))
    last = int(np.argmax(curve < lower))
    if last - first < 2:
        return np.nan
    slope = np.polyfit(np.arange(last - first) / rate, curve[first:last], 1)[0]
    return float(-60 / slope)


def decay_times(response, rate, decay=None):
    """EDT, T20 and T30 of a response that begins at its onset; NaN where the range is too small."""
    curve = decay_curve(response, decay)
    levels = {"edt_s": (0, -10), "t20_s": (-5, -25), "t30_s": (-5, -35)}
    return {
        name: decay_time(curve, rate, *pair)
        if decay is None or decay.range_db >= RANGE_NEEDED[name]
        else np.nan
        for name, pair in levels.items()
    }


def set_decay_time(frequency, rate, low, high, loop):
    """The decay time that a loop of the given length in samples is set to, at a frequency.

    `low` and `high` are the decay times at 0 Hz and at half the sample rate; a `high` of 0 means
    one decay time for all frequencies. Between them lies the response of the loop's one-pole filter
    b0 / (1 - a1 / z), whose gains at both ends follow from the decay times.
    """
    if high == 0:
        return np.full_like(np.asarray(frequency, float), low)
    gain_low, gain_high = (10 ** (-3 * loop / (rate * time)) for time in (low, high))
    ratio = gain_low / gain_high
    b0, a1 = 2 * gain_low / (ratio + 1), (ratio - 1) / (ratio + 1)
    turn = np.exp(-2j * np.pi * np.asarray(frequency, float) / rate)
    return -3 * loop / (rate * np.log10(np.abs(b0 / (1 - a1 * turn))))


def set_octave_t30(centre, rate, low, high, loop):
    """The T30 that an octave shows whose frequencies start equally loud and each decay as set.

    Where the decay time changes within the octave, what decays slowest outlasts the rest: this is
    more than the decay time at the centre. Arguments as for `set_decay_time`.
    """
    frequency = np.linspace(centre / 4, min(centre * 4, rate / 2), 600)[:-1]
    weight = np.abs(signal.sosfreqz(octave_filter(centre, rate), frequency, fs=rate)[1]) ** 2
    times = set_decay_time(frequency, rate, low, high, loop)
    steps = 1000 / times.max()  # a second; the curve is followed over the longest decay time
    curve = np.exp(-6 * np.log(10) * np.arange(1000)[:, None] / (steps * times)) @ (weight * times)
    return decay_time(10 * np.log10(curve / curve[0]), steps, -5, -35)


def early_and_late(response, rate, limit, decay=None):
    """The energy up to a time and that from there on; as `decay_curve` takes a `Decay`."""
    level = energy(response) if decay is None else energy(response[: decay.end]) - decay.noise
    split = int(round(limit * rate))
    return level[:split].sum(), level[split:].sum() + (0 if decay is None else decay.beyond)


def clarity(response, rate, decay=None):
    """C80: early over late energy in dB, of a response that begins at its onset (ISO 3382-1)."""
    early, late = early_and_late(response, rate, 0.080, decay)
    with np.errstate(divide="ignore"):
        return float(10 * np.log10(early / late)) if late > 0 else np.inf


def definition(response, rate, decay=None):
    """D50: the share of the energy, in percent, that arrives early (ISO 3382-1)."""
    early, late = early_and_late(response, rate, 0.050, decay)
    return float(100 * early / (early + late))


def echo_density(response, rate, window=ECHO_WINDOW, hop=16):
    """Times, every `hop` samples, and the normalised echo density of one channel (Abel and Huang).

    The weighted share of samples, in a Hann window centred on the time, whose magnitude exceeds the
    weighted root mean square in that window, divided by the share expected of Gaussian noise,
    erfc(1 / sqrt 2) = 0.3173. Near 0 for single echoes, 1 for a response as dense as noise. NaN
    where the window holds only silence; the first time is that of the first whole window.
    """
    half = int(round(window * rate / 2))
    weight = signal.windows.hann(2 * half + 1)
    weight /= weight.sum()
    response = np.asarray(response, float)
    if response.size < weight.size:
        return np.empty(0), np.empty(0)
    rows = np.lib.stride_tricks.sliding_window_view(response, weight.size)[::hop]
    density = np.empty(len(rows))
    for start in range(0, len(rows), 1024):  # bounds the memory that the comparison takes
        part = rows[start : start + 1024]
        deviation = np.sqrt(np.square(part) @ weight)
        share = (np.abs(part) > deviation[:, None]) @ weight
        share[deviation == 0] = np.nan
        density[start : start + len(part)] = share
    return (half + hop * np.arange(len(rows))) / rate, density / special.erfc(1 / np.sqrt(2))


def mixing_time(times, density, threshold=MIXED):
    """The first time at which the echo density reaches the threshold; NaN if it never does."""
    reached = np.nan_to_num(density) >= threshold
    return float(times[np.argmax(reached)]) if reached.any() else np.nan


def stays_mixed(times, density, until):
    """The time from which a density that has touched MIXED no longer falls below STAYS_MIXED.

    It may fall between the first and the second trip of an echo through a network, for example.
    Looked at until a time; NaN if it never touches or does not stay.
    """
    first = mixing_time(times, density)
    seen = (times >= first) & (times < until)
    low = np.flatnonzero(np.nan_to_num(density[seen]) < STAYS_MIXED)
    if low.size == 0:
        return first if seen.any() else np.nan
    if low[-1] + 1 == np.count_nonzero(seen):
        return np.nan
    return float(times[seen][low[-1] + 1])


def smoothed_spectrum(response, rate, fraction=3):
    """Frequencies, the power in each bin of the transform, its average over 1/fraction octave."""
    power = energy(np.abs(np.fft.rfft(response, axis=0)))
    total = np.concatenate(([0], np.cumsum(power)))
    frequency = np.fft.rfftfreq(len(response), 1 / rate)
    half = 2 ** (0.5 / fraction)
    low = np.searchsorted(frequency, frequency / half, side="left")
    high = np.searchsorted(frequency, frequency * half, side="right")
    return frequency, power, (total[high] - total[low]) / (high - low)


def spectral_flatness(response, rate, low=100, high=10000):
    """Geometric over arithmetic mean of the power spectrum, within third octaves.

    The spectrum is divided by its third-octave average first, so that damping and EQ do not count,
    only how much single resonances stand out: exp(-0.577) = 0.56 for noise, less for a metallic
    sound. Of one channel: the sum of two is flatter by itself.
    """
    frequency, power, average = smoothed_spectrum(response, rate)
    chosen = (frequency >= low) & (frequency <= min(high, 0.45 * rate)) & (power > 0)
    relative = power[chosen] / average[chosen]
    return float(np.exp(np.mean(np.log(relative))) / np.mean(relative))


def cross_correlation(left, right, rate, reach=0.001):
    """The normalised cross-correlation of two channels at all lags up to 1 ms; NaN for silence."""
    lags = int(round(reach * rate))
    norm = np.sqrt(np.sum(np.square(left, dtype=float)) * np.sum(np.square(right, dtype=float)))
    if norm == 0:
        return np.full(2 * lags + 1, np.nan)
    full = signal.correlate(left, right, mode="full", method="fft")
    centre = len(right) - 1
    full = np.pad(full, lags)
    return full[centre : centre + 2 * lags + 1] / norm


def iacc(left, right, rate):
    """The largest magnitude of the cross-correlation within 1 ms (ISO 3382-1, annex B)."""
    return float(np.max(np.abs(cross_correlation(left, right, rate))))


def correlation_over_time(left, right, rate, window=0.050, hop=0.010):
    """Times, correlation at lag 0, and IACC, in windows centred on the times."""
    size, step = int(round(window * rate)), int(round(hop * rate))
    times, at_zero, largest = [], [], []
    for start in range(0, len(left) - size + 1, step):
        curve = cross_correlation(left[start : start + size], right[start : start + size], rate)
        times.append((start + size / 2) / rate)
        at_zero.append(curve[len(curve) // 2])
        largest.append(np.max(np.abs(curve)))
    return np.array(times), np.array(at_zero), np.array(largest)
