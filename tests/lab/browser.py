"""A headless Chromium, spoken to through its debugging pipe: no port, no driver, nothing but the standard library."""
import json
import os
import shutil
import subprocess
import tempfile

NAMES = ("chromium", "chromium-browser", "google-chrome")
# The sandbox needs privileges that a test's namespaces do not grant; only the lab's own page is opened.
FLAGS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--remote-debugging-pipe")


def program():
    """The path of a browser, or None where none is installed."""
    return next((path for path in map(shutil.which, NAMES) if path), None)


class Browser:
    """The page at an address, once it has loaded. A wait that is in vain and an error in the page raise."""

    def __init__(self, address):
        self.home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        # The browser looks for its ends at 3 and 4.
        self.process = subprocess.Popen(
            ["sh", "-c", 'exec "$@" 3<&0 4>&1 </dev/null >/dev/null 2>&1', "sh",
             program(), *FLAGS, f"--user-data-dir={self.home.name}/profile", "about:blank"],
            env={**os.environ, "HOME": self.home.name}, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.last = 0
        self.session = None
        self.complaints = []
        target = next(one for one in self.call("Target.getTargets")["targetInfos"] if one["type"] == "page")
        self.session = self.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log"):
            self.call(f"{domain}.enable")
        self.loaded = False  # what was there before may have been
        self.call("Page.navigate", url=address)
        while not self.loaded:
            self._read()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.session = None
        self._send("Browser.close", {})
        self.process.communicate(timeout=20)
        self.home.cleanup()

    def _send(self, method, parameters):
        self.last += 1
        message = {"id": self.last, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        self.process.stdin.write(json.dumps(message).encode() + b"\0")
        self.process.stdin.flush()

    def call(self, method, **parameters):
        self._send(method, parameters)
        while True:
            answer = self._read()
            if answer.get("id") == self.last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]

    def _read(self):
        text = bytearray()
        while (byte := self.process.stdout.read(1)) != b"\0":
            if not byte:
                raise RuntimeError("the browser has ended")
            text += byte
        message = json.loads(text)
        if message.get("method") == "Page.loadEventFired":
            self.loaded = True
        if message.get("method") == "Log.entryAdded" and message["params"]["entry"]["level"] == "error":
            self.complaints.append(message["params"]["entry"]["text"])
        if message.get("method") == "Runtime.exceptionThrown":
            self.complaints.append(str(message["params"]["exceptionDetails"]))
        return message

    def value(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"].get("description", expression))
        return result["result"].get("value")

    def await_that(self, condition, seconds=20):
        """Waits until a condition in the page holds, looking again whenever the page changes."""
        return self.value("""new Promise((resolve, reject) => {
            const condition = () => (%s);
            const look = () => condition() && (watch.disconnect(), resolve(true));
            const watch = new MutationObserver(look);
            setTimeout(() => reject(new Error('in vain: ' + condition)), %d);
            watch.observe(document, {subtree: true, childList: true, attributes: true, characterData: true});
            look();
        })""" % (condition, seconds * 1000))

    def click(self, selector):
        """With the mouse, in the middle of the element; raises when something else is there."""
        place = self.value("""(() => {
            const element = document.querySelector(%s);
            element.scrollIntoView({block: 'center'});
            const box = element.getBoundingClientRect();
            const x = box.x + box.width / 2, y = box.y + box.height / 2;
            if (!element.contains(document.elementFromPoint(x, y))) throw new Error('covered: ' + element.outerHTML);
            return {x, y};
        })()""" % json.dumps(selector))
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, button="left", clickCount=1, **place)

    def type(self, selector, text):
        self.click(selector)
        self.call("Input.insertText", text=text)
