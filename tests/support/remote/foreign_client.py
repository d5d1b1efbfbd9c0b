#!/usr/bin/env python3
"""Attacks quotesd with a client the project did not write: Debian's grpcio and protobuf, with
stubs generated from remote/quotes.proto at run time by grpc_tools.protoc. Runs one scenario
and prints its findings as one JSON object; each call's outcome is the gRPC status's name, or
for an OK status "OK/" and the reply's error kind (ERROR_KIND_UNSPECIFIED: it succeeded).

usage: foreign_client.py TARGET CA_FILE SCENARIO [NAME=VALUE ...]
  no-token       id= entry= [user= password=]  the calls of sources' probes, history, restore
                                                and backup without a token, with a made-up one,
                                                a malformed header and a logged-out token
  stale-restore  user= password= id= port=      reads the history, another login changes the
                                                port, then restores with the revision it read
  rights         user= password= id=            restores (with the stored revision), reads the
                                                history and probes as that account
  disabled       user= password= admin= admin_password= id=
                                                reads, is disabled by the administrator, then
                                                reads and probes with the same token
  flood          user= password= id= [calls=200 channels=4 logins=1]
                                                probes one source from several channels of each
                                                login while another channel pings
  oversized      user= password= id=            huge id lists, absurd ids, huge strings
Exit status 0 when the scenario ran (whatever the server answered), 2 when it could not."""
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
import time

import grpc

DEADLINE_S = 20
HEALTH_CHECK = "/grpc.health.v1.Health/Check"


def generate_stubs(directory):
    """quotes_pb2 and quotes_pb2_grpc from the project's schema. Debian 12's grpc_tools carries
    protoc 3.5, older than proto3's explicit optional: the copy it compiles drops that label,
    which changes no field's number or type (only whether the client tracks a field's presence,
    which these attacks do not read)."""
    schema = os.path.join(os.environ.get("QUOTES_SOURCE_DIR",
                                         os.path.join(os.path.dirname(__file__), "../../..")),
                          "remote", "quotes.proto")
    with open(schema, encoding="utf-8") as f:
        text = re.sub(r"^(\s*)optional\s+", r"\1", f.read(), flags=re.MULTILINE)
    with open(os.path.join(directory, "quotes.proto"), "w", encoding="utf-8") as f:
        f.write(text)
    generated = subprocess.run(
        [sys.executable, "-m", "grpc_tools.protoc", "-I" + directory, "--python_out=" + directory,
         "--grpc_python_out=" + directory, os.path.join(directory, "quotes.proto")],
        capture_output=True, text=True, check=False)
    if generated.returncode != 0:
        sys.exit("grpc_tools.protoc failed: " + generated.stderr)
    sys.path.insert(0, directory)
    import quotes_pb2  # pylint: disable=import-outside-toplevel
    import quotes_pb2_grpc  # pylint: disable=import-outside-toplevel
    return quotes_pb2, quotes_pb2_grpc


class Client:
    """One channel of its own to the server, with the token of a login when it has one."""

    def __init__(self, context, token=None):
        self.pb = context.pb
        self.channel = grpc.secure_channel(context.target, context.credentials, options=[
            ("grpc.max_send_message_length", -1),
            ("grpc.max_receive_message_length", 64 * 1024 * 1024)])
        self.stub = context.pb_grpc.QuotesAdminStub(self.channel)
        self.token = token

    def metadata(self, authorization=None):
        if authorization is not None:
            return [("authorization", authorization)]
        return [("authorization", "Bearer " + self.token)] if self.token else []

    def call(self, method, request, authorization=None):
        """The call's outcome and its reply (None when the status was not OK)."""
        try:
            reply = getattr(self.stub, method)(request, metadata=self.metadata(authorization),
                                               timeout=DEADLINE_S)
        except grpc.RpcError as error:
            return error.code().name, None
        # A reply without an Error (Ping's) answers success.
        kind = reply.error.kind if "error" in reply.DESCRIPTOR.fields_by_name else 0
        return "OK/" + self.pb.ErrorKind.Name(kind), reply

    def outcome(self, method, request, authorization=None):
        return self.call(method, request, authorization)[0]

    def login(self, name, password):
        reply = self.stub.Login(self.pb.LoginRequest(name=name, password=password),
                                timeout=DEADLINE_S)
        if not reply.error.success:
            sys.exit("login of %s failed: %s" % (name, reply.error.message))
        self.token = reply.token
        return self

    def close(self):
        self.channel.close()


class Context:
    def __init__(self, target, ca_file, pb, pb_grpc):
        self.target = target
        with open(ca_file, "rb") as f:
            self.credentials = grpc.ssl_channel_credentials(root_certificates=f.read())
        self.pb = pb
        self.pb_grpc = pb_grpc

    def logged_in(self, name, password):
        return Client(self).login(name, password)


def guarded_calls(pb, source, entry):
    """A request of each newer call as a client would send it, for a source that exists."""
    return [
        ("ProbeSources", pb.ProbeSourcesRequest(ids=[source])),
        ("ProbeStatus", pb.ProbeStatusRequest(subsystem="")),
        ("ProbeHistory", pb.ProbeHistoryRequest(address="127.0.0.1", port=1, since_ms=0)),
        ("SourceHistory", pb.SourceHistoryRequest(id=source)),
        ("RestoreSource", pb.RestoreSourceRequest(id=source, entry=entry, revision=0)),
        ("BackupDatabase", pb.BackupDatabaseRequest()),
    ]


def no_token(context, args):
    pb = context.pb
    stranger = Client(context)
    headers = {"none": None, "made_up": "Bearer " + "5f" * 32, "malformed": "Bearer",
               "basic": "Basic YWRtaW46YWRtaW4="}
    if "user" in args:
        ended = context.logged_in(args["user"], args["password"])
        ended.outcome("Logout", pb.LogoutRequest())
        headers["logged_out"] = "Bearer " + ended.token
        ended.close()
    found = {}
    for method, request in guarded_calls(pb, int(args["id"]), int(args["entry"])):
        found[method] = {name: stranger.outcome(method, request, header)
                         for name, header in headers.items()}
    return found


def stale_restore(context, args):
    pb = context.pb
    source = int(args["id"])
    reader = context.logged_in(args["user"], args["password"])
    read, history = reader.call("SourceHistory", pb.SourceHistoryRequest(id=source))
    if history is None or not history.entries:
        return {"read": read}
    # Another console changes the source after this one read it.
    other = context.logged_in(args["user"], args["password"])
    modified = other.outcome("ModifySource", pb.ModifySourceRequest(
        id=source, patch=pb.SourcePatch(port=int(args["port"]))))
    restored = reader.outcome("RestoreSource", pb.RestoreSourceRequest(
        id=source, entry=history.entries[0].id, revision=history.revision))
    _, after = reader.call("SourceHistory", pb.SourceHistoryRequest(id=source))
    return {"read_revision": history.revision, "modify": modified, "restore": restored,
            "after_revision": after.revision if after else -1,
            "after_entries": len(after.entries) if after else -1}


def rights(context, args):
    pb = context.pb
    source = int(args["id"])
    client = context.logged_in(args["user"], args["password"])
    history_outcome, history = client.call("SourceHistory", pb.SourceHistoryRequest(id=source))
    restore = "NO_HISTORY"
    if history is not None and history.entries:
        restore = client.outcome("RestoreSource", pb.RestoreSourceRequest(
            id=source, entry=history.entries[0].id, revision=history.revision))
    return {"history": history_outcome, "restore": restore,
            "probe": client.outcome("ProbeSources", pb.ProbeSourcesRequest(ids=[source])),
            "backup": client.outcome("BackupDatabase", pb.BackupDatabaseRequest())}


def disabled(context, args):
    pb = context.pb
    source = int(args["id"])
    user = context.logged_in(args["user"], args["password"])
    before = user.outcome("SourceHistory", pb.SourceHistoryRequest(id=source))
    admin = context.logged_in(args["admin"], args["admin_password"])
    disabling = admin.outcome("SetAccountEnabled",
                              pb.SetAccountEnabledRequest(name=args["user"], enabled=False))
    found = {"before": before, "disable": disabling,
             "history": user.outcome("SourceHistory", pb.SourceHistoryRequest(id=source)),
             "probe": user.outcome("ProbeSources", pb.ProbeSourcesRequest(ids=[source])),
             "status": user.outcome("ProbeStatus", pb.ProbeStatusRequest())}
    relogin = Client(context).stub.Login(
        pb.LoginRequest(name=args["user"], password=args["password"]), timeout=DEADLINE_S)
    found["login"] = pb.ErrorKind.Name(relogin.error.kind) if not relogin.error.success else "OK"
    found["enable"] = admin.outcome("SetAccountEnabled",
                                    pb.SetAccountEnabledRequest(name=args["user"], enabled=True))
    return found


class Pinger(threading.Thread):
    """Pings (without a login) and health-checks on a channel of its own until told to stop;
    counts the answers that arrived while a flood ran."""

    def __init__(self, context):
        super().__init__(daemon=True)
        self.client = Client(context)
        self.pb = context.pb
        self.flooding = threading.Event()
        self.stop = threading.Event()
        self.answered_during = threading.Event()
        self.answered = 0
        self.failures = []

    def run(self):
        health = self.client.channel.unary_unary(HEALTH_CHECK)
        while not self.stop.is_set():
            during = self.flooding.is_set()
            try:
                self.client.stub.Ping(self.pb.PingRequest(), timeout=5)
                # HealthCheckRequest{} is empty; the answer's status 1 is SERVING.
                if health(b"", timeout=5) != b"\x08\x01":
                    self.failures.append("health not serving")
                    continue
            except grpc.RpcError as error:
                self.failures.append(error.code().name)
                continue
            self.answered += 1
            if during and self.flooding.is_set():
                self.answered_during.set()


def flood(context, args):
    pb = context.pb
    request = pb.ProbeSourcesRequest(ids=[int(args["id"])])
    calls = int(args.get("calls", 200))
    channels = int(args.get("channels", 4))
    logins = [context.logged_in(args["user"], args["password"])
              for _ in range(int(args.get("logins", 1)))]
    clients = [Client(context, login.token) for login in logins for _ in range(channels)]
    pinger = Pinger(context)
    pinger.start()
    answers, states = {}, {}
    lock = threading.Lock()
    sent = [0]

    def hammer(client):
        # Until the calls are made and another client was answered meanwhile, within a deadline.
        deadline = time.monotonic() + DEADLINE_S
        while time.monotonic() < deadline:
            with lock:
                if sent[0] >= calls and pinger.answered_during.is_set():
                    return
                sent[0] += 1
            outcome, reply = client.call("ProbeSources", request)
            with lock:
                answers[outcome] = answers.get(outcome, 0) + 1
                for result in reply.results if reply else []:
                    states[result.state] = states.get(result.state, 0) + 1

    pinger.flooding.set()
    workers = [threading.Thread(target=hammer, args=(client,)) for client in clients]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    pinger.flooding.clear()
    pinger.stop.set()
    pinger.join()
    return {"calls": sum(answers.values()), "answers": answers, "states": states,
            "answered_during": pinger.answered_during.is_set(), "pings": pinger.answered,
            "ping_failures": pinger.failures}


def timed(client, method, request):
    started = time.monotonic()
    outcome = client.outcome(method, request)
    return {"outcome": outcome, "ms": int((time.monotonic() - started) * 1000)}


def oversized(context, args):
    pb = context.pb
    source = int(args["id"])
    client = context.logged_in(args["user"], args["password"])
    _, history = client.call("SourceHistory", pb.SourceHistoryRequest(id=source))
    entry = history.entries[0].id if history and history.entries else 0
    int31, int63 = 2 ** 31 - 1, 2 ** 63 - 1
    megabytes = "x" * (4 * 1024 * 1024)
    attacks = {
        "probe_million_ids": ("ProbeSources", pb.ProbeSourcesRequest(ids=range(1, 1000001))),
        "probe_million_same": ("ProbeSources", pb.ProbeSourcesRequest(ids=[source] * 1000000)),
        "probe_negative_id": ("ProbeSources", pb.ProbeSourcesRequest(ids=[-1, -(2 ** 31)])),
        "history_negative": ("SourceHistory", pb.SourceHistoryRequest(id=-1)),
        "history_int31": ("SourceHistory", pb.SourceHistoryRequest(id=int31)),
        "history_int63": ("SourceHistory", pb.SourceHistoryRequest(id=int63)),
        "history_int63_min": ("SourceHistory", pb.SourceHistoryRequest(id=-int63 - 1)),
        "restore_negative_id": ("RestoreSource", pb.RestoreSourceRequest(id=-1, entry=1)),
        "restore_int31_id": ("RestoreSource", pb.RestoreSourceRequest(id=int31, entry=1)),
        "restore_int63_id": ("RestoreSource", pb.RestoreSourceRequest(id=int63, entry=1)),
        "restore_int63_entry": ("RestoreSource",
                                pb.RestoreSourceRequest(id=source, entry=int63)),
        "restore_negative_entry": ("RestoreSource",
                                   pb.RestoreSourceRequest(id=source, entry=-1)),
        "restore_negative_revision": ("RestoreSource", pb.RestoreSourceRequest(
            id=source, entry=entry, revision=-int63 - 1)),
        "restore_revision_int63": ("RestoreSource", pb.RestoreSourceRequest(
            id=source, entry=entry, revision=int63)),
        "status_huge_subsystem": ("ProbeStatus", pb.ProbeStatusRequest(subsystem=megabytes)),
        "history_huge_address": ("ProbeHistory", pb.ProbeHistoryRequest(
            address=megabytes, port=1)),
        "history_negative_port": ("ProbeHistory", pb.ProbeHistoryRequest(
            address="127.0.0.1", port=-1)),
        "history_port_beyond": ("ProbeHistory", pb.ProbeHistoryRequest(
            address="127.0.0.1", port=70000)),
        "over_message_limit": ("ProbeHistory", pb.ProbeHistoryRequest(
            address="x" * (17 * 1024 * 1024), port=1)),
    }
    found = {name: timed(client, method, request)
             for name, (method, request) in attacks.items()}
    found["after"] = {"ping": Client(context).outcome("Ping", pb.PingRequest()),
                      "history": client.outcome("SourceHistory",
                                                pb.SourceHistoryRequest(id=source))}
    return found


SCENARIOS = {"no-token": no_token, "stale-restore": stale_restore, "rights": rights,
             "disabled": disabled, "flood": flood, "oversized": oversized}


def main():
    if len(sys.argv) < 4 or sys.argv[3] not in SCENARIOS:
        sys.stderr.write(__doc__)
        return 2
    target, ca_file, scenario = sys.argv[1:4]
    args = dict(argument.split("=", 1) for argument in sys.argv[4:])
    with tempfile.TemporaryDirectory(prefix="foreign-client-") as directory:
        pb, pb_grpc = generate_stubs(directory)
        found = SCENARIOS[scenario](Context(target, ca_file, pb, pb_grpc), args)
    json.dump(found, sys.stdout, sort_keys=True)
    sys.stdout.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
