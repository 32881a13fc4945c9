"""A hundred hosts, four Prometheus that share them, one above these, and VictoriaMetrics behind all."""

import json
import re
import time

import lab
from neighbours import lost_samples
from stories import boards, shortened

CONFIGURATIONS = lab.SOURCE / "contrib/prometheus"
HOSTS, RACKS, SHARDS = 100, 10, 4


def shard_configuration(shard, victoria):
    """The shipped one, for four shards, with the line for another server and with rules that are evaluated at each scrape."""
    text = (CONFIGURATIONS / "prometheus-shard.yml").read_text()
    for pattern, replacement in [
            (r"modulus: 2", f"modulus: {SHARDS}"), (r"shard: '0'", f"shard: '{shard}'"), (r"regex: '0'", f"regex: '{shard}'"),
            (r"#remote_write:\n#- url: \S+", f"remote_write:\n- url: {victoria.url}/api/v1/write"),
            (r"(scrape_interval: (\w+))", r"\1\n  evaluation_interval: \2")]:
        text, count = re.subn(pattern, replacement, text)
        lab.expect(count == 1, f"{pattern} in prometheus-shard.yml")
    return text


def global_configuration(shards):
    text = (CONFIGURATIONS / "prometheus-global.yml").read_text()
    text, count = re.subn(r"targets: \[.*?'shard-.*\]", f"targets: {json.dumps([address(shard) for shard in shards])}", text)
    lab.expect(count == 1, "the targets of prometheus-global.yml")
    return text


def address(program):
    return program.url.removeprefix("http://")


class Costs:
    """Memory and processor time of programs over some minutes."""

    def __init__(self, programs):
        self.programs, self.begin = programs, time.monotonic()
        self.used = self.measure()

    def measure(self):
        return {name: sum(program.processor_seconds() for program in programs) for name, programs in self.programs.items()}

    def table(self):
        seconds, used = time.monotonic() - self.begin, self.measure()
        for name, programs in self.programs.items():
            resident, own = (sum(program.memory()[at] for program in programs) / len(programs) / 2**20 for at in (0, 1))
            share = (used[name] - self.used[name]) / seconds / len(programs)
            yield (f"{name} ({len(programs)}): each {resident:.0f} MiB resident, {own:.0f} MiB of its own, "
                   f"{100 * share:.2f} % of a core")


def scale(place):
    """A hundred hosts, four shards, one server above them, VictoriaMetrics."""
    for file in ("ivra.rules.yml", "ivra-racks.rules.yml", "ivra-global.rules.yml"):
        (place.folder / file).write_text(shortened((CONFIGURATIONS / file).read_text(), "30s", "300", "1d"))
    racks = [lab.Rack(place, f"host-{host}", boards(host)) for host in range(HOSTS)]
    hosts = [lab.Exporter(place, rack, words=()) for rack in racks]
    (place.folder / "targets.json").write_text(json.dumps(
        [{"labels": {"rack": f"r{rack}"}, "targets": [address(host) for host in hosts[rack::RACKS]]} for rack in range(RACKS)]))
    victoria = lab.Prometheus(place, "victoria")
    shards = [lab.Prometheus(place, f"shard-{shard}", shard_configuration(shard, victoria)) for shard in range(SHARDS)]
    above = lab.Prometheus(place, "global", global_configuration(shards))
    totals = {"rack:up:count_down": 0, "rack:ivra_board_up:count": 2 * HOSTS, "rack:ivra_board_up:count_down": 0,
              'rack:ivra_board_health:sum{state="ok"}': 2 * HOSTS, "rack:ivra_module_present:sum": 2 * HOSTS,
              "rack:ivra_sensor_rpm:count_stopped": 0}

    def sums():
        return {expression: above.number(f"sum({expression})") for expression in totals}

    def settles(what, **differences):
        for expression, difference in differences.items():
            totals[expression] += difference
        lab.wait_for(f"{what}: {totals}", lambda: sums() == totals, 90, pause=1)

    settles("the sums of a hundred hosts")
    lab.say(f"   {HOSTS} hosts are scraped, and their sums are exact")
    begin, seconds = time.monotonic(), max(120, lab.lasting(300))
    costs = Costs({"exporter with 2 boards": hosts, "Prometheus of 25 hosts, writing to another": shards,
                   "Prometheus above": [above], "VictoriaMetrics": [victoria]})
    per_rack = {labels["rack"]: value for labels, value in above.query("sum by (rack) (rack:ivra_board_up:count)")}
    lab.expect(per_rack == {f"r{rack}": 2 * HOSTS / RACKS for rack in range(RACKS)}, f"boards by rack: {per_rack}")
    taken = [shard.number('count(up{job="ivra"})') for shard in shards]
    lab.expect(sum(taken) == HOSTS, f"hosts of the shards: {taken}")

    def firing():
        return sorted(f"{name} {labels['instance']}" for server in (*shards, above) for name, labels in server.firing())

    while time.monotonic() < begin + seconds - 60:
        lab.expect(sums() == totals, f"{sums()} instead of {totals}")
        lab.expect(firing() == [], f"fires: {firing()}")
        time.sleep(2)
    used = list(costs.table())
    ivra = '{__name__=~"ivra_.*"}'
    then = f"{time.time() - 40:.0f}"  # before anything happens, and sent
    counts = [[labels_and_value[1] for labels_and_value in server.query(f"count({expression})", time=then)]
              for expression in (ivra, "up{job='ivra'}") for server in (*shards, victoria)]
    series = [int(sum(count)) for count in counts]
    lab.expect(sum(series[:SHARDS]) == series[SHARDS], f"series in shards, and in VictoriaMetrics: {series}")
    lab.expect(sum(series[SHARDS + 1:-1]) == series[-1] == HOSTS, f"hosts in shards, and in VictoriaMetrics: {series}")
    window = f"{max(15, int(time.monotonic() - begin) - 45)}s"
    samples = [server.query(f"sum(count_over_time(ivra_board_up[{window}]))", time=then)[0][1] for server in (*shards, victoria)]
    lab.expect(sum(samples[:SHARDS]) == samples[SHARDS], f"samples in shards, and in VictoriaMetrics: {samples}")

    racks[17].change("bittware", "sensor", "Board temp", "85 C")
    racks[42].change("alveo", "unplug", "0")
    hosts[99].end()
    expected = sorted([f"IvraSensorCritical {address(hosts[17])}", f"IvraModuleGone {address(hosts[42])}",
                       f"IvraExporterDown {address(hosts[99])}"])
    lab.wait_for(f"just {expected}", lambda: firing() == expected, 90, pause=1)
    settles("three causes", **{"rack:up:count_down": 1, "rack:ivra_board_up:count": -2, "rack:ivra_module_present:sum": -3,
                               'rack:ivra_board_health:sum{state="ok"}': -3})
    lab.say(f"   {', '.join(expected)}")
    racks[17].change("bittware", "reset")
    racks[42].change("alveo", "reset")
    hosts[99].start()
    lab.wait_for("the alerts resolve", lambda: firing() == [], 90, pause=1)
    settles("all is well again", **{"rack:up:count_down": -1, "rack:ivra_board_up:count": 2, "rack:ivra_module_present:sum": 3,
                                    'rack:ivra_board_health:sum{state="ok"}': 3})
    lost = [lost_samples(shard) for shard in shards]
    lab.expect(sum(lost) == 0, f"samples were lost: {lost}")
    return [f"{series[SHARDS]} series, {' + '.join(f'{count:.0f}' for count in taken)} hosts; sums exact, three causes and three "
            f"alerts, {samples[SHARDS]:.0f} samples of ivra_board_up here and there, none lost", *used]


STORIES = [scale]
