#!/usr/bin/python3
"""The page of `h323nat replay --report` in headless Chromium: page_test.py PROGRAM SAMPLES

Errors while it loads, its messages against the JSON report, a click, keys, and whether anything is
drawn, light, dark and on paper.
"""
import base64
import json
import pathlib
import struct
import subprocess
import sys
import tempfile
import time
import zlib

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

PROGRAM, SAMPLES = sys.argv[1:3]
ROUTER = ["--inside", "10.0.0.0/24", "--public", "203.0.113.1", "--publish", "10.0.0.5", "--json"]
faults = []


def check(good, what):
    if not good:
        faults.append(what)
        print("page_test:", what, file=sys.stderr)


def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1400,1000"):
        options.add_argument(argument)
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(options=options)


def replay(capture, page, scope="full"):
    run = subprocess.run([PROGRAM, "replay", capture, "--report", page, "--scope", scope] + ROUTER,
                         stdout=subprocess.PIPE, check=True)
    return [json.loads(line) for line in run.stdout.splitlines()]


def colours(png):
    """How many colours a screenshot has: rows without filter bytes are near enough."""
    data, at = b"", 8
    while at < len(png):
        length, kind = struct.unpack(">I4s", png[at:at + 8])
        if kind == b"IDAT":
            data += png[at + 8:at + 8 + length]
        at += length + 12
    return len(set(zlib.decompress(data)))


def gatekeeper_request(identifier, data):
    """A frame with a message of these strings: the gatekeeper's name, and data of no standard."""
    name = identifier.encode("utf-16-be", "surrogatepass")
    message = (bytes.fromhex("018012f3060008914a000700012a") + struct.pack(">H", 0x8000 | len(data))
               + data + bytes.fromhex("000a00000506b700") + bytes([len(name) // 2 - 1]) + name)
    udp = struct.pack(">HHHH", 1719, 1719, 8 + len(message), 0) + message
    ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0,
                     bytes([10, 0, 0, 5]), bytes([203, 0, 113, 8]))
    return bytes(12) + b"\x08\x00" + ip + udp


def hostile_page(driver, work, page):
    """Markup, control characters, marks that turn text around and 16,000 octets stay text."""
    markup = "</script><!--<img src=x onerror=\"document.title='ran'\">"
    whole = (pathlib.Path(SAMPLES) / "fast-tun.pcap").read_bytes()
    whole = whole.replace("alice".encode("utf-16-be"), "<\u202e'\x07>".encode("utf-16-be"))
    frame = gatekeeper_request((markup + "\u202e\u2066\x1b[31m\0\ud800\uffff").ljust(128, "\u200f"),
                               (markup.encode() * 300)[:16000])
    capture = work / "hostile.pcap"
    capture.write_bytes(whole + whole[24:32] + struct.pack("<II", len(frame), len(frame)) + frame)
    lines = replay(str(capture), page)
    load(driver, page)
    same_as_report(driver, "hostile capture", lines)
    shown = driver.find_element(By.TAG_NAME, "body").text
    for row in driver.find_elements(By.CSS_SELECTOR, ".message"):
        driver.execute_script("arguments[0].dispatchEvent(new MouseEvent('click', {bubbles: true}))",
                              row)
        shown += driver.find_element(By.ID, "detail").text
    check("onerror=" in shown, "hostile capture: its strings are not shown")
    moving = sorted({hex(ord(c)) for c in shown if c not in "\n\u2068\u2069" and (
        c < " " or "\x7f" <= c < "\xa0" or "\u200b" <= c <= "\u200f"
        or "\u2028" <= c <= "\u202e" or "\u2060" <= c <= "\u206f")})
    check(not moving, f"hostile capture: {moving} act on the page")
    strange = driver.execute_script("""return document.title === "ran" ? ["a script ran"] :
        [...document.querySelectorAll("img, body script ~ script ~ *")].map((node) => node.outerHTML)""")
    check(not strange, f"hostile capture: {strange}")


def long_capture(path, copies=2000):
    """A call of five messages again and again, six seconds apart, each with another party."""
    whole = (pathlib.Path(SAMPLES) / "fast-tun.pcap").read_bytes()
    parts = [whole[:24]]
    for copy in range(copies):
        at = 24
        while at < len(whole):
            seconds, rest, held, length = struct.unpack("<IIII", whole[at:at + 16])
            parts.append(struct.pack("<IIII", seconds + 6 * copy, rest, held, length))
            parts.append(whole[at + 16:at + 16 + held].replace(
                bytes([203, 0, 113, 9]), struct.pack(">I", 0xCB007109 + copy)))
            at += 16 + held
    path.write_bytes(b"".join(parts))


def long_page(driver, work, page):
    """Most of ten thousand messages are folded away, and it loads in seconds."""
    capture = work / "long.pcap"
    long_capture(capture)
    lines = replay(str(capture), page)
    begin = time.monotonic()
    load(driver, page)
    same_as_report(driver, "long capture", lines)
    taken = time.monotonic() - begin
    size = pathlib.Path(page).stat().st_size
    print(f"page_test: {lines[-1]['messages']} messages, {size >> 20} MB, {taken:.1f} s")
    check(taken < 20, f"long capture: {taken} s")
    check(size < 40 << 20, f"long capture: {size} octets")
    folds = driver.find_elements(By.CSS_SELECTOR, "details:not([open]) > summary")
    check(len(folds) > 50, f"long capture: {len(folds)} folds")
    shown = driver.execute_script("""return [...document.querySelectorAll(".message")].filter(
        (row) => !row.closest('details:not([open])')).length""")
    check(0 < shown < 1000, f"long capture: {shown} messages unfolded")


def load(driver, page):
    driver.get(pathlib.Path(page).as_uri())
    errors = [entry for entry in driver.get_log("browser") if entry["level"] == "SEVERE"]
    check(not errors, f"{page}: errors while it loads: {errors}")


def same_as_report(driver, name, lines):
    rows = driver.execute_script("""
        const data = JSON.parse(document.getElementById("data").textContent);
        return [...document.querySelectorAll(".message")].map((row) => ({
            frame: Number(row.dataset.frame),
            name: row.querySelector(".name").textContent,
            changes: data.messages[row.dataset.message].changed.map(
                ([offset, from, to, field]) => ({field, from, to})),
            left: data.messages[row.dataset.message].left.map((entry) => entry[3])}));""")
    summary = lines[-1]
    check(len(rows) == summary["messages"], f"{name}: {len(rows)} messages, not as in {summary}")
    for row in rows:
        row["name"] = row["name"].replace(" (repeated)", "")
    key = lambda entry: json.dumps(entry, sort_keys=True)
    shown = sorted(({k: row[k] for k in ("frame", "name", "changes")}
                    for row in rows if row["changes"]), key=key)
    told = sorted(({"frame": line["frame"], "name": line["message"], "changes": line["changes"]}
                   for line in lines if line["type"] == "rewrite"), key=key)
    check(shown == told, f"{name}: rewritten {shown}, the report has {told}")
    shown = sorted((row["frame"], field) for row in rows for field in row["left"])
    told = sorted((line["frame"], line["field"]) for line in lines if line["type"] == "left")
    check(shown == told, f"{name}: left {shown}, the report has {told}")


def shown_message(driver, name):
    """A click opens the tree with the changed field marked; keys lead on; Escape closes."""
    detail = driver.find_element(By.ID, "detail")
    check(not detail.is_displayed(), f"{name}: a message is shown before a click")
    row = driver.find_element(By.CSS_SELECTOR, ".message.rewritten .name")
    row.click()
    check(detail.is_displayed(), f"{name}: a click shows nothing")
    marked = [leaf.text for leaf in detail.find_elements(By.CSS_SELECTOR, ".tree .isChanged")]
    check(any("10.0.0.5" in text for text in marked), f"{name}: no marked address in {marked}")
    after = "".join(octet.text for octet in detail.find_elements(
        By.CSS_SELECTOR, ".beside > div:nth-child(2) .octet.isChanged"))
    check("cb007101" in after, f"{name}: the octets as they left hold no public address: {after}")
    leaf = detail.find_element(By.CSS_SELECTOR, ".tree .leaf.isChanged")
    leaf.click()
    check(detail.find_elements(By.CSS_SELECTOR, ".octet.lit"), f"{name}: no octets of a field")
    title = detail.find_element(By.TAG_NAME, "h2").text
    active = driver.find_element(By.CSS_SELECTOR, ".message.shown")
    active.send_keys(Keys.ARROW_DOWN)
    check(detail.find_element(By.TAG_NAME, "h2").text != title, f"{name}: the key leads nowhere")
    driver.switch_to.active_element.send_keys(Keys.ESCAPE)
    check(not detail.is_displayed(), f"{name}: Escape does not close")


def drawn(driver, name):
    for scheme in ("light", "dark"):
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        check(colours(driver.get_screenshot_as_png()) > 20, f"{name}: blank in {scheme}")
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})
    paper = driver.execute_cdp_cmd("Page.printToPDF", {})
    check(len(base64.b64decode(paper["data"])) > 8000, f"{name}: nothing on paper")


def main():
    driver = browser()
    with tempfile.TemporaryDirectory() as work:
        page = str(pathlib.Path(work) / "page.html")
        for capture in sorted(pathlib.Path(SAMPLES).glob("*.pcap")):
            lines = replay(str(capture), page)
            load(driver, page)
            same_as_report(driver, capture.stem, lines)
            if lines[-1]["rewritten"] > 0:
                shown_message(driver, capture.stem)
            drawn(driver, capture.stem)
        lines = replay(str(pathlib.Path(SAMPLES) / "in-fast-tun.pcap"), page, "listed")
        load(driver, page)
        same_as_report(driver, "listed scope", lines)
        states = [row.get_attribute("data-state")
                  for row in driver.find_elements(By.CSS_SELECTOR, ".stream")]
        check(states == ["into the void"] * 2, f"listed scope: streams are {states}")
        hostile_page(driver, pathlib.Path(work), page)
        long_page(driver, pathlib.Path(work), page)
    driver.quit()
    return 1 if faults else 0


sys.exit(main())
