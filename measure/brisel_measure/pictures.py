"""The pictures of a response: each function draws on a figure of its own and returns it."""

import io

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from scipy import signal

from . import analysis
from .analysis import decibels, hertz

LEFT, RIGHT, BOTH, SET = "#1f77b4", "#d95f02", "#333333", "#999999"
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


def draw_impulse(response):
    figure, (whole, early) = plt.subplots(2, 1, figsize=(8, 4.6))
    time = np.arange(len(response.sound)) / response.rate
    for axes, end in ((whole, time[-1]), (early, min(0.3, time[-1]))):
        count = int(end * response.rate)
        level = 2 * decibels(np.abs(response.sound[:count])) if axes is whole else None
        for channel, (name, colour) in enumerate((("left", LEFT), ("right", RIGHT))):
            values = level[:, channel] if axes is whole else response.sound[:count, channel]
            axes.plot(time[:count], values, colour, label=name, linewidth=0.5, alpha=0.8)
    whole.set(xlabel="time (s)", ylabel="level (dB)", title="Impulse response", xlim=(0, time[-1]))
    whole.set_ylim(2 * decibels(np.abs(response.sound).max()) + np.array([-100, 3]))
    early.set(
        xlabel="time (s)", ylabel="amplitude", title="Its first 0.3 s", xlim=(0, min(0.3, time[-1]))
    )
    whole.legend(loc="upper right", ncols=2)
    return figure


def draw_decay(response, found):
    figure, (curves, times) = plt.subplots(1, 2, figsize=(10, 4), width_ratios=(3, 2))
    begin = analysis.onset(response.sound)
    colours = plt.cm.viridis(np.linspace(0, 0.95, len(found["bands"])))
    for colour, band in zip(colours, found["bands"]):
        curve = analysis.decay_curve(
            analysis.octave_band(response.sound, band["centre_hz"], response.rate)[begin:]
        )
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
    axis = np.geomspace(centres[0] / 1.4, centres[-1] * 1.4, 200)
    expected = analysis.set_decay_time(axis, response.rate, *response.decay_ends, response.loop)
    times.semilogx(axis, expected, color=SET, label="set by Decay and Damp", linewidth=2)
    for key, mark, name in (("t20_s", "x", "T20"), ("t30_s", "o", "T30")):
        values = [band[key] or np.nan for band in found["bands"]]
        times.semilogx(centres, values, mark, color=BOTH, fillstyle="none", label=name)
    octave_ticks(times, centres)
    times.set(xlabel="frequency (Hz)", ylabel="decay time (s)", title="Decay time", ylim=(0, None))
    times.legend()
    return figure


def draw_spectrogram(response):
    figure, axes = plt.subplots(figsize=(8, 3.6))
    frequency, time, power = signal.spectrogram(
        response.sound.mean(axis=1), response.rate, window="hann", nperseg=2048, noverlap=1536
    )
    level = decibels(power)[1:]
    mesh = axes.pcolormesh(
        time, frequency[1:], level - level.max(), vmin=FLOOR, vmax=0, cmap="magma", rasterized=True
    )
    axes.set(yscale="log", ylim=(40, response.rate / 2), xlabel="time (s)", ylabel="frequency (Hz)")
    axes.set_title("Spectrogram (window 2048 samples, left and right averaged)")
    axes.grid(False)
    figure.colorbar(mesh, label="level (dB)")
    return figure


def draw_echo_density(response, found):
    figure, axes = plt.subplots(figsize=(8, 3.2))
    end = min(1.0, len(response.sound) / response.rate)
    for channel, (name, colour) in enumerate((("left", LEFT), ("right", RIGHT))):
        part = response.sound[: int(end * response.rate), channel]
        axes.plot(*analysis.echo_density(part, response.rate), colour, label=name)
        mixed = found["echo_density"][f"mixing_time_{name}_s"]
        if mixed is not None:
            axes.axvline(mixed, color=colour, linestyle=":")
    axes.axhline(analysis.MIXED, color=SET, linewidth=0.8)
    axes.set(xlabel="time after the impulse (s)", ylabel="normalised echo density", ylim=(0, 1.3))
    axes.set(xlim=(0, end))
    axes.set_title("Echo density; dotted: mixing time, when it reaches 0.9")
    axes.legend(loc="lower right", ncols=2)
    return figure


def draw_late_spectrum(response, found):
    figure, axes = plt.subplots(figsize=(8, 3.2))
    start = int(found["late"]["from_s"] * response.rate)
    late = response.sound[start : start + int(found["late"]["length_s"] * response.rate)]
    for channel, (name, colour) in enumerate((("left", LEFT), ("right", RIGHT))):
        frequency, _, smooth = analysis.smoothed_spectrum(late[:, channel], response.rate)
        level = decibels(smooth)
        shown = frequency >= 25
        axes.semilogx(frequency[shown], level[shown] - level[shown].max(), colour, label=name)
    octave_ticks(axes, analysis.OCTAVES)
    axes.set(xlabel="frequency (Hz)", ylabel="level (dB)", xlim=(25, response.rate / 2))
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


def octave_ticks(axes, centres):
    axes.set_xticks(
        centres, [hertz(centre).replace(" Hz", "").replace(" kHz", "k") for centre in centres]
    )
    axes.minorticks_off()


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
        "correlation": draw_correlation(response),
    }
    return {name: png(figure) for name, figure in drawn.items()}
