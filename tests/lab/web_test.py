#!/usr/bin/env python3
"""web_test.py DROLAB - the lab's page in a real browser: a device is blocked with the mouse, and the page shows the
store change and the acknowledgement reach the cloud. Ends with status 77 where no browser is installed."""
import json
import signal
import subprocess
import sys

import browser

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
        self.process.stdout.read()  # so that it never waits for room
        return self.process.wait(30)


def cell(table, row, field):
    return f'td[data-table="{table}"][data-row="{row}"][data-field="{field}"]'


def has_text(selector, text):
    return f"[...document.querySelectorAll({json.dumps(selector)})].some(one => one.textContent.includes({json.dumps(text)}))"


def check(page, lab):
    page.await_that("document.querySelector('#connection')?.textContent === 'live'")
    lab.await_line("the agent takes messages")
    page.await_that(has_text("#facts", "registered"))
    blocked = cell("Dilsignature", 1, "AllowOrBlock")
    page.await_that(f"document.querySelector('{blocked}')?.textContent === 'allow'")

    page.click('.devices li[data-row="1"] .block')
    page.await_that(has_text("#steps .what", "BLOCK_CD"))
    page.await_that(f"document.querySelector('{blocked}').textContent === 'block'")
    page.await_that(has_text("#changes", "Dilsignature[1].AllowOrBlock"))
    page.await_that(has_text('.request[data-path="/transactionAck/"][data-verdict="verified"] .summary', "1 Success"))
    page.await_that(has_text("#replies .good", "BLOCK_CD"))
    page.await_that(has_text('.devices li[data-row="1"] .block', "Unblock"))

    page.type(".inline input", HOSTILE)
    page.click(".inline button")
    page.await_that(has_text(".devices b", HOSTILE))
    page.await_that(has_text(".request .summary", HOSTILE))
    assert page.value("document.querySelectorAll('main img').length") == 0, "a device's name became markup"

    assert lab.end() == 0
    page.await_that("document.querySelector('#connection').textContent === 'the lab has ended'")
    assert not page.complaints, page.complaints


def main():
    if browser.program() is None:
        print("web_test: no browser here")
        return 77
    lab = Lab(sys.argv[1])
    try:
        address = lab.await_line("the page: ")
        with browser.Browser(address) as page:
            check(page, lab)
    finally:
        if lab.process.poll() is None:
            lab.process.kill()
    return 0


if __name__ == "__main__":
    sys.exit(main())
