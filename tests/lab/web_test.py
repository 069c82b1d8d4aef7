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


class Lab:
    """`drolab up --web`, with a few devices."""

    def __init__(self, drolab):
        self.process = subprocess.Popen([drolab, "up", "--json", "--devices", "4", "--web"], stdout=subprocess.PIPE, text=True)

    def await_line(self, start):
        for line in self.process.stdout:
            what = json.loads(line)["what"]
            if what.startswith(start):
                return what[len(start):]
        raise RuntimeError(f"the lab ended before it said: {start}")

    def end(self):
        self.process.send_signal(signal.SIGINT)
        self.process.stdout.read()  # so that it never blocks on a full pipe
        return self.process.wait(30)


def cell(table, row, field):
    return f'td[data-table="{table}"][data-row="{row}"][data-field="{field}"]'


def has_text(selector, text):
    return f"[...document.querySelectorAll({json.dumps(selector)})].some(one => one.textContent.includes({json.dumps(text)}))"


class Page:
    """The lab's page at an address."""

    def __init__(self, address):
        options = webdriver.ChromeOptions()
        for flag in FLAGS:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "SEVERE"})
        self.browser = webdriver.Chrome(service=webdriver.chrome.service.Service(DRIVER), options=options)
        self.browser.get(address)

    def value(self, expression):
        return self.browser.execute_script(f"return {expression}")

    def await_that(self, condition):
        WebDriverWait(self.browser, 20, 0.02).until(lambda _: self.value(condition), f"in vain: {condition}")

    def element(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)


def check(page, lab):
    page.await_that("document.querySelector('#connection')?.textContent === 'live'")
    lab.await_line("the agent takes messages")
    page.await_that(has_text("#facts", "registered"))
    blocked = cell("Dilsignature", 1, "AllowOrBlock")
    page.await_that(f"document.querySelector('{blocked}')?.textContent === 'allow'")

    page.element('.devices li[data-row="1"] .block').click()
    page.await_that(has_text("#steps .what", "BLOCK_CD"))
    page.await_that(f"document.querySelector('{blocked}').textContent === 'block'")
    page.await_that(has_text("#changes", "Dilsignature[1].AllowOrBlock"))
    page.await_that(has_text('.request[data-path="/transactionAck/"][data-verdict="verified"] .summary', "1 Success"))
    page.await_that(has_text("#replies .good", "BLOCK_CD"))
    page.await_that(has_text('.devices li[data-row="1"] .block', "Unblock"))

    page.element(".inline input").send_keys(HOSTILE)
    page.element(".inline button").click()
    page.await_that(has_text(".devices b", HOSTILE))
    page.await_that(has_text(".request .summary", HOSTILE))
    assert page.value("document.querySelectorAll('main img').length") == 0, "a device's name became markup"

    assert lab.end() == 0
    page.await_that("document.querySelector('#connection').textContent === 'the lab has ended'")
    complaints = page.browser.get_log("browser")
    assert not complaints, complaints


def main():
    if webdriver is None or DRIVER is None:
        print("web_test: no browser here")
        return 77
    lab = Lab(sys.argv[1])
    try:
        page = Page(lab.await_line("the page: "))
        try:
            check(page, lab)
        finally:
            page.browser.quit()
    finally:
        if lab.process.poll() is None:
            lab.process.kill()
    return 0


if __name__ == "__main__":
    sys.exit(main())
