"""Chromium without a window, driven over its DevTools protocol."""

import json
import os
import shutil
import subprocess
import tempfile

PATIENCE_MS = 10 * 60 * 1000  # only what hangs takes longer, on any machine

FLAGS = [
    "--headless=new",
    "--remote-debugging-pipe",
    # It shows only our own page, and in a container there may be no other way.
    "--no-sandbox",
    "--no-first-run",
    "--no-default-browser-check",
    "--disable-gpu",
    "--disable-dev-shm-usage",
    "--disable-extensions",
    "--disable-sync",
    "--disable-component-update",
    "--disable-background-networking",
    "--disable-background-timer-throttling",
    "--disable-backgrounding-occluded-windows",
    "--disable-renderer-backgrounding",
    "--disable-features=Translate,MediaRouter,OptimizationHints",
    "--password-store=basic",
    # Nothing but this computer has an address.
    "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
    "--proxy-server=direct://",
]


OLDEST = 112  # has all that the page and its tests use


def missing():
    """Why the tests cannot run here; None if they can."""
    if shutil.which("chromium") is None:
        return "Chromium is not installed; ./dev inspector installs it."
    try:
        browser = Browser()
        version = browser.call("Browser.getVersion")["product"]
        browser.close()
    except (OSError, RuntimeError) as failure:
        return f"Chromium does not start here: {failure}"
    if int(version.partition("/")[2].partition(".")[0]) < OLDEST:
        return f"{version} is older than {OLDEST}."
    return None


class Browser:
    """A browser with a profile of its own, which goes with it."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        flags = FLAGS + [f"--user-data-dir={self.folder.name}/profile"]
        # The protocol is spoken over the descriptors 3 and 4.
        self.log = open(f"{self.folder.name}/log", "wb")
        self.process = subprocess.Popen(
            ["sh", "-c", 'exec 3<&0 4>&1 </dev/null >&2; exec "$@"', "sh", "chromium", *flags],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.log,
            env={**os.environ, "HOME": self.folder.name})
        self.last_id = 0
        self.unread = b""
        self.pages = {}

    def call(self, method, session=None, **parameters):
        self.last_id += 1
        message = {"id": self.last_id, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        self.process.stdin.write(json.dumps(message).encode() + b"\0")
        self.process.stdin.flush()
        while True:
            reply = self.receive()
            if reply.get("id") == self.last_id:
                if "error" in reply:
                    raise RuntimeError(f"{method}: {reply['error']['message']}")
                return reply["result"]
            page = self.pages.get(reply.get("sessionId"))
            if page and "method" in reply:
                page.on_event(reply["method"], reply["params"])

    def receive(self):
        while b"\0" not in self.unread:
            piece = self.process.stdout.read1(1 << 16)
            if not piece:
                with open(f"{self.folder.name}/log", encoding="utf-8", errors="replace") as log:
                    raise RuntimeError("the browser has ended: " + log.read()[-2000:])
            self.unread += piece
        message, _, self.unread = self.unread.partition(b"\0")
        return json.loads(message)

    def open(self, url, width=1280, height=800, scheme="light"):
        return Page(self, url, width, height, scheme)

    def close(self):
        try:
            self.call("Browser.close")
        except (RuntimeError, OSError):
            pass  # It was faster.
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()
        self.log.close()
        self.folder.cleanup()


class Page:
    """A page with storage of its own. Keeps what it asked for and what it complained of."""

    def __init__(self, browser, url, width, height, scheme):
        self.browser = browser
        self.requests = []
        self.complaints = []
        self.context = browser.call("Target.createBrowserContext")["browserContextId"]
        target = browser.call("Target.createTarget", url="about:blank", browserContextId=self.context)
        self.session = browser.call("Target.attachToTarget", targetId=target["targetId"], flatten=True)["sessionId"]
        browser.pages[self.session] = self
        for domain in ("Page", "Network", "Runtime", "Log", "DOM"):
            self.call(f"{domain}.enable")
        self.show_as(width, height, scheme)
        self.call("Page.navigate", url=url)
        self.wait(f"location.href.startsWith({json.dumps(url)}) && document.readyState === 'complete'")

    def call(self, method, **parameters):
        return self.browser.call(method, self.session, **parameters)

    def on_event(self, method, parameters):
        if method == "Network.requestWillBeSent":
            self.requests.append(parameters["request"]["url"])
        elif method == "Network.webSocketCreated":
            self.requests.append(parameters["url"])
        elif method == "Log.entryAdded" and parameters["entry"]["level"] == "error":
            self.complaints.append(f"{parameters['entry']['text']} {parameters['entry'].get('url', '')}")
        elif method == "Runtime.exceptionThrown":
            details = parameters["exceptionDetails"]
            self.complaints.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "warning"):
            self.complaints.append(str(parameters["args"]))
        elif method == "Page.javascriptDialogOpening":
            self.complaints.append(f"a dialog: {parameters['message']}")

    def show_as(self, width, height, scheme="light"):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": scheme}, {"name": "prefers-reduced-motion", "value": "reduce"}])

    def evaluate(self, expression):
        """The value of an expression; one that is a promise is waited for."""
        reply = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in reply:
            details = reply["exceptionDetails"]
            raise AssertionError(details.get("exception", {}).get("description", details["text"]))
        return reply["result"].get("value")

    def wait(self, expression):
        """Waits until an expression is true; returns its value."""
        while True:
            try:
                return self.evaluate(f"""(async () => {{
                    const end = performance.now() + {PATIENCE_MS};
                    for (;;) {{
                        const value = (() => {expression})();
                        if (value) return value;
                        if (performance.now() > end)
                            throw new Error('never: ' + {json.dumps(expression)} + '\\n' + document.body.innerText);
                        await new Promise(resolve => setTimeout(resolve, 20));
                    }}
                }})()""")
            except (RuntimeError, AssertionError) as failure:
                # The page went to another address while it was asked.
                if not any(word in str(failure) for word in ("navigated", "context was destroyed", "Cannot find context")):
                    raise

    def text(self, selector):
        return self.evaluate(f"document.querySelector({json.dumps(selector)})?.innerText ?? null")

    def wait_for_text(self, selector, text):
        """Waits until an element that is shown and matches holds the text."""
        self.wait(f"[...document.querySelectorAll({json.dumps(selector)})]"
                  f".some(each => each.checkVisibility() && each.textContent.includes({json.dumps(text)}))")

    def click(self, selector, text=""):
        """Clicks the first element that is shown, matches, and holds the text or is called so, once it is there."""
        self.wait(f"""(() => {{
            const found = [...document.querySelectorAll({json.dumps(selector)})].find(each => each.checkVisibility()
                && [each.textContent, each.getAttribute('aria-label')].some(all => all?.includes({json.dumps(text)})));
            found?.click();
            return found !== undefined;
        }})()""")

    def fill(self, selector, value):
        """Puts a value into a field, as typing or choosing does."""
        self.wait(f"""(() => {{
            const field = document.querySelector({json.dumps(selector)});
            if (field === null) return false;
            field.value = {json.dumps(value)};
            for (const type of ['input', 'change']) field.dispatchEvent(new Event(type, {{ bubbles: true }}));
            return true;
        }})()""")

    def type(self, text):
        self.call("Input.insertText", text=text)

    def press(self, key, code=None, virtual=0, modifiers=0):
        known = {"Tab": 9, "Enter": 13, "Escape": 27, "End": 35, "Home": 36, "ArrowUp": 38, "ArrowDown": 40,
                 "PageUp": 33, "PageDown": 34}
        parameters = {"key": key, "code": code or key, "windowsVirtualKeyCode": virtual or known[key], "modifiers": modifiers}
        if key == "Enter":
            parameters["text"] = "\r"
        self.call("Input.dispatchKeyEvent", type="keyDown", **parameters)
        self.call("Input.dispatchKeyEvent", type="keyUp", **{k: v for k, v in parameters.items() if k != "text"})

    def choose_file(self, selector, file):
        document = self.call("DOM.getDocument")["root"]["nodeId"]
        node = self.call("DOM.querySelector", nodeId=document, selector=selector)["nodeId"]
        self.call("DOM.setFileInputFiles", nodeId=node, files=[file])

    def screenshot(self):
        """A picture of what is shown, as PNG in Base64."""
        return self.call("Page.captureScreenshot", format="png")["data"]

    def close(self):
        del self.browser.pages[self.session]
        self.browser.call("Target.disposeBrowserContext", browserContextId=self.context)
