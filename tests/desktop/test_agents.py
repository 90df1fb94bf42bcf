"""Sessions of each agent, in every shape in which it keeps its transcripts, attached and heard."""
import os
import time
import unittest

import agents
from home_case import SpeakingCase
from soundlab import loudness, wait_for

# Long enough for one who looks away for a while to see that it is being spoken.
GOES_ON = "and it goes on for as long as somebody may look away"


class AgentsCase(SpeakingCase):
    speed = 2.0

    def shows(self, facts):
        return facts.items() <= self.home.now_playing().items()

    def enqueued(self):
        return len(self.home.log("chunk enqueued"))

    def finished(self):
        return len(self.home.log("chunk finished"))

    def attach(self, session, agent):
        tailers = len(self.home.log("native tailer started (forward-only)"))
        self.service.send({"cmd": "attach", "id": session, "cwd": "/home/me/proj", "source": agent.source,
                           "transcript": agent.transcript})
        wait_for("its tailer", lambda: len(self.home.log("native tailer started (forward-only)")) == tailers + 1)


class EveryAgentIsHeard(AgentsCase):
    def test_each_in_turn(self):
        self.sound.record()
        for number, kind in enumerate(agents.ALL, 1):
            with self.subTest(kind.__name__):
                self.hear(number, kind(self.home.path), kind.__name__)
        self.assertEqual(self.home.problems(), [])

    def hear(self, number, agent, name):
        self.attach(f"session-{number}", agent)
        before = self.sound.recorded()
        finished = self.finished()
        text = f"The {number}. agent, {name}, is heard, {GOES_ON}"
        message = agent.say(text)
        wait_for("its reply", lambda: self.shows({"snippet": text, "sessionId": f"session-{number}"}))
        if message:
            wait_for("its id", lambda: self.shows({"messageId": message}))
        wait_for("its end", lambda: self.finished() > finished)
        self.assertEqual(self.enqueued(), number, "a reply was spoken twice, or somebody else's was")
        wait_for("its sound", lambda: sum(peak > 2000 for peak in loudness(self.sound.samples(before))) > 50)
        self.service.send({"cmd": "detach", "id": f"session-{number}"})
        wait_for("the row to go", lambda: self.home.state()["sessions"] == [])


class HalfAReplyIsNotHeard(AgentsCase):
    """All agents are in the middle of a reply, while another session's is heard from its beginning to its end."""

    def test_until_it_is_complete(self):
        witness = agents.ClaudeCode(self.home.path / "elsewhere")
        self.attach("witness", witness)
        sessions = {kind.__name__: kind(self.home.path) for kind in agents.IN_HALVES}
        for name, agent in sessions.items():
            self.attach(name, agent)
        texts = {name: f"The whole of what {name} says, once, {GOES_ON}" for name in sessions}
        for name, agent in reversed(sessions.items()):
            agent.say_half(texts[name])
            self.go_on(agent)
        # Long enough for an agent that writes nothing meanwhile to be taken for one that has finished.
        witness.say("Meanwhile somebody else is heard from the beginning to the very end, and takes a good while for it")
        self.wait_at_work("the other session", sessions, lambda: self.finished() == 1)
        self.assertEqual(self.enqueued(), 1, "half a reply was spoken")
        for number, (name, agent) in enumerate(sessions.items(), 1):
            with self.subTest(name):
                at_work = {other: sessions[other] for other in list(sessions)[number:]}
                message = agent.say_rest(texts[name])
                self.wait_at_work("its reply", at_work, lambda: self.shows({"snippet": texts[name], "sessionId": name}))
                if message:
                    self.assertEqual(self.home.now_playing()["messageId"], message)
                self.wait_at_work("its end", at_work, lambda: self.finished() == number + 1)
                self.assertEqual(self.enqueued(), number + 1, "a reply was spoken twice, or somebody else's half")
        self.assertEqual(self.home.problems(), [])

    @staticmethod
    def go_on(agent):
        """One that is known by what it goes on to write is at work for a while more, however long this test is held up:
        its clock is a little ahead, as a server's may be."""
        agent.go_on()
        if type(agent).go_on is not agents.Agent.go_on:
            ahead = time.time() + 1.2
            os.utime(agent.path, (ahead, ahead))

    def wait_at_work(self, what, sessions, condition):
        """While the agents go on."""

        def look():
            for agent in sessions.values():
                self.go_on(agent)
            return condition()

        wait_for(what, look, pause=0.1)


if __name__ == "__main__":
    unittest.main()
