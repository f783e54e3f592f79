#!/usr/bin/env python3
"""Scale-out under failure, through scripts/cluster (three Galera nodes, two hosts, two balancers):

1. an entrance posted through host 1 is read back through host 2 at once (its repeat);
2. the same entrance posted at the same moment through two hosts on different database
   nodes is stored once; both answers are 201/208, or one is a well-formed refusal whose
   repeat is answered 208;
3. mixed requests from parallel clients through the host balancer while database node 2
   (a backup) and then node 1 (the writer) stop and start, and host 1 is killed and
   restarted: every answer well-formed, few refusals and only 503, every acknowledged entrance stored exactly once on
   every node, the other host never restarted.

Bounded by request count; it prints its numbers (requests, refusals, recovery times).
Environment: CLUSTER_REQUESTS (2000), CLUSTER_CLIENTS (8), CLUSTER_RACES (20).
"""
import base64
import datetime
import http.client
import json
import os
import random
import subprocess
import sys
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
REQUESTS = int(os.environ.get("CLUSTER_REQUESTS", 2000))
CLIENTS = int(os.environ.get("CLUSTER_CLIENTS", 8))
RACES = int(os.environ.get("CLUSTER_RACES", 20))
# Answers of a database or host that is switching over (503, or the database's error code
# 500 as status 500 or, for a refused write, 400); a client repeats such a request.
REFUSED_WRITE = "400 code 500"
# The administrator's lookup answers a database failure as an invalid token (400, 100102),
# on purpose; during a switch-over that too is a refusal the tool repeats.
REFUSED_ADMIN = "400 admin lookup"
# A request in flight on a host that is killed gets no answer at all; a terminal sends it
# again (an entrance with the same refId), and so does the load.
DROPPED = "no answer"
RETRYABLE = {500, 503, REFUSED_WRITE, REFUSED_ADMIN, DROPPED}
EXPECTED = {200, 201, 208} | RETRYABLE
RACE_HOSTS = (3, 4)  # extra hosts, each on its own database node

failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL:", what, flush=True)


def cluster(*args):
    return subprocess.run([os.path.join(ROOT, "scripts", "cluster"), *args], check=True,
                          stdout=subprocess.PIPE, text=True).stdout


ENV = dict(line.split("=", 1) for line in cluster("env").splitlines())
HOST_PORTS = [int(p) for p in ENV["host_ports"].split()]
NODE_PORTS = [int(p) for p in ENV["node_ports"].split()]
TERMINAL = {"Pragma": ENV["token"], "Authorization": "Bearer " + ENV["terminal_key"], "X-ZMT-TID": ENV["tid"]}
ADMIN = {"Pragma": ENV["token"], "Authorization": "Bearer " + ENV["admin_tool_key"], "X-ZMT-AID": ENV["admin_token"]}
# refIds of this run: fresh against earlier runs on the same data.
REF_BASE = int(time.time()) % 1_000_000 * 4000
next_ref = iter(range(REF_BASE, REF_BASE + 2 * REQUESTS))


def person(uid):
    return base64.b64encode(f"{uid}.{1000 + uid}".encode()).decode()


def request(port, method, path, headers, body=None):
    """(status, parsed JSON or None); status 0 when no answer came at all."""
    headers = dict(headers)
    data = None
    if body is not None:
        data = json.dumps(body).encode()
        headers["Content-Type"] = "application/json"
    conn = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    try:
        conn.request(method, "/webapi" + path, data, headers)
        reply = conn.getresponse()
        raw = reply.read()
        if reply.status == 503 and not reply.getheader("X-WEBAPI-VER"):
            return reply.status, None  # the balancer's own page: no host could answer
        parsed = json.loads(raw)
        # An error is {"code", "message"}, or the code alone where the text is development-only.
        error = isinstance(parsed, dict) and "code" in parsed and set(parsed) <= {"code", "message"}
        well_formed = reply.getheader("X-WEBAPI-VER") and (reply.status < 400) != error
        if not well_formed:
            print(f"malformed: {method} {path} {reply.status} {dict(reply.getheaders())} {raw[:300]!r}", flush=True)
        return (reply.status if well_formed else -reply.status), parsed
    except (OSError, http.client.HTTPException, ValueError):
        return 0, None
    finally:
        conn.close()


def entrance(uid, ref, date):
    return {"uid": person(uid), "iid": 1, "type": 1, "refId": ref, "date": date}


def now():
    return datetime.datetime.now().replace(microsecond=0)


def count_rows(refs):
    """refId -> rows, on each node by itself, once all are synced."""
    for _ in range(120):
        if all(" Synced," in l for l in cluster("status").splitlines() if l.startswith("node")):
            break
        time.sleep(1)
    counts = []
    lo, hi = min(refs), max(refs)
    for port in NODE_PORTS:
        out = subprocess.run(["mariadb", "--no-defaults", "--protocol=TCP", "-h127.0.0.1", f"-P{port}",
                              "-u" + ENV["db_user"], "-p" + ENV["db_password"], "-N", "-B", ENV["demo"], "-e",
                              f"SELECT refId, COUNT(*) FROM inters_data WHERE refId BETWEEN {lo} AND {hi} GROUP BY refId"],
                             check=True, stdout=subprocess.PIPE, text=True).stdout
        counts.append({int(r): int(c) for r, c in (l.split("\t") for l in out.splitlines())})
    return counts


def read_back():
    # The repeat is answered from the row host 2 reads: 208 and the stored row.
    for _ in range(5):
        body = entrance(2, next(next_ref), now().isoformat())
        first = request(HOST_PORTS[0], "POST", "/entrance", TERMINAL, body)
        again = request(HOST_PORTS[1], "POST", "/entrance", TERMINAL, body)
        check(first[0] == 201 and again == (208, first[1]), f"read-back: host 1 {first}, host 2 {again}")


def race():
    for n, node in zip(RACE_HOSTS, (1, 3)):
        cluster("start-host", str(n), str(node))
    ports = [int(ENV["host_port_base"]) + n for n in RACE_HOSTS]
    refs, outcomes = [], []
    for _ in range(RACES):
        body = entrance(3, next(next_ref), now().isoformat())
        refs.append(body["refId"])
        gate, answers = threading.Barrier(2), {}

        def post(port):
            gate.wait()
            answers[port] = request(port, "POST", "/entrance", TERMINAL, body)[0]

        threads = [threading.Thread(target=post, args=(p,)) for p in ports]
        [t.start() for t in threads]
        [t.join() for t in threads]
        pair = sorted(answers.values())
        outcomes.append(tuple(pair))
        check(pair[0] in (201, 208) or pair[1] in (201, 208), f"race: answers {pair}")
        # A refusal must be one the terminal may simply repeat: the repeat finds the row.
        for port, status in answers.items():
            if status not in (201, 208):
                again = request(port, "POST", "/entrance", TERMINAL, body)[0]
                check(status >= 400 and again == 208, f"race: {status}, then {again} on repeating")
    for n in RACE_HOSTS:
        cluster("kill-host", str(n))
    for node, counts in zip((1, 2, 3), count_rows(refs)):
        check(all(counts.get(r) == 1 for r in refs), f"race: node {node} rows per refId {counts}")
    print("race: answer pairs", {p: outcomes.count(p) for p in set(outcomes)}, flush=True)


def load():
    # Node 2 is a backup of the database balancer, node 1 its writer.
    events = [(150, "stop-node", "2"), (350, "start-node", "2"), (650, "stop-node", "1"), (850, "start-node", "1"),
              (1250, "kill-host", "1"), (1450, "start-host", "1")]
    done, lock = threading.Condition(), threading.Lock()
    state = {"issued": 0, "events_done": 0}
    log, acked, statuses = [], set(), {}
    started = time.monotonic()
    host2_pid = open(os.path.join(ROOT, "var", "cluster", "host2.pid")).read()

    def control():
        for threshold, *command in events:
            with done:
                done.wait_for(lambda: state["issued"] >= threshold)
            t = time.monotonic()
            try:
                cluster(*command)
            except subprocess.CalledProcessError:
                check(False, "load: " + " ".join(command) + " failed")
            log.append((" ".join(command), t - started, time.monotonic() - t))
            with done:
                state["events_done"] += 1
                done.notify_all()

    def client(seed):
        rnd = random.Random(seed)
        while True:
            with done:
                # Each event overlaps at most 300 requests; then the load waits for it to finish.
                done.wait_for(lambda: sum(1 for e in events[state["events_done"]:] if e[0] + 300 <= state["issued"]) == 0)
                if state["issued"] >= REQUESTS:
                    return
                state["issued"] += 1
                done.notify_all()
            kind = rnd.choice(["entrance", "entrance", "people", "groups", "inters", "report"])
            ref = None
            if kind == "entrance":
                with lock:
                    ref = next(next_ref)
                call = ("POST", "/entrance", TERMINAL, entrance(1, ref, now().isoformat()))
            elif kind == "report":
                day = (datetime.date.today() - datetime.timedelta(days=1)).isoformat()
                call = ("GET", f"/report/daily/{day}", ADMIN)
            else:
                call = ("GET", "/" + kind, TERMINAL)
            status, parsed = request(int(ENV["web_port"]), *call)
            if status == 0:
                with lock:
                    statuses[DROPPED] = statuses.get(DROPPED, 0) + 1
                    log.append((f"{kind} got no answer; sent again", time.monotonic() - started, 0))
                status, parsed = request(int(ENV["web_port"]), *call)
            if status == 400 and parsed.get("code") == 500:
                status = REFUSED_WRITE
            elif status == 400 and kind == "report" and parsed.get("code") == 100102:
                status = REFUSED_ADMIN
            with lock:
                statuses[status] = statuses.get(status, 0) + 1
                if status in (201, 208):
                    acked.add(ref)
                elif status != 200:
                    log.append((f"{kind} answered {status}" + (" (balancer)" if parsed is None else f" {parsed}"),
                                time.monotonic() - started, 0))
            time.sleep(0.1)

    threads = [threading.Thread(target=control)] + [threading.Thread(target=client, args=(i,)) for i in range(CLIENTS)]
    [t.start() for t in threads]
    [t.join() for t in threads]
    elapsed = time.monotonic() - started
    refused = sum(n for s, n in statuses.items() if s not in (200, 201, 208))
    print(f"load: {REQUESTS} requests from {CLIENTS} clients in {elapsed:.0f} s, answers {statuses}", flush=True)
    for what, at, took in sorted(log, key=lambda e: e[1]):
        print(f"load: {at:6.1f} s  {what}" + (f" (took {took:.1f} s)" if took else ""), flush=True)
    print(f"load: {refused} refusals", flush=True)
    check(set(statuses) <= EXPECTED, f"load: unexpected answers {statuses}")
    check(refused <= REQUESTS // 50, f"load: {refused} refusals")
    refs = list(range(REF_BASE, next(next_ref)))
    for node, counts in zip((1, 2, 3), count_rows(refs)):
        check(all(counts.get(r) == 1 for r in acked), f"load: node {node} lacks or doubles acknowledged entrances")
        check(all(c == 1 for c in counts.values()), f"load: node {node} doubles entrances")
    check(open(os.path.join(ROOT, "var", "cluster", "host2.pid")).read() == host2_pid, "load: host 2 restarted")
    print(f"load: {len(acked)} acknowledged entrances, each once on every node", flush=True)


def main():
    was_up = subprocess.run([os.path.join(ROOT, "scripts", "cluster"), "status"], stdout=subprocess.DEVNULL).returncode == 0
    cluster("up")
    try:
        read_back()
        race()
        load()
    finally:
        if not was_up:
            cluster("down")
    print(f"{0 if failures else 1} passed, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
