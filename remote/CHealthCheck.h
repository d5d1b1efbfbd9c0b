#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace grpc {
class Channel;
}

// One call of the standard gRPC health service (grpc.health.v1.Health/Check, the whole server)
// and of Ping, neither with a login: what a monitor asks of a quotesd. The health messages are
// two tiny fields, encoded here by hand rather than from a copy of their schema.
class CHealthCheck {
public:
    struct Answer {
        bool reached = false;  // the server answered the health call
        std::string status;    // "SERVING", "NOT_SERVING", "UNKNOWN", ...
        std::string version;   // from Ping, when it answered
        std::string commit;
        long long certificateExpiresMs = 0;  // from Ping; 0: not said
        std::string failure;                 // why it was not reached
        bool serving() const { return reached && status == "SERVING"; }
    };

    // caPem: the certificate to trust, empty for the system's roots.
    static Answer ask(const std::string& server, const std::string& caPem,
                      std::chrono::milliseconds deadline);
    // The health call alone, on a channel that may be open already (no version).
    static Answer check(const std::shared_ptr<grpc::Channel>& channel,
                        std::chrono::milliseconds deadline);
    // A TLS channel of its own (no connection shared with another channel).
    static std::shared_ptr<grpc::Channel> channelTo(const std::string& server,
                                                    const std::string& caPem);

    // The status of a HealthCheckResponse's bytes (field 1, an enum), "" when malformed.
    static std::string statusOf(const std::string& response);
};
