#!/usr/bin/python3
"""Opens the contact sheet of `kivlut demo` in headless Chromium and checks that every picture on
it loaded and can be drawn whole, that every PNG of the folder is on it, and that
the browser's console shows no error. Exits 0 when all holds, 1 with one line per problem, 2 for
bad arguments, 77 (ctest's skip) when the browser is missing and KIVLUT_ALLOW_NO_BROWSER=1.

    gallery_in_chromium.py --kivlut PATH [--screenshot PNG]   runs `kivlut demo` in a temporary
                                                              folder, then checks it
    gallery_in_chromium.py --gallery DIR [--screenshot PNG]   checks a gallery already written
    gallery_in_chromium.py --self-check                       shows that pictures cut short,
                                                              missing or left off the page, and
                                                              the console error, are caught

Chromium, chromedriver and Selenium are Debian's `chromium`, `chromium-driver` and
`python3-selenium`; scripts/test.sh installs them.
"""
import argparse
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib
from pathlib import Path

# Debian's paths; a developer with the browser elsewhere names it in these variables.
CHROMIUM = os.environ.get("KIVLUT_CHROMIUM", "/usr/bin/chromium")
CHROMEDRIVER = os.environ.get("KIVLUT_CHROMEDRIVER", "/usr/bin/chromedriver")
# The screenshot's viewport: wide enough for four thumbnails a row, and a PNG of it stays small.
VIEWPORT = (1280, 900)
# How long the pictures may take to load: the demo's hundred PNGs load in well under a second.
LOAD_TIMEOUT_S = 20
# The sanitized build of the asan run is several times slower than a release build.
KIVLUT_DEMO_TIMEOUT_S = 150
SKIP_STATUS = 77


class BrowserMissing(Exception):
    pass


def start_browser():
    missing = [p for p in (CHROMIUM, CHROMEDRIVER) if not os.access(p, os.X_OK)]
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
    except ImportError:
        missing.append("the selenium module of /usr/bin/python3")
    if missing:
        raise BrowserMissing(", ".join(missing))
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    options.add_argument("--headless=new")
    # Chromium refuses to start its sandbox as root, which is how CI runs.
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")
    # /dev/shm is small in containers; a renderer that runs out of it crashes.
    options.add_argument("--disable-dev-shm-usage")
    options.add_argument("--disable-gpu")
    options.add_argument("--hide-scrollbars")
    options.add_argument(f"--window-size={VIEWPORT[0]},{VIEWPORT[1]}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    # The driver's path is given, so Selenium never looks for one to download.
    driver = webdriver.Chrome(service=Service(executable_path=CHROMEDRIVER), options=options)
    driver.set_page_load_timeout(LOAD_TIMEOUT_S)
    driver.set_script_timeout(LOAD_TIMEOUT_S)
    # The window size leaves the viewport to the browser; the screenshot's size is set exactly.
    driver.execute_cdp_cmd(
        "Emulation.setDeviceMetricsOverride",
        {"width": VIEWPORT[0], "height": VIEWPORT[1], "deviceScaleFactor": 1, "mobile": False},
    )
    return driver


# Every <img> once its loading ended, one way or the other. A picture cut short after its header
# still gets a natural width and `complete`, and decode() resolves on what arrived; only drawing it
# whole, as createImageBitmap does, fails then.
IMAGES_SCRIPT = """
const done = arguments[arguments.length - 1];
Promise.all(Array.from(document.images).map(img =>
  img.decode().catch(() => null)
    .then(() => createImageBitmap(img).then(bitmap => { bitmap.close(); return true; },
                                            () => false))
    .then(drawable => ({
      src: img.getAttribute('src'),
      complete: img.complete,
      naturalWidth: img.naturalWidth,
      naturalHeight: img.naturalHeight,
      drawable: drawable,
    })))).then(done);
"""


def check_page(driver, folder):
    """Loads folder/index.html; returns the list of problems found, empty when all is well."""
    index = Path(folder).resolve() / "index.html"
    if not index.is_file():
        return [f"{index}: no such file"]
    driver.get(index.as_uri())
    problems = []
    images = driver.execute_async_script(IMAGES_SCRIPT)
    if not images:
        problems.append(f"{index}: the page shows no picture")
    for image in images:
        if not image["complete"]:
            problems.append(f"{image['src']}: not loaded")
        elif image["naturalWidth"] <= 0 or image["naturalHeight"] <= 0:
            problems.append(f"{image['src']}: broken picture (not found or not decodable)")
        elif not image["drawable"]:
            problems.append(f"{image['src']}: broken picture (cut short or corrupt pixel data)")
    shown = {image["src"] for image in images}
    for png in sorted(Path(folder).glob("*.png")):
        if png.name not in shown:
            problems.append(f"{png.name}: written by the demo but not on the contact sheet")
    for entry in driver.get_log("browser"):
        if entry.get("level") == "SEVERE":
            problems.append(f"console error: {entry.get('message')}")
    return problems


def save_screenshot(driver, path):
    driver.execute_script("window.scrollTo(0, 0);")
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    if not driver.save_screenshot(str(path)):
        return [f"{path}: the screenshot could not be written"]
    return []


def run_demo(kivlut, out_dir):
    """Runs `kivlut demo OUT_DIR`; returns the problems, empty when it wrote its gallery."""
    try:
        done = subprocess.run(
            [kivlut, "demo", str(out_dir)],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            # The library's log lines are GBK; they are only quoted here, never parsed.
            encoding="utf-8",
            errors="replace",
            timeout=KIVLUT_DEMO_TIMEOUT_S,
        )
    except (OSError, subprocess.TimeoutExpired) as e:
        return [f"{kivlut} demo: {e}"]
    if done.returncode != 0:
        return [f"{kivlut} demo exited with status {done.returncode}: {done.stderr.strip()}"]
    return []


def small_png(width, height):
    """A valid 8-bit RGB PNG of a colour ramp, made without any imaging module."""

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    rows = b"".join(
        b"\x00" + b"".join(bytes((x * 255 // width, y * 255 // height, (x ^ y) & 255))
                           for x in range(width))
        for y in range(height))
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
        + chunk(b"IDAT", zlib.compress(rows))
        + chunk(b"IEND", b"")
    )


def self_check(driver, folder):
    """A page with a good picture, one cut inside its header, one cut inside its pixel data and
    one not there, and a PNG of the folder left off it: the check must name exactly the four
    faults and see the console error of the missing file. Returns the problems of the check
    itself, empty when it caught what it should."""
    folder = Path(folder)
    good = small_png(64, 48)
    header_end = 8 + 25  # the signature and the IHDR chunk
    (folder / "good.png").write_bytes(good)
    (folder / "cut_header.png").write_bytes(good[: header_end - 5])
    (folder / "cut_pixels.png").write_bytes(good[: (header_end + len(good)) // 2])
    (folder / "left_off.png").write_bytes(good)
    pictures = ["good.png", "cut_header.png", "cut_pixels.png", "missing.png"]
    (folder / "index.html").write_text(
        "<!DOCTYPE html><html><head><meta charset='utf-8'><title>self-check</title></head><body>"
        + "".join(f"<img src='{p}'>" for p in pictures) + "</body></html>\n")
    found = check_page(driver, folder)
    wanted = {
        "cut_header.png: broken": False,
        "cut_pixels.png: broken": False,
        "missing.png: broken": False,
        "left_off.png: written by the demo but not on the contact sheet": False,
    }
    console_errors = 0
    unexpected = []
    for problem in found:
        if problem.startswith("console error:") and "missing.png" in problem:
            console_errors += 1
            continue
        matched = [w for w in wanted if problem.startswith(w)]
        if matched:
            wanted[matched[0]] = True
        else:
            unexpected.append(f"reported a fault that is not there: {problem}")
    missed = [f"did not report '{w}...'" for w, seen in wanted.items() if not seen]
    if console_errors == 0:
        missed.append("saw no console error for the picture that is not there")
    return missed + unexpected


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    what = parser.add_mutually_exclusive_group(required=True)
    what.add_argument("--kivlut", help="the kivlut program; its demo is written and checked")
    what.add_argument("--gallery", help="a folder `kivlut demo` wrote")
    what.add_argument("--self-check", action="store_true", help="show that faults are caught")
    parser.add_argument("--screenshot", help="write the viewport of the checked page to this PNG")
    args = parser.parse_args()

    try:
        driver = start_browser()
    except BrowserMissing as e:
        if os.environ.get("KIVLUT_ALLOW_NO_BROWSER") == "1":
            print(f"SKIPPED: headless Chromium cannot run here (missing: {e}); "
                  "KIVLUT_ALLOW_NO_BROWSER=1 allows that")
            return SKIP_STATUS
        print(f"gallery_in_chromium: missing: {e}. scripts/test.sh installs Debian's chromium, "
              "chromium-driver and python3-selenium; set KIVLUT_ALLOW_NO_BROWSER=1 to skip this "
              "test on a machine without them", file=sys.stderr)
        return 1

    work = Path(tempfile.mkdtemp(prefix="kivlut_chromium_"))
    keep = False
    try:
        if args.self_check:
            problems = self_check(driver, work)
            passed = ("self-check: the pictures cut in the header and in the pixel data, the "
                      "missing one, the one left off the page and the console error were caught")
        else:
            folder = Path(args.gallery) if args.gallery else work / "gallery"
            problems = run_demo(args.kivlut, folder) if args.kivlut else []
            if not problems:
                problems = check_page(driver, folder)
            if not problems and args.screenshot:
                problems = save_screenshot(driver, args.screenshot)
            shown = "the contact sheet of `kivlut demo`" if args.kivlut else folder / "index.html"
            passed = f"{shown}: every picture loaded in Chromium, no console error"
            if args.screenshot:
                passed += f"; screenshot {args.screenshot}"
        keep = bool(problems) and args.kivlut is not None
    finally:
        driver.quit()
        if not keep:
            shutil.rmtree(work, ignore_errors=True)
    for problem in problems:
        print(f"gallery_in_chromium: {problem}", file=sys.stderr)
    if problems:
        if keep:
            print(f"gallery_in_chromium: the gallery is kept in {work} for a look", file=sys.stderr)
        return 1
    print(passed)
    return 0


if __name__ == "__main__":
    sys.exit(main())
