#!/usr/bin/python3
"""brisel-render and what surrounds it: how samples are rounded, pipes, damaged and crowded files,
metadata, folders, and what it says to misspelt words.

usage: render_files_test.py RENDERER
"""

import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

import numpy as np
import soundfile

RENDERER = pathlib.Path(sys.argv.pop(1)).resolve()
DRY = ["--mix", "0", "--tail", "0"]


def chunk(name, data):
    return name + struct.pack("<I", len(data)) + data + b"\0" * (len(data) % 2)


def wav(*chunks):
    body = b"WAVE" + b"".join(chunks)
    return b"RIFF" + struct.pack("<I", len(body)) + body


def chunks_of(file):
    data, found, at = file.read_bytes(), {}, 12
    while at + 8 <= len(data):
        size = struct.unpack_from("<I", data, at + 4)[0]
        found[data[at : at + 4]] = data[at + 8 : at + 8 + size]
        at += 8 + size + size % 2
    return found


class Files(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.sound = np.random.default_rng(1).uniform(-0.5, 0.5, (4000, 2)).astype(np.float32)
        self.write("in.wav", self.sound)

    def write(self, name, sound, subtype="FLOAT", rate=48000):
        soundfile.write(self.folder / name, sound, rate, subtype)

    def read(self, name):
        return soundfile.read(self.folder / name, always_2d=True)[0]

    def bytes(self, name):
        return (self.folder / name).read_bytes()

    def run_program(self, *words, stdin=b"", code=0):
        done = subprocess.run([RENDERER, *words], cwd=self.folder, input=stdin, capture_output=True)
        self.assertEqual(done.returncode, code, (words, done.stderr))
        return done

    def refuse(self, *words, stdin=b"", code=1):
        done = self.run_program(*words, stdin=stdin, code=code)
        return done.stderr.decode(errors="replace")

    def test_integers_are_the_nearest_in_every_format_and_dither_is_triangular(self):
        for bits in (16, 24):
            nearest = np.rint(self.sound.astype(float) * 2 ** (bits - 1))
            for ending in ("wav", "aiff", "au", "w64", "rf64", "caf", "flac"):
                self.run_program("in.wav", f"out.{ending}", *DRY, "--bits", str(bits))
                integers = self.read(f"out.{ending}") * 2 ** (bits - 1)
                np.testing.assert_array_equal(integers, nearest, f"{ending}, {bits} bits")
        level = 0.3 / 32768  # which undithered rounding would lose
        self.write("quiet.wav", np.full((48000, 2), level))
        words = ("quiet.wav", "out.wav", *DRY, "--bits", "16", "--dither")
        self.run_program(*words)
        steps, first = self.read("out.wav") * 32768, self.bytes("out.wav")
        self.assertAlmostEqual(steps.mean(), 0.3, delta=0.01)
        self.assertAlmostEqual(np.mean((steps - 0.3) ** 2), 1 / 6 + 1 / 12, delta=0.01)
        self.run_program(*words)
        self.assertEqual(self.bytes("out.wav"), first)

    def test_mono_sounds_as_on_two_channels_and_bits_follow_the_input(self):
        for bits, ending in ((16, "wav"), (24, "flac"), (16, "flac")):
            self.write("one.wav", self.sound[:, 0], f"PCM_{bits}")
            self.write("two.wav", self.sound[:, [0, 0]], f"PCM_{bits}")
            for name in ("one", "two"):
                said = self.run_program(f"{name}.wav", f"{name}-out.{ending}", "--decay", "0.2")
                self.assertIn(f"{bits} bit".encode(), said.stdout)
            self.assertEqual(self.bytes(f"one-out.{ending}"), self.bytes(f"two-out.{ending}"))
            info = soundfile.info(self.folder / f"one-out.{ending}")
            self.assertEqual((info.subtype, info.channels), (f"PCM_{bits}", 2))

    def test_pipes_carry_what_files_carry(self):
        self.run_program("in.wav", "file.wav", "--decay", "0.3")
        header = bytearray(self.bytes("in.wav"))
        unknown = bytes(header)
        for field in (4, unknown.index(b"data") + 4):
            unknown = unknown[:field] + b"\xff" * 4 + unknown[field + 4 :]
        self.write("in.au", self.sound)
        au = self.bytes("in.au")
        self.write("in.rf64", self.sound)
        for stream in (unknown, bytes(header), au[:8] + b"\xff" * 4 + au[12:], self.bytes("in.rf64")):
            self.run_program("-", "piped.wav", "--decay", "0.3", stdin=stream)
            self.assertEqual(self.bytes("piped.wav"), self.bytes("file.wav"))
            # Twice through a stream that comes but once.
            self.run_program("-", "piped.wav", "--normalize", stdin=stream)

        (self.folder / "cut.wav").write_bytes(header[: len(header) // 2])
        before = self.bytes("piped.wav")
        for name, stdin in (("-", header[: len(header) // 2]), ("cut.wav", b"")):
            said = self.refuse(name, "piped.wav", stdin=stdin)
            self.assertRegex(said, "is damaged: it ends after [0-9]+ of 4000 frames")
        self.assertEqual(self.bytes("piped.wav"), before)

        for ending in ("wav", "au", "flac"):
            for bits in ("16", "24", "32f")[: 2 if ending == "flac" else 3]:
                words = ("in.wav", "--decay", "0.3", "--bits", bits)
                self.run_program(*words[:1], f"file.{ending}", *words[1:])
                for name in ("-", "/dev/stdout"):
                    format_words = ("--format", ending)
                    done = self.run_program(words[0], name, *format_words, *words[1:])
                    self.assertIn(b"times real time", done.stderr)
                    (self.folder / f"piped.{ending}").write_bytes(done.stdout)
                    np.testing.assert_array_equal(
                        self.read(f"piped.{ending}"), self.read(f"file.{ending}")
                    )
        raw = self.run_program("in.wav", "-", "--format", "raw", *DRY).stdout
        self.assertEqual(raw, self.sound.astype("<f4").tobytes())

        state = self.run_program("--save-state", "-", "--size", "33ms").stdout
        preset = self.run_program("--state", "-", "--save-preset", "-", stdin=state).stdout
        self.assertIn(b"size = 33 ms\n", preset)
        table = self.run_program("--preset", "-", "--list-parameters", "--json", stdin=preset)
        self.assertAlmostEqual(json.loads(table.stdout)[0]["value"], 0.033)
        self.run_program("in.wav", "auto.wav", "--automation", "-", stdin=b"0 mix 0\n")
        self.assertIn("named more than once", self.refuse("-", "a.wav", "--state", "-", code=2))

    def test_metadata_moves_along_and_what_cannot_is_told(self):
        fmt = struct.pack("<HHIIHH", 1, 1, 48000, 96000, 2, 16)
        bext = b"scene".ljust(338, b"\0") + struct.pack("<IIH", 48000, 0, 1) + bytes(254)
        cues = [struct.pack("<II4sIII", k, at, b"data", 0, 0, at) for k, at in ((1, 100), (2, 2000))]
        loop = struct.pack("<9I6I", 0, 0, 20833, 60, 0, 0, 0, 1, 0, 0, 0, 1000, 2999, 0, 0)
        title = b"INFO" + chunk(b"INAM", b"A title\0")
        names = b"adtl" + chunk(b"labl", struct.pack("<I", 1) + b"A cue\0")
        (self.folder / "tagged.wav").write_bytes(
            wav(chunk(b"fmt ", fmt), chunk(b"bext", bext), chunk(b"iXML", b"<x></x>"),
                chunk(b"data", bytes(8000)), chunk(b"LIST", title), chunk(b"LIST", names),
                chunk(b"cue ", struct.pack("<I", 2) + b"".join(cues)), chunk(b"smpl", loop))
        )  # fmt: skip
        said = self.run_program("tagged.wav", "out.wav", "--rate", "96000", "--tail", "0")
        self.assertEqual(said.stderr, b"")
        found = chunks_of(self.folder / "out.wav")
        self.assertEqual(struct.unpack_from("<I", found[b"cue "], 4 + 24 + 20)[0], 4000)
        self.assertEqual(struct.unpack_from("<I", found[b"smpl"], 44)[0], 2000)
        self.assertEqual(found[b"bext"][:5], b"scene")
        self.assertEqual(struct.unpack_from("<I", found[b"bext"], 338)[0], 96000)
        for text in (b"A title", b"A cue"):
            self.assertIn(text, self.bytes("out.wav"))
        self.assertIn(b"<x></x>", found[b"iXML"])
        lost = self.run_program("tagged.wav", "out.flac").stderr.decode()
        self.assertIn(": broadcast information, cue points, instrument and loops", lost)
        self.assertNotIn("title", lost)

    def test_mode_and_link_of_a_result_stay(self):
        (self.folder / "out.wav").write_bytes(b"old")
        (self.folder / "out.wav").chmod(0o604)
        for link, target in (("link.wav", "out.wav"), ("loose.wav", "new.wav")):
            (self.folder / link).symlink_to(target)
            self.run_program("in.wav", link)
            self.assertTrue((self.folder / link).is_symlink())
            self.assertEqual(soundfile.info(self.folder / target).channels, 2)
        self.assertEqual((self.folder / "out.wav").stat().st_mode & 0o777, 0o604)

    def test_channels_are_chosen_and_rates_changed(self):
        self.write("five.wav", np.repeat(self.sound, 3, axis=1)[:, :5])
        self.assertIn("--channels 1,2", self.refuse("five.wav", "out.wav"))
        self.run_program("five.wav", "out.wav", *DRY, "--channels", "5,1")
        np.testing.assert_array_equal(self.read("out.wav"), self.sound[:, [1, 0]])
        self.assertIn("has 5 channels", self.refuse("five.wav", "out.wav", "--channels", "6"))

        time = np.arange(8001) / 8000
        self.write("low.wav", 0.5 * np.sin(2 * np.pi * 1000 * time), rate=8000)
        self.assertIn("use --rate 48000", self.refuse("low.wav", "out.wav"))
        self.run_program("low.wav", "out.wav", *DRY, "--rate", "44100")
        there = self.read("out.wav")[:, 0]
        self.assertEqual(there.size, round(8001 * 44100 / 8000))
        expected = 0.5 * np.sin(2 * np.pi * 1000 * np.arange(there.size) / 44100)
        self.assertLess(np.abs(there - expected)[500:-500].max(), 1e-4)
        self.assertIn("use --rate 48000", self.refuse("in.wav", "a.opus", "--rate", "44100"))

    def test_folders_are_walked_and_jobs_stay_in_order(self):
        (self.folder / "songs/sub").mkdir(parents=True)
        for index in range(6):  # the longest first, so that later ones are done before it
            self.write(f"songs/{index}.wav", np.repeat(self.sound, 12 - 2 * index, axis=0))
        self.write("songs/sub/a.wav", self.sound)
        (self.folder / "songs/2.wav").write_bytes(b"no sound")
        (self.folder / "songs/notes.txt").write_bytes(b"no sound")
        one = self.run_program("songs", "-r", "-o", "one", "--json", code=1)
        two = self.run_program("songs", "-r", "-o", "two", "--json", "-j", "4", code=1)
        names = [json.loads(line)["input"] for line in two.stdout.splitlines()]
        self.assertEqual(names, [f"songs/{i}.wav" for i in (0, 1, 3, 4, 5)] + ["songs/sub/a.wav"])
        self.assertEqual(one.stderr, two.stderr)
        for name in names:
            name = name.removeprefix("songs/")
            self.assertEqual(self.bytes(f"one/{name}"), self.bytes(f"two/{name}"))
        self.assertIn("--recursive", self.refuse("songs", "-o", "out", code=2))

    def test_words_are_understood_or_answered(self):
        for words, code, answer in (
            (["--sise", "40ms"], 2, "did you mean '--size'?"),
            (["--preset", "catedral"], 1, "did you mean 'cathedral'?"),
            (["--automation", "-"], 1, "standard input:1: there is no parameter 'dekay'; did you"),
            (["--normalize", "-3dB"], 2, "--normalize=-3dB"),
            (["--format", "falc"], 2, "did you mean '.flac'?"),
        ):
            said = self.refuse("in.wav", "out.wav", *words, stdin=b"1s dekay 2s", code=code)
            self.assertIn(answer, said)
        name = os.fsencode(self.folder) + b"/\xff\xc3\xa4\".wav"
        os.link(os.fsencode(self.folder) + b"/in.wav", name)
        done = self.run_program(os.path.basename(name), "out.wav", "--json")
        self.assertEqual(json.loads(done.stdout.decode("utf-8"))["input"], '\ufffd\u00e4".wav')


if __name__ == "__main__":
    unittest.main()
