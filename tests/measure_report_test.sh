#!/usr/bin/env bash
# brisel-measure, from its command line to its files: the report of a setting holds what was set,
# and two reports compare.
#
# usage: measure_report_test.sh SOURCE_DIR RENDERER
set -euo pipefail
export PYTHONDONTWRITEBYTECODE=1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
measure() {
    "$source/measure/brisel-measure" "$@"
}
source=$(realpath "$1") renderer=$(realpath "$2")

cd "$work"
setting=(--renderer "$renderer" --size 20ms --decay 0.6 --damp 0.5)
measure -o 'a report' "${setting[@]}" --width 1 >summary || fail "the report"
measure -o other --no-pictures "${setting[@]}" --width 0 --eq-low -2dB >summary ||
    fail "the report without pictures"

/usr/bin/python3 - <<'END'
import json, pathlib, soundfile

report = json.loads(pathlib.Path("a report/report.json").read_text())
assert report["settings"]["size_s"] == 0.02 and report["settings"]["mix"] == 1
assert abs(report["onset_s"] - 0.02) < 0.001, report["onset_s"]
for band in report["bands"]:
    if band["centre_hz"] >= 500:  # below, one short response scatters too much to judge
        assert abs(band["t30_s"] / band["set_t30_s"] - 1) < 0.05, band
assert report["bands"][-1]["t30_s"] < 0.5 * report["bands"][0]["t30_s"]
assert abs(report["correlation"]["lag_0_from_80_ms_on"]) < 0.1
other = json.loads(pathlib.Path("other/report.json").read_text())
assert other["correlation"]["iacc_80_ms_on"] == 1

sound, rate = soundfile.read("a report/impulse.wav")
assert rate == 48000 and sound.shape[1] == 2 and abs(len(sound) / rate - report["length_s"]) < 1e-4
pictures = sorted(pathlib.Path("a report").glob("*.png"))
page = pathlib.Path("a report/report.html").read_text()
assert len(pictures) == 6 and page.count("data:image/png;base64,") == 6
assert "http" not in page, "the page is not self-contained"
END

measure --compare 'a report' other >table || fail "the comparison"
grep -qE '^settings/eq_low_db +0 +-2 +-2$' table || fail "no difference in: $(cat table)"
grep -qE '^settings/size_s +0.02 +0.02 +=$' table || fail "no equality in: $(cat table)"

code=0
measure -o bad --renderer "$renderer" --decay 99 2>message || code=$?
[[ $code == 2 && $(cat message) == *--decay* ]] || fail "a bad option gave $code: $(cat message)"
code=0
measure --compare other nothing 2>message || code=$?
[[ $code == 1 && $(cat message) == *nothing* ]] || fail "no report gave $code: $(cat message)"
