"""What one exporter takes of its host, beside node_exporter on the same host."""

import json
import os
import pathlib
import re
import time

import lab


def switches(program):
    """How often the program has run so far."""
    status = pathlib.Path(f"/proc/{program.pid}/status").read_text()
    return sum(int(line.split()[1]) for line in status.splitlines() if "ctxt_switches" in line)


def load():
    """Others on the machine make what is measured longer."""
    return f"{os.getloadavg()[0]:.1f} programs ran on {os.cpu_count()} cores in the last minute"


def scrapes(program, scrape, times=20):
    """Seconds of the slowest and of a usual scrape, and of processor time of each."""
    scrape()
    used, seconds = program.processor_seconds(), []
    for _ in range(times):
        begin = time.monotonic()
        scrape()
        seconds.append(time.monotonic() - begin)
        time.sleep(0.2)
    return max(seconds), sorted(seconds)[times // 2], (program.processor_seconds() - used) / times


def text(slowest, usual, processor, program):
    return (f"a scrape {1000 * usual:.0f} ms ({1000 * slowest:.0f} at most), {1000 * processor:.0f} ms of processor time, "
            f"{program.memory()[0] / 2**20:.1f} MiB resident")


def ten_boards(place):
    """A scrape of ten boards, and node_exporter beside it."""
    exporter = lab.Exporter(place, lab.Rack.shipped(place, "showcase"))
    node = lab.NodeExporter(place)
    mine = scrapes(exporter, exporter.scrape)
    theirs = scrapes(node, lambda: lab.get(node.url + "/metrics"))
    resident = exporter.memory()[0]
    before = (switches(exporter), exporter.processor_seconds())
    time.sleep(lab.lasting(30))
    idle = (switches(exporter), exporter.processor_seconds())
    figures = [f"exporter: {text(*mine, exporter)}", f"node_exporter: {text(*theirs, node)}",
               f"idle the exporter ran {idle[0] - before[0]} times; {load()}"]
    scrape = exporter.scrape()
    models = dict(re.match(r'ivra_board_info{uid="(.*?)".*,model="(.*?)"', series).groups() for series in scrape
                  if series.startswith("ivra_board_info{"))
    by_model = {model: sum(f'uid="{uid}"' in series for series in scrape) for uid, model in models.items()}
    figures.append("series: " + ", ".join(f"{model} {count}" for model, count in sorted(by_model.items())) +
                   f"; of the exporter itself {len(scrape) - sum(by_model.values())}")
    lab.expect(mine[1] <= 0.65 and mine[2] <= 0.12 and resident <= 16 * 2**20 and idle == before, "; ".join(figures))
    return figures


def thousand_boards(place):
    """A thousand boards with 32 jobs."""
    rack = lab.Rack.shipped(place, "many")
    seconds, processor = [], []
    for _ in ("cold", "warm"):
        begin, used = time.monotonic(), sum(os.times()[2:4])
        lines = place.run("ivra-bsp-readings", "--lines", "--jobs=32", rack=rack, status=None).stdout.splitlines()
        seconds.append(time.monotonic() - begin)
        processor.append(sum(os.times()[2:4]) - used)
        read = sum(json.loads(line).get("state") == "ok" for line in lines)
        lab.expect(read == 1000, f"{read} of 1000 boards were read")
    exporter = lab.Exporter(place, rack, words=("--jobs=32", "--max-age=3600"))
    scrape = exporter.scrape(timeout=60)
    up = sum(value for series, value in scrape.items() if series.startswith("ivra_board_up{"))
    lab.expect(up == 1000, f"{up:.0f} of 1000 boards")
    used, times = exporter.processor_seconds(), 10
    for _ in range(times):
        lab.get(exporter.url + "/metrics")
    written = (exporter.processor_seconds() - used) / times
    figures = [f"read in {seconds[0]:.1f} s the first time ({processor[0]:.1f} s of processor time), then in {seconds[1]:.1f} s "
               f"({processor[1]:.1f} s); {len(scrape)} series written in {1000 * written:.0f} ms of processor time; exporter "
               f"{exporter.memory()[0] / 2**20:.0f} MiB resident; {load()}"]
    lab.expect(seconds[0] <= 60 and seconds[1] <= 6 and written <= 0.4 * len(scrape) / 100_000, figures[0])
    return figures


STORIES = [ten_boards, thousand_boards]
