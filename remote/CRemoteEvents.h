#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Hlx/IQuotesAdmin.h"
#include "quotes.grpc.pb.h"

// The client's side of the event stream: a thread that keeps one Events call open to a server,
// hands each change to the handler, and after a failure opens the call again (on the next
// server). The changes of the gap are unknown, so a reopened stream starts with a resync event.
// The stream ends for good when the server ends the login.
class CRemoteEvents {
public:
    using Stub = quotes::v1::QuotesAdmin::Stub;
    // The stub and token of the attempt-th try (0 after a success); false when there is none
    // (not logged in, client closed).
    using Opener =
        std::function<bool(size_t attempt, std::shared_ptr<Stub>* stub, std::string* token)>;
    // Told once, with the stream's token, when the server ends that login.
    using LoginEnded = std::function<void(const std::string& token)>;

    static constexpr int kRetryMs = 1000;

    CRemoteEvents(Opener opener, Hlx::IQuotesAdmin::ChangeHandler handler, LoginEnded ended);
    // Cancels the call and waits for the thread (and a delivery in progress).
    ~CRemoteEvents();

    CRemoteEvents(const CRemoteEvents&) = delete;
    CRemoteEvents& operator=(const CRemoteEvents&) = delete;

private:
    void run();
    // One call, until it fails or is cancelled; whether changes may have been missed before it.
    grpc::Status stream(Stub* stub, const std::string& token, bool reopened);
    bool waitBeforeRetry();

    Opener m_opener;
    Hlx::IQuotesAdmin::ChangeHandler m_handler;
    LoginEnded m_ended;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stop = false;
    grpc::ClientContext* m_context = nullptr;
    std::thread m_thread;
};
