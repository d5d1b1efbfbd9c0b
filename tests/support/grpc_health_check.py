#!/usr/bin/env python3
"""Asks a server's standard gRPC health service with Debian's grpcio, a client the project did
not write. The messages are encoded by hand (Debian 12 has no health-checking package):
HealthCheckRequest{string service = 1}, HealthCheckResponse{ServingStatus status = 1}.

usage: grpc_health_check.py TARGET CA_FILE check|watch [SERVICE]
Prints the status name (SERVING, NOT_SERVING, ...) or the gRPC error code's name."""
import sys

import grpc

NAMES = {0: "UNKNOWN", 1: "SERVING", 2: "NOT_SERVING", 3: "SERVICE_UNKNOWN"}


def request(service):
    data = service.encode()
    return b"" if not data else b"\x0a" + bytes([len(data)]) + data


def status(response):
    if response == b"":
        return NAMES[0]
    if len(response) != 2 or response[0] != 0x08:
        return "MALFORMED " + response.hex()
    return NAMES.get(response[1], "MALFORMED " + response.hex())


def main():
    target, ca_file, mode = sys.argv[1:4]
    service = sys.argv[4] if len(sys.argv) > 4 else ""
    with open(ca_file, "rb") as f:
        credentials = grpc.ssl_channel_credentials(root_certificates=f.read())
    with grpc.secure_channel(target, credentials) as channel:
        try:
            if mode == "check":
                call = channel.unary_unary("/grpc.health.v1.Health/Check")
                print(status(call(request(service), timeout=5)))
            else:
                call = channel.unary_stream("/grpc.health.v1.Health/Watch")
                print(status(next(iter(call(request(service), timeout=5)))))
        except grpc.RpcError as error:
            print(error.code().name)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
