"""The seven agents as they write their transcripts: each class lays one out below a home and adds replies to it."""
import hashlib
import json
import sqlite3
import time
from pathlib import Path


def short_digest(text):
    return hashlib.md5(text.encode(), usedforsecurity=False).hexdigest()[:16]


class Agent:
    """One session of an agent. `say` adds a reply and gives its message id, or None where that is the agent's affair.

    Where a reply may be seen before it is complete, `say_half` and then `say_rest` do the same; in between `go_on` is what
    an agent does that is at work, if it is known by that to be.
    """

    source = ""
    place = ""

    def __init__(self, home):
        self.path = Path(home) / self.place
        self.path.parent.mkdir(parents=True, exist_ok=True)
        self.begin()

    def begin(self):
        self.path.write_text("")

    @property
    def transcript(self):
        return str(self.path)

    def append(self, *records):
        with self.path.open("a", encoding="utf-8") as out:
            for record in records:
                out.write(json.dumps(record) + "\n")

    def replace(self, document):
        """As agents rewrite a document: whole, by rename."""
        fresh = self.path.with_name(self.path.name + ".new")
        fresh.write_text(json.dumps(document), encoding="utf-8")
        fresh.rename(self.path)

    def go_on(self):
        pass


def cut(content, text):
    """A JSON document before and behind the middle of its words `text`."""
    middle = content.index(text) + len(text) // 2
    return content[:middle], content[middle:]


class Lines(Agent):
    """Every reply is one line."""

    def record(self, text):
        raise NotImplementedError

    def message_id(self, text):
        """Of the reply `text`."""

    def say(self, text):
        self.append(self.record(text))
        return self.message_id(text)

    def say_half(self, text):
        with self.path.open("a", encoding="utf-8") as out:
            out.write(cut(json.dumps(self.record(text)), text)[0])

    def say_rest(self, text):
        with self.path.open("a", encoding="utf-8") as out:
            out.write(cut(json.dumps(self.record(text)), text)[1] + "\n")
        return self.message_id(text)


class Document(Agent):
    """Every reply is an element of one document."""

    empty = None

    def begin(self):
        self.replace(self.empty)

    def message_id(self, text):
        """Of the reply `text`."""

    def with_reply(self, text):
        raise NotImplementedError

    def say(self, text):
        self.replace(self.with_reply(text))
        return self.message_id(text)

    def say_half(self, text):
        """Rewritten in its place."""
        self.path.write_text(cut(json.dumps(self.with_reply(text)), text)[0], encoding="utf-8")

    def say_rest(self, text):
        with self.path.open("a", encoding="utf-8") as out:
            out.write(cut(json.dumps(self.with_reply(text)), text)[1])
        return self.message_id(text)


class ClaudeCode(Lines):
    source = "claude-code"
    place = ".claude/projects/-home-me-proj/0b6f7f1d-bbbb-4b57-9a3a-5f0c2a516d0e.jsonl"

    def record(self, text):
        return {"type": "assistant", "uuid": "u-1", "timestamp": "2026-05-01T10:00:00.000Z",
                "message": {"id": "m-1", "role": "assistant", "content": [{"type": "text", "text": text}]}}

    def message_id(self, text):
        return "u-1"


class Codex(Lines):
    source = "codex"
    place = ".codex/sessions/2026/05/02/rollout-1.jsonl"
    time = "2026-05-02T09:09:00.000Z"

    def record(self, text):
        return {"type": "response_item", "timestamp": self.time,
                "payload": {"type": "message", "role": "assistant", "content": [{"type": "output_text", "text": text}]}}

    def message_id(self, text):
        return short_digest(text + self.time)


class CodexItems(Codex):
    place = ".codex/sessions/2026/05/02/rollout-2.jsonl"

    def record(self, text):
        return {"type": "event_msg", "timestamp": self.time,
                "payload": {"type": "item_completed", "thread_id": "t", "turn_id": "1", "completed_at_ms": 5,
                            "item": {"type": "AgentMessage", "id": "i-1", "content": [{"type": "Text", "text": text}]}}}


class Pi(Lines):
    source = "pi"
    place = ".pi/agent/sessions/--home-me-proj--/1_2.jsonl"

    def record(self, text):
        return {"type": "message", "id": "deadbeef", "parentId": None, "timestamp": "2026-06-04T07:20:00.000Z",
                "message": {"role": "assistant", "content": [{"type": "text", "text": text}]}}

    def message_id(self, text):
        return "deadbeef"


class GeminiDocument(Document):
    source = "gemini"
    place = ".gemini/tmp/p/chats/session-1.json"

    empty = {"messages": [{"type": "user", "content": "hello"}]}

    def with_reply(self, text):
        return {"messages": self.empty["messages"] + [{"id": "g-1", "type": "gemini", "content": text}]}

    def message_id(self, text):
        return "g-1"


class GeminiLines(Lines):
    source = "gemini"
    place = ".gemini/tmp/p/chats/session-2.jsonl"
    time = "2026-05-03T08:09:00.000Z"

    def record(self, text):
        return {"type": "gemini", "timestamp": self.time, "content": [{"text": text}]}

    def message_id(self, text):
        return short_digest(text + self.time)


class GeminiChanges(GeminiLines):
    """A reply is written under one id more than once, at last whole."""

    place = ".gemini/tmp/p/chats/session-3.jsonl"

    def begin(self):
        super().begin()
        self.append({"sessionId": "s", "projectHash": "p", "kind": "main"})

    def record(self, text):
        return {"id": "g-2", "type": "gemini", "timestamp": self.time, "content": text}

    def say(self, text):
        self.append(self.record(""))
        self.go_on()
        return self.say_rest(text)

    def say_half(self, text):
        self.append(self.record(text[:len(text) // 2]))

    def go_on(self):
        self.append({"$set": {"lastUpdated": self.time}})

    def say_rest(self, text):
        self.append(self.record(text))
        self.go_on()
        return "g-2"


class Cline(Document):
    source = "cline"
    place = ".config/Code/User/globalStorage/saoudrizwan.claude-dev/tasks/1/api_conversation_history.json"

    empty = [{"role": "user", "content": "hello"}]

    def with_reply(self, text):
        return self.empty + [{"role": "assistant", "ts": 2000, "content": [{"type": "text", "text": text}]}]

    def message_id(self, text):
        return short_digest("2000" + text[:64])


class ClineMessages(Document):
    source = "cline"
    place = ".cline/data/sessions/1/1.messages.json"

    empty = {"version": "1", "sessionId": "1", "messages": [{"id": "c-0", "role": "user", "content": "hello"}]}

    def with_reply(self, text):
        reply = {"id": "c-1", "role": "assistant", "content": [{"type": "text", "text": text}]}
        return self.empty | {"messages": self.empty["messages"] + [reply]}


class Aider(Agent):
    source = "aider"
    place = "proj/history.md"
    time = "2026-05-03 08:00:00"

    def begin(self):
        self.path.write_text("# aider chat started at 2026-05-03 07:59:00\n")

    def say(self, text):
        with self.path.open("a") as out:
            out.write(f"\n#### {self.time}\n> please edit foo.py\n\n#### aider response\n{text}\n")
        return short_digest(self.time + text)


class AiderChat(Aider):
    """As aider writes today: the user's words behind hashes, and nothing that ends a reply."""

    place = "proj/.aider.chat.history.md"

    def say(self, text):
        self.say_half(text)
        self.say_rest(text)

    def say_half(self, text):
        with self.path.open("a") as out:
            out.write(f"\n#### please edit foo.py\n\n{text[:len(text) // 2]}")

    def go_on(self):
        self.path.touch()

    def say_rest(self, text):
        with self.path.open("a") as out:
            out.write(f"{text[len(text) // 2:]}\n\n> Applied edit to foo.py  \n")


class OpenCode(Agent):
    source = "opencode"
    place = ".local/share/opencode/messages"

    def begin(self):
        self.path.mkdir()

    def message(self, text):
        return {"id": "o-1", "role": "assistant", "content": text}

    def say(self, text):
        self.write(self.path / "1.json", self.message(text))
        return "o-1"

    def say_half(self, text):
        (self.path / "1.json").write_text(cut(json.dumps(self.message(text)), text)[0])

    def say_rest(self, text):
        return self.say(text)

    def write(self, path, document):
        path.parent.mkdir(parents=True, exist_ok=True)
        fresh = path.with_suffix(".new")
        fresh.write_text(json.dumps(document))
        fresh.rename(path)


class OpenCodeParts(OpenCode):
    place = ".local/share/opencode/storage/message/ses_1"

    def begin(self):
        self.path.mkdir()
        self.write(self.path / "msg_0.json", {"id": "msg_0", "sessionID": "ses_1", "role": "user", "time": {"created": 1}})

    def say(self, text):
        self.say_half(text)
        self.say_rest(text)

    def say_half(self, text):
        now = round(time.time() * 1000)
        self.put_message(created=now)
        self.put_part(text[:len(text) // 2], start=now)

    def say_rest(self, text):
        now = round(time.time() * 1000)
        self.put_part(text, start=now - 5, end=now)
        self.put_message(created=now - 5, completed=now + 4)

    def put_message(self, **times):
        self.write(self.path / "msg_1.json", {"id": "msg_1", "sessionID": "ses_1", "role": "assistant", "time": times})

    def put_part(self, text, **times):
        self.write(self.path.parents[1] / "part/msg_1/prt_1.json",
                   {"id": "prt_1", "sessionID": "ses_1", "messageID": "msg_1", "type": "text", "text": text, "time": times})


class OpenCodeDatabase(Agent):
    source = "opencode"
    place = ".local/share/opencode/opencode.db"

    def begin(self):
        with sqlite3.connect(self.path) as store:
            store.execute("pragma journal_mode=wal")
            store.execute("pragma synchronous=off")
            store.executescript("""
                create table session(id text primary key, project_id text not null, parent_id text, slug text not null,
                    directory text not null, title text not null, version text not null, time_created integer not null,
                    time_updated integer not null);
                create table message(id text primary key, session_id text not null, time_created integer not null,
                    time_updated integer not null, data text not null);
                create table part(id text primary key, message_id text not null, session_id text not null,
                    time_created integer not null, time_updated integer not null, data text not null);
                insert into session values('ses_2', 'p', null, 's', '/home/me/proj', 't', '1', 1, 1);""")
        # Held open, as the agent does: what it writes stays in the log beside the store.
        self.store = sqlite3.connect(self.path)
        # Waits for no disk, which may take longer than a pause between two looks.
        self.store.execute("pragma synchronous=off")

    @property
    def transcript(self):
        return f"{self.path}#ses_2"

    def say(self, text):
        now = round(time.time() * 1000)
        with self.store:
            self.put_message(created=now, completed=now + 9)
            self.put_part(text, start=now, end=now + 5)

    def say_half(self, text):
        now = round(time.time() * 1000)
        with self.store:
            self.put_message(created=now)
            self.put_part(text[:len(text) // 2], start=now)

    def say_rest(self, text):
        self.say(text)

    def put_message(self, **times):
        data = json.dumps({"role": "assistant", "time": times})
        self.store.execute("insert into message values('msg_2', 'ses_2', ?, ?, ?) on conflict(id) do update set data = ?",
                           (times["created"], times["created"], data, data))

    def put_part(self, text, **times):
        data = json.dumps({"type": "text", "text": text, "time": times})
        self.store.execute("insert into part values('prt_2', 'msg_2', 'ses_2', ?, ?, ?) on conflict(id) do update set data = ?",
                           (times["start"], times["start"], data, data))

    def __del__(self):
        self.store.close()


ALL = (ClaudeCode, Codex, CodexItems, Pi, GeminiDocument, GeminiLines, GeminiChanges, Cline, ClineMessages, Aider, AiderChat,
       OpenCode, OpenCodeParts, OpenCodeDatabase)

# Of a response in aider's older shape, a beginning can't be told from the whole. First those that are known to be at work
# only by what they go on to write: begun last and completed first, they are at work for as short a time as can be.
IN_HALVES = (GeminiChanges, AiderChat, ClaudeCode, Codex, CodexItems, Pi, GeminiDocument, GeminiLines, Cline, ClineMessages,
             OpenCode, OpenCodeParts, OpenCodeDatabase)
