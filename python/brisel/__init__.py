"""Brisel, a stereo reverb on a 16-line filter feedback delay network, on numpy arrays.

    import brisel

    wet = brisel.render(dry, 48000, preset="Grand Hall", decay=3)  # dry: float32, (n,) or (n, 2)

    reverb = brisel.Reverb(48000, mix=1)
    for block in blocks:            # any lengths: the sound does not depend on them
        reverb.size = "60 ms"       # glides; so does everything else
        out = reverb.process(block)

Audio is float32, nominal +/-1, frames first: (n,) or (n, 1) is mono, (n, 2) is stereo. What lies
channel by channel, (2, n), is handed over as x.T. An input is never copied as a whole, and not at
all where its channels are contiguous; (n, 2) comes back in the order of memory that went in. NaN
and infinities count as 0.

Values are in base units: seconds, hertz, decibels, 0 to 1 for shares; parameters() lists them. A
text that stands for a value, "40 ms", will do as well; beyond the range it is the nearer end.

Two engines. Brisel Live, the one that is used, glides to whatever is set while it sounds. The
exact one (exact=True) has the bits of the exact plug-in: its first twelve parameters, no presets,
rates above 9000 Hz; whatever is set cuts its tail off.

Threads. Rendering gives up the interpreter's lock: different reverbs render at the same time. One
reverb may be used from several threads, whose calls then wait for each other.

Errors. TypeError: no float32, no array, no such parameter. ValueError: a shape, rate, value or name
that is none. RuntimeError: a reverb that is closed, or something that its engine does not have.
MemoryError. A refused call changes nothing.
"""

import collections
import concurrent.futures
import difflib
import itertools
import math
import numbers
import os
import threading
from typing import NamedTuple

from . import _brisel

__all__ = [
    "Meters",
    "Parameter",
    "Preset",
    "Reverb",
    "parameters",
    "presets",
    "render",
    "render_many",
    "to_text",
    "to_value",
]
__version__ = _brisel.__version__


class Parameter(NamedTuple):
    """What there is to know of a parameter."""

    key: str  # name of the attribute and of the keyword
    name: str  # for people
    unit: str  # "s", "dB", "Hz"; "" of shares, factors and steps
    minimum: float
    maximum: float
    default: float
    steps: tuple  # words for 0, 1, ...; empty unless the values are steps


class Preset(NamedTuple):
    """A preset that comes with Brisel Live; name and key both stand for it."""

    name: str
    category: str
    key: str
    description: str


class Meters(NamedTuple):
    """Highest magnitudes since the last reading, linear; duck is the ducker's gain now."""

    input: float
    wet: float  # before Mix
    output: float
    duck: float


_PARAMETERS = tuple(
    Parameter(key.replace("-", "_"), *rest) for key, *rest in _brisel.parameters()
)
_EXACT_PARAMETERS = _PARAMETERS[: _brisel.EXACT_PARAMETERS]
_DEFAULTS = {number: row.default for number, row in enumerate(_PARAMETERS)}
_EXACT_DEFAULTS = {number: row.default for number, row in enumerate(_EXACT_PARAMETERS)}
_PRESETS = tuple(Preset(*row) for row in _brisel.presets())
_IDS = {parameter.key: number for number, parameter in enumerate(_PARAMETERS)}


def parameters(*, exact=False):
    """The parameters of Brisel Live, or of the exact engine, as a list of Parameter."""
    return list(_EXACT_PARAMETERS if exact else _PARAMETERS)


def presets():
    """The presets of Brisel Live as a list of Preset, sorted by category and name."""
    return list(_PRESETS)


def to_text(key, value):
    """What people read of a parameter's value: to_text("size", 0.04) is "40.0 ms"."""
    number = _id(key)
    return _brisel.to_text(number, _number(number, value))


def to_value(key, text):
    """The value of what people type: to_value("size", "40 ms") is 0.04.

    A number without a unit is in the unit that to_text shows; beyond the range comes the nearer
    end.
    """
    if not isinstance(text, str):
        raise TypeError(f"{key}: a text, not {type(text).__name__}")
    return _number(_id(key), text)


def _id(key, exact=False):
    if not isinstance(key, str):
        raise TypeError(f"a parameter's key is a str, not {type(key).__name__}")
    number = _IDS.get(key.replace("-", "_"))
    known = _EXACT_PARAMETERS if exact else _PARAMETERS
    if number is None:
        close = difflib.get_close_matches(key, [parameter.key for parameter in known], 1)
        raise TypeError(
            f"no parameter '{key}'" + (f"; there is '{close[0]}'" if close else "")
        )
    if number >= len(known):
        raise TypeError(f"the exact engine has no parameter '{key}'")
    return number


def _number(number, value):
    """A value as a float in the parameter's range."""
    row = _PARAMETERS[number]
    if isinstance(value, str):
        try:
            return _brisel.to_value(number, value)
        except ValueError:
            example = _brisel.to_text(number, row.default)
            raise ValueError(f"{row.key}: '{value}' is no value such as '{example}'") from None
    if not isinstance(value, numbers.Real) and not hasattr(value, "__float__"):
        raise TypeError(f"{row.key}: a number or a text, not {type(value).__name__}")
    value = float(value)
    if not row.minimum <= value <= row.maximum:
        unit = f" {row.unit}" if row.unit else ""
        raise ValueError(f"{row.key}: {value:g} is not in {row.minimum:g} to {row.maximum:g}{unit}")
    if row.steps and not value.is_integer():
        raise ValueError(f"{row.key}: {value:g} is no whole number")
    return value


def _real(name, value):
    """A rate or a time: numbers, but neither truth values nor texts."""
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise TypeError(f"{name} is a number, not {type(value).__name__}")
    return float(value)


def _channels(channels):
    if channels not in (None, 1, 2):
        raise ValueError(f"channels: 1, 2 or None for as many as come in, not {channels!r}")
    return channels or 0


class Reverb:
    """A reverb that renders a signal block by block; every parameter is an attribute.

    rate    Hz; 1000 to 768000, or a whole number above 9000 with exact=True
    preset  name or key of a preset; the values of other parameters count on top of it

    Attributes take numbers and texts; those that are steps read as int, the others as float. With
    Brisel Live a value glides in from the next block on. With exact=True every change starts the
    network anew, from silence: set several together with set().
    """

    __slots__ = ("_engine", "_exact", "_rate")

    def __init__(self, rate, *, preset=None, exact=False, **values):
        self._engine = None
        self._exact = bool(exact)
        self._rate = _real("rate", rate)
        self._engine = (_brisel.Exact if exact else _brisel.Live)(self._rate)
        self._start(preset, values)

    @property
    def rate(self):
        """Sample rate in Hz."""
        return self._rate

    @property
    def exact(self):
        """Whether this is the exact engine."""
        return self._exact

    @property
    def tail(self):
        """Seconds until the sound has fallen by 90 dB after the input's end; inf while frozen."""
        frames = self._open().tail_frames()
        return math.inf if frames == 2**64 - 1 else frames / self._rate

    @property
    def values(self):
        """All values by key: Reverb(rate, **other.values) sounds the same."""
        return {row.key: getattr(self, row.key) for row in parameters(exact=self._exact)}

    def set(self, **values):
        """Sets several parameters together; if one is refused, nothing changes."""
        engine = self._open()
        engine.set(
            {
                number: _number(number, value)
                for number, value in ((_id(key, self._exact), v) for key, v in values.items())
            }
        )

    def process(self, block, *, channels=None, events=()):
        """Renders a block of any length and returns as many frames.

        channels  1 or 2 instead of as many as come in; 1 is the mean of both sides
        events    (frame, key, value): what to set within the block; Brisel Live only
        The exact engine takes multiples of 8 frames.
        """
        engine = self._open()
        return engine.process(block, 0, _channels(channels), self._events(block, events), False)

    def reset(self):
        """Silence at once; the values stay."""
        self._open().reset()

    def text(self, key):
        """What people read of a value in force: "40.0 ms"."""
        return to_text(key, getattr(self, _PARAMETERS[_id(key, self._exact)].key))

    def meters(self):
        """Peaks since the last reading, which starts them anew. Brisel Live only."""
        return Meters(*self._live("meters").meters())

    @property
    def asleep(self):
        """Whether silence came in and exact zeros went out, until there is input. Live only."""
        return self._live("sleep").asleep()

    def set_tempo(self, beats_per_minute):
        """For predelay_sync: quarter notes a minute, 20 to 999. Brisel Live only."""
        self._live("tempo").set_tempo(_real("tempo", beats_per_minute))

    def load_preset(self, name):
        """Sets all values but bypass and clear from a preset, by name or key. Live only."""
        engine = self._live("presets")
        if not isinstance(name, str):
            raise TypeError(f"a preset's name is a str, not {type(name).__name__}")
        try:
            engine.load_preset(name)
        except ValueError:
            names = {key.casefold(): preset.name for preset in _PRESETS for key in preset[:3:2]}
            close = difflib.get_close_matches(name.casefold(), names, 1)
            hint = f"; there is '{names[close[0]]}'" if close else "; presets() lists them"
            raise ValueError(f"no preset '{name}'{hint}") from None

    def load(self, text):
        """The same from the text of a preset, as files and save() have it. Live only."""
        engine = self._live("presets")
        if not isinstance(text, str):
            raise TypeError(f"a preset's text is a str, not {type(text).__name__}")
        engine.load(text)

    def save(self):
        """All values but bypass and clear as the text of a preset. Live only."""
        return self._live("presets").save()

    def close(self):
        """Frees the engine now; what follows raises RuntimeError. Also at the end of `with`."""
        self._engine = None

    def __enter__(self):
        self._open()
        return self

    def __exit__(self, *_):
        self.close()

    def __repr__(self):
        engine = "closed" if getattr(self, "_engine", None) is None else f"{self._rate:g} Hz"
        return f"<brisel.Reverb, {engine}>"

    def _start(self, preset, values):
        """As if just made, so that the same values give the same bits."""
        self._engine.set(_EXACT_DEFAULTS if self._exact else _DEFAULTS)
        if preset is not None:
            self.load_preset(preset)
        self.set(**values)
        self._engine.reset()

    def _open(self):
        engine = getattr(self, "_engine", None)
        if engine is None:
            raise RuntimeError("this reverb is closed")
        return engine

    def _live(self, what):
        engine = self._open()
        if self._exact:
            raise RuntimeError(f"the exact engine has no {what}")
        return engine

    def _events(self, block, events):
        found = []
        for frame, key, value in events:
            self._live("events")
            if not isinstance(frame, numbers.Integral) or not 0 <= frame < max(len(block), 1):
                raise ValueError(f"an event at frame {frame} of a block of {len(block)}")
            number = _id(key)
            found.append((frame, number, _number(number, value)))
        return sorted(found, key=lambda event: event[0])

    def _render(self, audio, tail, channels):
        if tail is None and math.isinf(self.tail):
            raise ValueError("freeze never ends: say how long a tail is wanted")
        tail = self.tail if tail is None else _real("tail", tail)
        if not 0 <= tail * self._rate < 2**48:
            raise ValueError(f"tail: {tail:g} is no time in seconds")
        extra = math.ceil(tail * self._rate)
        return self._open().process(audio, extra, _channels(channels), [], True)


def _attribute(number, row):
    def read(self):
        _id(row.key, self.exact)
        value = self._open().get(number)
        return int(value) if row.steps else value

    def write(self, value):
        self.set(**{row.key: value})

    unit = f" {row.unit}" if row.unit else ""
    words = f"; {', '.join(row.steps)}" if row.steps else ""
    doc = f"{row.name}: {row.minimum:g} to {row.maximum:g}{unit}, default {row.default:g}{words}."
    return property(read, write, doc=doc)


for _number_of, _row in enumerate(_PARAMETERS):
    setattr(Reverb, _row.key, _attribute(_number_of, _row))
del _number_of, _row


def render(audio, rate, *, tail=None, channels=None, preset=None, exact=False, **values):
    """Audio with reverb, and its tail.

    audio     float32, (n,), (n, 1) or (n, 2)
    rate      Hz
    tail      seconds behind the end; None until the sound has fallen by 90 dB, 0 for the length of
              the input
    channels  1 or 2 instead of as many as come in
    preset, exact, values  as for Reverb: render(x, 48000, preset="Grand Hall", decay=3)
    """
    return Reverb(rate, preset=preset, exact=exact, **values)._render(audio, tail, channels)


def render_many(clips, rate, *, jobs=None, settings=None, **common):
    """Renders many clips on several threads; yields the results in the clips' order.

    clips     iterable of what render() takes; read as results are taken, a few ahead
    rate      Hz
    jobs      threads; None for as many as there are processors
    settings  iterable of dict: keywords of render() for one clip each, beside the common ones
    common    keywords of render() for all of them

    The bits are those of render(). A clip that is refused raises render()'s exception, with its
    number as a note where Python has notes (from 3.11 on).
    """
    if jobs is None:
        jobs = len(os.sched_getaffinity(0))
    if isinstance(jobs, bool) or not isinstance(jobs, numbers.Integral):
        raise TypeError(f"jobs is a whole number, not {type(jobs).__name__}")
    if jobs < 1:
        raise ValueError(f"jobs: {jobs} is not 1 or more")
    return _render_many(clips, rate, jobs, settings, common)


def _render_many(clips, rate, jobs, settings, common):
    pairs = zip(clips, itertools.repeat({}) if settings is None else settings)

    # A thread keeps its reverbs: to make one takes as long as a second of audio or more.
    own_reverbs = threading.local()

    def render_one(clip, *, tail=None, channels=None, preset=None, exact=False, **values):
        name = "exact" if exact else "live"
        reverb = getattr(own_reverbs, name, None)
        if reverb is None:
            reverb = Reverb(rate, exact=exact)
            setattr(own_reverbs, name, reverb)
        reverb._start(preset, values)
        return reverb._render(clip, tail, channels)

    def one(index, clip, own):
        try:
            return render_one(clip, **{**common, **own})
        except Exception as error:
            if hasattr(error, "add_note"):
                error.add_note(f"clip {index}")
            raise

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        ahead = collections.deque()
        try:
            for index, (clip, own) in enumerate(pairs):
                ahead.append(pool.submit(one, index, clip, own))
                if len(ahead) > 2 * jobs:
                    yield ahead.popleft().result()
            while ahead:
                yield ahead.popleft().result()
        finally:
            for future in ahead:
                future.cancel()
