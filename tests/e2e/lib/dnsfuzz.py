#!/usr/bin/env python3
"""Hostile datagrams for a running DNS server.

dnsfuzz.py HOST PORT SEED COUNT [UPSTREAM_ADDR]

Phase 1 sends COUNT datagrams to HOST:PORT: random bytes, mutations of real
queries and replies (bit flips, truncation, junk, wrong counts, stray
pointers) and hand-made compression traps. Phase 2 makes the server forward
questions and answers them with hostile replies: from a socket on
UPSTREAM_ADDR:53 when it can be bound (the real query's ID and question),
otherwise sent to HOST:PORT with guessed IDs. Every 250 datagrams, and at
the end, a normal query must still get its correct answer; exit 1 if not.
"""
import random
import socket
import struct
import sys
import time

HOST, PORT, SEED, COUNT = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
UPSTREAM = sys.argv[5] if len(sys.argv) > 5 else None
rng = random.Random(SEED)

CHECK_NAME = "www.kvtest.example"
CHECK_ADDR = bytes([10, 9, 0, 2])


def wname(name):
    out = b""
    for label in name.strip(".").split("."):
        if label:
            b = label.encode("latin-1")
            out += bytes([len(b)]) + b
    return out + b"\0"


def header(qid, flags, qd=1, an=0, ns=0, ar=0):
    return struct.pack(">HHHHHH", qid & 0xFFFF, flags, qd, an, ns, ar)


def query(qid, name, qtype=1, rd=True, qclass=1, opcode=0):
    flags = (opcode << 11) | (0x0100 if rd else 0)
    return header(qid, flags) + wname(name) + struct.pack(">HH", qtype, qclass)


def rr(owner, rtype, rdata, ttl=300, rclass=1):
    ob = owner if isinstance(owner, bytes) else wname(owner)
    return ob + struct.pack(">HHIH", rtype, rclass, ttl & 0xFFFFFFFF, len(rdata) & 0xFFFF) + rdata


def reply(qid, qname, qtype, an=(), ns=(), ar=(), rcode=0, aa=False, raw_question=None):
    flags = 0x8000 | 0x0100 | 0x0080 | (0x0400 if aa else 0) | (rcode & 15)
    q = raw_question if raw_question is not None else wname(qname) + struct.pack(">HH", qtype, 1)
    return header(qid, flags, 1, len(an), len(ns), len(ar)) + q + b"".join(an) + b"".join(ns) + b"".join(ar)


def soa_rdata(mname, rname, mins=60):
    return wname(mname) + wname(rname) + struct.pack(">IIIII", 1, 3600, 900, 604800, mins)


# --- corpus of well-formed messages to mutate --------------------------------
def corpus():
    c = [
        query(1, CHECK_NAME, 1),
        query(2, "kvtest.example", 15),
        query(3, "2.0.9.10.in-addr.arpa", 12),
        query(4, "alias.kvtest.example", 255),
        query(5, "kvtest.example", 6),
        query(6, "x.fuzz.test", 1),
        # with an EDNS OPT record
        header(7, 0x0100, 1, 0, 0, 1) + wname(CHECK_NAME) + struct.pack(">HH", 1, 1)
        + b"\0" + struct.pack(">HHIH", 41, 4096, 0, 0),
    ]
    # a reply using compression: C0 0C points at the question name
    ptr = b"\xc0\x0c"
    c.append(reply(9, "x.fuzz.test", 1,
                   an=[rr(ptr, 5, wname("y.fuzz.test")), rr(wname("y.fuzz.test"), 1, bytes([10, 0, 0, 9]))],
                   ns=[rr(wname("fuzz.test"), 2, wname("ns1.fuzz.test")),
                       rr(wname("fuzz.test"), 6, soa_rdata("ns1.fuzz.test", "h.fuzz.test"))],
                   ar=[rr(wname("ns1.fuzz.test"), 1, bytes([127, 0, 0, 2])),
                       rr(wname("fuzz.test"), 15, struct.pack(">H", 10) + b"\x04mail\xc0\x0e")]))
    c.append(reply(10, "nx.fuzz.test", 1, ns=[rr(wname("fuzz.test"), 6, soa_rdata("a", "b"))], rcode=3))
    return c


CORPUS = corpus()


def mutate(m):
    m = bytearray(m)
    for _ in range(rng.randint(1, 3)):
        op = rng.randrange(8)
        if op == 0 and m:  # bit flips
            for _ in range(rng.randint(1, 8)):
                i = rng.randrange(len(m))
                m[i] ^= 1 << rng.randrange(8)
        elif op == 1 and m:  # random bytes
            for _ in range(rng.randint(1, 4)):
                m[rng.randrange(len(m))] = rng.randrange(256)
        elif op == 2:  # truncation
            m = m[:rng.randrange(len(m) + 1)]
        elif op == 3:  # trailing junk
            m += bytes(rng.randrange(256) for _ in range(rng.randint(1, 64)))
        elif op == 4 and len(m) >= 12:  # absurd counts
            for off in rng.sample([4, 6, 8, 10], rng.randint(1, 4)):
                m[off:off + 2] = struct.pack(">H", rng.choice([0, 1, 2, 255, 0x7FFF, 0xFFFF, rng.randrange(65536)]))
        elif op == 5 and len(m) >= 4:  # header flags: opcode, QR, rcode, ...
            m[2] = rng.randrange(256)
            m[3] = rng.randrange(256)
        elif op == 6 and len(m) > 12:  # a stray compression pointer
            i = rng.randrange(12, len(m))
            target = rng.choice([i, 12, 0, len(m) + 5, rng.randrange(16384)])
            m[i:i + 2] = bytes([0xC0 | ((target >> 8) & 0x3F), target & 0xFF])
        elif op == 7 and len(m) > 12:  # label length byte from the reserved range
            i = rng.randrange(12, len(m))
            m[i] = rng.choice([63, 64, 100, 191, 192, 255])
    return bytes(m)


def traps():
    """Hand-made compression traps and oddities, each a whole datagram."""
    t = []
    q = lambda rest, flags=0x0100, qd=1: header(0x4242, flags, qd) + rest
    tail = struct.pack(">HH", 1, 1)
    t.append(q(b"\xc0\x0c" + tail))                         # name points at itself
    t.append(q(b"\x01a\xc0\x0c" + tail))                    # label then pointer back to its own start
    t.append(q(b"\xc0\x0e" + b"\xc0\x0c" + tail))           # two-pointer cycle
    t.append(q(b"\xc0\xff" + tail))                         # pointer past the end
    t.append(q(b"\xc0\x00" + tail))                         # pointer into the header
    t.append(q(b"\xff\xff" + tail))                         # pointer with high offset bits
    t.append(q(b"\x3fabc"))                                 # label longer than the datagram
    t.append(q(b"\x05abcde"))                               # name without terminator
    t.append(q(b"\x00"))                                    # root name, no type or class
    t.append(q(b"\x00\x00"))                                # type cut in half
    t.append(q(b"\x00" + tail, qd=0))                       # no question counted
    t.append(q(b"\x00" + tail, qd=0xFFFF))                  # many questions counted, one present
    t.append(q(b""))                                        # header only
    t.append(b"\x00" * 11)                                  # one byte short of a header
    t.append(b"\x00" * 12)
    t.append(b"\xff" * 12)
    t.append(b"")                                           # empty datagram
    t.append(query(0x4343, "a" * 63 + ".kvtest.example", 1))
    # 200 labels of 63 bytes: a name far longer than DNS allows, ~12.8 KB
    t.append(header(0x4444, 0x0100) + (b"\x3f" + b"b" * 63) * 200 + b"\0" + tail)
    # ~60 KB: pointers at offsets beyond 16383 cannot be encoded
    t.append(header(0x4445, 0x0100) + (b"\x3f" + b"c" * 63) * 900 + b"\0" + tail)
    # labels holding dots, blanks, semicolons, line breaks and NUL bytes
    for label in [b"a.b", b"a b", b"a;b", b"a\nb", b"a\r\nb", b"\x00\x00", b"@", b"(", b"\xff\xfe"]:
        t.append(header(0x4446, 0x0100) + bytes([len(label)]) + label + b"\x04test\x00" + tail)
    for qtype in [0, 3, 16, 28, 99, 252, 1000, 1001, 2000, 65535]:
        t.append(query(0x4447, CHECK_NAME, qtype))
    for qclass in [0, 2, 3, 4, 255, 65535]:
        t.append(query(0x4448, CHECK_NAME, 1, qclass=qclass))
    for opcode in range(16):
        t.append(query(0x4449, CHECK_NAME, 1, opcode=opcode))
    # replies arriving on the service port with cycles inside their records
    rq = wname("x.fuzz.test") + tail
    t.append(header(0x0001, 0x8180, 1, 1) + rq + b"\xc0\x1d" + struct.pack(">HHIH", 1, 1, 60, 4) + b"\1\2\3\4")
    t.append(header(0x0001, 0x8180, 1, 1) + rq + b"\xc0\x0c" + struct.pack(">HHIH", 5, 1, 60, 2) + b"\xc0\x29")
    t.append(header(0x0001, 0x8180, 0, 0) + b"")
    return t


class Checker:
    def __init__(self):
        self.s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.s.bind(("127.0.0.1", 0))
        self.qid = 0x7000

    def ok(self, label):
        """A normal query must get the correct answer (three tries, 3 s each)."""
        for attempt in range(3):
            self.qid = (self.qid + 1) & 0xFFFF
            self.s.sendto(query(self.qid, CHECK_NAME, 1), (HOST, PORT))
            deadline = time.time() + 3
            while time.time() < deadline:
                self.s.settimeout(max(0.05, deadline - time.time()))
                try:
                    data, _ = self.s.recvfrom(65535)
                except socket.timeout:
                    break
                if len(data) >= 12 and struct.unpack(">H", data[:2])[0] == self.qid:
                    rcode = data[3] & 15
                    an = struct.unpack(">H", data[6:8])[0]
                    if data[2] & 0x80 and rcode == 0 and an >= 1 and CHECK_ADDR in data[12:]:
                        return True
                    print(f"FAIL: {label}: wrong answer to the check query: rcode={rcode} an={an} "
                          f"bytes={data.hex()}")
                    return False
        print(f"FAIL: {label}: no answer to the check query for {CHECK_NAME}")
        return False


def drain(sock):
    sock.setblocking(False)
    try:
        while True:
            sock.recvfrom(65535)
    except (BlockingIOError, OSError):
        pass
    sock.setblocking(True)


def hostile_reply(qid, qname, qtype):
    """A reply with the right ID and question and hostile content."""
    n = qname.strip(".")
    b = lambda s: wname(s)
    kind = rng.randrange(14)
    if kind == 0:    # alias cycle of two
        return reply(qid, n, qtype, an=[rr(n, 5, b("c1." + n)), rr("c1." + n, 5, b(n))])
    if kind == 1:    # alias to itself
        return reply(qid, n, qtype, an=[rr(n, 5, b(n))])
    if kind == 2:    # long alias chain
        chain = [n] + [f"l{i}.{n}" for i in range(40)]
        return reply(qid, n, qtype, an=[rr(chain[i], 5, b(chain[i + 1])) for i in range(40)])
    if kind == 3:    # A records with wrong lengths
        return reply(qid, n, qtype, an=[rr(n, 1, bytes(rng.randrange(256) for _ in range(k))) for k in (0, 3, 5, 16)])
    if kind == 4:    # SOA data that is no SOA
        junk = bytes(rng.randrange(1, 256) for _ in range(rng.randint(0, 40)))
        return reply(qid, n, qtype, an=[rr(n, 6, junk)], ns=[rr("fuzz.test", 6, b"\xc0\x0c")], rcode=rng.choice([0, 3]))
    if kind == 5:    # MX whose exchanger is an alias cycle
        mx = "m." + n
        return reply(qid, n, 15, an=[rr(n, 15, struct.pack(">H", 1) + b(mx)), rr(n, 15, b"\x00")],
                     ar=[rr(mx, 5, b("m2." + n)), rr("m2." + n, 5, b(mx))])
    if kind == 6:    # extreme TTLs
        return reply(qid, n, qtype, an=[rr(n, qtype if qtype in (1, 2, 5, 12) else 1,
                                            bytes([10, 66, 0, rng.randrange(256)]) if qtype not in (2, 5, 12) else b("t." + n),
                                            ttl=rng.choice([0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF]))])
    if kind == 7:    # name error without SOA, and NODATA without anything
        return reply(qid, n, qtype, rcode=rng.choice([3, 0]))
    if kind == 8:    # odd record types and classes
        return reply(qid, n, qtype, an=[rr(n, t, bytes(rng.randrange(256) for _ in range(rng.randint(0, 12))),
                                           rclass=rng.choice([1, 1, 3, 255])) for t in (3, 4, 7, 8, 9, 10, 11, 13, 14, 16, 99)])
    if kind == 9:    # question that is not the one asked
        return reply(qid, "other." + n, qtype, an=[rr("other." + n, 1, bytes([10, 66, 1, 1]))])
    if kind == 10:   # counts promising more than there is
        m = bytearray(reply(qid, n, qtype, an=[rr(n, 1, bytes([10, 66, 2, 2]))]))
        m[6:12] = b"\xff\xff\xff\xff\xff\xff"
        return bytes(m)
    if kind == 11:   # owner and data names with bytes that matter to the cache file
        weird = rng.choice([b"a b", b"a;b", b"a\nb", b"(", b"@x", b"a\tb", b"\x00", b"\xff"])
        wn = bytes([len(weird)]) + weird + b(n)
        return reply(qid, n, qtype, an=[rr(n, 5, wn), rr(wn, 1, bytes([10, 66, 3, 3])), rr(n, 2, wn)])
    if kind == 12:   # referral to servers without addresses
        return reply(qid, n, qtype, ns=[rr("fuzz.test", 2, b("ns%d.nowhere.invalid" % i)) for i in range(5)])
    return mutate(reply(qid, n, qtype, an=[rr(n, 1, bytes([10, 66, 4, 4]))],
                        ns=[rr("fuzz.test", 6, soa_rdata("ns1.fuzz.test", "h.fuzz.test"))]))


def parse_question(data):
    """ID, name and type of a plain query (no compression in the question)."""
    qid = struct.unpack(">H", data[:2])[0]
    i, labels = 12, []
    while i < len(data) and data[i] != 0:
        ln = data[i]
        if ln >= 64:
            return None
        labels.append(data[i + 1:i + 1 + ln].decode("latin-1"))
        i += ln + 1
    if i + 5 > len(data):
        return None
    return qid, ".".join(labels), struct.unpack(">H", data[i + 1:i + 3])[0]


def main():
    target = (HOST, PORT)
    out = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    out.bind(("127.0.0.1", 0))
    chk = Checker()
    if not chk.ok("before fuzzing"):
        return 1

    sent = 0
    trap_list = traps()
    for i in range(COUNT):
        r = rng.random()
        if i < len(trap_list):
            m = trap_list[i]
        elif r < 0.15:
            m = bytes(rng.randrange(256) for _ in range(rng.randint(0, 600)))
        else:
            m = mutate(rng.choice(CORPUS))
        try:
            out.sendto(m, target)
        except OSError:
            pass  # e.g. a datagram too large for this socket; the rest goes on
        sent += 1
        if i % 50 == 49:
            drain(out)
            time.sleep(0.01)
        if i % 250 == 249 and not chk.ok(f"after {i + 1} datagrams (seed {SEED})"):
            return 1
    drain(out)
    print(f"phase 1: {sent} datagrams sent")

    # Phase 2: hostile replies to the server's own forwarded questions.
    up = None
    if UPSTREAM:
        try:
            up = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            up.bind((UPSTREAM, 53))
        except OSError as e:
            print(f"phase 2: cannot listen on {UPSTREAM}:53 ({e}); replies go to the service port")
            up = None
    types = [1, 2, 5, 6, 12, 15, 255]
    answered = 0
    guess = 0
    rounds = max(40, COUNT // 20)
    for i in range(rounds):
        name = f"p{i}.fuzz.test"
        qtype = rng.choice(types)
        out.sendto(query(0x5000 + i, name, qtype), target)
        if up is not None:
            up.settimeout(1.0)
            try:
                data, src = up.recvfrom(65535)
            except socket.timeout:
                continue
            pq = parse_question(data) if len(data) >= 12 else None
            if pq is None:
                continue
            qid, qn, qt = pq
            for _ in range(rng.randint(1, 2)):
                up.sendto(hostile_reply(qid, qn, qt), src)
            answered += 1
        else:
            time.sleep(0.02)
            guess += 1
            for g in (guess, guess + 1, guess - 1):
                out.sendto(hostile_reply(g, name, qtype), target)
        # the same question again, now met in the cache
        time.sleep(0.02)
        out.sendto(query(0x6000 + i, name, rng.choice(types)), target)
        if i % 10 == 9:
            drain(out)
            if not chk.ok(f"after hostile reply round {i + 1} (seed {SEED})"):
                return 1
    drain(out)
    print(f"phase 2: {rounds} questions, {answered} answered by the fake upstream")
    time.sleep(0.5)
    if not chk.ok("at the end"):
        return 1
    print("the server still answers correctly")
    return 0


if __name__ == "__main__":
    sys.exit(main())
