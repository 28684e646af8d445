"""The metrics of a fleet that is not there: many servers with 20 file systems each, some with a fault.

One HTTP server on loopback has a path for each server. The faults begin together, when `begin_faults` says so. Python's
standard library alone.
"""
import functools
import http.server
import multiprocessing
import threading
import time
from collections import namedtuple

GIB = 1 << 30
FILE_SYSTEMS = 20
PHASES = 5  # cycles after which the free space of a healthy file system is the same again
HOSTILE = "/srv/</td><script>document.title='taken'</script>\"'\\"

# What the monitor's metrics are, as it prints them: name, type, help.
FILE_SYSTEM_FAMILIES = (
    ("oxtfs_filesystem_size_bytes", "Size of the file system; missing when it could not be measured."),
    ("oxtfs_filesystem_avail_bytes",
     "Space that unprivileged users can still write; missing when it could not be measured."),
    ("oxtfs_filesystem_warning_threshold_bytes", "Free space at or below which the status is warning."),
    ("oxtfs_filesystem_fatal_threshold_bytes", "Free space at or below which the status is fatal."),
    ("oxtfs_filesystem_monitored", "Whether the file system is monitored."),
    ("oxtfs_filesystem_status", "Free-space status: 1 normal, 2 warning, 3 fatal, 0 not monitored, -1 unknown."),
    ("oxtfs_filesystem_shrink_bytes_per_second",
     "Rate at which the available space shrinks, while it does so steadily."),
    ("oxtfs_filesystem_full_seconds", "Time until the file system is full at that rate."),
)
MONITOR_FAMILIES = (
    ("oxtfs_filesystems", "gauge", "Number of file systems that the monitor keeps."),
    ("oxtfs_monitor_cycle_seconds", "gauge", "Time between two looks at the file systems in service mode."),
    ("oxtfs_last_update_timestamp_seconds", "gauge", "When the file systems were last looked at, by whomever."),
    ("oxtfs_monitor_up", "gauge",
     "Whether a monitor looks at the file systems, with success; when 0, nobody sends alerts."),
    ("oxtfs_monitor_last_success_timestamp_seconds", "gauge",
     "When a look of the monitor last succeeded, 0 when none has."),
    ("oxtfs_monitor_passes_total", "counter", "Passes of the monitor, failed ones included."),
    ("oxtfs_monitor_failed_passes_total", "counter", "Passes that failed or never ended."),
    ("oxtfs_monitor_last_pass_duration_seconds", "gauge", "How long the last pass took."),
)

Fault = namedtuple("Fault", "name alert of_server")  # alert: the one that it must raise; None: none
FAULTS = (
    Fault("warning", "FileSystemFreeSpaceWarning", False),
    Fault("fatal", "FileSystemFreeSpaceFatal", False),
    Fault("full in 2 hours", "FileSystemFullIn4Hours", False),
    Fault("full in 2 days", "FileSystemFullIn4Days", False),
    Fault("fills fast", "FileSystemFillsFast", False),
    Fault("wobbles at its threshold", None, False),
    Fault("fatal for a moment", None, False),
    Fault("unmounted", "FileSystemCountChanged", True),
    Fault("watch ended", "FileSystemMonitorSilent", True),
    Fault("text file no longer written", "FileSystemMonitorSilent", True),
    Fault("server dead", "FileSystemMonitorGone", True),
)
FAULTY = 7  # number of the file system that has the fault


def escaped(text):
    return text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")


def name_of(server):
    return f"server-{server:04d}:9633"


def place_of(server, number):
    """Mount point, device and type."""
    if number == 0:
        return "/", "/dev/vda1", "ext4"
    if number == 12 and server % 10 == 3:
        return HOSTILE, "/dev/vdm1", "ext4"
    if number == 19:
        return "/media/cdrom", "/dev/sr0", "others"
    return f"/srv/data{number}", f"/dev/mapper/vg-data{number}", "xfs" if number % 2 else "ext4"


class Fleet:
    """Every `spread`th server has a fault, each kind in turn. `cycle`: seconds between two looks of a monitor."""

    def __init__(self, servers, cycle, spread=11):
        self.servers, self.cycle, self.began = servers, cycle, time.time()
        self._faults_began = multiprocessing.Value("d", 0)
        self._known = {}  # what has been said of the file systems of servers without a fault
        places = range(1, servers, spread)
        self.faults = {server: FAULTS[at % len(FAULTS)] for at, server in enumerate(places)}

    @property
    def faults_began(self):
        return self._faults_began.value

    def begin_faults(self):
        self._faults_began.value = time.time()

    def fault_of(self, server):
        return self.faults.get(server) if self.faults_began else None

    def values(self, server, number, now):
        """Of one file system, in the order of the families; None: no such sample."""
        fault = self.fault_of(server) if number == FAULTY else None
        size = (20 + 13 * (number % 7)) * GIB
        share = 0.30 + 0.6 * ((server * 31 + number * 17) % 100) / 100
        share += 0.01 * ((int(now / self.cycle) * 7 + server + number) % PHASES)  # some come and go
        monitored, status, shrink, full = 1, 1, None, None
        if number == 19:
            return None, None, None, None, 0, -1, None, None
        if number == 18:  # full, and nobody minds
            monitored, status, share = 0, 0, 0
        elif number == 17:  # a log that will be full in a month
            shrink = share * size / (30 * 86400)
            full = share * size / shrink
        age = int((now - self.faults_began) / self.cycle) if fault else 0
        if fault and (fault.name == "warning" or fault.name.startswith("wobbles") and age % 4 < 2):
            share, status, full = 0.08, 2, 10 * 86400
            shrink = share * size / full
        elif fault and (fault.name == "fatal" or fault.name == "fatal for a moment" and age == 3):
            share, status = 0.004, 3
        elif fault and fault.name.startswith("full in"):
            full = 2 * (3600 if "hours" in fault.name else 86400)
            share, shrink = 0.2 if "hours" in fault.name else 0.5, 0.0
            shrink = 0.2 * size / 7200 if "hours" in fault.name else 0.5 * size / full
        elif fault and fault.name == "fills fast":
            share, shrink = 0.6, 0.06 * size / 3600
            full = share * size / shrink
        return size, round(share * size), size // 10, size // 100, monitored, status, shrink, full

    def metrics(self, server, now):
        """What the server answers; None: it is dead."""
        fault = self.fault_of(server)
        fault_name = fault.name if fault else ""
        if fault_name == "server dead":
            return None
        if fault_name == "watch ended":
            return head("oxtfs_monitor_up", "gauge", MONITOR_FAMILIES[3][2]) + "oxtfs_monitor_up 0\n"
        if fault_name.startswith("text file"):
            now = self.faults_began
        numbers = [n for n in range(FILE_SYSTEMS) if not (fault_name == "unmounted" and n == FAULTY)]
        key = None if fault else (server, int(now / self.cycle) % PHASES)
        text = self._known.get(key) or self.file_systems(server, numbers, now)
        if key:
            self._known[key] = text
        passes = int((now - self.began) / self.cycle) + 1
        values = (len(numbers), self.cycle, f"{now:.3f}", 1, f"{now:.3f}", passes, 0, "0.012000")
        return text + "".join(head(name, kind, about) + f"{name} {value}\n"
                              for (name, kind, about), value in zip(MONITOR_FAMILIES, values))

    def file_systems(self, server, numbers, now):
        rows = [(labels_of(server, n), self.values(server, n, now)) for n in numbers]
        text = []
        for at, (name, about) in enumerate(FILE_SYSTEM_FAMILIES):
            text.append(head(name, "gauge", about))
            text.extend(f"{name}{labels} {row[at]:.0f}\n" for labels, row in rows if row[at] is not None)
        return "".join(text)


@functools.lru_cache(None)
def labels_of(server, number):
    mount, device, kind = place_of(server, number)
    return f'{{mountpoint="{escaped(mount)}",device="{escaped(device)}",fstype="{kind}"}}'


@functools.lru_cache(None)
def head(name, kind, about):
    return f"# HELP {name} {about}\n# TYPE {name} {kind}\n"


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True
    fleet = None

    def do_GET(self):
        server = int(self.path.split("/")[1])
        text = self.fleet.metrics(server, time.time())
        body = (text or "").encode()
        self.send_response(200 if text is not None else 503)
        self.send_header("Content-Type", "text/plain; version=0.0.4; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class HttpServer(http.server.ThreadingHTTPServer):
    daemon_threads, request_queue_size = True, 1024

    def handle_error(self, *_):  # Prometheus has ended
        pass


def serve(fleet):
    """Serves the fleet on a free port of loopback, in a thread. Returns the port."""
    server = HttpServer(("127.0.0.1", 0), type("FleetHandler", (Handler,), {"fleet": fleet}))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]
