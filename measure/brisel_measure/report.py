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


def late_part(response, mixing_time):
    """The tail from the mixing time on, for a second at most, and where it starts in seconds."""
    start = int(mixing_time * response.rate) if math.isfinite(mixing_time) else 0
    return response.sound[start : start + response.rate], start / response.rate


def figures(response):
    """Every figure of a response, with its unit in the key; None if there is no such figure."""
    sound, rate = response.sound, response.rate
    begin = analysis.onset(sound)
    heard = sound[begin:]

    bands = []
    for centre in analysis.octave_centres(rate):
        band = analysis.octave_band(sound, centre, rate)[begin:]
        ends, loop = response.decay_ends, response.loop
        bands.append(
            {
                "centre_hz": centre,
                "set_at_centre_s": float(analysis.set_decay_time(centre, rate, *ends, loop)),
                "set_t30_s": analysis.set_octave_t30(centre, rate, *ends, loop),
                **analysis.decay_times(band, rate),
                "c80_db": analysis.clarity(band, rate),
                "d50_percent": analysis.definition(band, rate),
            }
        )

    density = [analysis.echo_density(sound[:, channel], rate) for channel in (0, 1)]
    mixing = [analysis.mixing_time(*channel) for channel in density]
    late, late_from = late_part(response, max(mixing))
    frequency, _, smooth = analysis.smoothed_spectrum(late, rate)
    thirds = [centre for centre in THIRDS if centre * 2 ** (1 / 6) < rate / 2]
    third_levels = decibels(np.interp(thirds, frequency, smooth))
    third_levels -= third_levels.max()
    flatness = [analysis.spectral_flatness(late[:, channel], rate) for channel in (0, 1)]
    split = int(0.080 * rate)

    return plain(
        {
            "settings": response.settings,
            "options": response.options,
            "rate_hz": rate,
            "length_s": len(sound) / rate,
            "onset_s": begin / rate,
            "peak_dbfs": 2 * decibels(np.abs(sound).max()),
            "broadband": {
                **analysis.decay_times(heard, rate),
                "c80_db": analysis.clarity(heard, rate),
                "d50_percent": analysis.definition(heard, rate),
            },
            "bands": bands,
            "echo_density": {
                "window_s": analysis.ECHO_WINDOW,
                "threshold": analysis.MIXED,
                "mixing_time_left_s": mixing[0],
                "mixing_time_right_s": mixing[1],
                "mixing_time_s": float(np.mean(mixing)),
            },
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
            "correlation": {
                "iacc_0_to_80_ms": analysis.iacc(*heard[:split].T, rate),
                "iacc_80_ms_on": analysis.iacc(*heard[split:].T, rate),
                "lag_0_from_80_ms_on": float(
                    analysis.cross_correlation(*heard[split:].T, rate, reach=0)[0]
                ),
            },
        }
    )


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


def page(found, images):
    """The whole report as one self-contained HTML page."""
    both, mixed, late = found["broadband"], found["echo_density"], found["late"]
    bands = [
        [hertz(b["centre_hz"])]
        + [
            cell(b[key])
            for key in ("set_t30_s", "edt_s", "t20_s", "t30_s", "c80_db", "d50_percent")
        ]
        for b in found["bands"]
    ] + [
        ["all", ""] + [cell(both[k]) for k in ("edt_s", "t20_s", "t30_s", "c80_db", "d50_percent")]
    ]
    single = [
        ["onset after the impulse", f"{cell(1000 * found['onset_s'])} ms"],
        [
            "mixing time, left / right",
            " / ".join(
                "&ndash;" if mixed[key] is None else f"{1000 * mixed[key]:.0f} ms"
                for key in ("mixing_time_left_s", "mixing_time_right_s")
            ),
        ],
        ["spectral flatness of the late tail (noise: 0.561)", cell(late["spectral_flatness"])],
        ["IACC, first 80 ms", cell(found["correlation"]["iacc_0_to_80_ms"])],
        ["IACC, from 80 ms on", cell(found["correlation"]["iacc_80_ms_on"])],
        ["peak", f"{cell(found['peak_dbfs'])} dBFS"],
    ]
    options = html.escape(" ".join(found["options"])) or "default settings"
    settings = [[html.escape(name), f"{value:.5g}"] for name, value in found["settings"].items()]
    shown = "".join(
        f'<img alt="{name}" src="data:image/png;base64,{base64.b64encode(data).decode()}">'
        for name, data in images.items()
    )
    return f"""<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>Brisel: {options}</title>
<style>
  body {{ font: 15px/1.5 sans-serif; color: #222 }}
  body {{ max-width: 64em; margin: 2em auto; padding: 0 1em }}
  table {{ border-collapse: collapse; margin: 1em 0 }}
  th, td {{ padding: .2em .8em; text-align: right; border-bottom: 1px solid #ddd }}
  td:first-child, th:first-child {{ text-align: left }}
  img {{ max-width: 100%; display: block; margin: 1em 0 }}
</style>
</head>
<body>
<h1>Brisel: {options}</h1>

<p>The response to an impulse at {found["rate_hz"]} Hz, wet only. Decay times, clarity and
definition follow ISO 3382-1, counted from the onset, with the energies of both channels added;
<i>set</i> is the T30 of an octave that decays just as Decay and Damp ask. Echo density follows Abel
and Huang (2006), window {1000 * mixed["window_s"]:.0f} ms; the mixing time is when it first
reaches {mixed["threshold"]}, counted from the impulse.</p>

{table(["octave", "set (s)", "EDT (s)", "T20 (s)", "T30 (s)", "C80 (dB)", "D50 (%)"], bands)}
{table(["", ""], single)}
{shown}

<h2>Settings</h2>
{table(["setting", "value"], settings)}
</body>
</html>
"""


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
            if key not in ("centre_hz", "options")
        }
    elif isinstance(value, list):
        items = {f"{path}/{hertz(item['centre_hz'])}": item for item in value}
    else:
        return {path: value}
    return {name: number for key, item in items.items() for name, number in flat(item, key).items()}


def compare(a, b):
    """Lines of a table: each figure of two reports, and the difference."""
    a, b = flat(a), flat(b)
    width = max(map(len, a | b))
    yield f"{'':{width}} {'A':>12} {'B':>12} {'B - A':>12}"
    for name in a | b:
        pair = [a.get(name), b.get(name)]
        texts = ["-" if value is None else f"{value:.5g}" for value in pair]
        difference = "" if None in pair else f"{pair[1] - pair[0]:+.4g}"
        if difference in ("+0", "-0"):
            difference = "="
        yield f"{name:{width}} {texts[0]:>12} {texts[1]:>12} {difference:>12}"
