"""The report of one response: its figures, its pictures, and the page that shows both."""

import base64
import html
import json
import math

import numpy as np
import soundfile

from . import analysis
from .analysis import decibels, hertz

# Nominal centres of the third octaves from 63 Hz to 20 kHz.
THIRDS = [c * 10**e for e in (1, 2, 3, 4) for c in (1, 1.25, 1.6, 2, 2.5, 3.15, 4, 5, 6.3, 8)][
    8:34
]


def late_part(sound, rate, mixing_time):
    """The tail from the mixing time on, for a second at most, and where it starts in seconds."""
    start = int(mixing_time * rate) if math.isfinite(mixing_time) else 0
    return sound[start : start + rate], start / rate


def wet_level(sound):
    """How loud white noise that is the same on both sides comes out, in dB of what goes in."""
    return decibels(analysis.energy(sound).sum() / sound.shape[1])


def without_noise(response):
    """The response up to where it meets the noise, if it is a file's, and how it does."""
    if response.settings is not None:
        return response.sound, analysis.Decay(len(response.sound))
    decay = analysis.find_decay(response.sound, response.rate)
    if decay is None:
        raise ValueError(f"{response.name}: no decay stands out from the noise")
    return response.sound[: decay.end], decay


def decay_figures(heard, rate, has_noise):
    """Decay times, clarity and definition of a response or a band of it, from its onset on."""
    decay = analysis.find_decay(heard, rate) if has_noise else analysis.Decay(len(heard))
    if decay is None:
        decay = analysis.Decay(len(heard), range_db=0.0)
    told = decay.range_db >= analysis.RANGE_NEEDED["edt_s"]
    found = {
        **analysis.decay_times(heard, rate, decay),
        "c80_db": analysis.clarity(heard, rate, decay) if told else np.nan,
        "d50_percent": analysis.definition(heard, rate, decay) if told else np.nan,
    }
    if has_noise:
        found["range_db"] = decay.range_db
        found["meets_noise_s"] = decay.end / rate if decay.noise > 0 else np.nan
    return found


def echo_figures(sound, rate):
    """Two times of the echo density, averaged over the channels, which scatters less than one's."""
    curves = [analysis.echo_density(channel, rate) for channel in sound.T]
    times, density = curves[0][0], np.mean([values for _, values in curves], axis=0)
    until = np.count_nonzero(analysis.decay_curve(sound) > analysis.STAYS_UNTIL) / rate
    return {
        "window_s": analysis.ECHO_WINDOW,
        "threshold": analysis.MIXED,
        "threshold_to_stay": analysis.STAYS_MIXED,
        "mixing_time_s": analysis.mixing_time(times, density),
        "stays_mixed_s": analysis.stays_mixed(times, density, until),
    }


def correlation_figures(heard, rate):
    split = int(0.080 * rate)
    early, late = heard[:split].T, heard[split:].T
    if heard.shape[1] < 2 or late.size == 0:
        return None
    return {
        "iacc_0_to_80_ms": analysis.iacc(*early, rate),
        "iacc_80_ms_on": analysis.iacc(*late, rate),
        "lag_0_from_80_ms_on": float(analysis.cross_correlation(*late, rate, reach=0)[0]),
    }


def warnings(found, has_noise):
    """What to know before trusting the figures, as sentences."""
    for row in found["bands"]:
        name, edt, t30 = hertz(row["centre_hz"]), row["edt_s"], row["t30_s"]
        if has_noise:
            missing = [
                key.split("_")[0].upper()
                for key, needed in analysis.RANGE_NEEDED.items()
                if row["range_db"] < needed
            ]
            if missing:
                yield (
                    f"{name}: only {row['range_db']:.0f} dB between sound and noise: no "
                    + ", ".join(missing)
                )
        if np.isfinite([edt, t30]).all() and not 1 / analysis.STRAIGHT < edt / t30 < (
            analysis.STRAIGHT
        ):
            yield f"{name}: the decay is not straight: EDT {edt:.2f} s, T30 {t30:.2f} s"


def figures(response):
    """Every figure of a response, with its unit in the key; None if there is no such figure."""
    rate, has_noise = response.rate, response.settings is None
    begin = analysis.onset(response.sound)
    sound, decay = without_noise(response)
    heard = sound[begin:]

    bands = []
    for centre in analysis.octave_centres(rate):
        band = {"centre_hz": centre}
        if response.settings is not None:
            ends, loop = response.decay_ends, response.loop
            band["set_at_centre_s"] = float(analysis.set_decay_time(centre, rate, *ends, loop))
            band["set_t30_s"] = analysis.set_octave_t30(centre, rate, *ends, loop)
        filtered = analysis.octave_band(response.sound, centre, rate)[begin:]
        bands.append(band | decay_figures(filtered, rate, has_noise))

    echo = echo_figures(sound, rate)
    late, late_from = late_part(sound, rate, echo["mixing_time_s"])
    frequency, _, smooth = analysis.smoothed_spectrum(late, rate)
    thirds = [centre for centre in THIRDS if centre * 2 ** (1 / 6) < rate / 2]
    third_levels = decibels(np.interp(thirds, frequency, smooth))
    third_levels -= third_levels.max()
    flatness = [analysis.spectral_flatness(channel, rate) for channel in late.T]

    found = {
        "name": response.name,
        "settings": response.settings or {},
        "options": response.options,
        "rate_hz": rate,
        "length_s": len(response.sound) / rate,
        "onset_s": response.start + begin / rate,
        "peak_dbfs": 2 * decibels(np.abs(sound).max()),
        "broadband": decay_figures(response.sound[begin:], rate, has_noise),
        "bands": bands,
        "echo_density": echo,
        "late": {
            "from_s": late_from,
            "length_s": len(late) / rate,
            "spectral_flatness": float(np.mean(flatness)),
            "spectral_flatness_of_noise": analysis.NOISE_FLATNESS,
            "third_octaves": [
                {"centre_hz": centre, "level_db": level}
                for centre, level in zip(thirds, third_levels)
            ],
        },
        "correlation": correlation_figures(heard, rate),
    }
    if not has_noise:
        found["wet_level_db"] = wet_level(sound)
    else:
        found["noise_dbfs"] = decibels(decay.noise / sound.shape[1])
    found["warnings"] = list(warnings(found, has_noise))
    return plain(found)


def plain(value):
    """The same figures as JSON has them: Python's numbers, to six digits, NaN as None."""
    if isinstance(value, dict):
        return {key: plain(item) for key, item in value.items()}
    if isinstance(value, list):
        return [plain(item) for item in value]
    if isinstance(value, (float, np.floating)):
        return float(f"{value:.6g}") if math.isfinite(value) else None
    return value


# The page


def cell(value, digits=3):
    return "&ndash;" if value is None else f"{value:.{digits}g}"


def table(header, rows):
    def line(tag, items):
        return "<tr>" + "".join(f"<{tag}>{item}</{tag}>" for item in items) + "</tr>"

    return "<table>" + line("th", header) + "".join(line("td", row) for row in rows) + "</table>"


STYLE = """
body { font: 15px/1.5 sans-serif; max-width: 64em; margin: 2em auto; padding: 0 1em; color: #222 }
table { border-collapse: collapse; margin: 1em 0 }
th, td { padding: .2em .8em; text-align: right; border-bottom: 1px solid #ddd }
td:first-child, th:first-child { text-align: left }
img { max-width: 100%; display: block; margin: 1em 0 }
"""

PAGE = """<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>Brisel: {name}</title>
<style>{style}</style>
</head>
<body>
<h1>Brisel: {name}</h1>
<p>{what} Decay times, clarity and definition follow ISO 3382-1, counted from the onset, with the
energies of all channels added. Echo density follows Abel and Huang (2006), window {window:.0f} ms,
counted from {origin}.</p>
{warnings}
{bands}
{single}
{pictures}
{settings}
</body>
</html>
"""

OF_A_SETTING = """The response to an impulse at {rate} Hz, wet only. <i>Set</i> is the T30 of an
octave that decays just as Decay and Damp ask."""
OF_A_FILE = """The response in a file, at {rate} Hz. Where it meets its noise, it is cut off and
completed by an exponential decay (Lundeby et al. 1995); <i>range</i> is from the loudest moment down
to the noise."""


def milliseconds(value):
    return "&ndash;" if value is None else f"{1000 * value:.0f} ms"


def page(found, images):
    """The whole report as one self-contained HTML page."""
    of_a_file = not found["settings"]
    columns = {
        "set (s)": "set_t30_s",
        "EDT (s)": "edt_s",
        "T20 (s)": "t20_s",
        "T30 (s)": "t30_s",
        "C80 (dB)": "c80_db",
        "D50 (%)": "d50_percent",
        "range (dB)": "range_db",
    }
    del columns["set (s)" if of_a_file else "range (dB)"]
    rows = [("all", found["broadband"])]
    rows = [(hertz(band["centre_hz"]), band) for band in found["bands"]] + rows
    bands = [
        [name] + [cell(row[key]) if key in row else "" for key in columns.values()]
        for name, row in rows
    ]
    echo, correlation = found["echo_density"], found["correlation"]

    single = [
        ["onset", f"{cell(1000 * found['onset_s'])} ms"],
        [f"mixing time: first touches {echo['threshold']}", milliseconds(echo["mixing_time_s"])],
        [f"stays above {echo['threshold_to_stay']}", milliseconds(echo["stays_mixed_s"])],
        ["spectral flatness of the late tail (noise: 0.561)",
         cell(found["late"]["spectral_flatness"])],
        ["peak", f"{cell(found['peak_dbfs'])} dBFS"],
    ]  # fmt: skip
    if not of_a_file:
        single.append(["wet level of white noise", f"{cell(found['wet_level_db'])} dB"])
    if correlation:
        single.append(["IACC, first 80 ms", cell(correlation["iacc_0_to_80_ms"])])
        single.append(["IACC, from 80 ms on", cell(correlation["iacc_80_ms_on"])])
    settings = [[html.escape(name), f"{value:.5g}"] for name, value in found["settings"].items()]
    return PAGE.format(
        name=html.escape(found["name"]),
        style=STYLE,
        what=(OF_A_FILE if of_a_file else OF_A_SETTING).format(rate=found["rate_hz"]),
        window=1000 * echo["window_s"],
        origin="the onset" if of_a_file else "the impulse",
        warnings="".join(f"<p><b>{html.escape(text)}</b></p>" for text in found["warnings"]),
        bands=table(["octave", *columns], bands),
        single=table(["", ""], single),
        pictures="\n".join(
            f'<img alt="{name}" src="data:image/png;base64,{base64.b64encode(data).decode()}">'
            for name, data in images.items()
        ),
        settings=settings and "<h2>Settings</h2>" + table(["setting", "value"], settings) or "",
    )


def write(response, folder, with_pictures=True):
    """Writes impulse.wav, report.json, pictures and report.html into an existing folder."""
    found = figures(response)
    soundfile.write(str(folder / "impulse.wav"), response.sound, response.rate, subtype="FLOAT")
    (folder / "report.json").write_text(json.dumps(found, indent=2) + "\n")
    if with_pictures:
        from . import pictures  # imports matplotlib, which takes its time

        images = pictures.pictures(response, found)
        for name, data in images.items():
            (folder / f"{name}.png").write_bytes(data)
        (folder / "report.html").write_text(page(found, images))
    return found


# Comparison


def flat(value, path=""):
    """The numbers of a report by name, one level deep: bands/1000 Hz/t30_s."""
    if isinstance(value, dict):
        items = {
            f"{path}/{key}".lstrip("/"): item
            for key, item in value.items()
            if key not in ("centre_hz", "options", "name", "warnings") and item is not None
        }
    elif isinstance(value, list):
        items = {f"{path}/{hertz(item['centre_hz'])}": item for item in value}
    else:
        return {path: value}
    return {name: number for key, item in items.items() for name, number in flat(item, key).items()}


def compare(reports):
    """Lines of a table: each figure of two reports or more; of two, the difference."""
    names = [chr(ord("A") + i) for i in range(len(reports))]
    for name, found in zip(names, reports):
        yield f"{name}: {found['name']}"
    columns = [flat(found) for found in reports]
    rows = list(dict.fromkeys(row for column in columns for row in column))
    width = max(map(len, rows))
    header = [*names, "B - A"] if len(names) == 2 else names
    yield f"{'':{width}}" + "".join(f" {name:>12}" for name in header)
    for row in rows:
        values = [column.get(row) for column in columns]
        texts = ["-" if value is None else f"{value:.5g}" for value in values]
        if len(values) == 2:
            difference = "" if None in values else f"{values[1] - values[0]:+.4g}"
            texts.append("=" if difference in ("+0", "-0") else difference)
        yield f"{row:{width}}" + "".join(f" {text:>12}" for text in texts)
