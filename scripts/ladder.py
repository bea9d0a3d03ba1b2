#!/usr/bin/python3
"""Makes docs/ladder.png, the picture of the README: scripts/ladder.py [PROGRAM]

Needs the packages chromium, chromium-driver and python3-selenium.
"""
import pathlib
import subprocess
import sys
import tempfile

from selenium import webdriver
from selenium.webdriver.common.by import By

root = pathlib.Path(__file__).resolve().parent.parent
program = sys.argv[1] if len(sys.argv) > 1 else str(root / "build/debug/bin/h323nat")

options = webdriver.ChromeOptions()
for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                 "--window-size=1520,930"):
    options.add_argument(argument)
options.binary_location = "/usr/bin/chromium"

with tempfile.TemporaryDirectory() as work:
    page = pathlib.Path(work) / "call.html"
    subprocess.run([program, "replay", root / "samples/in-fast-tun.pcap", "--report", page,
                    "--inside", "10.0.0.0/24", "--public", "203.0.113.1",
                    "--publish", "10.0.0.5"],
                   stdout=subprocess.DEVNULL, check=True)
    driver = webdriver.Chrome(options=options)
    driver.get(page.as_uri())
    driver.find_element(By.CSS_SELECTOR, ".message.rewritten .name").click()
    driver.save_screenshot(str(root / "docs/ladder.png"))
    driver.quit()
