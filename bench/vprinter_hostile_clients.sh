#!/usr/bin/env bash
# What hostile clients cost the other clients of orvante-vprinter, on the
# loopback only, each scenario against a fresh printer:
#   flood     one client sends name queries and never reads its replies;
#             another asks ESC !? every 50 ms: its answer times, and when
#             the flooding client was dropped
#   flood_kept  the same with --max-unread 1 GiB, so the flood goes on for
#             the whole measure (a printer without that option stops it)
#   sigterm   SIGTERM while that client still floods: time until the exit
#   payloads  100 clients send most of a 6 MB DOWNLOAD and go silent: the
#             printer's resident memory (VmRSS, VmHWM)
#   connects  200 clients connect at once and ask ESC !?: how many waited
#             over 200 ms for the answer, and the longest wait
#
#   bench/vprinter_hostile_clients.sh [build-dir] [scenario...]
set -euo pipefail

build=${1:-build/default}
shift || true
vprinter=$build/tools/vprinter/orvante-vprinter
for tool in "$vprinter" python3; do
  command -v "$tool" >/dev/null || { echo "missing: $tool" >&2; exit 1; }
done

exec python3 - "$vprinter" "$@" <<'PY'
import os, select, signal, socket, statistics, subprocess, sys, tempfile, threading, time

vprinter = sys.argv[1]
scenarios = sys.argv[2:] or ["flood", "flood_kept", "sigterm", "payloads", "connects"]


class Printer:
    def __init__(self, *extra):
        self.folder = tempfile.mkdtemp(prefix="vp-hostile-")
        port_file = os.path.join(self.folder, "port")
        self.process = subprocess.Popen(
            [vprinter, "--listen", "127.0.0.1:0", "--port-file", port_file,
             "--out", os.path.join(self.folder, "labels"),
             "--journal", os.path.join(self.folder, "journal.jsonl"), *extra],
            stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
        deadline = time.monotonic() + 10
        while not os.path.exists(port_file):
            if time.monotonic() > deadline:
                raise SystemExit("the printer did not start")
            time.sleep(0.01)
        self.port = int(open(port_file).read())

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port))

    def memory(self):
        fields = {}
        for line in open(f"/proc/{self.process.pid}/status"):
            key, _, value = line.partition(":")
            fields[key] = value.strip()
        return fields["VmRSS"], fields["VmHWM"]

    def journal(self):
        return open(os.path.join(self.folder, "journal.jsonl"), errors="replace").read()

    def stop(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        subprocess.run(["rm", "-rf", self.folder])


class Flooder(threading.Thread):
    """Sends ~!T as fast as the printer takes it for `seconds`; never reads."""

    def __init__(self, printer, seconds):
        super().__init__(daemon=True)
        self.socket = printer.connect()
        self.socket.setblocking(False)
        self.seconds = seconds
        self.sent = 0
        self.dropped_after = None

    def run(self):
        chunk = b"~!T" * 20000
        start = time.monotonic()
        while time.monotonic() - start < self.seconds:
            select.select([], [self.socket], [], 0.05)
            try:
                self.sent += self.socket.send(chunk)
            except BlockingIOError:
                continue
            except OSError:
                self.dropped_after = time.monotonic() - start
                return


def status_round_trip(client, limit):
    client.sendall(b"\x1b!?")
    start = time.monotonic()
    ready, _, _ = select.select([client], [], [], limit)
    if not ready or not client.recv(16):
        return None
    return time.monotonic() - start


def flood(*extra):
    printer = Printer(*extra)
    flooder = Flooder(printer, 6)
    flooder.start()
    time.sleep(0.5)
    prober = printer.connect()
    times, unanswered = [], 0
    for _ in range(40):
        took = status_round_trip(prober, 3.0)
        if took is None:
            unanswered += 1
            break  # the reply may still come; the connection is out of step
        times.append(took)
        time.sleep(0.05)
    flooder.join()
    print(f"flood: {flooder.sent / 3:.0f} queries sent by the flooding client; ", end="")
    if flooder.dropped_after is not None:
        print(f"dropped by the printer after {flooder.dropped_after:.2f} s")
    else:
        print("never dropped")
    if times:
        print(f"flood: ESC !? answered {len(times)} times: median {statistics.median(times) * 1000:.1f} ms,"
              f" max {max(times) * 1000:.1f} ms")
    if unanswered:
        print(f"flood: ESC !? unanswered after 3 s (after {len(times)} answers)")
    reasons = [line for line in printer.journal().splitlines() if "unread" in line]
    if reasons:
        print("flood: journal:", reasons[0])
    prober.close()
    printer.stop()


def flood_kept():
    """The same, with an unread limit the flooding client never reaches."""
    flood("--max-unread", str(1 << 30))


def sigterm():
    printer = Printer()
    flooder = Flooder(printer, 8)
    flooder.start()
    time.sleep(2)
    start = time.monotonic()
    printer.process.send_signal(signal.SIGTERM)
    try:
        printer.process.wait(5)
        print(f"sigterm: exited {(time.monotonic() - start) * 1000:.0f} ms after SIGTERM")
    except subprocess.TimeoutExpired:
        print("sigterm: still running 5 s after SIGTERM; the flooding client goes")
        flooder.socket.close()
        try:
            printer.process.wait(5)
            print(f"sigterm: exited {(time.monotonic() - start) * 1000:.0f} ms after SIGTERM")
        except subprocess.TimeoutExpired:
            pass
    flooder.socket.close()
    printer.stop()


def payloads():
    printer = Printer()
    print("payloads: before, VmRSS %s, VmHWM %s" % printer.memory())
    size = 6_000_000
    clients = []
    for _ in range(100):
        client = printer.connect()
        client.setblocking(False)
        clients.append([client, b'DOWNLOAD "F",%d,' % size + bytes(size - 1000)])
    deadline = time.monotonic() + 60
    while any(rest for _, rest in clients) and time.monotonic() < deadline:
        waiting = [c for c, rest in clients if rest]
        _, ready, _ = select.select([], waiting, [], 1.0)
        for entry in clients:
            if entry[0] in ready:
                try:
                    entry[1] = entry[1][entry[0].send(entry[1][:1 << 20]):]
                except OSError:
                    entry[1] = b""
    unsent = sum(len(rest) for _, rest in clients)
    time.sleep(1)
    print(f"payloads: 100 clients silent inside a {size}-byte DOWNLOAD, {unsent} bytes unsent:"
          " VmRSS %s, VmHWM %s" % printer.memory())
    for client, _ in clients:
        client.close()
    printer.stop()


def connects():
    """Each client connects, asks ESC !? and waits for the answer."""
    printer = Printer()
    pending, waits = {}, []
    start = time.monotonic()
    for _ in range(200):
        client = socket.socket()
        client.setblocking(False)
        client.connect_ex(("127.0.0.1", printer.port))
        pending[client.fileno()] = client
    poller = select.poll()
    for fd in pending:
        poller.register(fd, select.POLLOUT)
    while pending and time.monotonic() - start < 20:
        for fd, events in poller.poll(100):
            client = pending[fd]
            if events & select.POLLOUT:
                client.send(b"\x1b!?")
                poller.modify(fd, select.POLLIN)
            elif events & select.POLLIN:
                waits.append(time.monotonic() - start)
                poller.unregister(fd)
                pending.pop(fd).close()
    slow = sum(1 for wait in waits if wait > 0.2)
    print(f"connects: 200 at once, each asks ESC !?: {len(waits)} answered, {slow} after over"
          f" 200 ms, longest {max(waits) * 1000:.0f} ms")
    printer.stop()


for name in scenarios:
    globals()[name]()
PY
