"""The command line of brisel-measure."""

import argparse
import json
import pathlib
import shlex
import sys

import soundfile

from . import render, report

DESCRIPTION = """\
Measures reverbs. The first form sends an impulse through brisel-render at mix 1; all options that
are not below go to brisel-render, for example --size 80ms --decay 4 or --preset hall. The second
takes an impulse response from a file, of a room or of another reverb. Both write into FOLDER the
response (impulse.wav), every figure (report.json), and pictures, alone (*.png) and on one page
(report.html).

The third prints the figures of two or more side by side, and with -o draws them into one picture.
Each is a folder with a report, a sound file with a response, a preset, or options of brisel-render
as one word: --compare hall room.wav '--size 80ms --decay 4'. The fourth draws the spectrograms and
levels of any sounds.
"""

USAGE = """\
brisel-measure -o FOLDER [--rate HZ] [OPTION OF brisel-render ...]
       brisel-measure --response FILE [-o FOLDER]
       brisel-measure --compare A B [C ...] [-o PICTURE.png]
       brisel-measure --draw SOUND... -o PICTURE.png"""


def read_report(path):
    path = path / "report.json" if path.is_dir() else path
    try:
        return {"name": str(path), **json.loads(path.read_text())}
    except (json.JSONDecodeError, UnicodeDecodeError) as error:
        raise OSError(f"{path}: not a report: {error}") from None


def to_compare(word, chosen):
    """The response and the figures that a word of --compare stands for."""
    path = pathlib.Path(word)
    if path.is_dir() or path.suffix == ".json":
        found = read_report(path)
        folder = path if path.is_dir() else path.parent
        response = render.load_measured(folder / "impulse.wav", found)
        return response, found
    if path.is_file():
        response = render.load(path)
    else:
        options = shlex.split(word) if word.startswith("-") else ["--preset", word]
        response = render.measure(options, chosen.rate, chosen.renderer)
        response.name = word
    return response, report.figures(response)


def summary(found):
    """The figures worth a glance, as lines."""

    def text(value, scale=1.0, digits=2):
        return "-" if value is None else f"{scale * value:.{digits}f}"

    of_a_file = not found["settings"]
    yield f"octave  {'range' if of_a_file else '  set'}     T30     EDT   C80"
    yield f"    Hz     {'dB' if of_a_file else ' s'}       s       s    dB"
    for band in found["bands"]:
        first = text(band["range_db"], digits=0) if of_a_file else text(band["set_t30_s"])
        yield (
            f"{band['centre_hz']:6d} {first:>6} {text(band['t30_s']):>7} "
            f"{text(band['edt_s']):>7} {text(band['c80_db'], digits=1):>5}"
        )
    echo = found["echo_density"]
    yield (
        f"mixing time: first {text(echo['mixing_time_s'], 1000, 0)} ms, "
        f"stays from {text(echo['stays_mixed_s'], 1000, 0)} ms on, after the "
        + ("onset" if of_a_file else "impulse")
    )
    if found["correlation"]:
        yield f"IACC from 80 ms on {text(found['correlation']['iacc_80_ms_on'])}"
    yield from (f"note: {warning}" for warning in found["warnings"])


def compare(chosen):
    pairs = [to_compare(word, chosen) for word in chosen.compare]
    print("\n".join(report.compare([found for _, found in pairs])))
    if chosen.output:
        from . import pictures  # imports matplotlib, which takes its time

        if any(response is None for response, _ in pairs):
            raise OSError("a report without its impulse.wav cannot be drawn")
        save(pictures.png(pictures.draw_comparison(*zip(*pairs))), chosen.output)


def draw(chosen):
    from . import pictures

    loaded = [soundfile.read(name, always_2d=True) for name in chosen.draw]
    rates = {rate for _, rate in loaded}
    if len(rates) > 1:
        raise OSError("sounds of one sample rate only can be drawn together")
    sounds = {pathlib.Path(name).name: sound for name, (sound, _) in zip(chosen.draw, loaded)}
    save(pictures.png(pictures.draw_sounds(sounds, *rates)), chosen.output)


def save(picture, name):
    pathlib.Path(name).write_bytes(picture)
    print(name)


def write_report(response, chosen):
    if not chosen.output:
        found = report.figures(response)
    else:
        folder = pathlib.Path(chosen.output)
        folder.mkdir(parents=True, exist_ok=True)
        found = report.write(response, folder, not chosen.no_pictures)
    print("\n".join(summary(found)))
    if chosen.output:
        print(folder / ("report.json" if chosen.no_pictures else "report.html"))


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="brisel-measure",
        description=DESCRIPTION,
        usage=USAGE,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    parser.add_argument(
        "-o", "--output", metavar="FOLDER", help="where the report goes; made if missing"
    )
    parser.add_argument("--response", metavar="FILE", help="measure an impulse response in a file")
    parser.add_argument(
        "--compare", nargs="+", metavar="A", help="two or more settings, reports or responses"
    )
    parser.add_argument(
        "--draw", nargs="+", metavar="SOUND", help="spectrograms and levels of sounds, one picture"
    )
    parser.add_argument(
        "--rate", type=int, default=48000, metavar="HZ", help="sample rate; default 48000"
    )
    parser.add_argument(
        "--no-pictures", action="store_true", help="only impulse.wav and report.json"
    )
    parser.add_argument(
        "--renderer", metavar="FILE", help="the brisel-render to use; default: the built one"
    )
    chosen, options = parser.parse_known_args(arguments)
    forms = [form for form in ("response", "compare", "draw") if getattr(chosen, form)]
    if len(forms) > 1 or (forms and options):
        extra = f"--{forms[1]}" if len(forms) > 1 else options[0]
        parser.error(f"--{forms[0]} and {extra} do not go together")
    if chosen.compare and len(chosen.compare) < 2:
        parser.error("--compare takes two or more")
    if not forms and not chosen.output:
        parser.error("name a folder for the report with -o")
    if chosen.draw and not chosen.output:
        parser.error("name a picture with -o")
    return chosen, options


def main(arguments):
    chosen, options = parse(arguments)
    try:
        if chosen.compare:
            compare(chosen)
        elif chosen.draw:
            draw(chosen)
        elif chosen.response:
            write_report(render.load(chosen.response), chosen)
        else:
            write_report(render.measure(options, chosen.rate, chosen.renderer), chosen)
        return 0
    except render.RenderError as error:
        print(f"brisel-measure: {error}", file=sys.stderr)
        return error.code if error.code in (1, 2) else 1
    except (OSError, ValueError, soundfile.LibsndfileError) as error:
        print(f"brisel-measure: {error}", file=sys.stderr)
        return 1
