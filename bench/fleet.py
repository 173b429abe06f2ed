#!/usr/bin/env python3
"""Full update of a simulated fleet in batch mode, against bare senders doing the same uploads.

Usage: fleet.py <build dir> [--sizes 10,200,1000] [--mib 16] [--profile] [--stall N] [--smoke]

For each size: one run of the program (one firmware, limit 0, batch mode) and one run of the
benchmark's bare stop-and-wait senders (bench_upload --fleet, one thread per device) against a
fresh simulated fleet. The program's figures come from its own process alone: wall time, CPU
(user + system, wait4), peak resident memory, and threads and descriptors at their peak,
sampled from /proc. File requests are the service's count, upgrades the devices' own.
The program starts with a soft descriptor limit of 1024, as on a desktop, and raises it itself.

--profile   records where the program's CPU goes at the first size (perf, or callgrind on a
            fleet of 10 where perf can't sample) and prints the top entries
--stall N   the interactive window under Xvfb with N devices: the longest gap of the main
            thread's event loop (ORVANE_STALL_PROBE) while the rows report progress, from the
            first "Now uploading the file" to the last "Done upgrading", and from Run to
            "-- all done --"
--smoke     20 devices of 1 MiB on a random loopback block, program only: exits non-zero
            unless every device is upgraded with one file request (the test suite's check)

Devices live on 127.0.2.1 and up, the service on 127.0.0.1; run it inside `unshare -n`.
"""
import json
import os
import random
import re
import resource
import secrets
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

DESKTOP_DESCRIPTOR_LIMIT = 1024


def open_files_unlimited():
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def open_files_as_desktop():
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(DESKTOP_DESCRIPTOR_LIMIT, hard), hard))


def address(base, i):
    packed = int.from_bytes(socket.inet_aton(base), "big") + i
    return socket.inet_ntoa(packed.to_bytes(4, "big"))


def control(port, commands):
    """Line-delimited JSON commands on a simulator's control channel; the answers."""
    with socket.create_connection(("127.0.0.1", port), timeout=30) as s:
        s.sendall("".join(json.dumps(c) + "\n" for c in commands).encode())
        stream = s.makefile("r")
        return [json.loads(stream.readline()) for _ in commands]


class fleet:
    """A simulated fleet and service in a scratch folder, torn down on exit."""

    def __init__(self, build, count, mib, base):
        self.build, self.count, self.mib, self.base = build, count, mib, base
        self.work = tempfile.mkdtemp(prefix="orvane-fleet.")
        self.procs = []

    def __enter__(self):
        with open(self.path("fw.bin"), "wb") as f:
            f.write(secrets.token_bytes(self.mib * 1024 * 1024))
        serials = [f"BENCH{i:07d}" for i in range(self.count)]
        json.dump({"count": self.count, "base": self.base, "port": 34567, "defaults": {"reboot_ms": 300},
                   "devices": [{"serial": s} for s in serials]}, open(self.path("devices.json"), "w"))
        self.client_id, self.client_key = secrets.token_hex(8), secrets.token_hex(32)
        offer = {"verdict": "pending", "offers": [{"file": "fw.bin", "type": 1, "sdk_type": "legacy"}]}
        json.dump({"client_id": self.client_id, "client_key": self.client_key, "address": "127.0.0.1", "port": 0,
                   "fleet": {s: offer for s in serials}}, open(self.path("service.json"), "w"))
        ready = self.start([f"{self.build}/tools/devsim/orvane-devsim", "--config", self.path("devices.json"),
                            "--udp-port", "0", "--exit-on-stdin-eof"], "devsim.out")
        self.devsim_control = int(re.search(r"control_port=(\d+)", ready).group(1))
        ready = self.start([f"{self.build}/tools/svcsim/orvane-svcsim", "--config", self.path("service.json"),
                            "--exit-on-stdin-eof"], "svcsim.out")
        self.service_port = int(re.search(r" port=(\d+)", ready).group(1))
        self.svcsim_control = int(re.search(r"control_port=(\d+)", ready).group(1))
        return self

    def __exit__(self, *exc):
        for p in self.procs:
            p.terminate()
            p.wait(30)
        if os.environ.get("KEEP"):
            print("kept", self.work)
        else:
            shutil.rmtree(self.work, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.work, name)

    def start(self, cmd, out):
        proc = subprocess.Popen(cmd, stdout=open(self.path(out), "w"), stderr=subprocess.STDOUT,
                                stdin=subprocess.PIPE, preexec_fn=open_files_unlimited)
        self.procs.append(proc)
        for _ in range(600):
            text = open(self.path(out)).read()
            if text.startswith("ready") or "\nready" in text:
                return text
            if proc.poll() is not None:
                break
            time.sleep(0.1)
        raise SystemExit(f"{cmd[0]} did not start:\n{open(self.path(out)).read()}")

    def program_folder(self, interactive=False):
        run = self.path("run")
        os.mkdir(run)
        # As the package installs it: without debug information, which would otherwise weigh on the
        # hash of its own file that the program takes at start (66 MB instead of 3 in a RelWithDebInfo build).
        program = os.path.join(run, "orvane")
        if subprocess.run(["objcopy", "--strip-debug", f"{self.build}/app/orvane", program]).returncode != 0:
            shutil.copy(f"{self.build}/app/orvane", program)
        with open(os.path.join(run, "ov.config"), "w") as f:
            if interactive:
                f.write("[General]\nusage_warning_accepted=true\n")
            f.write(f"[Service]\nclient_id={self.client_id}\nclient_key={self.client_key}\n"
                    f"address=127.0.0.1\nport={self.service_port}\n")
        with open(os.path.join(run, "devices.csv"), "w") as f:
            for i in range(self.count):
                f.write(f"{address(self.base, i)},34567,admin,\n")
        return run

    def file_requests(self):
        return control(self.svcsim_control, [{"cmd": "stats"}])[0]["counts"].get("file", 0)

    def devices_upgraded(self):
        answers = control(self.devsim_control, [{"cmd": "get_state", "device": i} for i in range(self.count)])
        return sum(1 for a in answers if a.get("state", {}).get("upgrades", 0) > 0)


class peak_watch(threading.Thread):
    """Samples a process until it ends: its threads and descriptors at their peak, and the
    CPU its main thread has used."""

    def __init__(self, pid):
        super().__init__(daemon=True)
        self.pid, self.threads, self.descriptors, self.main_cpu = pid, 0, 0, 0.0
        self.stop = threading.Event()

    def run(self):
        while not self.stop.wait(0.05):
            try:
                status = open(f"/proc/{self.pid}/status").read()
                self.threads = max(self.threads, int(re.search(r"^Threads:\s+(\d+)", status, re.M).group(1)))
                self.descriptors = max(self.descriptors, len(os.listdir(f"/proc/{self.pid}/fd")))
                fields = open(f"/proc/{self.pid}/task/{self.pid}/stat").read().rsplit(")", 1)[1].split()
                self.main_cpu = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
            except (OSError, AttributeError, IndexError):
                return


class line_clock(threading.Thread):
    """Reads a program's output line by line, noting when each arrived (ms since the epoch)."""

    def __init__(self, stream, copy):
        super().__init__(daemon=True)
        self.stream, self.copy, self.lines = stream, copy, []

    def run(self):
        for raw in self.stream:
            line = raw.decode(errors="replace").rstrip("\n")
            self.lines.append((time.time() * 1000, line))
            self.copy.write(line + "\n")
            self.copy.flush()

    def text(self):
        return "\n".join(line for _, line in self.lines)

    def first(self, pattern):
        return next((at for at, line in self.lines if re.search(pattern, line)), None)

    def last(self, pattern):
        return next((at for at, line in reversed(self.lines) if re.search(pattern, line)), None)


def measured(cmd, cwd, log_path, preexec):
    """Runs cmd to its end: wall seconds, its rusage, exit code, the peak watch, and its output
    with each line's time of arrival, also copied to log_path."""
    began = time.monotonic()
    proc = subprocess.Popen(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, preexec_fn=preexec)
    clock = line_clock(proc.stdout, open(log_path, "w"))
    clock.start()
    watch = peak_watch(proc.pid)
    watch.start()
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.monotonic() - began
    watch.stop.set()
    clock.join(30)
    proc.returncode = os.waitstatus_to_exitcode(status)
    return wall, usage, proc.returncode, watch, clock


def program_run(build, count, mib, base, wrap=()):
    with fleet(build, count, mib, base) as f:
        run = f.program_folder()
        started = time.time() * 1000
        wall, usage, code, watch, clock = measured(list(wrap) + ["./orvane", "--batch", "devices.csv"], run,
                                                   f.path("run.log"), open_files_as_desktop)
        log = clock.text()
        # When the uploads began and the last device was done, in seconds from the start.
        phase = [((at or started) - started) / 1000 for at in
                 (clock.first(r": Now uploading the file$"), clock.last(r": Done upgrading$"))]
        result = {
            "wall": wall, "cpu": usage.ru_utime + usage.ru_stime, "rss": usage.ru_maxrss / 1024,
            "threads": watch.threads, "descriptors": watch.descriptors, "main_cpu": watch.main_cpu, "exit": code,
            "switches": usage.ru_nvcsw + usage.ru_nivcsw, "phase": phase,
            "done": len(re.findall(r": Done upgrading$", log, re.M)),
            "all_done": "-- all done --" in log,
            "files": f.file_requests(), "upgraded": f.devices_upgraded(),
        }
        if code != 0 or not result["all_done"]:
            print(log[-3000:], file=sys.stderr)
        return result


def bare_run(build, count, mib, base):
    with fleet(build, count, mib, base) as f:
        wall, usage, code, _, clock = measured(
            [f"{build}/bench/bench_upload", "--fleet", base, "34567", str(count), str(mib)], None, f.path("bare.out"),
            open_files_unlimited)
        text = clock.text()
        match = re.search(r"upgraded (\d+)/", text)
        return {"wall": wall, "cpu": usage.ru_utime + usage.ru_stime, "exit": code,
                "switches": usage.ru_nvcsw + usage.ru_nivcsw,
                "upgraded": int(match.group(1)) if match else 0, "text": text.strip()}


def load():
    return "load %.2f" % os.getloadavg()[0]


def print_program(count, r):
    print(f"fleet {count} devices, program: wall {r['wall']:.2f} s, cpu {r['cpu']:.2f} s "
          f"({r['cpu'] / count * 1000:.1f} ms per device; main thread {r['main_cpu']:.2f} s), "
          f"peak RSS {r['rss']:.1f} MiB, threads at peak {r['threads']}, "
          f"descriptors at peak {r['descriptors']}, context switches {r['switches']}, file requests {r['files']}, "
          f"first upload at {r['phase'][0]:.2f} s, last \"Done upgrading\" at {r['phase'][1]:.2f} s, "
          f"upgraded {r['upgraded']}/{count} (log: {r['done']} \"Done upgrading\"), exit {r['exit']}; {load()}")


def print_bare(count, r):
    print(f"fleet {count} devices, bare senders: wall {r['wall']:.2f} s, cpu {r['cpu']:.2f} s "
          f"({r['cpu'] / count * 1000:.1f} ms per device), context switches {r['switches']}, "
          f"upgraded {r['upgraded']}/{count}, exit {r['exit']}; {load()}")


def ratios(sizes, program, bare):
    for n in sizes:
        p, b = program[n], bare[n]
        target = " (target <= 1.15)" if n >= 200 else ""
        print(f"fleet {n}: program wall / bare wall = {p['wall'] / b['wall']:.2f}{target}; "
              f"cpu per device: program {p['cpu'] / n * 1000:.1f} ms, bare {b['cpu'] / n * 1000:.1f} ms, "
              f"ratio {p['cpu'] / b['cpu']:.2f} (target <= 1.5)")
    for small, large in zip(sizes, sizes[1:]):
        grow = (program[large]["rss"] - program[small]["rss"]) / (large - small) * 1024
        marginal_p = (program[large]["cpu"] - program[small]["cpu"]) / (large - small)
        marginal_b = (bare[large]["cpu"] - bare[small]["cpu"]) / (large - small)
        print(f"fleet {small} -> {large}: memory per added device {grow:.0f} KiB (target < 256); "
              f"cpu per added device: program {marginal_p * 1000:.1f} ms, bare {marginal_b * 1000:.1f} ms, "
              f"ratio {marginal_p / max(marginal_b, 1e-9):.2f} (target <= 1.5)")


def perf_usable():
    try:
        return subprocess.run(["perf", "record", "-e", "cpu-clock", "-o", "/dev/null", "true"],
                              capture_output=True).returncode == 0
    except OSError:
        return False


def profile(build, count, mib, base):
    data = tempfile.mkdtemp(prefix="orvane-profile.")
    try:
        if perf_usable():
            out = os.path.join(data, "perf.data")
            r = program_run(build, count, mib, base,
                            ["perf", "record", "-q", "-e", "cpu-clock", "-F", "499", "-g", "-o", out, "--"])
            print_program(count, r)
            print("(figures above include perf's own work)")
            for sort, rows in (("comm", 8), ("dso", 10), ("dso,sym", 30)):
                report = subprocess.run(["perf", "report", "-i", out, "--stdio", "--no-children", "-g", "none",
                                         "--sort", sort, "--percent-limit", "0.3"],
                                        capture_output=True, text=True).stdout
                lines = [l for l in report.splitlines() if l.strip() and not l.startswith("#")]
                print(f"-- where the program's CPU went, by {sort} --")
                print("\n".join(lines[:rows]))
        else:
            count = min(count, 10)
            out = os.path.join(data, "callgrind.out")
            r = program_run(build, count, mib, base, ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out])
            print_program(count, r)
            report = subprocess.run(["callgrind_annotate", out], capture_output=True, text=True).stdout
            print("\n".join(report.splitlines()[:45]))
    finally:
        shutil.rmtree(data, ignore_errors=True)


def stall(build, count, mib, base):
    """The window's main thread from Run to the end: its longest gaps, over the whole run and
    while the rows report progress (first upload to last upgrade)."""
    with fleet(build, count, mib, base) as f:
        run = f.program_folder(interactive=True)
        display = f":{random.randint(100, 400)}"
        xvfb = subprocess.Popen(["Xvfb", display, "-screen", "0", "1100x700x24", "-nolisten", "tcp"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        f.procs.append(xvfb)
        env = dict(os.environ, DISPLAY=display, XDG_RUNTIME_DIR=f.path("xdg"),
                   ORVANE_STALL_PROBE=f.path("stalls"))
        env.pop("QT_QPA_PLATFORM", None)
        os.mkdir(f.path("xdg"), 0o700)
        time.sleep(1)
        program = subprocess.Popen(["./orvane"], cwd=run, env=env, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, preexec_fn=open_files_as_desktop)
        f.procs.insert(0, program)
        clock = line_clock(program.stdout, open(f.path("run.log"), "w"))
        clock.start()

        def xdotool(*args):
            return subprocess.run(["xdotool", *args], env=env, capture_output=True, text=True).stdout.strip()

        def wait_for(predicate, seconds):
            deadline = time.monotonic() + seconds
            while time.monotonic() < deadline:
                if predicate():
                    return True
                time.sleep(0.2)
            return False

        window = []
        if not wait_for(lambda: window.append(xdotool("search", "--name", "Kelmar Firmware Update")) or window[-1], 30):
            raise SystemExit("the window did not appear")
        wid = window[-1].split()[0]
        xdotool("windowsize", wid, "1100", "700")
        xdotool("windowfocus", "--sync", wid)
        time.sleep(1)
        xdotool("key", "ctrl+i")
        time.sleep(1)
        xdotool("type", "--delay", "5", os.path.join(run, "devices.csv"))
        xdotool("key", "Return")
        if not wait_for(lambda: clock.text().count("Introduced: flow ident") >= count, 120):
            raise SystemExit("the task list was not imported")
        time.sleep(1)
        xdotool("windowfocus", "--sync", wid)
        began = time.time() * 1000
        xdotool("key", "ctrl+r")
        finished = wait_for(lambda: "-- all done --" in clock.text(), 900)
        ended = time.time() * 1000
        progress = (clock.first(r": Now uploading the file$") or began, clock.last(r": Done upgrading$") or ended)
        gaps = []
        for line in open(f.path("stalls")):
            at, gap = (int(x) for x in line.split())
            if began <= at <= ended:
                gaps.append((gap, at))
        # What of each gap falls inside the progress phase: the main thread is blocked while
        # the firmware is cached, just before the first row reports its upload.
        in_progress = [min(at, progress[1]) - max(at - g, progress[0]) for g, at in gaps]
        in_progress = [g for g in in_progress if g > 0]
        worst = ", ".join(f"{g} ms at {(at - began) / 1000:.1f} s" for g, at in sorted(gaps, reverse=True)[:5])
        done = len(re.findall(r": Done upgrading$", clock.text(), re.M))
        print(f"stall {count} devices, interactive under Xvfb: longest main-thread gap while the rows report "
              f"progress {max(in_progress, default=0)} ms (none over 20 ms is recorded; target <= 100; {(progress[0] - began) / 1000:.1f} s to "
              f"{(progress[1] - began) / 1000:.1f} s after Run), gaps over 50 ms there: "
              f"{sum(g > 50 for g in in_progress)}; over the whole run {max((g for g, _ in gaps), default=0)} ms "
              f"in {(ended - began) / 1000:.1f} s; upgraded {done}/{count}{'' if finished else ', did not finish'}; "
              f"{load()}")
        if worst:
            print(f"  longest gaps after Run: {worst}")


def main():
    args = sys.argv[1:]
    if not args:
        raise SystemExit(__doc__)
    build = args.pop(0)

    def option(name, default):
        if name in args:
            i = args.index(name)
            value = args[i + 1]
            del args[i:i + 2]
            return value
        return default

    sizes = [int(n) for n in option("--sizes", "10,200,1000").split(",")]
    mib = int(option("--mib", "16"))
    stall_count = int(option("--stall", "0"))
    base = "127.0.2.1"
    if "--smoke" in args:
        base = f"127.{random.randint(1, 254)}.{random.randint(0, 255)}.1"
        r = program_run(build, 20, 1, base)
        print_program(20, r)
        good = r["exit"] == 0 and r["all_done"] and r["upgraded"] == r["done"] == 20 and r["files"] == 1
        sys.exit(0 if good else 1)
    if "--profile" in args:
        profile(build, sizes[0], mib, base)
        return
    if stall_count:
        stall(build, stall_count, mib, base)
        return
    program, bare = {}, {}
    for n in sizes:
        program[n] = program_run(build, n, mib, base)
        print_program(n, program[n])
        bare[n] = bare_run(build, n, mib, base)
        print_bare(n, bare[n])
    ratios(sizes, program, bare)


if __name__ == "__main__":
    main()
