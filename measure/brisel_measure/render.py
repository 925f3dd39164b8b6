"""Responses: of the plug-in, as brisel-render gives it of an impulse, and of files."""

import dataclasses
import pathlib
import shutil
import struct
import subprocess
import tempfile

import numpy as np
import soundfile

from . import analysis

# The twelve values of a saved state, in its order.
SETTINGS = (
    "size_s",
    "decay_s",
    "brisel_stages",
    "damp",
    "mix",
    "width",
    "modulate",
    "early_reflections",
    "er_size_s",
    "er_level",
    "eq_low_db",
    "eq_high_db",
)

# Lengths of the 16 lines in relation to each other; Size is that of the first.
LINES = (997, 1031, 1063, 1097, 1129, 1163, 1193, 1229)
LINES += (1259, 1291, 1321, 1361, 1399, 1429, 1453, 1489)


class RenderError(Exception):
    """The renderer refused or failed; `code` is its exit code, the text its message."""

    def __init__(self, message, code=1):
        super().__init__(message)
        self.code = code


@dataclasses.dataclass
class Response:
    """An impulse response: frames by channels.

    Of the plug-in it begins at the impulse and is free of noise, and the settings are known. Of a
    file it begins at the onset, which lay `start` seconds behind the file's beginning, and ends in
    whatever noise the file has.
    """

    sound: np.ndarray
    rate: int
    name: str  # what it is of: options, a file
    settings: dict | None = None
    options: list = dataclasses.field(default_factory=list)
    start: float = 0.0

    @property
    def decay_ends(self):
        """The decay times set at 0 Hz and at half the sample rate, in seconds; 0: no second one."""
        low, damp = self.settings["decay_s"], self.settings["damp"]
        return low, (low * 0.1**damp if damp > 0 else 0.0)

    @property
    def loop(self):
        """The mean length of the 16 loops in samples: line plus stage delays."""
        stages = range(int(self.settings["brisel_stages"] + 0.5))
        lines = np.array(LINES) / LINES[0] * self.settings["size_s"] * self.rate
        return float(np.mean(lines) + sum(np.mean(np.arange(16)) * 16**stage for stage in stages))


def find_renderer():
    """brisel-render of the build beside this module, of its installation, or of the PATH."""
    here = pathlib.Path(__file__).resolve()
    for folder in (here.parents[2] / "build/release", here.parents[3] / "bin"):
        if (folder / "brisel-render").is_file():
            return str(folder / "brisel-render")
    found = shutil.which("brisel-render")
    if found is None:
        raise RenderError("no brisel-render here; build it, or name it with --renderer")
    return found


def read_state(path):
    """The settings in a state that the plug-in has saved."""
    data = pathlib.Path(path).read_bytes()
    if len(data) != 104 or data[:8] != b"QVB1" + struct.pack("<I", 1):
        raise RenderError(f"{path}: not a saved state")
    return dict(zip(SETTINGS, struct.unpack("<12d", data[8:])))


def measure(options, rate=48000, renderer=None):
    """The response at mix 1 with the given options of brisel-render, as a list of words."""
    renderer = renderer or find_renderer()
    if any(option.split("=")[0] == "--mix" for option in options):
        raise RenderError("responses are measured at mix 1: leave --mix out", 2)

    with tempfile.TemporaryDirectory() as folder:
        click, wet, state = (
            str(pathlib.Path(folder) / name) for name in ("click.wav", "wet.wav", "state")
        )
        impulse = np.zeros(64)
        impulse[0] = 1
        soundfile.write(click, impulse, rate, subtype="FLOAT")

        def run(*words):
            command = [renderer, *words, *options, "--mix", "1", "--quiet"]
            done = subprocess.run(command, capture_output=True, text=True)
            if done.returncode != 0:
                raise RenderError(done.stderr.strip() or f"{renderer} failed", done.returncode)

        # The settings tell how long the response is: the plug-in's own tail of 1.5 times Decay, a
        # fall by 90 dB, and the time that the first echoes take.
        run("--save-state", state)
        settings = read_state(state)
        tail = 1.5 * settings["decay_s"] + 3 * settings["size_s"] + 0.5
        run(click, wet, "--tail", f"{tail:.3f}")
        sound, rate = soundfile.read(wet, dtype="float64", always_2d=True)
    return Response(sound, rate, " ".join(options) or "default settings", settings, list(options))


def load(path):
    """The response in a sound file, mono or stereo, from its onset on."""
    try:
        with open(path, "rb") as file:
            sound, rate = soundfile.read(file, dtype="float64", always_2d=True)
    except soundfile.LibsndfileError as error:
        raise OSError(f"{path}: not a sound file: {error.error_string}") from None
    if sound.shape[1] > 2:
        raise OSError(f"{path}: {sound.shape[1]} channels; a response has one or two")
    if not np.isfinite(sound).all():
        raise OSError(f"{path}: samples that are no numbers")
    if len(sound) < rate // 10:
        raise OSError(f"{path}: too short: {len(sound) / rate:.3f} s")
    begin = analysis.onset(sound)
    return Response(sound[begin:], rate, str(path), start=begin / rate)


def load_measured(path, found):
    """The response of a report, from its impulse.wav; None if that is not there."""
    if not pathlib.Path(path).is_file():
        return None
    sound, rate = soundfile.read(path, dtype="float64", always_2d=True)
    return Response(sound, rate, found["name"], found["settings"] or None)
