"""The command line of brisel-measure."""

import argparse
import json
import pathlib
import sys

from . import render, report

DESCRIPTION = """\
Measures the reverb: sends an impulse through brisel-render at mix 1 and writes into FOLDER the
response (impulse.wav), every figure (report.json), and pictures, alone (*.png) and on one page
(report.html). Every other option goes to brisel-render, for example --size 80ms --decay 4 or
--preset hall.
"""


def read_report(name):
    path = pathlib.Path(name)
    path = path / "report.json" if path.is_dir() else path
    try:
        return json.loads(path.read_text())
    except json.JSONDecodeError as error:
        raise OSError(f"{path}: not a report: {error}") from None


def summary(found):
    """The figures worth a glance, as lines."""

    def text(value, scale=1.0, digits=2):
        return "-" if value is None else f"{scale * value:.{digits}f}"

    yield "octave    set     T30     EDT   C80"
    yield "    Hz      s       s       s    dB"
    for band in found["bands"]:
        yield (
            f"{band['centre_hz']:6d} {text(band['set_t30_s']):>6} {text(band['t30_s']):>7} "
            f"{text(band['edt_s']):>7} {text(band['c80_db'], digits=1):>5}"
        )
    mixed = found["echo_density"]["mixing_time_s"]
    yield f"mixing time {text(mixed, 1000, 0)} ms after the impulse"
    yield f"IACC from 80 ms on {text(found['correlation']['iacc_80_ms_on'])}"


def main(arguments):
    parser = argparse.ArgumentParser(
        prog="brisel-measure",
        description=DESCRIPTION,
        usage="brisel-measure -o FOLDER [--rate HZ] [OPTION OF brisel-render ...]\n"
        "       brisel-measure --compare A B",
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    parser.add_argument(
        "-o", "--output", metavar="FOLDER", help="where the report goes; made if missing"
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
    parser.add_argument(
        "--compare",
        nargs=2,
        metavar=("A", "B"),
        help="print the figures of two reports side by side",
    )
    chosen, options = parser.parse_known_args(arguments)

    try:
        if chosen.compare:
            if options or chosen.output:
                parser.error("--compare takes two reports and nothing else")
            print("\n".join(report.compare(*map(read_report, chosen.compare))))
            return 0
        if not chosen.output:
            parser.error("name a folder for the report with -o")
        response = render.measure(options, chosen.rate, chosen.renderer)
        folder = pathlib.Path(chosen.output)
        folder.mkdir(parents=True, exist_ok=True)
        found = report.write(response, folder, not chosen.no_pictures)
        print("\n".join(summary(found)))
        print(folder / ("report.json" if chosen.no_pictures else "report.html"))
        return 0
    except render.RenderError as error:
        print(f"brisel-measure: {error}", file=sys.stderr)
        return error.code if error.code in (1, 2) else 1
    except (OSError, ValueError) as error:
        print(f"brisel-measure: {error}", file=sys.stderr)
        return 1
