#!/usr/bin/env python3
"""web_test.py DROLAB - tests the lab's page in a real browser: a mouse click blocks a device, and the page shows the
store change and the acknowledgement in the cloud. Exits with status 77 when no browser or driver is installed."""
import json
import shutil
import signal
import subprocess
import sys

try:
    from selenium import webdriver
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    webdriver = None

DRIVER = shutil.which("chromedriver")
# The sandbox needs privileges that a test's namespaces do not grant. The browser opens only the lab's own page.
FLAGS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage")
HOSTILE = "<img src=x onerror=alert(1)>"


def await_line(lab, start):
    for line in lab.stdout:
        what = json.loads(line)["what"]
        if what.startswith(start):
            return what[len(start):]
    raise RuntimeError(f"the lab ended before the line: {start}")


class Page:
    """The lab's page at an address."""

    def __init__(self, address):
        options = webdriver.ChromeOptions()
        for flag in FLAGS:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "SEVERE"})
        self.browser = webdriver.Chrome(service=webdriver.chrome.service.Service(DRIVER), options=options)
        self.browser.get(address)

    def shows(self, selector, text):
        """Waits until an element with this selector contains the text."""
        found = f"return [...document.querySelectorAll({json.dumps(selector)})].some(one => one.textContent.includes({json.dumps(text)}))"
        WebDriverWait(self.browser, 20, 0.02).until(lambda browser: browser.execute_script(found), f"not shown: {selector} with {text}")

    def element(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)


def check(page, lab):
    page.shows("#connection", "live")
    await_line(lab, "the agent accepts messages")
    page.shows("#facts", "registered")
    blocked = 'td[data-table="Dilsignature"][data-row="1"][data-field="AllowOrBlock"]'
    page.shows(blocked, "allow")

    page.element('.devices li[data-row="1"] .block').click()
    page.shows("#steps .what", "BLOCK_CD")
    page.shows(blocked, "block")
    page.shows("#changes", "Dilsignature[1].AllowOrBlock")
    page.shows('.request[data-path="/transactionAck/"][data-verdict="verified"] .summary', "1 Success")
    page.shows("#replies .good", "BLOCK_CD")
    page.shows('.devices li[data-row="1"] .block', "Unblock")

    page.element(".inline input").send_keys(HOSTILE)
    page.element(".inline button").click()
    page.shows(".devices b", HOSTILE)
    page.shows(".request .summary", HOSTILE)
    assert not page.browser.find_elements(By.CSS_SELECTOR, "main img"), "a device's name became markup"

    lab.send_signal(signal.SIGINT)
    lab.stdout.read()  # so that it never blocks on a full pipe
    assert lab.wait(30) == 0
    page.shows("#connection", "the lab has ended")
    complaints = page.browser.get_log("browser")
    assert not complaints, complaints


def main():
    if webdriver is None or DRIVER is None:
        print("web_test: no browser is installed")
        return 77
    lab = subprocess.Popen([sys.argv[1], "up", "--json", "--devices", "4", "--web"], stdout=subprocess.PIPE, text=True)
    try:
        page = Page(await_line(lab, "the page: "))
        try:
            check(page, lab)
        finally:
            page.browser.quit()
    finally:
        lab.kill()
    return 0


if __name__ == "__main__":
    sys.exit(main())
