"""Prints sessions of OpenCode's database as JSON: the newest, or, with "--all BEGINNING", all of them.

Of all, those that stand behind the newest are told without their words, unless their id has this beginning, and so are
those whose words can't be found in time. Reads only, and gives up after a second and a half.
"""

import json
import os
import re
import sqlite3
import sys
import time
from urllib.parse import quote

LIMIT_S = 1.5
MOST_SESSIONS = 60
MOST_MESSAGES = 12
MOST_CHARACTERS = 4000


def opened(path):
    """A database in WAL mode without a log is opened as it is: SQLite would leave a log and its index behind."""
    log = path + "-wal"
    has_log = os.path.exists(log) and os.path.getsize(log) > 0
    connection = sqlite3.connect(
        f"file:{quote(os.fsencode(path))}?mode=ro" + ("" if has_log else "&immutable=1"), uri=True, timeout=0.2
    )
    deadline = time.monotonic() + LIMIT_S
    connection.set_progress_handler(lambda: time.monotonic() > deadline, 2000)
    return connection


def decoded(data):
    try:
        value = json.loads(data)
    except (TypeError, ValueError):
        return {}
    return value if isinstance(value, dict) else {}


def words(connection, message):
    """The texts of a message, without what the agent has put in."""
    found = []
    for (data,) in connection.execute("SELECT data FROM part WHERE message_id = ? ORDER BY id", (message,)):
        part = decoded(data)
        text = part.get("text")
        is_put_in = part.get("synthetic") or part.get("ignored")
        if part.get("type") == "text" and isinstance(text, str) and not is_put_in:
            found.append(text.strip())
    return [text for text in found if text]


def messages(connection, session, order):
    rows = connection.execute(
        f"SELECT id FROM message WHERE session_id = ? ORDER BY time_created {order}, id {order} LIMIT ?",
        (session, MOST_MESSAGES),
    ).fetchall()
    for (key,) in rows:
        row = connection.execute("SELECT data, time_updated FROM message WHERE id = ?", (key,)).fetchone()
        if row:
            yield key, decoded(row[0]), row[1]


def last_reply(connection, session):
    """The newest words, the folder that its message tells, and when the session was last written to."""
    text, folder, updated = "", "", 0
    for key, message, written in messages(connection, session, "DESC"):
        updated = max(updated, written if isinstance(written, int) else 0)
        if text or message.get("role") != "assistant":
            continue
        where = message.get("path")
        if not folder and isinstance(where, dict) and isinstance(where.get("cwd"), str):
            folder = where["cwd"]
        text = (words(connection, key) or [""])[-1]
    return text[:MOST_CHARACTERS], folder, updated


def first_prompt(connection, session):
    for key, message, _ in messages(connection, session, "ASC"):
        text = " ".join(words(connection, key)) if message.get("role") == "user" else ""
        if text:
            return text[:MOST_CHARACTERS]
    return ""


def described(connection, row, has_words=True):
    session, title, directory, updated = row
    text, folder, written = last_reply(connection, session) if has_words else ("", "", 0)
    is_named = isinstance(title, str) and title and not re.match(r"(New|Child) session - \d{4}-", title)
    return {
        "id": session,
        "title": title[:MOST_CHARACTERS] if is_named else "",
        "cwd": directory or folder,
        "updated": max(updated if isinstance(updated, int) else 0, written),
        "lastText": text,
        "prompt": "" if is_named or not has_words else first_prompt(connection, session),
    }


def all_described(connection, rows, beginning):
    """Those with the beginning first, so that theirs are the words that are found in time."""
    wanted = [row for row in rows if beginning and row[0].startswith(beginning)]
    others = [row for row in rows if not (beginning and row[0].startswith(beginning))]
    has_time = True
    for row in wanted[:MOST_SESSIONS] + others[:MOST_SESSIONS]:
        try:
            if has_time:
                yield described(connection, row)
                continue
        except sqlite3.OperationalError:
            has_time = False
        yield described(connection, row, has_words=False)
    for row in wanted[MOST_SESSIONS:] + others[MOST_SESSIONS:]:
        yield described(connection, row, has_words=False)


def main(path, is_all, beginning):
    connection = opened(path)
    columns = {row[1] for row in connection.execute("PRAGMA table_info(session)")}
    only_main = "WHERE parent_id IS NULL OR parent_id = ''" if "parent_id" in columns else ""
    rows = connection.execute(
        f"SELECT id, title, directory, time_updated FROM session {only_main} ORDER BY time_updated DESC LIMIT ?",
        (-1 if is_all else MOST_SESSIONS,),
    ).fetchall()
    rows = [row for row in rows if isinstance(row[0], str)]
    found = all_described(connection, rows, beginning) if is_all else (described(connection, row) for row in rows)
    json.dump(list(found), sys.stdout)


if __name__ == "__main__":
    try:
        main(sys.argv[1], "--all" in sys.argv[2:3], "".join(sys.argv[3:4]))
    except (OSError, sqlite3.Error) as error:
        sys.exit(f"{type(error).__name__}: {error}")
