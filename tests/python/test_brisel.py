"""The Python module beside brisel-render, whatever the layout and the cuts; what it refuses."""

import itertools
import os
import pathlib
import re
import subprocess
import sys
import threading
import time
import tracemalloc

import brisel
import numpy as np
import pytest
import soundfile

RATE = 44100
ROOT = pathlib.Path(__file__).resolve().parents[2]


def noise(frames, *channels, seed=7):
    return 0.2 * np.random.default_rng(seed).standard_normal((frames, *channels), np.float32)


def same(a, b):
    assert a.dtype == b.dtype == np.float32
    np.testing.assert_array_equal(a, b, strict=True)


RENDERED = {
    "live": (
        ["--live", "--preset", "vocal-plate", "--decay", "3"],
        {"preset": "vocal plate", "decay": 3},
    ),
    "exact": (["--size", "20ms", "--mix", "0.7"], {"exact": True, "size": "20 ms", "mix": 0.7}),
}


@pytest.mark.parametrize("engine", RENDERED)
def test_bits_are_those_of_the_renderer(engine, tmp_path):
    options, values = RENDERED[engine]
    renderer = pathlib.Path(os.environ["BRISEL_BUILD"]) / "brisel-render"
    if not renderer.is_file():
        pytest.skip("brisel-render is not built")
    dry = noise(RATE + 3, 2)
    soundfile.write(tmp_path / "dry.wav", dry, RATE, subtype="FLOAT")
    command = [renderer, tmp_path / "dry.wav", tmp_path / "wet.wav", "--tail", "0.5", *options]
    subprocess.run(command, check=True, capture_output=True)
    wet, _ = soundfile.read(tmp_path / "wet.wav", dtype="float32")
    same(brisel.render(dry, RATE, tail=0.5, **values), wet)


def test_neither_cuts_nor_layouts_are_heard():
    dry = noise(6000, 2)
    dry[100:103, 0] = np.nan, np.inf, -np.inf
    clean = np.nan_to_num(dry, posinf=0, neginf=0)
    events = [(2500, "size", "90 ms"), (700, "er-level", 0.9), (5999, "mix", 1)]
    values = {"early_reflections": True, "mix": 0.5}
    expected = brisel.Reverb(RATE, **values).process(clean, events=events)

    odd = np.zeros(dry.nbytes + 1, np.uint8)[1:].view(np.float32).reshape(dry.shape)
    wide = np.zeros((6000, 5), np.float32)
    for layout in (dry, np.asfortranarray(dry), odd, wide[:, 1:5:3], dry[::-1].copy()[::-1]):
        layout[...] = dry
        got = brisel.Reverb(RATE, **values).process(layout, events=events)
        assert got.flags.f_contiguous == (layout.flags.f_contiguous and layout.flags.aligned)
        same(np.ascontiguousarray(got), expected)

    reverb, blocks, at = brisel.Reverb(RATE, **values), [], 0
    for length in itertools.cycle((441, 1, 0, 1025, 7)):
        here = [(f - at, *what) for f, *what in events if at <= f < at + length]
        blocks.append(reverb.process(dry[at : at + length], events=here))
        if (at := at + length) >= len(dry):
            break
    same(np.concatenate(blocks), expected)

    # Mono is the same on both sides; one channel out is the mean of two.
    both = brisel.render(np.stack([clean[:, 0]] * 2, axis=1), RATE)
    same(brisel.render(clean[:, 0], RATE, channels=2), both)
    mean = brisel.render(clean[:, :1], RATE)
    assert mean.shape == (len(both), 1)
    np.testing.assert_allclose(mean[:, 0], both.mean(axis=1), atol=1e-6)


def test_inputs_are_not_copied():
    for dry in (noise(10**6), noise(10**6, 2), noise(10**6, 2).copy("F"), noise(10**6, 4)[:, ::3]):
        reverb = brisel.Reverb(RATE)
        tracemalloc.start()
        wet = reverb.process(dry)
        _, peak = tracemalloc.get_traced_memory()
        tracemalloc.stop()
        assert wet.nbytes <= peak < 1.01 * wet.nbytes


def test_values_texts_and_presets_go_both_ways():
    other = brisel.Reverb(RATE)
    for preset in brisel.presets():
        reverb = brisel.Reverb(RATE, preset=preset.name)
        other.load(reverb.save())
        assert other.values == reverb.values == brisel.Reverb(RATE, preset=preset.key).values
        for row in brisel.parameters():
            value = brisel.to_value(row.key, reverb.text(row.key))
            setattr(other, row.key, reverb.text(row.key))
            assert getattr(other, row.key) == value
    assert reverb.values != brisel.Reverb(RATE).values
    with pytest.raises(ValueError):
        reverb.set(size=0.1, decay=1e9)
    assert reverb.size != 0.1

    reverb.freeze = True
    assert reverb.tail == np.inf and type(reverb.freeze) is int
    reverb.reset()
    assert reverb.meters() and reverb.process(np.zeros(100, np.float32)).max() == 0
    reverb.process(np.full(100, 0.5, np.float32))
    assert reverb.meters().input == 0.5 and reverb.meters().input == 0


@pytest.mark.parametrize("exact", [False, True])
def test_threads_change_no_bit(exact):
    clips = [noise(RATE // 4 + 8 * i, *[2] * (i % 2), seed=i) for i in range(40)]
    own = [{"decay": 0.2 + 0.05 * i, "tail": 0.1 * (i % 3)} for i in range(40)]
    for clip, keywords, wet in zip(
        clips, own, brisel.render_many(clips, RATE, jobs=4, settings=own, exact=exact, mix=1)
    ):
        same(wet, brisel.render(clip, RATE, exact=exact, mix=1, **keywords))
    with pytest.raises(TypeError, match="float32"):
        list(brisel.render_many([clips[0], clips[1].astype(float)], RATE, exact=exact))


@pytest.mark.parametrize("exact", [False, True])
def test_rendering_leaves_the_interpreter_to_others(exact):
    reverb, dry = brisel.Reverb(RATE, exact=exact), noise(2 * 10**5)
    rendering, met = False, threading.Event()

    def render():
        nonlocal rendering
        for _ in range(300):
            rendering = True
            reverb.process(dry)
            rendering = False
            if met.is_set():
                return

    thread, interval = threading.Thread(target=render), sys.getswitchinterval()
    sys.setswitchinterval(1000)  # s: only a thread that gives the interpreter away is interrupted
    try:
        thread.start()
        while thread.is_alive() and not met.is_set():
            if rendering:
                reverb.decay = 2  # of the same reverb, and its turn comes
                assert np.isfinite(reverb.process(dry[:80])).all()
                met.set()
            time.sleep(0)
    finally:
        sys.setswitchinterval(interval)
    thread.join()
    assert met.is_set()


STEREO = np.zeros((64, 2), np.float32)
EXACT = {"exact": True}
REFUSALS = [
    (lambda: brisel.render([0.0], RATE), TypeError, "numpy array.*list"),
    (lambda: brisel.render(STEREO.astype(float), RATE), TypeError, "float64.*astype"),
    (lambda: brisel.render(STEREO.astype(">f4"), RATE), TypeError, ">f4"),
    (lambda: brisel.render(STEREO.T, RATE), ValueError, r"\(2, 64\).*x\.T"),
    (lambda: brisel.render(np.zeros((4, 3), np.float32), RATE), ValueError, r"\(4, 3\)"),
    (lambda: brisel.render(np.zeros((), np.float32), RATE), ValueError, r"\(\)"),
    (lambda: brisel.render(STEREO, RATE, channels=3), ValueError, "channels.*3"),
    (lambda: brisel.render(STEREO, 999), ValueError, "999.*1000 to 768000"),
    (lambda: brisel.render(STEREO, float("nan")), ValueError, "rate nan"),
    (lambda: brisel.render(STEREO, "48k"), TypeError, "rate.*str"),
    (lambda: brisel.render(STEREO, 9000, **EXACT), ValueError, "above 9000"),
    (lambda: brisel.render(STEREO, 44100.5, **EXACT), ValueError, "whole rates"),
    (lambda: brisel.render(STEREO, 1e300, **EXACT), ValueError, "768000"),
    (lambda: brisel.render(STEREO, RATE, tail=-1), ValueError, "tail: -1"),
    (lambda: brisel.render(STEREO, RATE, tail=np.inf), ValueError, "tail: inf"),
    (lambda: brisel.render(STEREO, RATE, freeze=1), ValueError, "never ends"),
    (lambda: brisel.render(STEREO, RATE, decya=1), TypeError, "'decya'; there is 'decay'"),
    (lambda: brisel.render(STEREO, RATE, decay=0), ValueError, "decay: 0 is not in 0.1 to 60 s"),
    (lambda: brisel.render(STEREO, RATE, decay=np.nan), ValueError, "decay: nan"),
    (lambda: brisel.render(STEREO, RATE, decay=None), TypeError, "decay.*NoneType"),
    (lambda: brisel.render(STEREO, RATE, size="wide"), ValueError, "'wide'.*'40.0 ms'"),
    (lambda: brisel.render(STEREO, RATE, brisel=1.5), ValueError, "whole number"),
    (lambda: brisel.render(STEREO, RATE, preset="Hal"), ValueError, "'Hal'; there is 'Hall'"),
    (lambda: brisel.render(STEREO, RATE, preset="hall\0"), ValueError, "no preset"),
    (lambda: brisel.render(STEREO, RATE, preset="hall", **EXACT), RuntimeError, "no presets"),
    (lambda: brisel.render(STEREO, RATE, freeze=1, **EXACT), TypeError, "exact.*'freeze'"),
    (lambda: brisel.Reverb(RATE, **EXACT).process(STEREO[:9]), ValueError, "multiple of 8.*9"),
    (lambda: brisel.Reverb(RATE, **EXACT).meters(), RuntimeError, "no meters"),
    (lambda: brisel.Reverb(RATE).load("no preset"), ValueError, "text"),
    (lambda: brisel.Reverb(RATE).set_tempo(5), ValueError, "20 to 999"),
    (lambda: setattr(brisel.Reverb(RATE), "decya", 1), AttributeError, "decya"),
    (
        lambda: brisel.Reverb(RATE).process(STEREO, events=[(64, "mix", 1)]),
        ValueError,
        "frame 64 of a block of 64",
    ),
    (lambda: brisel.Reverb.__new__(brisel.Reverb).process(STEREO), RuntimeError, "closed"),
    (lambda: brisel.render_many([], RATE, jobs=0), ValueError, "jobs"),
]


@pytest.mark.parametrize("number", range(len(REFUSALS)))
def test_refusals_name_their_cause(number):
    call, error, message = REFUSALS[number]
    with pytest.raises(error, match=message):
        call()


def test_a_closed_reverb_says_so():
    with brisel.Reverb(RATE) as reverb:
        reverb.process(STEREO)
    for call in (lambda: reverb.process(STEREO), lambda: reverb.decay, reverb.meters):
        with pytest.raises(RuntimeError, match="closed"):
            call()


def test_the_documentation_runs(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    soundfile.write("dry.wav", noise(RATE, 2), RATE, subtype="FLOAT")
    page = (ROOT / "docs/python.md").read_text()
    blocks = re.findall(r"^```python\n(.*?)^```", page, re.M | re.S)
    assert blocks
    names = {}
    for block in blocks:
        exec(compile(block, "docs/python.md", "exec"), names)
