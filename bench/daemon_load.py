#!/usr/bin/env python3
"""Loads a running halvod the way a hostile local user would and reports what
it costs: peak and settled resident memory, and how many clients were served.

    bench/daemon_load.py HALVOD [SCENARIO...]

Each scenario starts its own halvod on an ephemeral loopback port (fixture
devices, rules in a scratch folder), measures its idle memory, runs the load,
reads the peak (VmHWM) and the memory once the clients have gone, and checks
that a fresh client is still served. Scenarios: clients (1000 at once),
pipeliners (10 clients that send requests and never read), sleepers (8
clients that never read while events flow), senders (30 clients sending
99 MiB each), transactions (20 clients each holding 20 MiB of rules in an
open transaction, then 40 beginning over a 5 MiB committed set), stalled (two
headers announcing 100 + 28 MiB, never followed by their payloads, while root
asks), parse16 and parse512 (one 99 MiB numeric array under --max-parse-mib
16 and 512), bystander (another client's device-list latency while one
client repeats 33 MiB loads, beside the same figure idle in the same run);
as root, with another user (nobody) as the crowd:
descriptor-flood (20000 silent connections), starved (2000 connections
after the daemon's limit of open files was lowered to a few more than it
holds) and renewing (5000 connections, the oldest closed and a new one
opened without pause). Those count root's tries served during the load,
next to the same tries before it, and the log lines the load cost.
"""
import collections
# Loaded before the crowd gives up root's rights: a lazy import may not be
# readable by the crowd's user.
import encodings.idna  # noqa: F401
import json
import os
import resource
import re
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

MiB = 1024 * 1024


def packet(code, payload=b""):
    return struct.pack("<II", code, len(payload)) + payload


def read_packet(sock):
    header = b""
    while len(header) < 8:
        chunk = sock.recv(8 - len(header))
        if not chunk:
            return None
        header += chunk
    code, size = struct.unpack("<II", header)
    body = bytearray()
    while len(body) < size:
        chunk = sock.recv(min(size - len(body), 1 << 20))
        if not chunk:
            return None
        body += chunk
    return code, json.loads(bytes(body)) if body else {}


def status_kib(pid, field):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


class Daemon:
    def __init__(self, halvod, scratch, extra=()):
        devices = os.path.join(scratch, "devices.json")
        with open(devices, "w") as out:
            # One device with a 1 KiB name: each of its events takes about 1 KiB.
            json.dump({"devices": [{"vid": 1, "pid": 2, "rev": 3, "port": "1-1",
                                    "name": "n" * 1024}]}, out)
        self.process = subprocess.Popen(
            [halvod, "--config", "/dev/null", "--listen", "127.0.0.1:0", "--devices", devices,
             "--rules", os.path.join(scratch, "rules"), *extra],
            stderr=subprocess.PIPE, text=True)
        line = self.process.stderr.readline()
        while "listening on" not in line:
            line = self.process.stderr.readline()
        self.port = int(line.rsplit(":", 1)[1])
        self.log = []
        threading.Thread(target=self._drain, daemon=True).start()

    def _drain(self):
        for line in self.process.stderr:
            self.log.append(line)

    def connect(self):
        sock = socket.create_connection(("127.0.0.1", self.port))
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return sock

    def served(self):
        with self.connect() as sock:
            sock.sendall(packet(0))
            reply = read_packet(sock)
            return reply is not None and "devices" in reply[1]

    def rss_mib(self):
        return status_kib(self.process.pid, "VmRSS") / 1024

    def peak_mib(self):
        return status_kib(self.process.pid, "VmHWM") / 1024

    def stop(self):
        self.process.terminate()
        self.process.wait()


def clients(daemon):
    """1000 clients connected at once, each asks for the device list."""
    socks = [daemon.connect() for _ in range(1000)]
    for sock in socks:
        sock.sendall(packet(0))
    served = sum(1 for sock in socks if (reply := read_packet(sock)) and "devices" in reply[1])
    for sock in socks:
        sock.close()
    return f"{served} of 1000 served"


def pipeliners(daemon):
    """10 clients each send a million device-list requests and never read."""
    socks = [daemon.connect() for _ in range(10)]
    burst = packet(0) * 1_000_000
    for sock in socks:
        sock.setblocking(False)
    deadline = time.time() + 10
    pending = {sock: memoryview(burst) for sock in socks}
    while pending and time.time() < deadline:
        for sock, rest in list(pending.items()):
            try:
                sent = sock.send(rest[:1 << 20])
                pending[sock] = rest[sent:]
                if not pending[sock]:
                    del pending[sock]
            except BlockingIOError:
                pass
        time.sleep(0.01)
    peak = daemon.peak_mib()
    for sock in socks:
        sock.close()
    return f"{len(socks) - len(pending)} of 10 sent all 8 MB; peak {peak:.0f} MiB"


def sleepers(daemon):
    """8 clients never read while a million device events (1 KiB each) flow."""
    socks = [daemon.connect() for _ in range(8)]
    driver = daemon.connect()
    unplug = packet(3, b'{"id": 1}')
    for _ in range(1000):
        driver.sendall(unplug * 1000)
        replies = 0
        while replies < 1000:
            code, _ = read_packet(driver)
            replies += code == 3
    dropped = sum(1 for line in daemon.log if "too much unread output" in line)
    for sock in socks:
        sock.close()
    driver.close()
    return f"{dropped} of 8 dropped"


def senders(daemon):
    """30 clients each send a 99 MiB request at once."""
    payload = b'{"a":"' + b"x" * (99 * MiB - 8) + b'"}'
    body = packet(0, payload)
    results = []

    def send():
        with daemon.connect() as sock:
            sock.sendall(body)
            reply = read_packet(sock)
            results.append(reply is not None)

    threads = [threading.Thread(target=send) for _ in range(30)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return f"{sum(results)} of 30 answered"


def rules_payload(size, name_length=200):
    """A load of about `size` bytes of valid rules."""
    rule = {"action": "share", "name": "n" * name_length, "nameMatch": "is"}
    one = len(json.dumps(rule)) + 1
    return json.dumps({"rules": [rule] * (size // one)}).encode()


def request(sock, code, payload=b""):
    sock.sendall(packet(code, payload))
    while True:
        reply = read_packet(sock)
        if reply is None or reply[0] == code:
            return reply


def transactions(daemon):
    """20 clients hold 20 MiB of rules each in open transactions; then 40
    clients begin over a 5 MiB committed set."""
    load = rules_payload(20 * MiB)
    socks = [daemon.connect() for _ in range(20)]
    statuses = []
    for sock in socks:
        request(sock, 6)
        reply = request(sock, 8, load)
        statuses.append(reply[1].get("status") if reply else "closed")
    held = daemon.peak_mib()
    for sock in socks:
        sock.close()
    time.sleep(1.0)
    left = daemon.rss_mib()
    with daemon.connect() as admin:
        request(admin, 6)
        request(admin, 8, rules_payload(5 * MiB))
        request(admin, 11, b'{"action":"commit"}')
    beginners = [daemon.connect() for _ in range(40)]
    for sock in beginners:
        request(sock, 6)
    begun = daemon.rss_mib()
    for sock in beginners:
        sock.close()
    ok = statuses.count("ok")
    return (f"{ok} of 20 loads kept, peak {held:.0f} MiB, {left:.0f} MiB after they left; "
            f"40 begins over 5 MiB: {begun:.0f} MiB")


def stalled(daemon):
    """Two headers announce 100 + 28 MiB and send nothing; root asks."""
    hogs = [daemon.connect(), daemon.connect()]
    hogs[0].sendall(struct.pack("<II", 10, 100 * MiB))
    hogs[1].sendall(struct.pack("<II", 10, 28 * MiB))
    time.sleep(0.2)
    answered = 0
    with daemon.connect() as root:
        root.settimeout(5)
        for code, payload in ((10, b'{"id": 1, "type": "rdesk"}'), (6, b""), (3, b'{"id": 1}')):
            try:
                answered += request(root, code, payload) is not None
            except socket.timeout:
                break
    start = time.time()
    for sock in hogs:
        sock.settimeout(max(1.0, start + 45 - time.time()))
        try:
            while sock.recv(1 << 16):  # events, until the daemon closes
                pass
        except (socket.timeout, ConnectionError):
            pass
    dropped_after = time.time() - start
    for sock in hogs:
        sock.close()
    dropped = f"dropped after {dropped_after:.0f} s" if dropped_after < 45 else "kept past 45 s"
    return f"{answered} of 3 root requests answered; stalled clients {dropped}"


def parse(daemon):
    """One 99 MiB payload of a numeric array."""
    payload = b'{"a":[1' + b",1" * ((99 * MiB - 8) // 2) + b"]}"
    with daemon.connect() as sock:
        sock.sendall(packet(0, payload))
        reply = read_packet(sock)
    return "answered" if reply else "dropped"


def percentile(samples, share):
    ordered = sorted(samples)
    return ordered[min(len(ordered) - 1, int(len(ordered) * share))]


def list_latencies(sock, seconds):
    samples = []
    deadline = time.time() + seconds
    while time.time() < deadline:
        start = time.perf_counter()
        request(sock, 0)
        samples.append((time.perf_counter() - start) * 1000)
        time.sleep(0.005)
    return samples


def bystander(daemon):
    """Device-list latency idle, then while another client repeats 33 MiB loads."""
    load = rules_payload(33 * MiB)
    with daemon.connect() as watcher:
        idle = list_latencies(watcher, 3)
        stop = threading.Event()
        loads = []

        def loader():
            with daemon.connect() as sock:
                while not stop.is_set():
                    request(sock, 6)
                    reply = request(sock, 8, load)
                    loads.append(reply is not None and reply[1].get("status") == "ok")
                    request(sock, 11, b'{"action":"rollback"}')

        thread = threading.Thread(target=loader)
        thread.start()
        time.sleep(0.5)
        busy = list_latencies(watcher, 10)
        stop.set()
        thread.join()
    return (f"busy p50 {percentile(busy, 0.5):.1f} ms p99 {percentile(busy, 0.99):.1f} ms "
            f"({sum(loads)} loads); idle p50 {percentile(idle, 0.5):.1f} ms "
            f"p99 {percentile(idle, 0.99):.1f} ms")




ROOT_TRIES = 23
CROWD_USER = 65534  # nobody: neither root nor in the admin group
PER_PROCESS = 10000  # connections one crowd process holds


def crowd_process(port, count, renew, ready):
    """Runs as CROWD_USER: holds `count` connections, renewing them if asked."""
    os.setgroups([])
    os.setgid(CROWD_USER)
    os.setuid(CROWD_USER)
    held = collections.deque()

    def connect():
        try:
            held.append(socket.create_connection(("127.0.0.1", port), timeout=1))
        except OSError:
            pass

    for _ in range(count):
        connect()
    os.write(ready, b"+")
    while renew:
        if held:
            held.popleft().close()
        connect()
    time.sleep(3600)


class Crowd:
    """Another user's connections, from as many processes as they need."""

    def __init__(self, port, count, renew=False):
        self.pids = []
        for start in range(0, count, PER_PROCESS):
            ready_read, ready_write = os.pipe()
            pid = os.fork()
            if pid == 0:
                try:
                    crowd_process(port, min(PER_PROCESS, count - start), renew, ready_write)
                finally:
                    os._exit(0)
            os.close(ready_write)
            os.read(ready_read, 1)
            os.close(ready_read)
            self.pids.append(pid)

    def stop(self):
        for pid in self.pids:
            os.kill(pid, 9)
            os.waitpid(pid, 0)


def root_served(daemon):
    """Of ROOT_TRIES device lists asked by root, how many were answered."""
    served = 0
    for _ in range(ROOT_TRIES):
        try:
            with socket.create_connection(("127.0.0.1", daemon.port), timeout=1) as sock:
                sock.settimeout(1)
                sock.sendall(packet(0))
                reply = read_packet(sock)
                served += reply is not None and "devices" in reply[1]
        except OSError:
            pass
        time.sleep(0.05)
    return served


def under_crowd(daemon, count, renew=False, before_load=None):
    if os.geteuid() != 0:
        return "needs root"
    quiet = root_served(daemon)
    if before_load:
        before_load(daemon)
    lines_before = len(daemon.log)
    crowd = Crowd(daemon.port, count, renew)
    try:
        loaded = root_served(daemon)
    finally:
        crowd.stop()
    return (f"root served {loaded} of {ROOT_TRIES} (quiet {quiet} of {ROOT_TRIES}); "
            f"{len(daemon.log) - lines_before} log lines")


def descriptor_flood(daemon):
    """Another user opens 20000 connections and keeps them silent."""
    return under_crowd(daemon, 20000)


def starved(daemon):
    """The daemon's limit of open files drops to 40 more than it holds, then
    another user opens 2000 connections."""
    def lower_limit(daemon):
        held = len(os.listdir(f"/proc/{daemon.process.pid}/fd"))
        resource.prlimit(daemon.process.pid, resource.RLIMIT_NOFILE, (held + 40, held + 40))
    return under_crowd(daemon, 2000, before_load=lower_limit)


def renewing(daemon):
    """Another user keeps 5000 connections, renewing the oldest without pause."""
    return under_crowd(daemon, 5000, renew=True)


# Options a scenario runs the daemon with; one user's 1000 clients need a
# share of the table that large.
EXTRA_OPTIONS = {"clients": ["--max-clients-per-user", "1000"],
                 "parse16": ["--max-parse-mib", "16"], "parse512": ["--max-parse-mib", "512"]}

SCENARIOS = {"clients": clients, "pipeliners": pipeliners, "sleepers": sleepers,
             "senders": senders, "transactions": transactions, "stalled": stalled,
             "parse16": parse, "parse512": parse, "bystander": bystander,
             "descriptor-flood": descriptor_flood, "starved": starved, "renewing": renewing}


def main():
    halvod = sys.argv[1]
    names = sys.argv[2:] or list(SCENARIOS)
    print("| load | outcome | idle RSS | peak RSS | RSS after | fresh client |")
    print("|---|---|---|---|---|---|")
    for name in names:
        with tempfile.TemporaryDirectory() as scratch:
            daemon = Daemon(halvod, scratch, EXTRA_OPTIONS.get(name, ()))
            try:
                time.sleep(0.2)
                idle = daemon.rss_mib()
                outcome = SCENARIOS[name](daemon)
                time.sleep(1.0)
                print(f"| {name} | {outcome} | {idle:.0f} MiB | {daemon.peak_mib():.0f} MiB "
                      f"| {daemon.rss_mib():.0f} MiB | {'served' if daemon.served() else 'NOT served'} |",
                      flush=True)
            finally:
                daemon.stop()


if __name__ == "__main__":
    main()
