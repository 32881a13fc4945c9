"""Every alert that ships, in a real Prometheus that scrapes boards which change while it watches."""

import re
import signal
import subprocess
import sys
import time

import lab

RULES = lab.SOURCE / "contrib/prometheus/ivra.rules.yml"


def shortened(rules, wait="2s", old="8", day="20s"):
    """The rules with waiting times for scrapes that are a second apart, or as said."""
    times = {"300": old, "1d": day}
    return re.sub(r"(?<=for: )\d+m|(?<=\[)2m|(?<=> )300\b|(?<=offset )1d", lambda found: times.get(found[0], wait), rules)


def boards(host):
    """An Alveo and a Bittware board, whose addresses no other host has."""
    return [
        {"name": "alveo", "uid": "alveo", "model": "xilinx_u200",
         "mac_addresses": {"first": f"02:00:00:{host:02x}:00:00", "count": 1},
         "fpga": {"serial": f"4002000001285c0f1a{host:04x}00"},
         "i2c": {"cages": ["qsfp28-sr4"]},
         "xmc": {"ready_after": ["0 s", "0 s"], "answer_after": "1 ms", "sensors": {"FAN_SPEED": [1120, 1118, 1136]}}},
        {"name": "bittware", "uid": "bittware", "model": "bittware_xupp3r",
         "mac_addresses": {"first": f"02:00:00:{host:02x}:01:00", "count": 1},
         "fpga": {"serial": f"4002000001285c0f1a{host:04x}01"},
         "i2c": {"cages": ["qsfp-lr4"]},
         "bmc": {"latency": "1 ms", "sensors": {"only": True, "list": [
             {"name": "Board temp", "unit": "degrees C", "value": 38,
              "limits": {"upper_non_critical": 70, "upper_critical": 80}},
             {"name": "12V0", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3,
              "limits": {"lower_critical": 10.77, "upper_critical": 13.23}}]}}},
    ]


class Fleet:
    """Three hosts, node_exporter for a file of a fourth one, and a Prometheus that scrapes them each second.

    The third one has two seconds: a silent BMC takes most of the first one, and half a second before the scraper gives up
    there is an answer without it."""

    def __init__(self, place):
        self.place = place
        self.racks = [lab.Rack(place, f"rack-{host}", boards(host)) for host in (1, 2, 3, 4)]
        self.hosts = [lab.Exporter(place, rack) for rack in self.racks[:3]]
        self.text_files = place.folder / "text-files"
        node = lab.NodeExporter(place, self.text_files)
        self.rules = shortened(RULES.read_text())
        (place.folder / "ivra.rules.yml").write_text(self.rules)
        self.prometheus = lab.Prometheus(place, "prometheus", lab.configuration("1s", {
            "ivra": {"host-1": self.hosts[0].url, "host-2": self.hosts[1].url},
            "ivra-patient": {"host-3": self.hosts[2].url}, "node": {"host-4": node.url}}, {"ivra-patient": "2s"}, more="rule_files: [ivra.rules.yml]\n"))

    def write_text_file(self):
        self.place.run("ivra-bsp-exporter", f"--textfile={self.text_files / 'ivra.prom'}", rack=self.racks[3])

    def edit(self, host, edit):
        """Other boards in the place of those of a host."""
        changed = boards(host)
        edit(changed)
        self.racks[host - 1].write(changed)

    def firing(self):
        what = ("instance", "uid", "sensor", "cage", "lane", "mac")
        return sorted(" ".join([name] + [labels[label] for label in what if label in labels])
                      for name, labels in self.prometheus.firing())


# What happens, how it is done, how it is undone, and all alerts that fire then. `1 alveo ...` are words for a
# change, where cages count from 0.
CAUSES = [
    ("A sensor gets hot", "1 bittware sensor|Board temp|66 C", "1 bittware reset",
     ["IvraSensorHeating host-1 bittware Board temp"]),
    ("A sensor beyond its warning limit", "2 bittware sensor|Board temp|72 C", "2 bittware reset",
     ["IvraSensorWarning host-2 bittware Board temp"]),
    ("A sensor beyond its critical limit", "2 bittware sensor|Board temp|85 C", "2 bittware reset",
     ["IvraSensorCritical host-2 bittware Board temp"]),
    ("A voltage below its critical limit", "3 bittware sensor|12V0|10.5 V", "3 bittware reset",
     ["IvraSensorCritical host-3 bittware 12V0"]),
    ("A module gets hot", "1 alveo module|0|temperature|66 C", "1 alveo reset", ["IvraModuleHeating host-1 alveo 1"]),
    ("A module beyond its warning limit", "2 alveo module|0|temperature|72 C", "2 alveo reset",
     ["IvraModuleWarning host-2 alveo 1"]),
    ("A module beyond its critical limit", "2 alveo module|0|temperature|78 C", "2 alveo reset",
     ["IvraModuleCritical host-2 alveo 1"]),
    ("A module is unplugged", "1 alveo unplug|0", "1 alveo plug|0|qsfp28-sr4", ["IvraModuleGone host-1 alveo 1"]),
    ("A fan stops", "3 alveo sensor|FAN_SPEED|0 rpm", "3 alveo reset", ["IvraFanStopped host-3 alveo FAN_SPEED"]),
    ("The power is bad", "1 alveo power-good|bad", "1 alveo reset", ["IvraPowerBad host-1 alveo"]),
    ("A board runs an image unlike the fleet's", "3 bittware configured-from|backup", "3 bittware reset",
     ["IvraBootImageUnlikeFleet host-3 bittware"]),
    ("A BMC falls silent", "3 bittware silent|on", "3 bittware reset", ["IvraBoardIncomplete host-3 bittware"]),
    ("A lane receives less light", "2 alveo module|0|rx_power|0.3 0.8 0.8 0.8 mW", "2 alveo reset",
     ["IvraReceivePowerFell host-2 alveo 1 1"]),
    ("A board does not open", lambda fleet: fleet.edit(2, lambda all: all[0].update(open="EACCES")),
     lambda fleet: fleet.edit(2, lambda all: None), ["IvraBoardDown host-2 alveo"]),
    ("A board is taken out", lambda fleet: fleet.edit(2, lambda all: all.pop(0)),
     lambda fleet: fleet.edit(2, lambda all: None), ["IvraBoardGone host-2 alveo"]),
    ("Two boards have one address",
     lambda fleet: fleet.edit(3, lambda all: all[1].update(mac_addresses=boards(1)[1]["mac_addresses"])),
     lambda fleet: fleet.edit(3, lambda all: None), ["IvraMacAddressTwice 02:00:00:01:01:00"]),
    ("The boards of a host cannot be listed", lambda fleet: fleet.racks[2].write_text("{}}"),
     lambda fleet: fleet.edit(3, lambda all: None), ["IvraCollectionFailing host-3"]),
    ("An exporter is killed", lambda fleet: fleet.hosts[0].end(signal.SIGKILL), lambda fleet: fleet.hosts[0].start(),
     ["IvraExporterDown host-1"]),
    ("The file of a host is not written any more", Fleet.write_text_file, Fleet.write_text_file,
     ["IvraReadingsOld host-4"]),
]


def do(fleet, act):
    if callable(act):
        act(fleet)
        return
    host, board, words = act.split(" ", 2)
    fleet.racks[int(host) - 1].change(board, *words.split("|"))


def watch(fleet, what, wanted, allowed, deadline=30.0):
    """Until exactly these alerts fire; no other one may meanwhile. Seconds that it took."""
    begin = time.monotonic()

    def look():
        firing = fleet.firing()
        lab.expect(set(firing) <= set(allowed), f"{what}: fires: {firing}")
        return firing == sorted(wanted)

    lab.wait_for(f"{what}: {wanted or 'nothing fires'}", look, deadline)
    return time.monotonic() - begin


def stays(fleet, what, alerts, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        lab.expect(fleet.firing() == alerts, f"{what}: fires: {fleet.firing()} instead of {alerts}")
        time.sleep(0.2)


def alerts(place):
    """Each alert fires when it should, alone, and resolves."""
    fleet = Fleet(place)
    lab.wait_for("scrapes of all hosts", lambda: fleet.prometheus.number("sum(up)") == 4)
    stays(fleet, "Nothing has happened", [], 5)
    seen, slowest = set(), [0.0, 0.0]
    for what, cause, undo, expected in CAUSES:
        do(fleet, cause)
        fired = watch(fleet, what, expected, expected)
        stays(fleet, what, expected, 0 if "not written" in what else 3)
        do(fleet, undo)
        resolved = watch(fleet, f"Undone: {what}", [], expected)
        stays(fleet, f"Undone: {what}", [], 2)
        lab.say(f"   {what}: {', '.join(expected)} after {fired:.1f} s, resolved after {resolved:.1f} s")
        seen |= {alert.split()[0] for alert in expected}
        slowest = [max(slowest[0], fired), max(slowest[1], resolved)]
    unseen = set(re.findall(r"alert: (\w+)", fleet.rules)) - seen
    lab.expect(not unseen, f"alerts without a story: {unseen}")
    return [f"{len(CAUSES)} stories, {len(seen)} alerts; they fired after at most {slowest[0]:.1f} s and resolved after "
            f"at most {slowest[1]:.1f} s"]


def racks(place):
    """Prometheus takes every series of every rack."""
    names = sorted(file.stem for file in (lab.SOURCE / "racks").glob("*.json") if ".schema" not in file.name)
    hosts = {name: lab.Exporter(place, lab.Rack.shipped(place, name)) for name in names}
    prometheus = lab.Prometheus(
        place, "prometheus", lab.configuration("10s", {"ivra": {name: host.url for name, host in hosts.items()}}))
    lab.wait_for("scrapes of all racks", lambda: prometheus.number("sum(up)") == len(hosts), 60)
    counts = {}

    def is_whole(name):  # what is read of some boards differs from scrape to scrape
        counts[name] = (len(hosts[name].scrape()), prometheus.number(f'scrape_samples_scraped{{instance="{name}"}}'),
                        prometheus.number(f'count({{instance="{name}", __name__=~"ivra_.*"}})'))
        return len(set(counts[name])) == 1

    for name in hosts:
        try:
            lab.wait_for(f"{name}: series served, lines scraped, series taken", lambda: is_whole(name), 60)
        except lab.Failed as failed:
            raise lab.Failed(f"{failed}: {counts[name]}") from None
    series = sum(count[0] for count in counts.values())
    return [f"{len(hosts)} racks, {series} series"]


def dashboard(place):
    """Every question of the dashboard has an answer."""
    exporter = lab.Exporter(place, lab.Rack.shipped(place, "showcase"))
    for file in RULES.parent.glob("*.rules.yml"):
        (place.folder / file.name).write_text(shortened(file.read_text()))
    prometheus = lab.Prometheus(place, "prometheus", lab.configuration(
        "2s", {"ivra": {"host": exporter.url}}, more="rule_files: ['*.rules.yml']\n"))
    words = [sys.executable, lab.SOURCE / "tests/exporter/dashboard", "--url", prometheus.url]
    run = subprocess.run(words, capture_output=True, text=True)
    lab.expect(run.returncode != 0, "it is content with a Prometheus that has not scraped yet")

    def ask():
        nonlocal run
        run = subprocess.run(words, capture_output=True, text=True)
        return run.returncode == 0

    try:
        lab.wait_for("answers", ask, 60, pause=2)
    except lab.Failed as failed:
        raise lab.Failed(f"{failed}: {run.stdout}{run.stderr}") from None
    return run.stdout.strip().splitlines()[-1:]


STORIES = [alerts, racks, dashboard]
