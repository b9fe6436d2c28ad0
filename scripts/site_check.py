"""Checks the API site in a folder: its files by themselves, and what a browser makes of them. One line per check.

Usage: site_check.py FOLDER
"""
import functools
import html.parser
import http.server
import os
import re
import sys
import tempfile
import threading
import urllib.parse

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

CLASSES = ["Json", "StartProcess", "LogService"]
SEARCHED = "startServer"
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync"]
# The width of each picture, 0 of one that could not be read; a picture in SVG is a document of its own.
WIDTHS = """return Array.from(document.querySelectorAll('img, object'), e => {
  if (e.localName === 'img') return [e.src, e.naturalWidth];
  const picture = e.contentDocument && e.contentDocument.querySelector('svg');
  const whole = picture && picture.viewBox && !e.contentDocument.querySelector('parsererror');
  return [e.data, whole ? picture.getBoundingClientRect().width : 0];
})"""


class Page(html.parser.HTMLParser):
    """What a page refers to, and what can be referred to in it."""

    def __init__(self, path):
        super().__init__()
        self.targets = []
        self.anchors = set()
        with open(path, encoding="utf-8") as file:
            self.feed(file.read())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src", "data") and value:
                self.targets.append(value)
            elif name in ("id", "name"):
                self.anchors.add(value)


class Site:
    def __init__(self, folder):
        self.folder = folder
        self.pages = {}
        for path, _, names in os.walk(folder):
            for name in sorted(names):
                if name.endswith(".html"):
                    page = os.path.relpath(os.path.join(path, name), folder)
                    self.pages[page] = Page(os.path.join(path, name))

    def references(self):
        """Pairs of a file and what it refers to; the scripts of the menu and the search do so as well."""
        for name, page in self.pages.items():
            yield from ((name, target) for target in page.targets)
        scripts = ["menudata.js"] + [f"search/{name}" for name in sorted(os.listdir(f"{self.folder}/search"))]
        for script in scripts:
            if script.endswith(".js"):
                with open(f"{self.folder}/{script}", encoding="utf-8") as file:
                    found = re.findall(r"""['"]((?:\.\./)?[\w~.-]+\.html(?:#[^'"]*)?)['"]""", file.read())
                yield from ((script, target) for target in found)

    def has(self, referrer, target):
        parts = urllib.parse.urlsplit(target)
        if parts.scheme or parts.netloc:
            return True
        path = urllib.parse.unquote(parts.path)
        name = os.path.normpath(os.path.join(os.path.dirname(referrer), path)) if path else referrer
        if not os.path.isfile(f"{self.folder}/{name}"):
            return False
        return not parts.fragment or name not in self.pages or parts.fragment in self.pages[name].anchors


class Handler(http.server.SimpleHTTPRequestHandler):
    """Serves the site, and keeps what was asked for in vain."""
    missing = []

    def log_message(self, *_):
        pass

    def send_error(self, code, message=None, explain=None):
        if self.path != "/favicon.ico":
            self.missing.append(f"{self.path} ({code})")
        super().send_error(code, message, explain)


class Browser:
    def __init__(self, base, profile):
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        for option in OPTIONS + [f"--user-data-dir={profile}"]:
            options.add_argument(option)
        self.driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        self.base = base

    def open(self, page):
        """The title, and what is wrong with the page."""
        Handler.missing.clear()
        self.driver.get(self.base + page)
        pictures = self.driver.execute_script(WIDTHS)
        faults = [f"{name} has no width" for name, width in pictures if not width]
        faults += [f"{path} is missing" for path in Handler.missing]
        faults += [entry["message"] for entry in self.driver.get_log("browser")
                   if entry["level"] == "SEVERE" and "favicon.ico" not in entry["message"]]
        loaded = "return performance.getEntriesByType('resource').map(e => e.name)"
        faults += [f"{name} is not of this site" for name in self.driver.execute_script(loaded)
                   if not name.startswith(self.base)]
        return self.driver.title, len(pictures), faults

    def search(self, text):
        """Types the text, follows the first result, and returns where it leads to."""
        self.driver.get(self.base + "index.html")
        self.driver.find_element(By.ID, "MSearchField").send_keys(text)
        wait = WebDriverWait(self.driver, 10)
        wait.until(lambda driver: driver.find_element(By.ID, "MSearchResultsWindow").is_displayed())
        self.driver.switch_to.frame("MSearchResults")
        wait.until(lambda driver: self.results())[0].click()
        self.driver.switch_to.default_content()
        wait.until(lambda driver: "index.html" not in driver.current_url)
        return self.driver.current_url[len(self.base):]

    def results(self):
        return [link for link in self.driver.find_elements(By.CSS_SELECTOR, "a.SRSymbol, a.SRScope")
                if link.is_displayed() and link.get_attribute("href")]


def class_page(site, name):
    """As the list of classes has it."""
    with open(f"{site.folder}/annotated.html", encoding="utf-8") as file:
        return re.search(rf'href="([^"]*)"[^>]*>{name}</a>', file.read()).group(1)


def checks(site, browser):
    """Pairs of a line and the faults that were found."""
    references = list(site.references())
    yield f"{len(references)} references of {len(site.pages)} pages lead somewhere", [
        f"{referrer}: {target}" for referrer, target in references if not site.has(referrer, target)]

    title, pictures, faults = browser.open("index.html")
    yield f"start page: {title}, {pictures} pictures", faults
    for name in CLASSES:
        title, pictures, faults = browser.open(class_page(site, name))
        yield f"class page: {title}, {pictures} pictures", faults + [f"is not of {name}"] * (name not in title)

    opened = [(page, *browser.open(page)) for page in site.pages if not page.startswith("search/")]
    yield (f"{len(opened)} pages with {sum(pictures for _, _, pictures, _ in opened)} pictures and all that they load",
           [f"{page}: {fault}" for page, _, _, faults in opened for fault in faults])

    try:
        found = browser.search(SEARCHED)
        yield f"search: {SEARCHED} leads to {found}", [] if site.has("index.html", found) else ["leads nowhere"]
    except WebDriverException as error:
        yield f"search: {SEARCHED}", ["no result to follow: " + type(error).__name__]


def main():
    site = Site(sys.argv[1])
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Handler, directory=site.folder))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    count = 0
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(f"http://127.0.0.1:{server.server_port}/", profile)
        try:
            for line, faults in checks(site, browser):
                count += len(faults)
                print("\n    ".join(["FAULT " + line if faults else "ok    " + line] + faults[:20]), flush=True)
        finally:
            browser.driver.quit()
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
