#!/usr/bin/env python3
"""Measures a DNS server's loading, for bench/load-hosts.sh.

  load_probe.py first PORT NAME -- COMMAND...
      Starts COMMAND, asks NAME (A) on 127.0.0.1:PORT every 5 ms until an
      answer comes, and prints "seconds rss_kb cpu_seconds rcode answers"
      (time from start to the first answer; RSS and CPU time of the process
      then). The process is then stopped with SIGTERM.

  load_probe.py reload PORT NAME PID LOGFILE TEXT
      Asks NAME every 10 ms while it sends SIGHUP to PID, until TEXT shows in
      LOGFILE; prints "reload_seconds worst_answer_seconds unanswered".
"""
import os
import signal
import socket
import struct
import subprocess
import sys
import time


def query(name, qid):
    q = struct.pack(">HHHHHH", qid & 0xFFFF, 0x0100, 1, 0, 0, 0)
    for label in name.rstrip(".").split("."):
        q += bytes([len(label)]) + label.encode()
    return q + b"\0" + struct.pack(">HH", 1, 1)


def cpu_seconds(pid):
    fields = open("/proc/%d/stat" % pid).read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def rss_kb(pid):
    for line in open("/proc/%d/status" % pid):
        if line.startswith("VmRSS:"):
            return int(line.split()[1])
    return 0


def first(port, name, command):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.settimeout(0.005)
    start = time.monotonic()
    proc = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    qid = 1
    try:
        while True:
            if proc.poll() is not None:
                print("exited", proc.returncode)
                return 1
            if time.monotonic() - start > 600:
                print("no answer in 600 s")
                return 1
            sock.sendto(query(name, qid), ("127.0.0.1", port))
            try:
                data, _ = sock.recvfrom(65535)
            except socket.timeout:
                qid += 1
                continue
            if struct.unpack(">H", data[:2])[0] != qid & 0xFFFF:
                continue
            took = time.monotonic() - start
            print("%.3f %d %.2f %d %d" % (took, rss_kb(proc.pid), cpu_seconds(proc.pid), data[3] & 15,
                                          struct.unpack(">H", data[6:8])[0]))
            return 0
    finally:
        proc.terminate()
        try:
            proc.wait(10)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait()


def reload(port, name, pid, logfile, text):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setblocking(False)
    seen = open(logfile).read().count(text)
    pending = {}
    worst = 0.0
    qid = 0
    start = time.monotonic()
    os.kill(pid, signal.SIGHUP)
    done = None
    while True:
        now = time.monotonic()
        if done is None and open(logfile).read().count(text) > seen:
            done = now - start
        if done is not None and (not pending or now - start > done + 2):
            break
        if now - start > 120:
            break
        if done is None:
            qid += 1
            pending[qid & 0xFFFF] = now
            sock.sendto(query(name, qid), ("127.0.0.1", port))
        time.sleep(0.01)
        while True:
            try:
                data, _ = sock.recvfrom(65535)
            except BlockingIOError:
                break
            sent = pending.pop(struct.unpack(">H", data[:2])[0], None)
            if sent is not None:
                worst = max(worst, time.monotonic() - sent)
    print("%.3f %.3f %d" % (done if done is not None else -1, worst, len(pending)))
    return 0


def main(argv):
    if len(argv) > 4 and argv[1] == "first" and argv[4] == "--":
        return first(int(argv[2]), argv[3], argv[5:])
    if len(argv) == 7 and argv[1] == "reload":
        return reload(int(argv[2]), argv[3], int(argv[4]), argv[5], argv[6])
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
