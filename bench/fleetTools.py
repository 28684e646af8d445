"""A real Prometheus and Alertmanager on loopback for as long as they are needed, over the servers of fleetServers.py."""
import ctypes
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PACKAGED = os.path.join(ROOT, "packaging", "prometheus")
UNPACKED = (os.environ.get("OXT_PROMETHEUS", ""), os.path.join(ROOT, "build", "promtool", "usr", "bin"),
            os.path.join(ROOT, "build", "fleet", "usr", "bin"))


def find(program):
    """Installed, or out of a Debian package that was only unpacked; None: it is not here."""
    return shutil.which(program) or shutil.which(program, path=os.pathsep.join(filter(None, UNPACKED)))


def scaled(rules, factor):
    """The rules with every duration shorter by the factor: `for:`, ranges, offsets, and the allowance in seconds."""
    seconds = {"m": 60, "h": 3600, "d": 86400}

    def shorter(found):
        return f"{found[1]}{int(found[2]) * seconds[found[3]] * 1000 // factor}ms"
    rules = re.sub(r"(for: |\[|offset )(\d+)([mhd])\b", shorter, rules)
    return re.sub(r"\+ 180\b", f"+ {180 / factor:g}", rules)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _end_with_parent():
    ctypes.CDLL(None).prctl(1, signal.SIGKILL)  # PR_SET_PDEATHSIG: whatever ends this script


class Service:
    """A program that serves HTTP from a directory of its own, both gone in the end."""

    def __init__(self, command, ready):
        self.port = free_port()
        self.directory = tempfile.mkdtemp(prefix="oxtfleet")
        self.url = f"http://127.0.0.1:{self.port}"
        self.command, self.ready = command, ready

    def start(self):
        self.log = open(os.path.join(self.directory, "log"), "w+")
        command = [part.format(port=self.port, dir=self.directory) for part in self.command]
        self.process = subprocess.Popen(command, stdout=self.log, stderr=subprocess.STDOUT, cwd=self.directory,
                                        preexec_fn=_end_with_parent)
        end = time.time() + 60
        while True:
            try:
                return self.get(self.ready) and self
            except OSError:
                if self.process.poll() is not None or time.time() > end:
                    self.log.seek(0)
                    raise RuntimeError(f"{command[0]} does not start: {self.log.read()}") from None
                time.sleep(0.1)

    def stop(self):
        if hasattr(self, "process"):
            self.process.terminate()
            try:
                self.process.wait(20)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
            self.log.close()
        shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def get(self, path, **parameters):
        target = self.url + path + ("?" + urllib.parse.urlencode(parameters) if parameters else "")
        try:
            with urllib.request.urlopen(target, timeout=60) as answer:
                return answer.read().decode()
        except urllib.error.HTTPError as error:
            raise OSError(f"{path}: {error.code} {error.read().decode()[:500]}") from None

    def query(self, expression):
        """The samples of an instant query: pairs of labels and value."""
        result = json.loads(self.get("/api/v1/query", query=expression))["data"]["result"]
        return [(one["metric"], float(one["value"][1])) for one in result]

    def number(self, expression):
        samples = self.query(expression)
        return samples[0][1] if samples else 0.0


def prometheus(generator_port, names, interval, rules, alertmanager_port=None):
    """`names`: instance of each server, by its number. `interval`: seconds, what a minute is in reality; Prometheus looks
    back 5 of them for a value, as it does in reality."""
    every = f"{interval * 1000:.0f}ms"
    service = Service([find("prometheus"), "--config.file={dir}/prometheus.yml", "--storage.tsdb.path={dir}/data",
                       "--web.listen-address=127.0.0.1:{port}", f"--web.console.templates={PACKAGED}",
                       "--web.console.libraries={dir}", f"--query.lookback-delta={5000 * interval:.0f}ms",
                       "--log.level=error"], "/-/ready")
    with open(os.path.join(service.directory, "servers.json"), "w") as file:
        json.dump([{"targets": [f"127.0.0.1:{generator_port}"],
                    "labels": {"instance": name, "__metrics_path__": f"/{number}/metrics"}}
                   for number, name in enumerate(names)], file)
    with open(os.path.join(service.directory, "oxtfs.rules.yml"), "w") as file:
        file.write(rules)
    alerting = f"alerting: {{alertmanagers: [{{static_configs: [{{targets: ['127.0.0.1:{alertmanager_port}']}}]}}]}}\n"
    with open(os.path.join(service.directory, "prometheus.yml"), "w") as file:
        file.write(f"global: {{scrape_interval: {every}, scrape_timeout: {every}, evaluation_interval: {every}}}\n"
                   "rule_files: [oxtfs.rules.yml]\n"
                   "scrape_configs:\n- {job_name: oxtfs, file_sd_configs: [{files: [servers.json]}]}\n"
                   f"- {{job_name: prometheus, static_configs: [{{targets: ['127.0.0.1:{service.port}']}}]}}\n"
                   + (alerting if alertmanager_port else ""))
    return service


def alertmanager():
    program = find("prometheus-alertmanager")
    command = [program, f"--config.file={PACKAGED}/alertmanager.yml", "--storage.path={dir}/data",
               "--web.listen-address=127.0.0.1:{port}", "--cluster.listen-address=", "--log.level=error"]
    share = os.path.join(os.path.dirname(os.path.dirname(program)), "share")
    if share != "/usr/share":  # it looks for its templates there alone: lend it a /usr/share of its own
        command = ["unshare", "-m" if os.geteuid() == 0 else "-Urm", "sh", "-c",
                   'mount --bind "$0" /usr/share && exec "$@"', share] + command
    return Service(command, "/-/ready")
