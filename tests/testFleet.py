#!/usr/bin/env python3
"""The dashboard, the console page and the rules in a real Prometheus, over a small fleet that is not there.

Debian's package prometheus is enough, installed or unpacked. Ends with 77 where it is missing.
"""
import html
import json
import re
import subprocess
import sys
import time
import unittest
from os import path

ROOT = path.dirname(path.dirname(path.abspath(__file__)))
sys.dont_write_bytecode = True
sys.path.insert(0, path.join(ROOT, "bench"))
import fleetServers
import fleetTools

SERVERS, CYCLE = 34, 1


def read(*parts):
    with open(path.join(ROOT, *parts), encoding="utf-8") as file:
        return file.read()


class Files(unittest.TestCase):
    def test_the_fleet_speaks_like_the_monitor(self):
        heads = set(re.findall(r"^#.*", read("tests", "golden", "metrics.txt"), re.M))
        fleet = fleetServers.Fleet(1, CYCLE)
        self.assertEqual(set(re.findall(r"^#.*", fleet.metrics(0, time.time()), re.M)), heads)

    def test_each_alert_has_its_paragraph(self):
        rules, guide = read("packaging", "prometheus", "oxtfs.rules.yml"), read("docs", "operating.md")
        anchors = {head.lower() for head in re.findall(r"^#### (\w+)$", guide, re.M)}
        self.assertEqual(set(re.findall(r"runbook_url: .*#(\w+)$", rules, re.M)), anchors)
        self.assertEqual({name.lower() for name in re.findall(r"alert: (\w+)", rules)}, anchors)


class Pages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.fleet = fleetServers.Fleet(SERVERS, CYCLE, 2)
        names = [fleetServers.name_of(server) for server in range(SERVERS)]
        rules = fleetTools.scaled(read("packaging", "prometheus", "oxtfs.rules.yml"), 60)
        cls.prometheus = fleetTools.prometheus(fleetServers.serve(cls.fleet), names, CYCLE, rules)
        cls.addClassCleanup(cls.prometheus.stop)
        cls.prometheus.start()
        until(lambda: cls.prometheus.number("count(oxtfs_monitor_up)") == SERVERS)
        time.sleep(2 * CYCLE)
        cls.fleet.begin_faults()
        until(lambda: cls.prometheus.number("count(oxtfs_monitor_up)") == SERVERS - cls.planted("server dead")
              and cls.prometheus.number("count(oxtfs_filesystem_full_seconds < 864000)") == cls.planted("full", "fast"))
        until(lambda: cls.prometheus.number("count(oxtfs_monitor_up == 0)") == cls.planted("watch ended"))

    @classmethod
    def planted(cls, *words):
        return sum(any(word in fault.name for word in words) for fault in cls.fleet.faults.values())

    def page(self, **parameters):
        return self.prometheus.get("/consoles/oxtfs.html", **parameters)

    def rows(self, page):
        """Status, server and mount point; without those that change while the page is made."""
        restless = {(fleetServers.name_of(server), f"/srv/data{fleetServers.FAULTY}")
                    for server, fault in self.fleet.faults.items() if not fault.alert}
        rows = re.findall(r'<tr class="s([-\d]+)"><td><a href="[^"]*">([^<]*)</a>.*?<td><a[^>]*>([^<]*)</a>', page, re.S)
        return [row for row in rows if row[1:] not in restless]

    def test_console_page_counts_and_order(self):
        page = self.page()
        shown = {name: int(value) for name, value in re.findall(r'<b id="(\w+)">(\d+)</b>', page)}
        self.assertEqual(shown["servers"], SERVERS - self.planted("server dead"))
        self.assertEqual(shown["hours"], self.planted("hours"))
        self.assertEqual(shown["days"], self.planted("full", "fast"))
        self.assertEqual(shown["silent"], self.planted("watch ended"))
        self.assertEqual(shown["gone"], self.planted("server dead"))
        self.assertGreaterEqual(shown["fatal"], 2)
        rows = self.rows(page)
        self.assertIn(len(rows), range(40, 51))
        order = [int(status) for status, _, _ in rows]
        self.assertEqual(order, sorted(order, reverse=True), "the worst first")
        self.assertEqual(order[0], 3)
        normal = [name for status, name, _ in rows if status == "1"]
        soon = [fleetServers.name_of(server) for words in ("hours", "fast", "days")
                for server, fault in self.fleet.faults.items() if words in fault.name]
        self.assertEqual(set(normal[:len(soon)]), set(soon), "then what will be full")
        self.assertIn(normal[0], soon[:self.planted("hours")], "the soonest first")
        for server, fault in self.fleet.faults.items():
            name = fleetServers.name_of(server)
            listed = re.search(rf'<ul id="unwatched">.*{name}: ([^<]*)<', page, re.S)
            expected = {"server dead": "no metrics any more", "watch ended": "its monitor does not look"}.get(fault.name)
            self.assertEqual(bool(listed), bool(expected), name)
            if expected:
                self.assertIn(expected, listed[1])

    def test_console_page_filters(self):
        name = fleetServers.name_of(3)
        self.assertEqual({row[1] for row in self.rows(self.page(instance="0003"))}, {name})
        self.assertEqual(len(self.rows(self.page(server=name))), fleetServers.FILE_SYSTEMS)
        self.assertEqual(self.rows(self.page(instance="er.0003")), [], "no pattern: the characters themselves")
        low = self.rows(self.page(show="low"))
        self.assertEqual({status for status, _, _ in low}, {"2", "3"})
        self.assertEqual(len(self.rows(self.page(show="filling"))), self.planted("full", "fast"))
        self.assertIn(len(self.rows(self.page(rows="200"))), range(190, 201))
        for odd in ('"}', "(", "\\", "' or 1", "</script>", "[", "`", "\u00e9", "a-b]", "\n"):
            self.assertEqual(self.rows(self.page(instance=odd, mountpoint=odd, hours=odd, show=odd)), [], odd)

    def test_hostile_mount_point(self):
        name = fleetServers.name_of(3)
        for parameters in ({"server": name}, {"server": name, "mount": fleetServers.HOSTILE},
                           {"mountpoint": fleetServers.HOSTILE}):
            page = self.page(**parameters)
            self.assertNotIn("<script>document", page)
            self.assertIn(fleetServers.HOSTILE, [html.unescape(row[2]) for row in self.rows(page)])
        one = self.page(server=name, mount=fleetServers.HOSTILE)
        self.assertEqual(len(self.rows(one)), 1)
        self.assertIn('class="one"', one)

    @unittest.skipUnless(fleetTools.find("chromium"), "needs chromium")
    def test_console_page_in_a_browser(self):
        name = fleetServers.name_of(3)
        dom = subprocess.run(
            ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--virtual-time-budget=20000", "--dump-dom",
             f"{self.prometheus.url}/consoles/oxtfs.html?server={name}&hours=1"], capture_output=True, text=True,
            timeout=120).stdout
        self.assertIn("<title>File systems of all servers</title>", dom, "no script of a mount point's name has run")
        measured = fleetServers.FILE_SYSTEMS - 1
        self.assertIn('data-drawn="all"', dom)
        self.assertEqual(len(re.findall(r'<path d="M[^"]+" class="line">', dom)), measured)
        self.assertEqual(len(re.findall(r'<path d="M0 [\d.]+H200" class="(?:low|bad)">', dom)), 2 * measured)

    # Samples of each panel's questions for server-0003, whose file system 7 is fatal; None: some.
    PANELS = {
        "Servers": 1, "File systems": 1, "Fatal": 1, "Warning": 1, "Full within 4 hours": 1, "Full within 4 days": 1,
        "Without a monitor": 1, "Gone within a day": 1, "Soonest full": None, "Warning and fatal": None,
        "Monitor": 1, "Since its last success": 1, "Failed looks, last day": 1, "Number of file systems": 1,
        "File systems of $instance": None, "Share free of $instance": fleetServers.FILE_SYSTEMS - 1,
        "Free space and thresholds of $mountpoint": 1, "Time until $mountpoint is full": 1, "Status of $mountpoint": 1,
    }

    def test_dashboard(self):
        board = json.loads(read("packaging", "prometheus", "grafana-dashboard.json"))
        panels = [panel for panel in board["panels"] if panel["type"] != "row"]
        self.assertEqual({panel["title"] for panel in panels}, set(self.PANELS))
        self.assertEqual({panel["type"] for panel in panels}, {"stat", "table", "timeseries"}, "no plug-ins")
        self.assertEqual(len({panel["id"] for panel in board["panels"]}), len(board["panels"]))
        variables = {one["name"]: one for one in board["templating"]["list"]}
        values = {"$job": "oxtfs", "$instance": fleetServers.name_of(3), "$mountpoint": "/srv/data17"}

        def asked(expression):
            for name, value in values.items():
                expression = expression.replace(name, value)
            self.assertNotIn("$", expression)
            return self.prometheus.query(expression)
        for name in ("job", "instance", "mountpoint"):
            series, label = re.fullmatch(r"label_values\((.*), (\w+)\)", variables[name]["query"]["query"]).groups()
            self.assertIn(values["$" + name], {labels[label] for labels, _ in asked(series)})
        for one in board["annotations"]["list"]:
            asked(one["expr"])
        answers = {}
        for panel in panels:
            for target in panel["targets"]:
                samples = asked(target["expr"])
                answers[panel["title"], target["refId"]] = samples
                self.assertGreater(len(samples), 0, target["expr"])
                if self.PANELS[panel["title"]]:
                    self.assertEqual(len(samples), self.PANELS[panel["title"]], target["expr"])

        def number(title):
            return answers[title, "A"][0][1]
        self.assertEqual(number("Servers"), SERVERS - self.planted("server dead"))
        self.assertEqual(number("Full within 4 hours"), self.planted("hours"))
        self.assertEqual(number("Full within 4 days"), self.planted("full", "fast"))
        self.assertEqual(number("Gone within a day"), self.planted("server dead"))
        self.assertEqual(number("Without a monitor"), self.planted("watch ended"))
        self.assertEqual(number("Monitor"), 1)
        self.assertLess(number("Since its last success"), 60)
        soonest = answers["Soonest full", "A"]
        self.assertEqual(len(soonest), min(100, len(answers["Soonest full", "B"])))
        self.assertEqual(soonest[0][1], 7200)
        self.assertEqual({status for _, status in answers["Warning and fatal", "B"]}, {2, 3})
        self.assertEqual(len(answers["File systems of $instance", "B"]), fleetServers.FILE_SYSTEMS)
        for curve, share in (("A", 1), ("B", 0.1), ("C", 0.01)):
            self.assertLessEqual(answers["Free space and thresholds of $mountpoint", curve][0][1], 100 * 2**30 * share)


def until(condition):
    end = time.time() + 30
    while not condition():
        if time.time() > end:
            raise AssertionError("not within 30 seconds")
        time.sleep(0.2)


if __name__ == "__main__":
    if not fleetTools.find("prometheus"):
        print("SKIP: needs prometheus")
        sys.exit(77)
    unittest.main(verbosity=1)
