#!/usr/bin/env python3
"""Load and verdicts for the crash-safety test.

  crashload.py upstream ADDR                  answers every A question on ADDR:53
  crashload.py lookups HOST PORT SECONDS      asks HOST:PORT for ever new names
  crashload.py dhcp IFACE ACKS SECONDS        one DHCP client after another (no host
                                              name on every other one, no option 61),
                                              appends "time identity address" per ACK
  crashload.py missing ACKS KILLS CHECK       the ACKs older than the last kill - 1 s
                                              that the leases of CHECK (driver --check)
                                              lack
  crashload.py conflicts ACKS KILLS           addresses given to two clients at once
"""
import random
import socket
import struct
import sys
import time


def upstream(addr):
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.bind((addr, 53))
    while True:
        q, peer = s.recvfrom(4096)
        if len(q) < 17:
            continue
        end = q.index(b'\0', 12) + 5
        address = bytes([10, 99, q[13] % 250, len(q) % 250])
        answer = b'\xc0\x0c' + struct.pack('>HHIH', 1, 1, 300, 4) + address
        s.sendto(q[:2] + b'\x81\x80' + struct.pack('>HHHH', 1, 1, 0, 0) + q[12:end] + answer, peer)


def lookups(host, port, seconds):
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.settimeout(0.02)
    end, n = time.time() + seconds, 0
    while time.time() < end:
        n += 1
        name = b''.join(bytes([len(p)]) + p for p in (b'h%d' % n, b'ext', b'test')) + b'\0'
        try:
            s.sendto(struct.pack('>HHHHHH', n & 0xffff, 0x0100, 1, 0, 0, 0) + name + b'\0\x01\0\x01',
                     (host, port))
            s.recv(4096)
        except OSError:
            pass
        time.sleep(0.05)


def dhcp_message(kind, mac, xid, options):
    m = struct.pack('>BBBBIHH', 1, 1, 6, 0, xid, 0, 0x8000) + bytes(16) + mac + bytes(10 + 192)
    m += b'\x63\x82\x53\x63' + bytes([53, 1, kind])
    for code, data in options:
        m += bytes([code, len(data)]) + data
    return m + b'\xff'


def reply_of(s, xid, deadline):
    while time.time() < deadline:
        try:
            r = s.recv(2048)
        except socket.timeout:
            return None
        if len(r) > 243 and r[0] == 2 and struct.unpack('>I', r[4:8])[0] == xid:
            options, i = {}, 240
            while i + 1 < len(r) and r[i] != 255:
                if r[i] == 0:
                    i += 1
                    continue
                options[r[i]] = r[i + 2:i + 2 + r[i + 1]]
                i += 2 + r[i + 1]
            return r[16:20], options
    return None


def dora(s, mac, named):
    extra = [(12, b'kvcrash%d' % mac[-1])] if named else []
    xid = random.getrandbits(32)
    s.sendto(dhcp_message(1, mac, xid, extra), ('255.255.255.255', 67))
    offer = reply_of(s, xid, time.time() + 0.5)
    if not offer or offer[1].get(53) != b'\x02':
        return None
    options = [(50, offer[0]), (54, offer[1].get(54, b''))] + extra
    s.sendto(dhcp_message(3, mac, xid, options), ('255.255.255.255', 67))
    ack = reply_of(s, xid, time.time() + 0.5)
    if not ack or ack[1].get(53) != b'\x05' or ack[0] != offer[0]:
        return None
    return socket.inet_ntoa(ack[0])


def dhcp(iface, acks, seconds):
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    s.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, iface.encode())
    s.bind(('0.0.0.0', 68))
    s.settimeout(0.2)
    end, n = time.time() + seconds, 0
    with open(acks, 'a') as out:
        while time.time() < end:
            n += 1
            mac = b'\x02\xcc' + struct.pack('>I', n)
            for _ in range(5):  # the server may be down: ask again
                address = dora(s, mac, n % 2 == 0)
                if address:
                    identity = '01' + mac.hex().upper()
                    out.write('%.3f %s %s\n' % (time.time(), identity, address))
                    out.flush()
                    break
            time.sleep(0.03)


def read_acks(path):
    with open(path) as f:
        return [(float(t), ident, ip) for t, ident, ip in (line.split() for line in f)]


# A client notes an ACK a little after the server granted it: one noted up to
# this long after a kill may have been granted before it.
LATE = 0.5


def lost_with(t, kill):
    """A lease granted under 1 s before a kill may go with it."""
    return kill - 1 <= t < kill + LATE


def read_kills(path):
    return sorted(float(k) for k in open(path).read().split())


def missing(acks, kills, check):
    with open(check) as f:
        held = {(p[1], p[2]) for p in (line.split() for line in f) if p and p[0] == 'lease'}
    *earlier, kill = read_kills(kills)
    due = [(ident, ip) for t, ident, ip in read_acks(acks)
           if t < kill - 1 and not any(lost_with(t, k) for k in earlier)]
    lost = [a for a in due if (a[1], a[0]) not in held]
    for ident, ip in lost:
        print('missing lease %s %s' % (ip, ident))
    print('%d of %d leases granted over 1 s before the kill are missing' % (len(lost), len(due)))
    return 1 if lost else 0


def conflicts(acks, kills):
    kills = read_kills(kills)
    holder, bad = {}, 0
    for t, ident, ip in read_acks(acks):
        if ip in holder and holder[ip][1] != ident:
            before = holder[ip][0]
            if not any(lost_with(before, k) and k < t for k in kills):
                print('address %s given to %s and then to %s' % (ip, holder[ip][1], ident))
                bad += 1
        holder[ip] = (t, ident)
    print('%d addresses given to two clients' % bad)
    return 1 if bad else 0


if __name__ == '__main__':
    mode, args = sys.argv[1], sys.argv[2:]
    if mode == 'upstream':
        upstream(args[0])
    elif mode == 'lookups':
        lookups(args[0], int(args[1]), float(args[2]))
    elif mode == 'dhcp':
        dhcp(args[0], args[1], float(args[2]))
    elif mode == 'missing':
        sys.exit(missing(*args))
    elif mode == 'conflicts':
        sys.exit(conflicts(*args))
