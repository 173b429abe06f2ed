#!/usr/bin/env python3
"""Full update of a simulated fleet in batch mode: wall time and peak memory of the program.

Usage: fleet.py <build dir> <device count> [firmware MiB] [--minimal]
Prints one line: devices, wall seconds, peak RSS in MiB, file requests, devices upgraded.
With --minimal the benchmark's bare stop-and-wait sender uploads to the same fleet instead
of the program: the floor of what this machine can do.
Everything runs on loopback: devices on 127.0.2.1 and up, the service on 127.0.0.1.
"""
import json
import os
import re
import secrets
import shutil
import subprocess
import sys
import tempfile
import time


def start(cmd, out):
    proc = subprocess.Popen(cmd, stdout=open(out, "w"), stderr=subprocess.STDOUT, stdin=subprocess.PIPE)
    for _ in range(300):
        text = open(out).read()
        if text.startswith("ready") or "\nready" in text:
            return proc, text
        if proc.poll() is not None:
            break
        time.sleep(0.1)
    raise SystemExit(f"{cmd[0]} did not start:\n{open(out).read()}")


def main():
    minimal = "--minimal" in sys.argv
    args = [a for a in sys.argv[1:] if a != "--minimal"]
    build, count = args[0], int(args[1])
    mib = int(args[2]) if len(args) > 2 else 16
    work = tempfile.mkdtemp(prefix="orvane-fleet.")
    procs = []
    try:
        with open(os.path.join(work, "fw.bin"), "wb") as f:
            f.write(secrets.token_bytes(mib * 1024 * 1024))
        serials = [f"BENCH{i:07d}" for i in range(count)]
        devices = {"count": count, "base": "127.0.2.1", "port": 34567,
                   "defaults": {"reboot_ms": 300},
                   "devices": [{"serial": s} for s in serials]}
        json.dump(devices, open(os.path.join(work, "devices.json"), "w"))
        client_id, client_key = secrets.token_hex(8), secrets.token_hex(32)
        offer = {"verdict": "pending", "offers": [{"file": "fw.bin", "type": 1, "sdk_type": "legacy"}]}
        service = {"client_id": client_id, "client_key": client_key, "address": "127.0.0.1", "port": 0,
                   "fleet": {s: offer for s in serials}}
        json.dump(service, open(os.path.join(work, "service.json"), "w"))

        dev, _ = start([f"{build}/tools/devsim/orvane-devsim", "--config", f"{work}/devices.json",
                        "--exit-on-stdin-eof"], f"{work}/devsim.out")
        procs.append(dev)
        svc, ready = start([f"{build}/tools/svcsim/orvane-svcsim", "--config", f"{work}/service.json",
                            "--exit-on-stdin-eof"], f"{work}/svcsim.out")
        procs.append(svc)
        port = re.search(r" port=(\d+)", ready).group(1)

        run = os.path.join(work, "run")
        os.mkdir(run)
        shutil.copy(f"{build}/app/orvane", run)
        with open(os.path.join(run, "ov.config"), "w") as f:
            f.write(f"[Service]\nclient_id={client_id}\nclient_key={client_key}\naddress=127.0.0.1\nport={port}\n")
        with open(os.path.join(run, "devices.csv"), "w") as f:
            for i in range(count):
                f.write(f"127.0.{2 + (i + 1) // 256}.{(i + 1) % 256},34567,admin,\n")

        wrap = os.environ.get("ORVANE_WRAP", "").split()
        if minimal:
            sender = [f"{build}/bench/bench_upload", "--fleet", "127.0.2.1", "34567", str(count), str(mib)]
            result = subprocess.run(wrap + sender, capture_output=True, text=True)
            print(result.stdout.strip() or result.stderr.strip())
            return

        began = time.monotonic()
        orvane = subprocess.Popen(wrap + ["./orvane", "--batch", "devices.csv"], cwd=run,
                                  stdout=open(f"{work}/run.log", "w"), stderr=subprocess.STDOUT)
        _, status, usage = os.wait4(orvane.pid, 0)
        wall = time.monotonic() - began
        log = open(f"{work}/run.log").read()
        done = len(re.findall(r": Done upgrading$", log, re.M))
        files = log.count("Got data for requested version")
        def cpu_of(pid):
            fields = open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()
            return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
        sim_cpu = cpu_of(dev.pid) + cpu_of(svc.pid)
        print(f"fleet {count} devices: wall {wall:.2f} s, peak RSS {usage.ru_maxrss / 1024:.1f} MiB, "
              f"simulators' cpu {sim_cpu:.2f} s, "
              f"cpu {usage.ru_utime + usage.ru_stime:.2f} s, "
              f"file downloads {files}, upgraded {done}/{count}, exit {os.waitstatus_to_exitcode(status)}")
    finally:
        for p in procs:
            p.terminate()
            p.wait(10)
        if os.environ.get("KEEP"):
            print("kept", work)
        else:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
