#pragma once

#include <QString>
#include <QStringList>

// TLS seen from outside a server on loopback: a plain OpenSSL client (the project's own gRPC
// client would only ever ask what it supports) and OpenSSL's command-line client, a client the
// project did not write.
namespace TlsProbe {

// The outcome of a handshake limited to the versions given (OpenSSL's TLS1_2_VERSION...), no
// certificate check, so that only the server can refuse. Empty when it succeeds.
QString handshake(int port, int minVersion, int maxVersion);

// The SHA-256 fingerprint ("AB:01:...") of the certificate the server presents to a new
// connection; empty when the handshake fails.
QString servedFingerprint(int port);

// Whether `openssl s_client` with these arguments completes a handshake with the server.
bool opensslConnects(int port, const QStringList& arguments);

// What the server offers, proved with openssl s_client: an empty list when it accepts TLS 1.2
// and 1.3, refuses 1.0 and 1.1, and accepts no TLS 1.2 cipher suite without AEAD; else the
// faults found.
QStringList offerFaults(int port);

}  // namespace TlsProbe
