# SPDX-License-Identifier: Apache-2.0
"""A headless Chromium, driven over WebDriver's HTTP, which needs nothing but Python."""
import atexit
import base64
import json
import subprocess
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"left": "\ue012", "right": "\ue014", "shift": "\ue008", "enter": "\ue007", "escape": "\ue00c"}
ARGUMENTS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--no-first-run", "--disable-dev-shm-usage",
             "--disable-background-networking", "--disable-component-update", "--disable-sync"]


class Browser:
    def __init__(self, chromedriver, chromium, folder):
        self.driver = subprocess.Popen([chromedriver, "--port=0"], stdout=subprocess.PIPE, text=True,
                                       env={"HOME": folder, "PATH": "/usr/bin:/bin", "TMPDIR": folder})
        atexit.register(self.driver.kill)
        for line in self.driver.stdout:
            if "started successfully on port" in line:
                self.root = "http://127.0.0.1:%s/session" % line.rstrip(".\n ").split()[-1]
                break
        options = {"binary": chromium, "args": ARGUMENTS + ["--user-data-dir=" + folder + "/profile"]}
        wanted = {"goog:chromeOptions": options,
                  "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        session = self.call("POST", "", {"capabilities": {"alwaysMatch": wanted}})
        self.root += "/" + session["sessionId"]
        self.requests = []

    def close(self):
        try:
            self.call("DELETE", "", None)
        finally:
            self.driver.terminate()
            self.driver.wait(20)

    def call(self, method, path, body):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.root + path, data, {"Content-Type": "application/json"},
                                         method=method)
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(error.read().decode()[:500]) from None

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def open(self, url):
        self.call("POST", "/url", {"url": url})

    def back(self):
        self.call("POST", "/back", {})

    def url(self):
        return self.call("GET", "/url", None)

    def until(self, condition, what, seconds=60):
        """waits for what a script says to be true, and gives it"""
        end = time.monotonic() + seconds
        while True:
            value = self.run("return " + condition)
            if value:
                return value
            if time.monotonic() > end:
                raise RuntimeError("the page never came to: %s; it shows %s" % (
                    what, self.run("return document.body.innerText.slice(0, 600)")))
            time.sleep(0.05)

    def find(self, selector):
        return self.call("POST", "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self.call("POST", "/element/%s/click" % self.find(selector), {})

    def keys(self, selector, *keys):
        """presses keys one after the other; "shift" holds until the end"""
        text = "".join(KEYS.get(key, key) for key in keys)
        self.call("POST", "/element/%s/value" % self.find(selector), {"text": text})

    def drag(self, selector, start, end):
        """from one part of an element's width to another, in its middle"""
        box = self.run("return document.querySelector(arguments[0]).getBoundingClientRect()", selector)
        y = round(box["y"] + box["height"] / 2)
        x = [round(box["x"] + box["width"] * part) for part in (start, (start + end) / 2, end)]
        moves = [{"type": "pointerMove", "x": x[0], "y": y, "duration": 0},
                 {"type": "pointerDown", "button": 0},
                 {"type": "pointerMove", "x": x[1], "y": y, "duration": 30},
                 {"type": "pointerMove", "x": x[2], "y": y, "duration": 30},
                 {"type": "pointerUp", "button": 0}]
        self.call("POST", "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": moves}]})

    def tell(self, command, **parameters):
        """a command of the browser's own protocol"""
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def layout(self, width, height, dark):
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=width < 600)
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.tell("Emulation.setEmulatedMedia", features=[scheme])

    def complaints(self):
        """what stands in the console"""
        return ["%(level)s %(message)s" % line
                for line in self.call("POST", "/se/log", {"type": "browser"})]

    def asked(self):
        """the addresses of all requests so far"""
        for line in self.call("POST", "/se/log", {"type": "performance"}):
            message = json.loads(line["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                self.requests.append(message["params"]["request"]["url"])
        return self.requests

    def picture(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.call("GET", "/screenshot", None)))
