"""Whether python3-prometheus-client reads in metrics what the document of the same collection says.

Arguments: folders, each with a file "metrics", a scrape, and a file "readings", what /readings.json said. Says which series
is missing, too many, there twice or of another value; nothing when all is well.
"""

import json
import math
import pathlib
import sys

from prometheus_client.parser import text_string_to_metric_families

UNITS = ("volts", "amperes", "celsius", "watts", "rpm")
HEALTHS = ("ok", "unknown", "warning", "critical")
STATES = ("ok", "unavailable", "unsupported", "failed")
IMAGES = ("primary", "backup", "none")
SEVERITIES = {"non_critical": "warning", "critical": "critical", "non_recoverable": "non_recoverable"}


def series_of(board):
    """The series of a board's document."""
    uid = board.get("uid") or board.get("name") or str(board["index"])
    series = {}

    def add(name, value, /, **labels):
        if value is not None: # of several limits of a module's lanes the first one counts
            series.setdefault((f"ivra_{name}", frozenset({"uid": uid, **labels}.items())), value)

    def add_states(name, states, state, label="state", /, **labels):
        for each in states if state else ():
            add(name, int(each == state), **{label: each}, **labels)

    def add_limits(name, reading, /, **labels):
        for member, value in reading.get("limits", {}).items():
            side, _, severity = member.partition("_")
            if severity in SEVERITIES:
                add(name, value, severity=SEVERITIES[severity], side=side, **labels)

    def value_of(reading):
        counts[reading["state"]] += 1
        return reading["value"] if reading["state"] == "ok" else None

    fpga = board.get("fpga", {})
    add("board_info", 1, index=str(board["index"]), name=board.get("name", ""), model=board.get("model", ""),
        serial=board.get("serial", ""), mac=board.get("macs", {}).get("first", ""), fpga=fpga.get("device", ""),
        fpga_serial=fpga.get("serial", ""))
    add("board_up", int(board["state"] == "ok"))
    if board["state"] != "ok":
        add("board_down", 1, reason="failed")
        return series

    counts = dict.fromkeys(STATES, 0)
    add_states("board_health", HEALTHS, board["health"])
    for part in board.get("errors", {}):
        add("board_errors", 1, part=part)
    add("power_good", board.get("power_good"))
    for when, image in board.get("boot_image", {}).items():
        add_states("boot_image", IMAGES, image, "image", when=when)
    if "temperature" in fpga:
        add("fpga_celsius", value_of(fpga["temperature"]))
    for sensor in board.get("sensors", []):
        labels = {"sensor": sensor["name"], "record": str(sensor.get("record", ""))}
        value = value_of(sensor)
        add_states("sensor_health", HEALTHS, sensor.get("health"), **labels)
        if sensor.get("unit") in UNITS:
            add(f"sensor_{sensor['unit']}", value, **labels)
            add(f"sensor_{sensor['unit']}_peak", sensor.get("peak") if value is not None else None, **labels)
            add_limits(f"sensor_limit_{sensor['unit']}", sensor, **labels)
    for module in board.get("modules", []):
        cage = str(module["cage"])
        add_states("module_health", HEALTHS, module.get("health"), cage=cage)
        if module["state"] == "empty":
            add("module_present", 0, cage=cage)
        if "identifier" not in module:
            continue
        add("module_present", 1, cage=cage)
        add("module_info", 1, cage=cage,
            **{label: module.get(label, "") for label in ("type", "vendor", "part", "revision", "serial", "date")})
        for monitor in module.get("monitors", []):
            unit = {"temperature": "celsius", "voltage": "volts"}[monitor["quantity"]]
            add(f"module_{unit}", value_of(monitor), cage=cage)
            add_limits(f"module_limit_{unit}", monitor, cage=cage)
        for lane in module.get("lanes", []):
            for member, name in (("rx_power", "rx_watts"), ("tx_power", "tx_watts"), ("tx_bias", "bias_amperes")):
                if member in lane:
                    add(f"module_{name}", value_of(lane[member]), cage=cage, lane=str(lane["lane"]))
                    add_limits(f"module_limit_{name}", lane[member], cage=cage)
    for state, count in counts.items():
        add("board_readings", count, state=state)
    return series


for folder in map(pathlib.Path, sys.argv[1:]):
    found = {}
    for family in text_string_to_metric_families((folder / "metrics").read_text()):
        for sample in family.samples:
            key = (sample.name, frozenset(sample.labels.items()))
            if key in found:
                print(folder.name, "twice", sample.name, sample.labels)
            found[key] = sample.value
    found = {key: value for key, value in found.items()
             if not key[0].startswith("ivra_exporter_") and key[0] != "ivra_board_collect_seconds"}
    expected = {}
    for board in json.loads((folder / "readings").read_text())["boards"]:
        expected.update(series_of(board))
    for key in sorted(set(found) | set(expected), key=str):
        ours, theirs = found.get(key), expected.get(key)
        if ours is None or theirs is None or not math.isclose(ours, theirs, rel_tol=1e-15, abs_tol=0): # 16 digits
            print(folder.name, key[0], sorted(key[1]), "is", ours, "instead of", theirs)
