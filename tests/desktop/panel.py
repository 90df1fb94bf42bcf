"""A desktop for tray tests: a private bus and screen, a panel that takes tray icons, a notification service."""
import os
import select
import shutil
import subprocess
import tempfile
import time
from pathlib import Path

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

from soundlab import end

PROPERTIES = "org.freedesktop.DBus.Properties"
WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
NOTIFICATIONS = "org.freedesktop.Notifications"

WATCHER_XML = f"""<node><interface name="{WATCHER}">
<method name="RegisterStatusNotifierItem"><arg direction="in" type="s"/></method>
<property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
<property name="RegisteredStatusNotifierItems" type="as" access="read"/>
<signal name="StatusNotifierHostRegistered"/>
</interface><interface name="{PROPERTIES}">
<method name="Get"><arg direction="in" type="s"/><arg direction="in" type="s"/><arg direction="out" type="v"/></method>
</interface></node>"""


def pump_until(what, condition, limit=20.0):
    """The first true answer of `condition`, serving the bus meanwhile."""
    deadline = time.monotonic() + limit
    context = GLib.MainContext.default()
    while True:
        while context.iteration(False):
            pass
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise AssertionError(f"never came within {limit} s: {what}")
        time.sleep(0.005)


class Watcher(dbus.service.Object):
    """Takes icons; `has_panel` says whether somebody shows them."""

    def __init__(self, bus, has_panel=True):
        self.has_panel = has_panel
        self.items = []
        self.questions = 0
        self.name = dbus.service.BusName(WATCHER, bus, do_not_queue=True)
        super().__init__(bus, "/StatusNotifierWatcher")

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        self.items.append(sender)

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        self.questions += 1
        return {"IsStatusNotifierHostRegistered": dbus.Boolean(self.has_panel),
                "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s")}[name]

    @dbus.service.method("org.freedesktop.DBus.Introspectable", out_signature="s")
    def Introspect(self):
        return WATCHER_XML

    @dbus.service.signal(WATCHER)
    def StatusNotifierHostRegistered(self):
        pass

    def leave(self):
        self.remove_from_connection()
        self.name.get_bus().release_name(WATCHER)
        self.name = None


class Notifications(dbus.service.Object):
    def __init__(self, bus):
        self.shown = []
        self.name = dbus.service.BusName(NOTIFICATIONS, bus, do_not_queue=True)
        super().__init__(bus, "/org/freedesktop/Notifications")

    @dbus.service.method(NOTIFICATIONS, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        self.shown.append({"app": str(app), "summary": str(summary), "body": str(body), "hints": hints})
        return len(self.shown)


BUS = """<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>{services}
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>"""


class PrivateBus:
    """A session bus of its own with a connection to it. It can start what lies in the folder `services`, and nothing of the
    machine's, which would be at work in the tester's home."""

    def __init__(self, services=None):
        DBusGMainLoop(set_as_default=True)
        with tempfile.NamedTemporaryFile("w", suffix=".conf") as configuration:
            configuration.write(BUS.format(services=f"<servicedir>{services}</servicedir>" if services else ""))
            configuration.flush()
            self.daemon = subprocess.Popen(
                ["dbus-daemon", f"--config-file={configuration.name}", "--nofork", "--print-address"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
            self.address = self.daemon.stdout.readline().strip()
        self.connection = dbus.bus.BusConnection(self.address)

    def close(self):
        self.connection.close()
        end(self.daemon)
        self.daemon.stdout.close()


class Desktop:
    """Private bus and screen, ended by their process ids."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory()
        self.data_folders = [self.folder.name]
        self.private = PrivateBus()
        self.address = self.private.address
        self.bus = self.private.connection
        self.screen = subprocess.Popen(["Xvfb", "-displayfd", "1", "-screen", "0", "800x600x24", "-nolisten", "tcp",
                                        "-noreset", "-r"],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.display = ":" + self.screen.stdout.readline().strip()

    def environment(self):
        return os.environ | {"HOME": self.folder.name, "XDG_RUNTIME_DIR": self.folder.name, "DISPLAY": self.display,
                             "DBUS_SESSION_BUS_ADDRESS": self.address, "QT_QPA_PLATFORM": "xcb",
                             "XDG_DATA_DIRS": ":".join(self.data_folders)}

    def install_icons(self, source):
        """Puts the program's icons where the desktop's icon theme finds them."""
        shutil.copytree(source, Path(self.folder.name) / "icons")
        self.data_folders.append("/usr/share")

    def close(self):
        end(self.screen)
        self.screen.stdout.close()
        self.private.close()
        self.folder.cleanup()


class Program:
    """A program on that desktop that reads lines and prints lines."""

    def __init__(self, desktop, path):
        self.process = subprocess.Popen([str(path)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        env=desktop.environment())
        self.lines = []
        self.rest = b""

    def tell(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def read(self):
        """Takes in what it has printed; all lines so far."""
        while select.select([self.process.stdout], [], [], 0)[0]:
            block = os.read(self.process.stdout.fileno(), 65536)
            if not block:
                break
            *whole, self.rest = (self.rest + block).split(b"\n")
            self.lines += [line.decode() for line in whole]
        return self.lines

    def wait_for_line(self, line):
        pump_until(f"the line {line!r}", lambda: line in self.read())
        self.lines.remove(line)

    def close(self):
        end(self.process)
        self.process.stdin.close()
        self.process.stdout.close()


def as_shown(label):
    """What a panel shows of a label: an underscore marks the next character, two are one."""
    shown = ""
    marked = False
    for character in label:
        if character == "_" and not marked:
            marked = True
            continue
        shown += character
        marked = False
    return shown


class TrayIcon:
    """The panel's view of one icon and its menu."""

    def __init__(self, bus, owner):
        self.bus = bus
        self.owner = owner
        self.changes = []
        for signal in ("LayoutUpdated", "ItemsPropertiesUpdated"):
            bus.add_signal_receiver(lambda *_, name=signal: self.changes.append(name), signal, MENU, owner)

    def call(self, path, interface, method, *arguments):
        """Waits for the answer while the bus is served, since the icon may ask back."""
        done = []
        proxy = self.bus.get_object(self.owner, path, introspect=False)
        getattr(proxy, method)(*arguments, dbus_interface=interface, reply_handler=lambda *r: done.append((True, r)),
                               error_handler=lambda e: done.append((False, e)))
        pump_until(method, lambda: done)
        good, answer = done[0]
        if not good:
            raise answer
        return answer[0] if len(answer) == 1 else answer

    def property(self, name):
        return self.call("/StatusNotifierItem", PROPERTIES, "Get", ITEM, name)

    def layout(self, parent=0):
        """Rows below `parent`, each with its id, properties and rows of its own."""
        path = str(self.property("Menu"))
        _, root = self.call(path, MENU, "GetLayout", dbus.Int32(parent), dbus.Int32(-1),
                            dbus.Array([], signature="s"))
        return self._rows(root)

    def _rows(self, node):
        return [{"id": int(child[0]), "properties": child[1], "label": str(child[1].get("label", "")),
                 "shown": as_shown(str(child[1].get("label", ""))), "rows": self._rows(child)} for child in node[2]]

    def row(self, beginning, parent=0):
        return next(row for row in self.layout(parent) if row["shown"].startswith(beginning))

    def labels(self, parent=0):
        return ["-" if row["properties"].get("type") == "separator" else row["shown"] for row in self.layout(parent)]

    def click(self, row_id):
        self.call("/MenuBar", MENU, "Event", dbus.Int32(row_id), "clicked", dbus.Int32(0, variant_level=1),
                  dbus.UInt32(0))

    def open(self, row_id):
        self.call("/MenuBar", MENU, "AboutToShow", dbus.Int32(row_id))
