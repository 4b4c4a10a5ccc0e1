#!/usr/bin/python3
"""A notification server for tests: writes what it is asked to show.

Owns org.freedesktop.Notifications on the bus named by DBUS_SESSION_BUS_ADDRESS and appends each Notify
call to a file as one line of JSON. Prints "ready" once it owns the name. Ends with its bus.

    notification_recorder.py [--hang] FILE

--hang   write the calls, but never answer one: what a notification server that hangs looks like.
"""

import argparse
import json
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

INTERFACE = "org.freedesktop.Notifications"
OBJECT_PATH = "/org/freedesktop/Notifications"


def plain(value):
    """The value as JSON knows it: D-Bus types are subclasses of Python's own, byte and variant included."""
    if isinstance(value, dbus.Boolean):
        return bool(value)
    if isinstance(value, (dbus.Byte, int)):
        return int(value)
    if isinstance(value, float):
        return float(value)
    if isinstance(value, dict):
        return {str(key): plain(entry) for key, entry in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(entry) for entry in value]
    return str(value)


class Recorder(dbus.service.Object):
    def __init__(self, bus, file_name, hang):
        super().__init__(dbus.service.BusName(INTERFACE, bus, do_not_queue=True), OBJECT_PATH)
        self._bus = bus
        self._file_name = file_name
        self._hang = hang
        self._last_id = 0

    @dbus.service.method(
        INTERFACE,
        in_signature="susssasa{sv}i",
        out_signature="u",
        async_callbacks=("answer", "fail"),
        sender_keyword="sender",
    )
    def Notify(self, app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout, answer, fail,
               sender=None):
        self._last_id += 1
        call = {
            "id": self._last_id,
            "sender": str(sender),
            "sender_uid": self._sender_uid(sender),
            "app_name": plain(app_name),
            "replaces_id": plain(replaces_id),
            "app_icon": plain(app_icon),
            "summary": plain(summary),
            "body": plain(body),
            "actions": plain(actions),
            "hints": plain(hints),
            "expire_timeout": plain(expire_timeout),
        }
        # One write, so that a reader never sees half a line.
        with open(self._file_name, "ab", buffering=0) as record:
            record.write(json.dumps(call).encode() + b"\n")
        if not self._hang:
            answer(self._last_id)

    def _sender_uid(self, sender):
        """Whose credentials the bus saw; None when the sender has already left."""
        try:
            return int(self._bus.get_unix_user(sender))
        except dbus.DBusException:
            return None

    @dbus.service.method(INTERFACE, in_signature="u", out_signature="")
    def CloseNotification(self, notification_id):
        pass

    @dbus.service.method(INTERFACE, in_signature="", out_signature="as")
    def GetCapabilities(self):
        return ["body", "body-markup", "icon-static"]

    @dbus.service.method(INTERFACE, in_signature="", out_signature="ssss")
    def GetServerInformation(self):
        return ("notification_recorder", "tvfilemon", "1", "1.2")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--hang", action="store_true", help="never answer a call")
    parser.add_argument("file", help="where the calls are appended, one JSON object a line")
    arguments = parser.parse_args()

    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
    loop = GLib.MainLoop()
    bus.call_on_disconnection(lambda connection: loop.quit())
    recorder = Recorder(bus, arguments.file, arguments.hang)
    print("ready", flush=True)
    loop.run()
    del recorder
    return 0


if __name__ == "__main__":
    sys.exit(main())
