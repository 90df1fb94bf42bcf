"""One session of each agent in turn, in every shape in which it keeps its transcripts, attached and heard."""
import unittest

import agents
from service import Home, Service
from soundlab import PrivateSound, loudness, short_folder, wait_for


class EveryAgentIsHeard(unittest.TestCase):
    def setUp(self):
        folder = short_folder()
        self.addCleanup(folder.cleanup)
        self.home = Home(folder.name)
        self.sound = PrivateSound(folder.name)
        self.sound.start()
        self.addCleanup(self.sound.stop)
        self.home.write_state(speed=2.0)
        self.service = Service(self.home, self.sound.environment).wait_ready()
        self.addCleanup(self.service.stop)
        self.service.wait_warm()
        self.sound.record()

    def test_each_in_turn(self):
        for number, kind in enumerate(agents.ALL, 1):
            with self.subTest(kind.__name__):
                self.hear(number, kind(self.home.path), kind.__name__)
        self.assertEqual(self.home.problems(), [])

    def shows(self, facts):
        return facts.items() <= self.home.now_playing().items()

    def hear(self, number, agent, name):
        self.service.send({"cmd": "attach", "id": f"session-{number}", "cwd": "/home/me/proj", "source": agent.source,
                           "transcript": agent.transcript})
        wait_for("its tailer", lambda: len(self.home.log("native tailer started (forward-only)")) == number)
        before = self.sound.recorded()
        finished = len(self.home.log("chunk finished"))
        text = f"The {number}. agent, {name}, is heard"
        message = agent.say(text)
        wait_for("its reply", lambda: self.shows({"snippet": text, "sessionId": f"session-{number}"}))
        if message:
            wait_for("its id", lambda: self.shows({"messageId": message}))
        wait_for("its end", lambda: len(self.home.log("chunk finished")) > finished)
        self.assertEqual(len(self.home.log("chunk enqueued")), number, "a reply was spoken twice, or somebody else's was")
        wait_for("its sound", lambda: sum(peak > 2000 for peak in loudness(self.sound.samples(before))) > 50)
        self.service.send({"cmd": "detach", "id": f"session-{number}"})
        wait_for("the row to go", lambda: self.home.state()["sessions"] == [])


if __name__ == "__main__":
    unittest.main()
