"""The same values by other ways."""

import math
import re
import time

import lab


def key_of(series):
    """Name and labels of a series, whose order does not matter; an empty label is none."""
    name, _, labels = series.partition("{")
    return name, frozenset(pair for pair in re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', labels) if pair[1])


def node_exporter(place):
    """node_exporter shows every series of the text file with its value."""
    folder = place.folder / "text-files"
    node = lab.NodeExporter(place, folder)
    place.run("ivra-bsp-exporter", f"--textfile={folder / 'ivra.prom'}", rack=lab.Rack.shipped(place, "showcase"))
    written = {key_of(series): value for series, value in lab.samples_of((folder / "ivra.prom").read_text()).items()}
    text = lab.get(node.url + "/metrics")
    shown = {key_of(series): value for series, value in lab.samples_of(text).items() if series.startswith("ivra_")}
    lab.expect(len(written) > 500, f"{len(written)} series were written")
    lab.expect(shown == written, f"differ: {list(set(shown.items()) ^ set(written.items()))[:4]}")
    lab.expect("\nnode_textfile_scrape_error 0\n" in text, "node_textfile_scrape_error is not 0")
    return [f"{len(shown)} series"]


def victoria_metrics(place):
    """VictoriaMetrics has every series of Prometheus with its value, by remote write."""
    exporter = lab.Exporter(place, lab.Rack.shipped(place, "showcase"))
    victoria = lab.Prometheus(place, "victoria")
    prometheus = lab.Prometheus(place, "prometheus", lab.configuration(
        "2s", {"ivra": {"host": exporter.url}}, more=f"remote_write: [{{url: '{victoria.url}/api/v1/write'}}]\n"))
    ivra = '{__name__=~"ivra_.*"}'
    lab.wait_for("series in VictoriaMetrics", lambda: victoria.number(f"count({ivra})"), 60)
    time.sleep(lab.lasting(20))
    then = f"{time.time() - 6:.0f}"  # when all has been sent

    def series(server):
        return {frozenset(labels.items()): value for labels, value in server.query(ivra, time=then)}

    mine, theirs = series(prometheus), series(victoria)
    lab.expect(len(mine) > 500, f"{len(mine)} series in Prometheus")
    lab.expect(mine.keys() == theirs.keys(), f"only in one: {list(mine.keys() ^ theirs.keys())[:4]}")
    differ = [(labels, value, theirs[labels]) for labels, value in mine.items()
              if not math.isclose(value, theirs[labels], rel_tol=1e-9)]  # VictoriaMetrics keeps fewer digits
    lab.expect(not differ, f"differ: {differ[:4]}")
    lab.expect(lost_samples(prometheus) == 0, f"samples were lost: {lost_samples(prometheus)}")
    return [f"{len(theirs)} series"]


def lost_samples(prometheus):
    """Of those that were to be written to another server."""
    counters = lab.samples_of(lab.get(prometheus.url + "/metrics"))
    found = {series: value for series, value in counters.items()
             if re.match("prometheus_remote_storage_samples_(failed|dropped)_total", series)}
    lab.expect(len(found) >= 2, f"counters of lost samples: {found}")
    return sum(found.values())


STORIES = [node_exporter, victoria_metrics]
