"""python3 tests/fleet BUILD-FOLDER [GROUP...]: started by scripts/fleet, in namespaces of its own."""

import importlib
import os
import pathlib
import subprocess
import sys
import time

import lab

GROUPS = ("stories", "isolation", "company", "neighbours", "scale", "figures")


def main(build, *groups):
    """groups: also one story, as in stories:alerts."""
    unknown = {group.partition(":")[0] for group in groups} - set(GROUPS)
    if unknown:
        print(f"Unknown: {' '.join(sorted(unknown))}. There are: {' '.join(GROUPS)}", file=sys.stderr)
        return 64
    if os.getpid() != 1:
        print("Start it with scripts/fleet: what is left at the end is killed.", file=sys.stderr)
        return 64
    lab.bring_up_loopback()
    table = []
    passed = True
    for group in groups or GROUPS:
        group, _, only = group.partition(":")
        for story in importlib.import_module(group).STORIES:
            if only and only != story.__name__:
                continue
            name = f"{group}: {story.__doc__.splitlines()[0].rstrip('.')}"
            lab.say(f"\n== {name}")
            place = lab.Lab(pathlib.Path(build).resolve(), f"{group}-{story.__name__}")
            begin = time.monotonic()
            figures, failure = [], "interrupted"  # unless it comes to another end
            try:
                figures, failure = story(place), None
            except (lab.Failed, OSError, LookupError, ValueError, subprocess.SubprocessError) as error:
                failure = f"{type(error).__name__}: {error}"
                lab.say(f"FAILED {failure} (what was said is in {place.folder})")
            finally:
                place.close(keep=failure is not None)
            table.append((name, time.monotonic() - begin, [failure] if failure else figures, not failure))
            passed = passed and not failure
    lab.say("")
    for name, seconds, figures, good in table:
        lab.say(f"{'passed' if good else 'FAILED'}  {seconds:4.0f} s  {name}")
        for line in figures:
            lab.say(f"                  {line}")
    return 0 if passed else 1


try:
    sys.exit(main(*sys.argv[1:]))
except KeyboardInterrupt:
    sys.exit(130)
