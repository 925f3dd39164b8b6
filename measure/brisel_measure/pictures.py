"""The pictures of a response: each function draws on a figure of its own and returns it."""

import io

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import matplotlib.ticker
import numpy as np
from scipy import signal

from . import analysis
from .analysis import decibels, hertz

LEFT, RIGHT, BOTH, SET = "#1f77b4", "#d95f02", "#333333", "#999999"
COLOURS = ("#1f77b4", "#d95f02", "#1b9e77", "#7570b3", "#e7298a", "#666666")
FLOOR = -90  # dB, the bottom of pictures that show levels

plt.rcParams.update(
    {
        "figure.dpi": 100,
        "figure.constrained_layout.use": True,
        "font.size": 9,
        "axes.grid": True,
        "grid.alpha": 0.3,
        "axes.axisbelow": True,
        "legend.frameon": False,
        "lines.linewidth": 1.2,
    }
)


def named(response):
    """Channels with their names and colours."""
    if response.sound.shape[1] == 1:
        return [("mono", BOTH, response.sound[:, 0])]
    return list(zip(("left", "right"), (LEFT, RIGHT), response.sound.T))


def draw_impulse(response):
    """Each channel beside the other, so that none covers the other."""
    channels = named(response)
    figure, rows = plt.subplots(
        2, len(channels), figsize=(10, 4.6), sharey="row", squeeze=False, sharex="row"
    )
    time = np.arange(len(response.sound)) / response.rate
    early_end = min(0.3, time[-1])
    loudest = 2 * decibels(np.abs(response.sound).max())
    for (name, colour, sound), whole, early in zip(channels, *rows):
        whole.plot(time, 2 * decibels(np.abs(sound)), colour, linewidth=0.5)
        whole.set(xlabel="time (s)", xlim=(0, time[-1]), ylim=(loudest - 100, loudest + 3))
        whole.set_title(f"Impulse response, {name}")
        count = int(early_end * response.rate)
        early.plot(time[:count], sound[:count], colour, linewidth=0.5)
        early.set(xlabel="time (s)", xlim=(0, early_end), title=f"Its first {early_end:.1f} s")
    rows[0, 0].set_ylabel("level (dB)")
    rows[1, 0].set_ylabel("amplitude")
    return figure


def clip_marked(axes, time, values, limit, colour, **how):
    """A line within +/-limit, with an arrow head wherever it goes beyond."""
    axes.plot(time, values, colour, **how)
    axes.set_ylim(-limit, limit)
    for sign, mark in ((1, "^"), (-1, "v")):
        beyond = sign * values > limit
        level = np.full(np.count_nonzero(beyond), 0.96 * sign * limit)
        axes.plot(time[beyond], level, mark, color=colour, markersize=3)


def draw_decay(response, found):
    figure, (curves, times) = plt.subplots(1, 2, figsize=(10, 4), width_ratios=(3, 2))
    begin = analysis.onset(response.sound)
    colours = plt.cm.viridis(np.linspace(0, 0.95, len(found["bands"])))
    for colour, band in zip(colours, found["bands"]):
        heard = analysis.octave_band(response.sound, band["centre_hz"], response.rate)[begin:]
        decay = analysis.Decay(len(heard))
        if response.settings is None:
            decay = analysis.find_decay(heard, response.rate) or decay
        curve = analysis.decay_curve(heard, decay)
        shown = curve > FLOOR
        time = np.arange(len(curve)) / response.rate
        curves.plot(
            time[shown][::48], curve[shown][::48], color=colour, label=hertz(band["centre_hz"])
        )
        if band["t30_s"]:  # the line of the fit, through the curve at -5 dB
            start = time[np.argmax(curve <= -5)]
            ends = np.array([start, start + band["t30_s"] * 30 / 60])
            curves.plot(ends, [-5, -35], "--", color=colour, linewidth=0.8)
    curves.set(xlabel="time from the onset (s)", ylabel="energy to come (dB)", ylim=(FLOOR, 0))
    curves.set(title="Decay by octave; dashed: the fit of T30", xlim=(0, None))
    curves.legend(ncols=2)

    centres = np.array([band["centre_hz"] for band in found["bands"]])
    if response.settings is not None:
        axis = np.geomspace(centres[0] / 1.4, centres[-1] * 1.4, 200)
        expected = analysis.set_decay_time(axis, response.rate, *response.decay_ends, response.loop)
        times.plot(axis, expected, color=SET, label="set by Decay and Damp", linewidth=2)
    for key, mark, name in (("edt_s", "+", "EDT"), ("t20_s", "x", "T20"), ("t30_s", "o", "T30")):
        values = [band[key] or np.nan for band in found["bands"]]
        times.plot(centres, values, mark, color=BOTH, fillstyle="none", label=name)
    frequency_axis(times, response.rate, centres)
    times.set(ylabel="decay time (s)", title="Decay time", ylim=(0, None))
    times.legend()
    return figure


def spectrogram(sound, rate, window=2048):
    """Times, frequencies above 0 Hz, and levels in dB below the loudest of them."""
    frequency, time, power = signal.spectrogram(
        sound.mean(axis=1), rate, window="hann", nperseg=window, noverlap=window * 3 // 4
    )
    level = decibels(power)[1:]
    return time, frequency[1:], level - level.max()


def show_spectrogram(axes, sound, rate):
    mesh = axes.pcolormesh(
        *spectrogram(sound, rate), vmin=FLOOR, vmax=0, cmap="magma", rasterized=True
    )
    axes.set(xlabel="time (s)")
    frequency_axis(axes, rate, analysis.OCTAVES, of=axes.yaxis)
    axes.grid(False)
    return mesh


def draw_spectrogram(response):
    """As a map, and as a waterfall of spectra, the later the nearer."""
    figure, (map_axes, falling) = plt.subplots(2, 1, figsize=(8, 8), height_ratios=(3, 4))
    mesh = show_spectrogram(map_axes, response.sound, response.rate)
    map_axes.set_title("Spectrogram (window 2048 samples, channels averaged)")
    figure.colorbar(mesh, ax=map_axes, label="level (dB)")

    time, frequency, level = spectrogram(response.sound, response.rate, 4096)
    thirds = np.geomspace(50, 0.45 * response.rate, 120)
    power = np.vstack((np.zeros(len(time)), np.cumsum(10 ** (level / 10), axis=0)))
    low, high = (np.searchsorted(frequency, thirds * 2 ** (e / 6)) for e in (-1, 1))
    high = np.maximum(high, low + 1)
    smooth = decibels((power[high] - power[low]) / (high - low)[:, None])
    smooth -= smooth.max()
    decay = np.flatnonzero(analysis.decay_curve(response.sound) > -60)
    end = min(time[-1], decay[-1] / response.rate)
    count, right, down = 24, 1.2, 1.6  # curves; how far the last one stands off the first
    for index, moment in enumerate(np.linspace(time[0], end, count)):
        share = index / (count - 1)
        curve = np.maximum(smooth[:, np.argmin(np.abs(time - moment))], FLOOR) / -FLOOR + 1
        x = np.log2(thirds / thirds[0]) + right * share
        falling.fill_between(x, -down * share, curve - down * share, color="white", zorder=index)
        colour = plt.cm.viridis(0.9 * share)
        falling.plot(x, curve - down * share, color=colour, linewidth=1, zorder=index + 0.5)
        if index % 4 == 0 or index == count - 1:
            falling.text(
                x[-1] + 0.08, curve[-1] - down * share, f"{moment:.2f} s",
                fontsize=8, va="center", zorder=count,
            )  # fmt: skip
    ticks = [centre for centre in analysis.OCTAVES if centre < thirds[-1]]
    falling.set_xticks(np.log2(np.array(ticks) / thirds[0]) + right, map(short_hertz, ticks))
    falling.set(yticks=[], ylabel="level: each curve 90 dB")
    falling.set_xlabel("frequency (Hz), of the nearest curve")
    falling.set_title("Waterfall: third-octave spectra from the beginning (back) to -60 dB (front)")
    falling.grid(False)
    return figure


def draw_echo_density(response, found):
    channels = named(response)
    figure, axes = plt.subplots(
        len(channels), 1, figsize=(8, 1 + 2 * len(channels)), sharex=True, squeeze=False
    )
    end = min(1.0, len(response.sound) / response.rate)
    echo = found["echo_density"]
    for (name, colour, sound), row in zip(channels, axes[:, 0]):
        row.plot(*analysis.echo_density(sound[: int(end * response.rate)], response.rate), colour)
        for key, style in (("mixing_time", ":"), ("stays_mixed", "--")):
            if echo[f"{key}_s"] is not None:
                row.axvline(echo[f"{key}_s"], color=BOTH, linestyle=style)
        for level in (analysis.MIXED, analysis.STAYS_MIXED):
            row.axhline(level, color=SET, linewidth=0.8)
        row.set(ylabel=name, ylim=(0, None), xlim=(0, end))
    row.set_xlabel(f"time after the {'impulse' if response.settings is not None else 'onset'} (s)")
    axes[0, 0].set_title(
        "Normalised echo density; dotted: their mean touches 0.9, dashed: it stays above 0.8"
    )
    return figure


def draw_late_spectrum(response, found):
    figure, axes = plt.subplots(figsize=(8, 3.2))
    start = int(found["late"]["from_s"] * response.rate)
    size = int(found["late"]["length_s"] * response.rate)
    for name, colour, sound in named(response):
        late = sound[start : start + size]
        frequency, _, smooth = analysis.smoothed_spectrum(late, response.rate)
        level = decibels(smooth)
        shown = frequency >= 25
        axes.plot(frequency[shown], level[shown] - level[shown].max(), colour, label=name)
    frequency_axis(axes, response.rate, analysis.OCTAVES)
    axes.set(ylabel="level (dB)")
    axes.set_title(f"Late tail from {found['late']['from_s']:.2f} s on, third-octave average")
    axes.legend(loc="lower left", ncols=2)
    return figure


def draw_correlation(response):
    figure, axes = plt.subplots(figsize=(8, 3))
    end = analysis.decay_curve(response.sound) > -60
    time, at_zero, largest = analysis.correlation_over_time(
        *response.sound[: np.count_nonzero(end)].T, response.rate
    )
    axes.plot(time, largest, BOTH, label="largest within 1 ms (IACC)")
    axes.plot(time, at_zero, LEFT, label="at lag 0")
    axes.set(xlabel="time (s)", ylabel="left/right correlation", ylim=(-1, 1), xlim=(0, None))
    axes.set_title("Correlation of left and right, windows of 50 ms, down to -60 dB")
    axes.legend(loc="lower right", ncols=2)
    return figure


def draw_comparison(responses, found):
    """What two responses or more have in common and what not, in one picture."""
    figure, ((decay, times), (echo, late)) = plt.subplots(2, 2, figsize=(11, 7.4))
    for index, (response, figures) in enumerate(zip(responses, found)):
        how = {"color": COLOURS[index % len(COLOURS)], "label": chr(ord("A") + index)}
        begin = analysis.onset(response.sound)
        fall = analysis.Decay(len(response.sound) - begin)
        if response.settings is None:
            fall = analysis.find_decay(response.sound[begin:], response.rate) or fall
        curve = analysis.decay_curve(response.sound[begin:], fall)
        shown = curve > FLOOR
        time = np.arange(len(curve)) / response.rate
        decay.plot(time[shown][::48], curve[shown][::48], **how)
        centres = [band["centre_hz"] for band in figures["bands"]]
        t30 = [band["t30_s"] or np.nan for band in figures["bands"]]
        times.plot(centres, t30, "o-", fillstyle="none", **how)
        part = response.sound[: response.rate // 2]
        curves = [analysis.echo_density(channel, response.rate) for channel in part.T]
        echo.plot(curves[0][0], np.mean([values for _, values in curves], axis=0), **how)
        thirds = figures["late"]["third_octaves"]
        late.plot([c["centre_hz"] for c in thirds], [c["level_db"] for c in thirds], **how)
    rate = max(response.rate for response in responses)
    decay.set(xlabel="time from the onset (s)", ylabel="energy to come (dB)", ylim=(FLOOR, 0))
    decay.set(title="Decay, all frequencies", xlim=(0, None))
    times.set(ylabel="T30 (s)", title="Decay time by octave", ylim=(0, None))
    echo.axhline(analysis.STAYS_MIXED, color=SET, linewidth=0.8)
    echo.set(xlabel="time (s)", ylabel="echo density", ylim=(0, None), xlim=(0, 0.5))
    echo.set_title("Normalised echo density, mean of the channels")
    late.set(ylabel="level (dB)", title="Late tail, third octaves")
    for axes in (times, late):
        frequency_axis(axes, rate, analysis.OCTAVES)
    names = [f"{chr(ord('A') + i)}: {figures['name']}" for i, figures in enumerate(found)]
    decay.legend(decay.get_lines(), names)
    return figure


def draw_sounds(sounds, rate):
    """Spectrograms of sounds by name, one below the other, and how their levels fall."""
    count = len(sounds)
    figure, rows = plt.subplots(
        count + 1, 1, figsize=(9, 2 * count + 2.6), sharex=True, height_ratios=[*[2] * count, 2.4]
    )
    length = max(map(len, sounds.values()))
    for index, (name, sound) in enumerate(sounds.items()):
        padded = np.pad(sound, ((0, length - len(sound)), (0, 0)))
        mesh = show_spectrogram(rows[index], padded, rate)
        rows[index].set_title(name, loc="left", fontsize=9, pad=2)
        rows[index].set(xlabel="", ylabel="Hz")
        size = rate // 50
        level = analysis.energy(sound)[: len(sound) // size * size] / sound.shape[1]
        level = level.reshape(-1, size).mean(axis=1)
        rows[-1].plot(
            np.arange(level.size) * size / rate,
            decibels(level),
            COLOURS[index % len(COLOURS)],
            label=name,
        )
    figure.colorbar(mesh, ax=rows[:-1], label="level (dB)")
    rows[-1].set(xlabel="time (s)", ylabel="level (dBFS)", ylim=(FLOOR, 3), xlim=(0, length / rate))
    rows[-1].set_title("Level in windows of 20 ms", loc="left", fontsize=9, pad=2)
    rows[-1].legend(loc="upper right", ncols=2)
    return figure


def short_hertz(frequency):
    return hertz(frequency).replace(" Hz", "").replace(" kHz", "k")


def frequency_axis(axes, rate, centres, of=None):
    """The one kind of frequency axis: logarithmic, octaves marked, up to half the sample rate."""
    of = of or axes.xaxis
    horizontal = of is axes.xaxis
    (axes.set_xscale if horizontal else axes.set_yscale)("log")
    ticks = [centre for centre in centres if centre < rate / 2]
    of.set_ticks(ticks, [short_hertz(centre) for centre in ticks])
    of.set_minor_locator(matplotlib.ticker.NullLocator())
    (axes.set_xlim if horizontal else axes.set_ylim)(40, rate / 2)
    of.set_label_text("frequency (Hz)")


def png(figure):
    buffer = io.BytesIO()
    figure.savefig(buffer, format="png", metadata={"Software": None})
    plt.close(figure)
    return buffer.getvalue()


def pictures(response, found):
    """The pictures of a response as PNG data by name, in the order of the page."""
    drawn = {
        "impulse": draw_impulse(response),
        "decay": draw_decay(response, found),
        "echo-density": draw_echo_density(response, found),
        "late-spectrum": draw_late_spectrum(response, found),
        "spectrogram": draw_spectrogram(response),
    }
    if response.sound.shape[1] == 2:
        drawn["correlation"] = draw_correlation(response)
    return {name: png(figure) for name, figure in drawn.items()}
