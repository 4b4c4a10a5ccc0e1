"""`tvctl detections report`, opened in a browser."""

import hashlib
import json
import os
import random
import re
import time

import pytest

from browser import Browser
from harness import DOCS, EICAR, EICAR_NAME, Path, Unwatched, fresh_directory, wait_gone

DAY = 24 * 3600


@pytest.fixture(scope="session")
def shared_browser():
    browser = Browser(fresh_directory())
    yield browser
    browser.close()


@pytest.fixture
def browser(shared_browser):
    shared_browser.events.clear()
    shared_browser.emulate()
    shared_browser.resize(1280, 900)
    return shared_browser


@pytest.fixture
def show(tvctl, files, browser):
    """Makes a report and opens it."""
    def make(*arguments):
        page = files / "report.html"
        tvctl.run("detections", "report", "-o", page, *arguments, environment={"TZ": "UTC"})
        browser.open(page)
        return page
    yield make
    # Whatever was shown: nothing but the file was asked for, nothing was refused, nothing failed.
    assert set(browser.requested()) == {f"file://{files}/report.html"}
    assert browser.complaints() == []


def ago(seconds):
    return int((time.time() - seconds) * 1000)


def record(seconds_ago, **values):
    return {"path": "/home/u/x", "virus": "Test.Name-1", "status": 0, "module": "tvfilemon", "version": "1.0",
            "msecs": ago(seconds_ago), **values}


def write_ioc_report(tv, seconds_ago, path, action="ID", kind=6, value=None):
    """A line as the service writes it."""
    moment = time.gmtime(time.time() - seconds_ago)
    directory = tv.root / "reports"
    directory.mkdir(exist_ok=True)
    value = value or hashlib.sha256(path.encode()).hexdigest()
    line = f"{time.strftime('%d-%m-%Y %H:%M:%S', moment)},{path},{action},{kind},{value}" + ",NA" * 6 + "\n"
    with open(directory / time.strftime("%d-%m-%Y.apmon", moment), "ab") as report:
        report.write(line.encode("latin-1", "replace"))


def number_of(browser, selector):
    return browser.run(f"document.querySelectorAll({json.dumps(selector)}).length")


def cards(browser):
    return {key: int(value.replace(",", "")) for key, value in
            browser.run("[...document.querySelectorAll('#cards li')].map((c) => [c.dataset.card,"
                        " c.querySelector('.value').innerText])")}


def column(browser, number):
    return browser.texts(f"#rows tr td:nth-child({number})")


# ------------------------------------------------------------------------------------------- what is on the page


def test_the_service_and_its_report(tv, home, connect, show, browser):
    """From what really happened to what can be read."""
    unwatched = Unwatched()
    bad = unwatched.file(b"known to be bad, and by no signature")
    tv.configure(ioc=True, iocAction=1, iocHashes={"2": [hashlib.sha256(bad.read_bytes()).hexdigest()]})
    tv.start()
    wait_gone(unwatched.move_in(home / "a, b"))
    wait_gone(unwatched.move_in(home / "second"))
    tv.settle()
    connect("demo").send(f"SCANIOC {bad}")
    wait_gone(bad)
    show()
    assert cards(browser) == {"all": 2, "cleaned": 2, "reported": 0, "failed": 0, "hash": 1}
    assert sorted(column(browser, 2)) == ["Cleaned", "Cleaned", "Renamed"]
    assert sorted(column(browser, 4)) == sorted([f"{home}/a, b", f"{home}/second", str(bad)])
    assert column(browser, 3).count(EICAR_NAME) == 2
    assert sorted(column(browser, 5)) == ["hash list", "tvfilemon", "tvfilemon"]
    assert browser.texts("#verdict") == ["Every detected file was dealt with."]


def test_nothing_detected(tv, show, browser):
    tv.configure(protection=True)
    show()
    assert browser.texts("#empty h2") == ["Nothing was detected"]
    assert browser.run("document.getElementById('content').hidden")
    show("--since", "7d")
    assert re.fullmatch(r"No file was detected since \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.",
                        browser.texts("#empty-text")[0])


def test_the_numbers(tv, show, browser, tvctl, files):
    tv.add_reports(
        [record(20 * DAY)] * 3 + [record(10 * DAY, status=-1, virus="B", path="/media/stick/y")] * 2 +
        [record(10 * DAY, status=-2, virus="B", path="/media/stick/y")] +
        [record(5, status=1, virus="C", path="/media/stick/z"), {"path": "/home/u/x", "virus": "C"}])
    write_ioc_report(tv, 10 * DAY, "/home/u/b, c")
    write_ioc_report(tv, 10 * DAY, "/home/u/d", action="IA")
    show()
    assert cards(browser) == {"all": 8, "cleaned": 4, "reported": 3, "failed": 1, "hash": 2}
    assert "1 file could not be cleaned" in browser.texts("#verdict")[0]
    assert browser.texts("#names .what") == ["B", "Test.Name-1", "C"]
    assert browser.texts("#names .amount") == ["3", "3", "2"]
    assert browser.texts("#folders .what") == ["/home/u", "/media/stick"]
    assert browser.texts("#folders .amount") == ["6", "4"]
    assert "1 without a usable time" in browser.texts("#notes")[0]
    result = tvctl.json("detections", "report", "-o", files / "r.html")
    assert result == {"detections": 8, "hash_matches": 2, "file": f"{files}/r.html"}


def test_the_chart(tv, show, browser):
    tv.add_reports([record(20 * DAY)] * 3 + [record(10 * DAY, status=-1)] * 2 + [record(10 * DAY)] + [record(0, status=1)])
    write_ioc_report(tv, 10 * DAY, "/home/u/d")
    show()
    assert number_of(browser, "#chart svg .bar") == 21
    parts = browser.run("[...document.querySelectorAll('#chart .bar')].map((b) => [...b.querySelectorAll("
                        "'[data-series]')].map((r) => [r.dataset.series, r.getBoundingClientRect().height]))")
    drawn = {index: part for index, part in enumerate(parts) if part}
    assert {index: [name for name, _ in part] for index, part in drawn.items()} == {
        0: ["cleaned"], 10: ["cleaned", "reported", "hash"], 20: ["failed"]}
    one = drawn[20][0][1]
    assert one > 20
    assert drawn[0][0][1] == pytest.approx(3 * one, abs=0.5)
    assert [height for _, height in drawn[10]] == pytest.approx([one, 2 * one, one], abs=0.5)
    day = time.gmtime(time.time() - 10 * DAY)
    assert browser.run("document.querySelectorAll('#chart .bar title')[10].textContent").split("\n") == [
        f"{day.tm_mday} {time.strftime('%b %Y', day)}", "Cleaned: 1", "Reported only: 2", "On a hash list: 1"]
    # The same for those who do not see it.
    assert "21 bars, one for each day" in browser.run("document.querySelector('#chart svg desc').textContent")
    browser.click("details summary")
    assert browser.texts("#chart-table tbody tr td") == ["3", "0", "0", "0", "0", "1", "2", "0", "0", "1",
                                                         "0", "0", "0", "1", "0"]
    # Different for those who do not see colours.
    fills = browser.run("[...new Set([...document.querySelectorAll('#chart [data-series]')].map((r) =>"
                        " document.querySelector(r.getAttribute('fill').slice(4, -1) + ' path')"
                        ".getAttribute('d')))].length")
    assert fills == 4


@pytest.mark.parametrize("since, unit, bars", [("2d", "hour", 49), ("30d", "day", 31), ("400d", "week", 58)])
def test_the_period(tv, show, browser, since, unit, bars):
    tv.add_reports([record(500 * DAY, path="/old"), record(DAY)])
    write_ioc_report(tv, 500 * DAY, "/old")
    show("--since", since)
    assert number_of(browser, "#chart .bar") in (bars, bars + 1)
    assert browser.texts("#chart-title") == [f"Detections over time by {unit}"]
    assert column(browser, 4) == ["/home/u/x"]
    assert "since 20" in browser.texts("#period")[0]


def test_the_table(tv, show, browser):
    tv.add_reports(record(1000 - number, virus=f"Name-{number % 7}", path=f"/home/u/{number:03}",
                          status=1 if number % 10 == 0 else 0) for number in range(120))
    show()
    assert column(browser, 4) == [f"/home/u/{number:03}" for number in range(119, 69, -1)]
    assert browser.texts("#count") == ["120 in all"] and browser.texts("#page") == ["Page 1 of 3"]
    browser.click("#next")
    browser.click("#next")
    assert column(browser, 4)[-1] == "/home/u/000"
    assert browser.run("document.getElementById('next').disabled")
    # Search: all words, anywhere, whatever the case.
    browser.type("#search", "NAME-3 u/01")
    assert column(browser, 4) == ["/home/u/017", "/home/u/010"]
    assert browser.texts("#count") == ["2 of 120"]
    assert browser.run("document.getElementById('pager').hidden")
    browser.type("#search", "no such file")
    assert column(browser, 4) == [] and browser.texts("#none") == ["Nothing matches."]
    browser.type("#search", "")
    assert browser.texts("#count") == ["120 in all"]
    # By result.
    browser.run("(() => { const s = document.getElementById('result'); s.value = 'failed';"
                " s.dispatchEvent(new Event('change')); })()")
    assert column(browser, 2) == ["Failed"] * 12
    assert browser.texts("#result option") == ["All", "Cleaned", "Failed"]


def test_the_order_of_the_table(tv, show, browser):
    tv.add_reports([record(30, virus="B", path="/3"), record(20, virus="A", path="/1"), record(10, virus="C", path="/2")])
    show()
    order = "[...document.querySelectorAll('#table th')].map((h) => h.getAttribute('aria-sort'))"
    assert column(browser, 4) == ["/2", "/1", "/3"]
    assert browser.run(order) == ["descending", None, None, None, None]
    browser.click("#table th:nth-child(3) button")
    assert column(browser, 3) == ["A", "B", "C"]
    assert browser.run(order) == [None, None, "ascending", None, None]
    browser.click("#table th:nth-child(3) button")
    assert column(browser, 3) == ["C", "B", "A"]
    browser.click("#table th:nth-child(4) button")
    assert column(browser, 4) == ["/1", "/2", "/3"]
    browser.click("#table th:nth-child(1) button")
    assert column(browser, 4) == ["/2", "/1", "/3"]


def test_more_than_the_table_holds(tv, show, browser):
    tv.add_reports(record(20000 - number, path=f"/{number}") for number in range(10100))
    page = show()
    assert browser.texts("#count") == ["10,000 newest of 10,100"]
    assert "The table holds the newest 10,000 of 10,100 records" in browser.texts("#notes")[0]
    assert cards(browser)["all"] == 10100
    assert column(browser, 4)[0] == "/10099"
    assert page.stat().st_size < 3_000_000


# ------------------------------------------------------------------------------------------------ what is not run

HOSTILE = [
    "</script><script>document.title='owned'</script>",
    "</script><img src=x onerror=\"document.title='owned'\">",
    "<svg onload=document.title='owned'>",
    "<!--<script>",
    "\"><b>x</b>",
    "&lt;b&gt;",
    "{{constructor.constructor('document.title=1')()}}",
    "javascript:document.title='owned'",
    "a\u2028b",
    "]]>\\u003c@DATA@@SCRIPT@",
    "<link rel=stylesheet href=http://x.invalid/>",
]


def test_hostile_names_are_only_text(tv, show, browser):
    tv.add_reports(record(60 - number, path=f"/home/u/{name}", virus=name, module=name)
                   for number, name in enumerate(HOSTILE))
    for name in HOSTILE:
        write_ioc_report(tv, 5, f"/home/u/{name}", value=name)
    page = show()
    assert browser.run("document.title") == "Detection report"
    shown = set(column(browser, 3))
    for name in HOSTILE:
        assert name.replace("\u2028", "\\u2028") in shown
    assert browser.run("document.scripts.length") == 2
    assert number_of(browser, "img, iframe, object, embed, link, b, a[href], [onload], [onerror]") == 0
    assert cards(browser) == {"all": len(HOSTILE), "cleaned": len(HOSTILE), "reported": 0, "failed": 0,
                              "hash": len(HOSTILE)}
    # Also where a browser knows no policy, and where somebody searches the file.
    assert page.read_text().count("<script") == 2 and "onerror=\"" not in page.read_text()


def test_the_policy_lets_nothing_else_run(tv, files, show, browser):
    """Whatever got into the page, it would do nothing."""
    tv.add_reports([record(1)])
    page = show()
    tampered = files / "tampered.html"
    tampered.write_text(page.read_text().replace(
        "<main>", "<main><script>document.title='owned'</script><img src='http://x.invalid/x'"
        " onerror=\"document.title='owned'\"><p style='color: red' id='styled'>x</p>"))
    browser.open(tampered)
    assert browser.run("document.title") == "Detection report"
    assert browser.run("getComputedStyle(document.getElementById('styled')).color") != "rgb(255, 0, 0)"
    assert len(browser.complaints()) >= 3
    tried = {event["params"]["requestId"] for event in browser.events
             if event["method"] == "Network.requestWillBeSent" and "x.invalid" in event["params"]["request"]["url"]}
    refused = {event["params"]["requestId"] for event in browser.events
               if event["method"] == "Network.loadingFailed" and event["params"].get("blockedReason") == "csp"}
    assert tried <= refused
    assert column(browser, 4) == ["/home/u/x"], "its own script does run"
    browser.events.clear()
    browser.open(page)


def test_a_page_needs_nothing_else(tv, show):
    tv.add_reports([record(1)])
    text = show().read_text().replace("http://www.w3.org/2000/svg", "")
    assert not re.search(r"https?:|src=|@import|<link|url\((?!#|\")", text)


# -------------------------------------------------------------------------------------------------- how it looks


def luminance(colour):
    channels = [int(value) / 255 for value in re.findall(r"\d+", colour)[:3]]
    red, green, blue = (c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4 for c in channels)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(first, second):
    high, low = sorted((luminance(first), luminance(second)), reverse=True)
    return (high + 0.05) / (low + 0.05)


# For each text that can be seen: its colour, and the colour of what is behind it.
COLOURS = """
(() => {
  const behind = (e) => {
    for (; e; e = e.parentElement) {
      const c = getComputedStyle(e).backgroundColor;
      if (!/, 0\\)$|transparent/.test(c)) { return c; }
    }
    return "rgb(255, 255, 255)";
  };
  return [...document.querySelectorAll("body *")]
    .filter((e) => e.getClientRects().length && e.closest("svg") === null
      && [...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim()))
    .map((e) => [e.textContent.trim().slice(0, 30), getComputedStyle(e).color, behind(e)]);
})()
"""


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_it_can_be_read(tv, show, browser, scheme):
    tv.add_reports([record(5, status=status) for status in (0, -1, -2, 1)])
    write_ioc_report(tv, 5, "/home/u/d")
    browser.emulate(scheme)
    show()
    page = browser.run("getComputedStyle(document.body).backgroundColor")
    assert (luminance(page) > 0.8) == (scheme == "light") and (luminance(page) < 0.05) == (scheme == "dark")
    colours = browser.run(COLOURS)
    assert len(colours) > 50
    poor = [(text, first, second) for text, first, second in colours if contrast(first, second) < 4.5]
    assert poor == []
    surface = browser.run("getComputedStyle(document.querySelector('.card')).backgroundColor")
    for name in ("cleaned", "reported", "allowed", "failed", "hash"):
        fill = browser.run(f"getComputedStyle(document.querySelector('pattern .fill-{name}')).fill")
        assert contrast(fill, surface) >= 3, name


def test_on_paper(tv, show, browser):
    tv.add_reports(record(1000 - number, path=f"/home/u/{number}") for number in range(300))
    browser.emulate("dark", "print")
    show()
    assert luminance(browser.run("getComputedStyle(document.body).backgroundColor")) == 1
    assert luminance(browser.run("getComputedStyle(document.body).color")) < 0.05
    for selector in (".tools", ".pager", "details"):
        assert browser.run(f"getComputedStyle(document.querySelector('{selector}')).display") == "none"
    browser.emulate("dark")
    assert len(column(browser, 4)) == 50
    pages = browser.pdf().count(b"/Type /Page\n")
    assert pages >= 6, "all rows are printed"
    assert len(column(browser, 4)) == 50


def test_on_a_telephone(tv, show, browser):
    tv.add_reports([record(number * DAY, path="/home/u/" + "long" * 60) for number in range(30)])
    browser.resize(390, 800)
    show()
    assert browser.run("document.documentElement.scrollWidth") <= 390
    assert number_of(browser, "#chart .bar") == 30


def test_with_the_keyboard(tv, show, browser):
    tv.add_reports([record(30, virus="B"), record(20, virus="A")])
    show()
    reached = []
    for _ in range(12):
        for kind in ("keyDown", "keyUp"):
            browser.ask("Input.dispatchKeyEvent", type=kind, key="Tab", code="Tab", windowsVirtualKeyCode=9)
        reached.append(browser.run("(document.activeElement.id || document.activeElement.innerText)"))
    assert ["search", "result", "Time", "Result", "Name", "File", "Found by"] == [
        each for each in reached if each in ("search", "result", "Time", "Result", "Name", "File", "Found by")][:7]


# ------------------------------------------------------------------------------------------------------ the picture


def made_up_records():
    """Forty-five days of a small office."""
    chance = random.Random(7)
    names = {"Win.Test.Dropper-1": 30, "Html.Phishing.Bank-77": 22, "Doc.Downloader.Macro-4": 16,
             "Unix.Miner.Pool-3": 11, EICAR_NAME: 8, "Js.Redirect.Kit-9": 6, "Pdf.Exploit.Font-2": 4,
             "Zip.Bomb.Nested-1": 2}
    folders = {"/home/anna/Downloads": 34, "/home/ben/Mail/attachments": 20, "/media/usb-stick": 14,
               "/home/anna/Documents/invoices": 9, "/home/clara/.cache/browser": 8,
               "/home/ben/projects/shop/node_modules/.bin": 4, "/home/dora/Desktop": 3}
    files = ["invoice-2026-{:03}.pdf.exe", "Rechnung {:03}.docm", "setup_{:03}.exe", "photo{:03}.jpg.js",
             "parcel-notice-{:03}.html", "update-{:03}.sh", "Übersicht {:03}.xlsm"]

    def pick(weights):
        return chance.choices(list(weights), list(weights.values()))[0]

    records = []
    for day in range(45):
        usual = 6 + 4 * (day % 7 in (1, 2, 3)) + 18 * (day == 31)
        for _ in range(max(0, int(chance.gauss(usual, 3)))):
            records.append(record((44 - day) * DAY + 60 + chance.random() * 40000, virus=pick(names),
                                  path=f"{pick(folders)}/{chance.choice(files).format(chance.randrange(1000))}",
                                  status=chance.choices([0, -1, -2, 1], [88, 7, 2, 3])[0]))
    return sorted(records, key=lambda each: each["msecs"])


def test_pictures(tv, show, browser, files):
    """Both are drawn; with TVFILEMON_PICTURES set they become those of the documentation."""
    tv.add_reports(made_up_records())
    for day, action in ((1, "IR"), (4, "ID"), (4, "IA"), (9, "ID"), (20, "IR"), (33, "ID")):
        write_ioc_report(tv, day * DAY, f"/home/anna/Downloads/tool, v{day}.exe", action)
    browser.resize(1280, 1400)
    pictures = {}
    for scheme in ("light", "dark"):
        browser.emulate(scheme)
        page = show()
        # No name of a machine in the documentation.
        content = page.read_text()
        page.write_text(content.replace(f'"host":"{os.uname().nodename}"', '"host":"office-pc"'))
        browser.open(page)
        pictures[scheme] = browser.screenshot()
        assert pictures[scheme].startswith(b"\x89PNG")
        if "TVFILEMON_PICTURES" in os.environ:
            Path(DOCS / "images" / f"report-{scheme}.png").write_bytes(pictures[scheme])
    assert pictures["light"] != pictures["dark"]


# --------------------------------------------------------------------------------------------------- the failures


def test_the_file(tv, tvctl, files):
    tv.configure(protection=True)
    page = files / "r.html"
    page.write_text("before")
    page.chmod(0o644)
    assert tvctl.run("detections", "report", "-o", page).output == "detections: 0, hash list matches: 0\n"
    assert page.stat().st_mode & 0o7777 == 0o600 and page.read_text().startswith("<!DOCTYPE html>")
    (files / "link").symlink_to(page)
    tvctl.fails("detections", "report", "-o", files / "link", says="is not a regular file; name another")
    tvctl.fails("detections", "report", "-o", files / "no" / "r", says="No such file or directory; name another")
    tvctl.fails("detections", "report", says="--output is required; see tvctl detections report --help")
    tvctl.fails("detections", "report", "-o", page, "--since", "once", says='--since takes no "once"; give a span')
    assert sorted(os.listdir(files)) == ["link", "r.html"]


def test_no_store(tv, tvctl, files):
    tvctl.fails("detections", "report", "-o", files / "r.html", says=f"there is no {tv.settings}")
    assert os.listdir(files) == []


def test_reports_that_cannot_be_read(tv, show, browser, tvctl, files):
    tv.add_reports([record(1)])
    write_ioc_report(tv, 5, "/home/u/d")
    [report] = (tv.root / "reports").iterdir()
    with open(report, "ab") as file:
        file.write(EICAR + b"\n\xff\xff\n")
    os.mkfifo(report.with_name("01-01-2026.apmon"))
    show()
    assert cards(browser)["hash"] == 1
    assert "3 entries of the hash list reports could not be read" in browser.texts("#notes")[0]
    assert "1 of the reports in" in tvctl.run("detections", "report", "-o", files / "report.html").errors
