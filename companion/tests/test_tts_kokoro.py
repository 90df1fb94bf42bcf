"""The speech helper with eSpeak NG: voices, the worker's protocol, the one-shot form."""

import array
import itertools
import json
import os
import unittest
from pathlib import Path

from support import LIMIT, SENTENCE, HelperTest, Recording, Worker, distance, tts_voices

VOICES = (
    *("af_heart", "af_bella", "af_nicole", "af_sarah", "af_jessica", "af_sky"),
    *("am_adam", "am_michael", "am_puck", "am_eric", "am_onyx"),
    *("bf_emma", "bf_isabella", "bf_alice", "bf_lily"),
    *("bm_george", "bm_lewis", "bm_daniel", "bm_fable"),
)


class Voices(HelperTest):
    """All nineteen, twice, from one worker: the breath noise differs each time, the voice must not."""

    TEXT = "Her sister's car can't park over there after dark."
    # Decibels between long-term spectra: 0.8 at most between two takes of a voice, 1.7 at least between two voices.
    SAME, DIFFERENT = 1.2, 1.2

    def setUp(self) -> None:
        super().setUp()
        speech = self.ready_worker()
        self.takes = {voice: [self.take(speech, voice) for _ in range(2)] for voice in VOICES}

    def take(self, speech: Worker, voice: str) -> Recording:
        self.assertTrue(speech.request(text=self.TEXT, voice=voice)["ok"])
        return Recording(self.dir / "out.wav")

    def test_every_voice_sounds_different(self) -> None:
        spectra = {voice: [take.spectrum() for take in takes] for voice, takes in self.takes.items()}
        for voice, (first, second) in spectra.items():
            self.assertLess(distance(first, second), self.SAME, voice)
        for one, other in itertools.combinations(spectra, 2):
            self.assertGreater(distance(spectra[one][0], spectra[other][0]), self.DIFFERENT, (one, other))

    def test_women_speak_higher_than_men(self) -> None:
        pitch = {voice: takes[0].pitch() for voice, takes in self.takes.items()}
        women = {voice: hertz for voice, hertz in pitch.items() if voice[1] == "f"}
        men = {voice: hertz for voice, hertz in pitch.items() if voice[1] == "m"}
        self.assertGreater(min(women.values()), 150, women)
        self.assertLess(max(men.values()), 130, men)

    def test_files_are_16_bit_mono(self) -> None:
        self.assertEqual({takes[0].layout for takes in self.takes.values()}, {(1, 2)})

    def test_silence_around_the_words_is_short_and_even(self) -> None:
        for voice, takes in self.takes.items():
            with self.subTest(voice):
                self.assertLess(takes[0].lead, 0.005)
                self.assertAlmostEqual(takes[0].tail, 0.15, delta=0.005)


class Choosing(unittest.TestCase):
    """What the synthesizer's library is told for a voice and a speed."""

    class Library:
        def __init__(self) -> None:
            self.told: list[object] = []

        def espeak_SetVoiceByName(self, name: bytes) -> int:  # noqa: N802  the library's own name
            self.told.append(name.decode())
            return 0

        def espeak_SetParameter(self, _parameter: int, value: int, _relative: int) -> int:  # noqa: N802
            self.told.append(value)
            return 0

    def told(self, voice: str, speed: float) -> list[object]:
        backend = object.__new__(tts_voices.EspeakBackend)
        backend._library = self.Library()
        backend._choose(voice, speed)
        return backend._library.told

    def test_accent_of_every_voice(self) -> None:
        self.assertEqual(set(tts_voices.ESPEAK_VOICES), set(VOICES))
        accents = {"af": "en-us", "am": "en-us", "bf": "en", "bm": "en"}
        variants = set()
        for voice in VOICES:
            language, variant = self.told(voice, 1.0)[0].split("+")
            self.assertEqual(language, accents[voice[:2]], voice)
            variants.add((language, variant))
        self.assertEqual(len(variants), len(VOICES))

    def test_speed_is_linear_within_the_synthesizers_range(self) -> None:
        for speed in (0.5, 0.8, 1.0, 1.2, 1.5, 2.0, 2.5):
            self.assertAlmostEqual(self.told("af_heart", speed)[1], 175 * speed, delta=0.5)
        self.assertEqual([self.told("af_heart", speed)[1] for speed in (0.01, 100.0)], [80, 450])


class Trimming(unittest.TestCase):
    RATE = 22_050

    def trim(self, samples: list[int]) -> list[int]:
        sound = tts_voices.Sound(array.array("h", samples).tobytes(), self.RATE)
        return memoryview(tts_voices.trimmed(sound).pcm).cast("h").tolist()

    def test_keeps_a_soft_first_sound_and_a_little_before_it(self) -> None:
        soft = [3, -9, 33, -60, 200, -900, 4000, 5, -40, 7]
        trimmed = self.trim([0] * 3000 + soft + [0] * 500)
        lead, tail = int(0.003 * self.RATE), int(0.15 * self.RATE)
        self.assertEqual(trimmed, [0] * (lead - 2) + soft[:-1] + [0] * tail)

    def test_sound_at_the_very_edges(self) -> None:
        self.assertEqual(self.trim([500, -500])[:2], [500, -500])

    def test_nothing_but_silence_or_nothing_at_all(self) -> None:
        for samples in ([], [0] * 90, [30, -32, 0]):
            self.assertEqual(self.trim(samples), [0] * int(0.15 * self.RATE))


class Requests(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.speech = self.ready_worker()
        self.out = self.dir / "out.wav"

    def assertLivesOn(self) -> None:
        self.assertEqual(self.speech.request(id=99), {"type": "result", "id": 99, "ok": True, "wav": str(self.out)})
        self.assertGreater(Recording(self.out).peak, 5000)

    def assertFails(self, reply: dict, words: str, request_id: int | None = 1) -> None:
        self.assertEqual((reply["type"], reply["ok"], reply.get("id")), ("result", False, request_id))
        self.assertIn(words, reply["error"])
        self.assertNotIn("wav", reply)
        self.assertLivesOn()

    def test_ready_line_names_process_and_back_end(self) -> None:
        self.assertEqual(self.speech.ready["type"], "ready")
        self.assertEqual(self.speech.ready["pid"], self.speech.process.pid)
        self.assertRegex(self.speech.ready["backend"], r"^eSpeak NG \d")

    def test_back_end_is_said_once_on_standard_error(self) -> None:
        for number in range(3):
            self.speech.request(id=number)
        self.assertEqual(self.speech.errors(), f"speech helper: speaking with {self.speech.ready['backend']}\n")

    def test_answers_in_order_with_the_same_ids(self) -> None:
        self.assertEqual([self.speech.request(id=n)["id"] for n in (3, 1, 2)], [3, 1, 2])

    def test_file_is_complete_private_and_alone_when_the_result_comes(self) -> None:
        self.speech.request()
        self.assertEqual(self.out.stat().st_mode & 0o777, 0o600)
        self.assertEqual(self.files(), ["out.wav"])
        self.assertGreater(Recording(self.out).seconds, 3)

    def test_file_is_replaced_not_rewritten(self) -> None:
        self.speech.request()
        with open(self.out, "rb") as before:
            self.speech.request(text="Something else.")
            self.assertNotEqual(os.fstat(before.fileno()).st_ino, self.out.stat().st_ino)
            self.assertGreater(len(before.read()), self.out.stat().st_size)

    def test_speed_changes_the_length_evenly(self) -> None:
        seconds = {}
        for speed in ("0.5", "1.0", "2.0", "3"):
            self.speech.request(speed=speed)
            seconds[speed] = Recording(self.out).seconds - 0.15
        self.assertGreater(seconds["0.5"], 1.6 * seconds["1.0"])
        self.assertLess(seconds["2.0"], 0.65 * seconds["1.0"])
        # Faster than the synthesizer itself can speak.
        self.assertAlmostEqual(seconds["2.0"] / seconds["3"], 1.5, delta=0.15)

    def test_extreme_speeds_are_kept_within_what_the_synthesizer_can_do(self) -> None:
        lengths = []
        for speed in ("0.01", "0.45", "5.2", "1000"):
            self.assertTrue(self.speech.request(speed=speed)["ok"])
            lengths.append(Recording(self.out).seconds)
        self.assertAlmostEqual(lengths[0], lengths[1], delta=0.1)
        self.assertAlmostEqual(lengths[2], lengths[3], delta=0.1)

    def test_speed_may_be_a_number(self) -> None:
        self.assertTrue(self.speech.request(speed=1.5)["ok"])

    def test_marks_are_spoken_as_text(self) -> None:
        plain = self.seconds_of("Hello.")
        for text in ("-v Hello.", "--help", "<break time='9s'/>", "[[h@l'oU]]", "\x01200S Hello.", "\x00 Hello."):
            with self.subTest(text):
                self.assertGreater(self.seconds_of(text), plain * 0.8)
                self.assertLess(self.seconds_of(text), 6)
        self.assertGreater(self.seconds_of("[[h@l'oU]]"), 1.5 * self.seconds_of("[[]]"))

    def seconds_of(self, text: str) -> float:
        self.assertTrue(self.speech.request(text=text)["ok"])
        recording = Recording(self.out)
        return recording.seconds if recording.peak else 0.0

    def test_text_behind_a_zero_byte_is_spoken(self) -> None:
        self.assertGreater(self.seconds_of("One.\x00" + SENTENCE), self.seconds_of("One.") + 2)

    def test_text_without_words_is_a_short_silence(self) -> None:
        self.assertTrue(self.speech.request(text="---")["ok"])
        self.assertEqual(Recording(self.out).peak, 0)
        self.assertAlmostEqual(Recording(self.out).seconds, 0.15, delta=0.01)

    def test_other_alphabets_and_half_characters_are_no_harm(self) -> None:
        for text in ("Größe, naïve, 日本語, русский", "ok 🙂 \U0001f469\u200d\U0001f4bb", "half \ud800 of one"):
            with self.subTest(ascii(text)):
                self.assertTrue(self.speech.request(text=text)["ok"])

    def test_long_text(self) -> None:
        self.assertTrue(self.speech.request(text=SENTENCE * 60)["ok"])
        self.assertGreater(Recording(self.out).seconds, 120)

    def test_unknown_voice(self) -> None:
        self.assertFails(self.speech.request(voice="xx_nobody"), "unknown voice: xx_nobody")

    def test_empty_text(self) -> None:
        for text in ("", " \n\t "):
            self.assertFails(self.speech.request(text=text), "there is no text to speak")

    def test_missing_or_wrong_field(self) -> None:
        for key in ("text", "voice", "outWav"):
            for value in (None, 7, ["x"]):
                self.assertFails(self.speech.request(**{key: value}), f"the request has no {key}")

    def test_speed_that_is_no_speed(self) -> None:
        for speed in ("fast", "", "nan", "inf", "0", "-1", True, [1]):
            with self.subTest(speed=speed):
                self.assertFails(self.speech.request(speed=speed), "speed isn't a positive number")

    def test_unwritable_output(self) -> None:
        (self.dir / "file").write_text("in the way")
        (self.dir / "directory").mkdir()
        for path, words in (
            ("file/out.wav", "Not a directory"),
            ("absent/out.wav", "No such file"),
            ("directory", "Is a directory"),
            ("null\0byte.wav", "can't write"),
            ("half\ud800.wav", "can't write"),
        ):
            with self.subTest(ascii(path)):
                self.assertFails(self.speech.request(outWav=f"{self.dir}/{path}"), words)
                self.assertEqual([n for n in os.listdir(self.dir) if n.endswith(".tmp")], [])

    def test_relative_output(self) -> None:
        self.assertFails(self.speech.request(outWav="out.wav"), "absolute path")

    def test_broken_request_lines(self) -> None:
        deep = b"[" * 100_000 + b"]" * 100_000
        for line in (b"not json", b'{"id":', b"[1]", b"17", b"\xff\xfe", b'{"text":"\xff"}', deep):
            with self.subTest(line[:20]):
                self.speech.write(line + b"\n")
                self.assertFails(self.speech.reply(), "the request isn't", request_id=None)

    def test_unknown_request(self) -> None:
        self.assertFails(self.speech.request(type="sing"), "unknown request: 'sing'")
        self.assertFails(self.speech.request(type=None), "unknown request: None")

    def test_id_that_is_no_integer_is_left_out(self) -> None:
        for number in (None, "1", True, 1.5):
            self.assertFails(self.speech.request(id=number, voice="?"), "unknown voice", request_id=None)

    def test_errors_never_contain_the_text(self) -> None:
        self.speech.request(text="secret words", voice="xx_nobody")
        self.speech.write(b'{"text":"secret words"\n')
        self.assertNotIn("secret", json.dumps(self.speech.reply()) + self.speech.errors())

    def test_empty_lines_are_skipped(self) -> None:
        self.speech.write(b"\n  \n\r\n")
        self.assertLivesOn()

    def test_a_line_in_two_halves_and_two_lines_at_once(self) -> None:
        request = {"type": "synth_file", "text": "Hi.", "voice": "af_sky", "speed": "1.0", "outWav": str(self.out)}
        first, second = (json.dumps({**request, "id": n}).encode() + b"\n" for n in (1, 2))
        self.speech.write(first[:30])
        self.speech.write(first[30:] + second)
        self.assertEqual([self.speech.reply()["id"], self.speech.reply()["id"]], [1, 2])

    def test_memory_does_not_grow(self) -> None:
        def resident() -> int:
            status = Path(f"/proc/{self.speech.process.pid}/status").read_text()
            return int(status.split("VmRSS:")[1].split()[0])

        voices = VOICES * 2
        for number in range(40):
            self.speech.request(id=number, voice=voices[number % 19])
        before = resident()
        for number in range(200):
            self.speech.request(id=number, voice=voices[number % 19])
        self.assertLess(resident() - before, 1024, "KiB")


class OneShot(HelperTest):
    def setUp(self) -> None:
        super().setUp()
        self.out = self.dir / "out.wav"

    def assertRefuses(self, done, words: str) -> None:
        self.assertEqual(done.returncode, 1)
        self.assertIn(words, done.stdout + done.stderr)
        self.assertNotIn("Traceback", done.stderr)
        self.assertFalse(self.out.exists())

    def test_writes_the_file_and_says_who_spoke(self) -> None:
        done = self.once(self.text_file(SENTENCE), self.out)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        self.assertRegex(done.stderr, r"^speech helper: spoke with eSpeak NG [\d.]+\n$")
        self.assertGreater(Recording(self.out).seconds, 3)
        self.assertEqual(self.files(), ["out.wav", "text"])

    def test_voice_and_speed_come_from_the_environment(self) -> None:
        self.once(self.text_file(SENTENCE), self.out)
        plain = Recording(self.out)
        self.once(self.text_file(SENTENCE), self.out, TTS_VOICE="am_adam", TTS_SPEED="2.0")
        self.assertLess(Recording(self.out).seconds, 0.65 * plain.seconds)
        self.assertLess(Recording(self.out).pitch(), 130)

    def test_text_file_with_a_byte_order_mark(self) -> None:
        path = self.dir / "text"
        path.write_bytes(b"\xef\xbb\xbfHello.")
        self.assertEqual(self.once(path, self.out).returncode, 0)

    def test_failures_have_a_reason(self) -> None:
        text = self.text_file("Hello.")
        (self.dir / "latin").write_bytes(b"gr\xfc\xdfe")
        self.assertRefuses(self.once(self.dir / "absent", self.out), "can't read the text file: No such file")
        self.assertRefuses(self.once(self.dir, self.out), "can't read the text file: Is a directory")
        self.assertRefuses(self.once(self.dir / "latin", self.out), "can't read the text file: 'utf-8'")
        self.assertRefuses(self.once(text, self.dir / "absent/o.wav"), "No such file")
        self.assertRefuses(self.once(text, self.out, TTS_VOICE="nobody"), "unknown voice: nobody")
        self.assertRefuses(self.once(text, self.out, TTS_SPEED="quick"), "speed isn't a positive number")
        self.assertRefuses(self.once(self.text_file(" \n"), self.out), "there is no text to speak")

    def test_wrong_arguments(self) -> None:
        for arguments in ((), ("one",), ("a", "b", "c"), ("a", "b", "--play", "d"), ("--worker", "x", "y")):
            done = self.once(*arguments)
            self.assertEqual(done.returncode, 2, arguments)
            self.assertIn("usage:", done.stderr)

    def test_warm_up_loads_and_ends(self) -> None:
        done = self.once(TTS_WARMUP="1")
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        self.assertIn("ready to speak with eSpeak NG", done.stderr)

    def test_probe_ends_at_once_and_touches_nothing(self) -> None:
        done = self.once("--worker", TTS_PROBE="1")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def test_without_a_synthesizer(self) -> None:
        # A library of that name that isn't one: the loader finds it first and can't use it.
        (self.dir / "lib").mkdir()
        (self.dir / "lib/libespeak-ng.so.1").write_bytes(b"not a library")
        lib, text = str(self.dir / "lib"), self.text_file("Hello.")
        self.assertRefuses(self.once(text, self.out, LD_LIBRARY_PATH=lib), "eSpeak NG")
        self.assertEqual(self.once(TTS_WARMUP="1", LD_LIBRARY_PATH=lib).returncode, 1)
        speech = self.worker(LD_LIBRARY_PATH=lib)
        self.assertEqual(speech.process.wait(LIMIT), 1)
        self.assertEqual((speech.rest(), "can't be loaded" in speech.errors()), (b"", True))


if __name__ == "__main__":
    unittest.main()
