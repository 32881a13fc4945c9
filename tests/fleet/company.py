"""Operators' commands beside scrapes, and programs that are killed."""

import contextlib
import difflib
import os
import random
import signal
import threading
import time

import lab

# Commands that change nothing, or what they set themselves: in this order they leave a board as they found it.
COMMANDS = [
    "list", "--json list", "show info", "--json show info", "show flash", "--json show flash", "show sensors",
    "--json show sensors", "show boot-image", "--json show boot-image", "show transceivers", "--json show transceivers",
    "show all", "--json show all", "setup", "--json setup", "set boot-image backup", "show boot-image",
    "set boot-image primary", "--json set boot-image primary", "set qsfp-power-mode low", "show transceivers",
    "set qsfp-power-mode high", "--json show transceivers", "set transceiver-speed 10G", "set transceiver-speed 10G 10G",
    "set transceiver-speed 25G", "set boot-image nowhere", "show nothing", "set", "--bogus list", "--help",
]
UIDS = ["0000:17:00.0", "0000:18:00.0", "0000:31:00.0", "0000:4b:00.0", "0000:65:00.0", "0000:66:00.0", "0000:98:00.0",
        "0000:b1:00.0", "0000:b2:00.0", "0000:b3:00.0"]


def answer(place, rack, index, command):
    run = place.run("ivra-bsp-board", "--accelerator", str(index), *command.split(), rack=rack, status=None)
    return run.stdout, run.stderr, run.returncode


def expect_answer(place, rack, index, command, alone):
    said = answer(place, rack, index, command)
    for name, is_, was in zip(("standard output", "standard error", "status"), said, alone):
        difference = difflib.unified_diff(str(was).splitlines(), str(is_).splitlines(), "alone", name, lineterm="", n=0)
        lab.expect(is_ == was, "\n".join([f"board {index}, {command}:", *difference]))


def whole(samples):
    """What does not change from scrape to scrape."""
    return {series: value for series, value in samples.items()
            if not series.startswith("ivra_exporter_") and "collect_seconds" not in series}


def commands(place):
    """Each of 32 commands answers as it does alone, on every board, beside a scrape a second."""
    rack = lab.Rack.shipped(place, "showcase")
    pairs = [(index, command) for index in range(10) for command in COMMANDS]
    for pair in pairs:  # what is set for the first time shows from now on
        answer(place, rack, *pair)
    alone = {}
    for number, pair in enumerate(pairs):
        alone[number] = answer(place, rack, *pair)
    exporter = lab.Exporter(place, rack)
    ended, scrapes, trouble = threading.Event(), [], []

    def scrape():
        while not ended.is_set():
            start = time.monotonic()
            try:
                scrapes.append(exporter.scrape())
            except (OSError, ValueError) as error:
                trouble.append(str(error))
            ended.wait(max(0.0, start + 1 - time.monotonic()))

    scraper = threading.Thread(target=scrape)
    scraper.start()
    asked, end = 0, time.monotonic() + lab.lasting(120)
    try:
        while time.monotonic() < end:
            number = asked % len(pairs)
            expect_answer(place, rack, *pairs[number], alone[number])
            asked += 1
    finally:
        ended.set()
        scraper.join()
    lab.expect(not trouble, f"scrapes failed: {trouble[:3]}")
    lacking = [scrape for scrape in scrapes if sum(scrape.get(f'ivra_board_up{{uid="{uid}"}}', 0) for uid in UIDS) != 10]
    lab.expect(not lacking, f"{len(lacking)} of {len(scrapes)} scrapes lack a board")
    return [f"{asked} commands of {len(pairs)} ({len(COMMANDS)} on each of 10 boards), {len(scrapes)} scrapes: every answer "
            "as alone"]


def scrape_in_vain(exporter):
    with contextlib.suppress(OSError, ValueError):
        exporter.scrape()


def kills(place):
    """After a SIGKILL of the exporter or of what reads for it the next scrape is whole and the next command right."""
    rack = lab.Rack.shipped(place, "showcase")
    exporter = lab.Exporter(place, rack)
    exporter.scrape()
    expected = whole(exporter.scrape())
    asked = [(index, command) for index in range(10) for command in ("show info", "show sensors", "show boot-image")]
    alone = {pair: answer(place, rack, *pair) for pair in asked}
    dice = random.Random(9749)
    counts = {"exporter": 0, "reader": 0}
    times = int(lab.SECONDS) or 200
    for _ in range(times):
        scraper = threading.Thread(target=scrape_in_vain, args=[exporter])
        scraper.start()
        time.sleep(dice.uniform(0, 0.6))
        readers = exporter.descendants()
        if dice.random() < 0.3 or not readers:
            counts["exporter"] += 1
            exporter.end(signal.SIGKILL)
            scraper.join()
            exporter.start()
        else:
            with contextlib.suppress(ProcessLookupError):
                os.kill(dice.choice(readers), signal.SIGKILL)
                counts["reader"] += 1
            scraper.join()
        scrape = whole(exporter.scrape())
        lab.expect(scrape == expected, f"the next scrape: {sorted(set(scrape.items()) ^ set(expected.items()))[:6]}")
        pair = dice.choice(asked)
        expect_answer(place, rack, *pair, alone[pair])
    return [f"{times} kills, {counts['exporter']} of the exporter, {counts['reader']} of a process that reads for it"]


STORIES = [commands, kills]
