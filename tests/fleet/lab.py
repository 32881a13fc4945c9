"""What the stories share: programs and racks of simulated boards, what they are asked, and waiting with a deadline.

scripts/fleet runs this in namespaces of its own: the loopback is nobody else's, and no process outlives it."""

import contextlib
import fcntl
import gzip
import http.client
import itertools
import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import time
import urllib.parse
import urllib.request

SOURCE = pathlib.Path(__file__).resolve().parents[2]
SECONDS = float(os.environ.get("FLEET_SECONDS", "0"))  # instead of the minutes that something lasts


class Failed(Exception):
    """What was seen is not what should be."""


def expect(condition, what):
    if not condition:
        raise Failed(what)


def lasting(seconds):
    return SECONDS or seconds


def say(text):
    print(text, flush=True)


def wait_for(what, probe, deadline=30.0, pause=0.1):
    """The first true answer of `probe`; what it raises while nothing listens yet counts as none."""
    end = time.monotonic() + deadline
    while True:
        with contextlib.suppress(OSError, KeyError, ValueError):
            if answer := probe():
                return answer
        expect(time.monotonic() < end, f"{what}: not within {deadline:g} s")
        time.sleep(pause)


def get(url, timeout=30.0, **headers):
    request = urllib.request.Request(url, headers={name.replace("_", "-"): value for name, value in headers.items()})
    with urllib.request.urlopen(request, timeout=timeout) as reply:
        try:
            body = reply.read()
        except http.client.HTTPException as error:
            raise OSError(error) from error
        return (gzip.decompress(body) if reply.headers.get("Content-Encoding") == "gzip" else body).decode()


def samples_of(metrics):
    """The samples of a text: value by series."""
    lines = (line.rpartition(" ") for line in metrics.splitlines() if line and not line.startswith("#"))
    return {series: float(value) for series, _, value in lines}


def configuration(interval, jobs, intervals=(), more=""):
    """Of a Prometheus. jobs: by name the URLs to scrape by the label `instance`."""
    text = f"global: {{scrape_interval: {interval}, scrape_timeout: {interval}, evaluation_interval: {interval}}}\n{more}"
    text += "scrape_configs:\n"
    for job, urls in jobs.items():
        if job in intervals:
            text += f"- job_name: {job}\n  scrape_interval: {intervals[job]}\n  scrape_timeout: {intervals[job]}\n  static_configs:\n"
        else:
            text += f"- job_name: {job}\n  static_configs:\n"
        for instance, url in urls.items():
            text += f"  - {{targets: ['{url.removeprefix('http://')}'], labels: {{instance: {instance}, rack: r1}}}}\n"
    return text


def bring_up_loopback():
    with socket.socket() as anything:
        fcntl.ioctl(anything, 0x8914, struct.pack("16sh14x", b"lo", 0x1 | 0x40))  # SIOCSIFFLAGS: up, running


class Program:
    """A program that was started, with its output in a file."""

    def __init__(self, log, words, environment):
        self.log = log
        with open(log, "ab") as output:
            self.process = subprocess.Popen(
                [str(word) for word in words], env=environment, stdin=subprocess.DEVNULL, stdout=output,
                stderr=subprocess.STDOUT)
        self.pid = self.process.pid

    def end(self, by=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(by)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        return self.process.returncode

    def memory(self):
        """Bytes that are resident, of which those of files are shared with others: in all, and of itself alone."""
        status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines())
        own = int(status["RssAnon"].split()[0]) * 1024
        return int(status["VmRSS"].split()[0]) * 1024, own

    def processor_seconds(self):
        """Of the program, and of its children that have ended."""
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return sum(map(int, fields[11:15])) / os.sysconf("SC_CLK_TCK")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def descendants(self):
        """Processes below it."""
        children = {}
        for entry in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError):
                parent = int(pathlib.Path(f"/proc/{entry}/stat").read_text().rpartition(")")[2].split()[1])
                children.setdefault(parent, []).append(int(entry))
        found, new = [], [self.pid]
        while new:
            new = [child for parent in new for child in children.get(parent, [])]
            found += new
        return found


class Rack:
    """A rack file; boards are JSON objects as racks have them. It can be changed while programs use it."""

    def __init__(self, lab, name, boards):
        self.lab, self.file = lab, lab.folder / f"{name}.json"
        self.write(boards)

    @classmethod
    def shipped(cls, lab, name):
        """A copy of one that comes with the platform."""
        file = lab.build / f"share/ivra/racks/{name}.json"
        return cls(lab, name, json.loads(file.read_text())["accelerators"])

    def write(self, boards):
        self.write_text(json.dumps({"accelerators": boards}))

    def write_text(self, text):
        beside = self.file.with_suffix(".new")
        beside.write_text(text)
        beside.rename(self.file)  # nobody reads half of it

    def change(self, board, *words):
        self.lab.run("ivra-virtual", "change", self.file, board, *words, rack=self)


class NodeExporter(Program):
    """With what a folder of text files says, or with all that it collects by itself."""

    def __init__(self, lab, folder=None):
        port = lab.port()
        self.url = f"http://127.0.0.1:{port}"
        words = [lab.referee("prometheus-node-exporter", "prometheus-node-exporter"), f"--web.listen-address=127.0.0.1:{port}"]
        if folder:
            folder.mkdir()
            words += ["--collector.disable-defaults", "--collector.textfile", f"--collector.textfile.directory={folder}"]
        super().__init__(lab.folder / f"node-exporter-{port}.log", words, lab.environment())
        wait_for("node_exporter", lambda: get(self.url + "/metrics"))


class Exporter(Program):
    def __init__(self, lab, rack, words=("--max-age=0",), port=None, environment=None):
        self.lab, self.rack, self.words, self.environment = lab, rack, words, environment or {}
        self.port = port or lab.port()
        self.url = f"http://127.0.0.1:{self.port}"
        self.start()

    def start(self):
        super().__init__(
            self.lab.folder / f"exporter-{self.port}.log",
            [self.lab.program("ivra-bsp-exporter"), f"--listen=127.0.0.1:{self.port}", *self.words],
            self.lab.environment(self.rack, **self.environment))
        wait_for(f"an exporter on port {self.port}", lambda: get(self.url + "/-/healthy") == "OK\n", pause=0.02)

    def scrape(self, timeout=10.0):
        return samples_of(get(self.url + "/metrics", X_Prometheus_Scrape_Timeout_Seconds=f"{timeout:g}"))


class Prometheus(Program):
    """Also what answers as one: VictoriaMetrics."""

    def __init__(self, lab, name, config=None, port=None):
        """Without a configuration it is VictoriaMetrics."""
        self.port = port or lab.port()
        self.url = f"http://127.0.0.1:{self.port}"
        if config is None:
            ready = "/health"
            words = [lab.referee("victoria-metrics", "victoria-metrics"), f"-storageDataPath={lab.folder / name}",
                     f"-httpListenAddr=127.0.0.1:{self.port}", "-retentionPeriod=1d", "-memory.allowedBytes=256MB",
                     "-search.latencyOffset=0s"]
        else:
            ready = "/-/ready"
            file = lab.folder / f"{name}.yml"
            file.write_text(config)
            words = [lab.referee("prometheus", "prometheus"), f"--config.file={file}",
                     f"--storage.tsdb.path={lab.folder / name}", f"--web.listen-address=127.0.0.1:{self.port}",
                     "--log.level=warn"]
        super().__init__(lab.folder / f"{name}.log", words, lab.environment())
        wait_for(f"{name} at {self.url}", lambda: get(self.url + ready))

    def ask(self, path, **parameters):
        query = urllib.parse.urlencode(parameters)
        return json.loads(get(f"{self.url}/api/v1/{path}?{query}"))["data"]

    def query(self, expression, **parameters):
        """Samples: labels and value."""
        return [(sample["metric"], float(sample["value"][1]))
                for sample in self.ask("query", query=expression, **parameters)["result"]]

    def number(self, expression):
        """The only value of an expression; None where there is none."""
        found = self.query(expression)
        expect(len(found) <= 1, f"{expression}: {len(found)} samples")
        return found[0][1] if found else None

    def firing(self):
        """Alerts that fire: (name, labels)."""
        return [(alert["labels"]["alertname"], alert["labels"]) for alert in self.ask("alerts")["alerts"]
                if alert["state"] == "firing"]


class Lab:
    """A folder in the build folder, and the programs that were started for one group of stories."""

    def __init__(self, build, name):
        self.build, self.folder = build, build / "fleet" / name
        self.ports = itertools.count(9750)
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)

    def port(self):
        return next(self.ports)

    def program(self, name):
        return self.build / "bin" / name

    def referee(self, package, name):
        return self.build / "referees" / package / "usr/bin" / name

    def environment(self, rack=None, **more):
        result = {name: value for name, value in os.environ.items() if not name.startswith("IVRA_")}
        result |= {"LD_LIBRARY_PATH": str(self.build / "lib/ivra-virtual"), "IVRA_LOG_LEVEL": "0"}
        if rack:  # each is a host of its own, with its own locks
            result |= {"IVRA_VIRTUAL_RACK": str(rack.file), "IVRA_VIRTUAL_STATE": str(rack.file.with_suffix(".state"))}
        return result | more

    def run(self, name, *words, rack=None, status=0, **environment):
        """Runs one of our programs; what it said."""
        run = subprocess.run(
            [str(self.program(name)), *map(str, words)], env=self.environment(rack, **environment),
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120)
        expect(status is None or run.returncode == status,
               f"{name} {' '.join(map(str, words))}: status {run.returncode}: {run.stderr}")
        return run

    def close(self, keep):
        """Ends all that runs in these namespaces but this process."""
        while True:
            others = [int(entry) for entry in os.listdir("/proc") if entry.isdigit() and int(entry) != os.getpid()]
            for process in others:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)
            try:
                while True:
                    os.waitpid(-1, 0)
            except ChildProcessError:
                break
        if not keep:
            shutil.rmtree(self.folder, ignore_errors=True)
