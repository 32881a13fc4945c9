"""What dead boards do to the others of their host, and what a crowd of scrapers costs."""

import json
import threading
import time

import lab

GOOD = [f"good-{number}" for number in range(6)]
PLAN = [
    {"call": "ivra_hw_top_get_board_name", "accelerator": "silent", "stop": "3600 s"},
    {"call": "ivra_hw_top_get_board_name", "accelerator": "slow", "delay": "15 s"},
    {"call": "ivra_hw_top_get_board_name", "accelerator": "crashing", "signal": "SIGSEGV"},
    {"call": "ivra_hw_top_get_board_name", "accelerator": "sleeping", "delay": "3600 s"},
]


def board(name, number):
    return {"name": name, "uid": name, "model": ("xilinx_u200", "bittware_xupp3r", "xilinx_u50")[number % 3]}


def ten_boards():
    """Six good ones; one whose process stops, one that takes 15 s, one that crashes its reader, one that sleeps in a call."""
    return [board(name, number) for number, name in enumerate(GOOD)] + [
        board(name, number) for number, name in enumerate(("silent", "slow", "crashing", "sleeping"))]


def of_good(samples):
    """What was read of the six, without times."""
    return {series: value for series, value in samples.items()
            if any(f'uid="{name}"' in series for name in GOOD) and "collect_seconds" not in series}


def isolation(place):
    """Dead boards delay no other one, and cost nothing that adds up."""
    alone = lab.Exporter(place, lab.Rack(place, "six", ten_boards()[:6]))
    alone.scrape()
    whole = of_good(alone.scrape())
    alone.end()
    plan = place.folder / "faults.json"
    plan.write_text(json.dumps(PLAN))
    rack = lab.Rack(place, "ten", ten_boards())
    exporter = lab.Exporter(place, rack, environment={"IVRA_VIRTUAL_FAULTS": str(plan)})

    begin, seconds = time.monotonic(), lab.lasting(300)
    quick, asked_again, states = [], 0, []
    while time.monotonic() < begin + seconds:
        start = time.monotonic()
        scrape = exporter.scrape()
        took = time.monotonic() - start
        lab.expect(of_good(scrape) == whole, f"a scrape without {sorted(set(whole) - set(of_good(scrape)))[:5]}")
        slowest = max(scrape[f'ivra_board_collect_seconds{{uid="{name}"}}'] for name in GOOD)
        if any('reason="late"' in series for series in scrape):  # the slow one was asked again: it gets its chance
            asked_again += 1
            lab.expect(took < 9.8, f"an answer after {took:.2f} s of 10 s")
        else:
            quick.append((took - slowest, took))
        time.sleep(max(0.0, start + 5 - time.monotonic()))  # what has been answered ends meanwhile
        states.append((len(exporter.descendants()), exporter.descriptors(), *exporter.memory()))
    late = sorted(behind for behind, _ in quick)
    usual, most = late[len(late) * 9 // 10], late[-1]  # what else the machine does is in the latest ones
    first, last = states[:len(states) // 3], states[-len(states) // 3:]
    figures = [
        f"{len(quick)} scrapes of {max(took for _, took in quick):.2f} s at most, nine of ten at most {1000 * usual:.0f} ms after "
        f"the slowest of the six ({1000 * most:.0f} all); {asked_again} waited for a board that was asked again",
        "at most in the first and in the last third: " + ", ".join(
            f"{name} {max(state[at] for state in first) / unit:.{digits}f} and {max(state[at] for state in last) / unit:.{digits}f}"
            for at, (name, unit, digits) in enumerate(
                [("processes", 1, 0), ("descriptors", 1, 0), ("MiB resident", 2**20, 2), ("MiB of its own", 2**20, 2)]))]
    lab.expect(usual <= 0.05, figures[0])
    lab.expect(len(quick) > 2 * asked_again, figures[0])
    for at, slack in enumerate((0, 0, 2**19, 2**18)):
        lab.expect(max(state[at] for state in last) <= max(state[at] for state in first) + slack, figures[1])
    return figures


def crowd(place):
    """Twenty scrapers at once have one collection."""
    exporter = lab.Exporter(place, lab.Rack(place, "six", ten_boards()[:6]))
    begin = exporter.scrape()["ivra_exporter_collections_total"]
    times = 20
    for turn in range(times):
        barrier, answers = threading.Barrier(20), []

        def scrape():
            barrier.wait()
            answers.append(exporter.scrape())

        threads = [threading.Thread(target=scrape) for _ in range(20)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        lab.expect(len(answers) == 20, f"{len(answers)} of 20 answers")
        lab.expect({answer["ivra_exporter_collections_total"] for answer in answers} == {begin + turn + 1},
                   "more than one collection")
        lab.expect(all(of_good(answer) == of_good(answers[0]) for answer in answers), "answers differ")
    return [f"{times} times 20 scrapers: {times} collections"]


STORIES = [isolation, crowd]
