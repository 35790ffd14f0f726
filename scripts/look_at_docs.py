#!/usr/bin/env python3
"""Looks at the site that scripts/docs has built.

    look_at_docs.py FOLDER              without a browser: whether each link leads to a file and an
                                        anchor that exist, and whether a name is missing
    look_at_docs.py FOLDER --browser    in Chromium, too: the pages, narrow and wide, light and
                                        dark, and the search

Prints what is wrong, and fails if something is.
"""

import html.parser
import pathlib
import re
import sys
import urllib.parse
import xml.etree.ElementTree

# What a reader types, and what must come first. `at` is a part of the URL, which tells the place.
SEARCHES = [
    ("timeout", "docs/guide/long-running.html#timeouts", "a subject of the guide"),
    ("connectTimeout", "docs/socketio.html#row-", "an option in a table"),
    ("upload", "docs/guide/attachments.html", "a subject of the guide"),
    ("proxy", "docs/socketio.html#proxies", "a section"),
    ("jitter", "docs/guide/long-running.html#reconnects", "a word that no name has"),
    ("how do I reconnect", "docs/guide/long-running.html#reconnects", "a question"),
    ("pinnedKeys", "reference/VexIMLib/VXIMClientConfiguration.html#", "a property's own name"),
    ("loginWithUserId", "reference/VexIMLib/VXIMClient.html#", "a function's own name"),
    ("reconn", "docs/", "the beginning of a word"),
    ("is it thread safe", "docs/guide/threads.html", "what a heading does not say"),
    ("add friend", "docs/guide/resources.html", "two words"),
    ("wrong password", "docs/guide/login.html", "a case among others"),
]


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name") and value:
                self.anchors.add(value)
            elif name in ("href", "src") and value and tag != "use":
                self.links.append((tag, value))


def missing_names(folder, headers):
    """What Doxygen has found in the headers and the site does not show."""
    shown = set().union(*(Page(path).anchors for path in (folder / "reference").rglob("*.html")))
    for path in headers.glob("*.xml"):
        compound = xml.etree.ElementTree.parse(path).find("compounddef")
        if compound is not None and compound.get("prot") != "private":
            for member in compound.iter("memberdef"):
                if member.get("id") not in shown:
                    name = member.findtext("qualifiedname") or member.findtext("name")
                    yield f"the reference has no {name}"


def broken_links(folder):
    pages = {path: Page(path) for path in folder.rglob("*.html")}
    if len(pages) < 50:
        yield f"{folder}: only {len(pages)} pages"
    for path, page in pages.items():
        for tag, link in page.links:
            target, _, anchor = link.partition("#")
            if re.match(r"\w+:", target):
                if tag != "a" and not target.startswith("data:"):
                    yield f"{path.relative_to(folder)}: <{tag}> needs a network: {link}"
                continue
            name, anchor = urllib.parse.unquote(target.split("?")[0]), urllib.parse.unquote(anchor)
            file = (path.parent / name).resolve() if target else path
            if not file.is_file():
                yield f"{path.relative_to(folder)}: {link} does not exist"
            elif anchor and file in pages and anchor not in pages[file].anchors:
                yield f"{path.relative_to(folder)}: {link}: no such anchor"
    for style in folder.rglob("*.css"):
        for url in re.findall(r"(?:@import|url\()\s*[\"']?(?:url\()?(/|https?:)[^)\"';]*",
                              style.read_text()):
            yield f"{style.relative_to(folder)}: needs {url}…"


class Browser:
    def __init__(self):
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service

        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--hide-scrollbars",
                         "--disable-dev-shm-usage", "--host-resolver-rules=MAP * ~NOTFOUND"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "SEVERE"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.run, self.quit = self.driver.execute_script, self.driver.quit

    def open(self, url, width):
        self.driver.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": 800, "deviceScaleFactor": 1, "mobile": width < 600})
        self.driver.get(url)

    def prefer(self, scheme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def brightness(self):
        """Of the page and of its text, 0 to 1."""
        return self.run("""
            const text = getComputedStyle(document.querySelector('h1')).color;
            return [getComputedStyle(document.body).backgroundColor, text].map((colour) =>
                colour.match(/[\\d.]+/g).slice(0, 3).reduce((sum, part) => sum + Number(part), 0)
                    / 765)""")

    def troubles(self):
        return [entry["message"] for entry in self.driver.get_log("browser")]


def seen(browser, folder):
    for path in sorted(folder.rglob("*.html")):
        for width in (360, 1400):
            browser.open(path.as_uri(), width)
            where = f"{path.relative_to(folder)} at {width} px"
            wide = browser.run("""
                const width = arguments[0];
                const content = document.querySelector('.content');  // which scrolls by itself
                if (document.documentElement.scrollWidth <= width
                    && content.scrollWidth <= content.clientWidth) return null;
                return [...document.querySelectorAll('.main *')]
                    .filter((each) => each.getBoundingClientRect().right > width + 1).slice(0, 3)
                    .map(({ tagName, className, textContent }) =>
                        `${tagName}.${className}: ${textContent.slice(0, 40)}`)""", width)
            if wide is not None:
                yield f"{where}: wider than the screen: {wide}"
            if broken := browser.run("""
                return [...document.images].map((each) => each.complete && each.naturalWidth
                    ? '' : each.src).filter(Boolean)"""):
                yield f"{where}: pictures that do not show: {broken}"
            for scheme in ("light", "dark"):
                browser.prefer(scheme)
                page, text = browser.brightness()
                if (page < 0.5) != (scheme == "dark") or abs(page - text) < 0.5:
                    yield f"{where}: {scheme}: brightness {page:.2f}, its text {text:.2f}"
            for trouble in browser.troubles():
                yield f"{where}: {trouble}"


def searched(browser, folder):
    typed = """
        const field = document.querySelector('.sidebar-search');
        field.value = arguments[0];
        field.dispatchEvent(new Event('input'));"""
    results = """
        const found = [...document.querySelectorAll('#searchbox a')];
        return found.map((each) => decodeURI(each.href));"""
    browser.open((folder / "docs/guide/login.html").as_uri(), 1400)
    for words, wanted, why in SEARCHES:
        found = browser.run(typed + results, words)
        if not found or wanted not in found[0]:
            first = [each.split("/site/")[-1] for each in found[:4]]
            yield f"search for {words!r} ({why}): wanted {wanted} first, found {first}"
    if browser.run(typed + results, "zzqqy"):
        yield "search for nonsense finds something"
    browser.open((folder / "search.html").as_uri() + "?q=timeout", 360)
    if not browser.run("return document.querySelectorAll('#found a').length > 5"):
        yield "the search page finds nothing"
    browser.run("document.getElementById('__navigation').click()")
    browser.run(typed, "timeout")
    right = browser.run(
        "return document.querySelector('#searchbox .found').getBoundingClientRect().right")
    if not 100 < right <= 360:
        yield f"on a phone the results end at {right} px"


def switched(browser, folder):
    browser.open((folder / "index.html").as_uri(), 1400)
    browser.prefer("light")
    shades = set()
    for _ in range(3):  # light, dark, the system's
        browser.run("document.querySelector('.theme-toggle-content .theme-toggle').click()")
        shades.add(browser.brightness()[0] < 0.5)
    if shades != {True, False}:
        yield "the switch does not change the colours"


if __name__ == "__main__":
    site = pathlib.Path(sys.argv[1]).resolve()
    findings = [*broken_links(site), *missing_names(site, site.parent / "xml")]
    if "--browser" in sys.argv:
        chromium = Browser()
        try:
            for look in (seen, searched, switched):
                findings += look(chromium, site)
        finally:
            chromium.quit()
    print("\n".join(findings) or f"{site.name}: all well")
    sys.exit(1 if findings else 0)
