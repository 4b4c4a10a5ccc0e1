"""A headless browser that is steered through a pipe: no port, no driver, no network."""

import base64
import itertools
import json
import os
import select
import shutil
import signal
import subprocess
import time

TIMEOUT = 60


class BrowserError(Exception):
    """What the browser answered in the place of a result."""


class Browser:
    """One browser with one page.

    `events` holds everything that the browser told without being asked, in order.
    """

    def __init__(self, directory, width=1280, height=900):
        self.events = []
        self._numbers = itertools.count(1)
        self._replies = {}
        self._buffer = b""
        directory = os.fspath(directory)
        with open(f"{directory}/output", "wb") as output:
            self._start(directory, output)
        try:
            target = self._ask("Target.createTarget", url="about:blank")["targetId"]
            self._session = self._ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
            for domain in ("Page", "Runtime", "Network", "Log"):
                self.ask(f"{domain}.enable")
            self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                     mobile=False)
        except BaseException:
            self.close()
            raise

    def _start(self, directory, output):
        to_browser, self._requests = os.pipe()
        self._answers, from_browser = os.pipe()

        def place():
            # The browser reads from 3 and writes to 4; first out of the way of each other.
            high = [os.dup2(to_browser, 103), os.dup2(from_browser, 104)]
            os.dup2(high[0], 3)
            os.dup2(high[1], 4)

        self._process = subprocess.Popen(
            [shutil.which("chromium"), "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--disable-extensions", "--disable-background-networking", "--disable-sync",
             "--disable-component-update", "--disable-default-apps", "--mute-audio", "--hide-scrollbars",
             "--force-color-profile=srgb", "--lang=en-US", f"--user-data-dir={directory}/profile",
             "--remote-debugging-pipe"],
            stdin=subprocess.DEVNULL, stdout=output, stderr=output, preexec_fn=place, close_fds=False,
            start_new_session=True, env={**os.environ, "HOME": directory, "TZ": "UTC"})
        os.close(to_browser)
        os.close(from_browser)

    def close(self):
        """Ends the browser and all its processes."""
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()
        os.close(self._requests)
        os.close(self._answers)

    def _receive(self, end):
        while b"\0" not in self._buffer:
            remaining = max(0, end - time.monotonic())
            assert select.select([self._answers], [], [], remaining)[0], "the browser says nothing"
            data = os.read(self._answers, 1 << 20)
            assert data, "the browser has ended"
            self._buffer += data
        message, _, self._buffer = self._buffer.partition(b"\0")
        message = json.loads(message)
        if "id" in message:
            self._replies[message["id"]] = message
        else:
            self.events.append(message)

    def _ask(self, method, session=None, **parameters):
        number = next(self._numbers)
        request = {"id": number, "method": method, "params": parameters}
        if session is not None:
            request["sessionId"] = session
        data = json.dumps(request).encode() + b"\0"
        while data:
            data = data[os.write(self._requests, data):]
        end = time.monotonic() + TIMEOUT
        while number not in self._replies:
            self._receive(end)
        reply = self._replies.pop(number)
        if "error" in reply:
            raise BrowserError(f"{method}: {reply['error']}")
        return reply["result"]

    def ask(self, method, **parameters):
        """A command of the browser's protocol, to the page."""
        return self._ask(method, self._session, **parameters)

    def wait_event(self, method, skip=0):
        """The first such event after `skip` of them all."""
        end = time.monotonic() + TIMEOUT
        while True:
            for event in self.events[skip:]:
                if event["method"] == method:
                    return event["params"]
            self._receive(end)

    def open(self, path):
        """Loads a file; returns when the page and its scripts are done."""
        already = len(self.events)
        result = self.ask("Page.navigate", url=f"file://{path}")
        assert "errorText" not in result, result
        self.wait_event("Page.loadEventFired", already)

    def run(self, expression):
        """The value of an expression in the page."""
        reply = self.ask("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in reply:
            raise BrowserError(reply["exceptionDetails"])
        return reply["result"].get("value")

    def texts(self, selector):
        """What can be read in each element that matches."""
        return self.run(f"[...document.querySelectorAll({json.dumps(selector)})].map((e) => e.innerText)")

    def type(self, selector, text):
        """Puts `text` into a field in the place of what it holds, as a person does."""
        self.run(f"(() => {{ const f = document.querySelector({json.dumps(selector)}); f.focus(); f.select(); }})()")
        if text:
            self.ask("Input.insertText", text=text)
        else:
            for kind in ("keyDown", "keyUp"):
                self.ask("Input.dispatchKeyEvent", type=kind, key="Delete", code="Delete",
                         windowsVirtualKeyCode=46)

    def click(self, selector):
        self.run(f"document.querySelector({json.dumps(selector)}).scrollIntoView({{block: 'center'}})")
        x, y = self.run(f"(() => {{ const r = document.querySelector({json.dumps(selector)})"
                        f".getBoundingClientRect(); return [r.x + r.width / 2, r.y + r.height / 2]; }})()")
        for kind in ("mousePressed", "mouseReleased"):
            self.ask("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1)

    def emulate(self, scheme="light", medium="screen"):
        """The colour scheme that the person prefers, and "print" instead of the screen."""
        self.ask("Emulation.setEmulatedMedia", media=medium,
                 features=[{"name": "prefers-color-scheme", "value": scheme}])

    def resize(self, width, height):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                 mobile=False)

    def screenshot(self, **options):
        """A PNG of what is shown."""
        return base64.b64decode(self.ask("Page.captureScreenshot", format="png", **options)["data"])

    def pdf(self):
        return base64.b64decode(self.ask("Page.printToPDF", printBackground=True)["data"])

    def complaints(self):
        """What the browser had to say about the page: refused by its policy, failed, thrown."""
        return [event["params"] for event in self.events
                if event["method"] in ("Log.entryAdded", "Runtime.exceptionThrown", "Runtime.consoleAPICalled")]

    def requested(self):
        """The addresses that the page asked for."""
        return [event["params"]["request"]["url"] for event in self.events
                if event["method"] == "Network.requestWillBeSent"]
