#include "CRemoteEvents.h"

#include "CRecordCodec.h"

CRemoteEvents::CRemoteEvents(Opener opener, Hlx::IQuotesAdmin::ChangeHandler handler,
                             LoginEnded ended)
    : m_opener(std::move(opener)), m_handler(std::move(handler)), m_ended(std::move(ended)) {
    m_thread = std::thread([this] { run(); });
}

CRemoteEvents::~CRemoteEvents() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
        if (m_context)
            m_context->TryCancel();
    }
    m_stopped.notify_all();
    // A handler that ends its own subscription cannot wait for itself.
    if (m_thread.get_id() == std::this_thread::get_id())
        m_thread.detach();
    else
        m_thread.join();
}

void CRemoteEvents::run() {
    size_t attempt = 0;
    bool reopened = false;
    for (;;) {
        std::shared_ptr<Stub> stub;
        std::string token;
        if (m_opener(attempt, &stub, &token)) {
            const grpc::Status status = stream(stub.get(), token, reopened);
            if (status.error_code() == grpc::StatusCode::UNAUTHENTICATED) {
                if (m_ended)
                    m_ended(token);
                return;
            }
            // CANCELLED: the stream ended (the server stopped it); ABORTED: the server's
            // database did not answer. The same server is asked again, on the same connection.
            const bool sameServer = status.error_code() == grpc::StatusCode::CANCELLED ||
                                    status.error_code() == grpc::StatusCode::ABORTED;
            attempt = sameServer ? 0 : attempt + 1;
        } else {
            ++attempt;
        }
        reopened = true;
        if (!waitBeforeRetry())
            return;
    }
}

grpc::Status CRemoteEvents::stream(Stub* stub, const std::string& token, bool reopened) {
    grpc::ClientContext context;
    context.AddMetadata("authorization", "Bearer " + token);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stop)
            return grpc::Status::CANCELLED;
        m_context = &context;
    }
    std::unique_ptr<grpc::ClientReader<quotes::v1::Event>> reader =
        stub->Events(&context, quotes::v1::EventsRequest());
    quotes::v1::Event event;
    bool listening = false;
    while (reader->Read(&event)) {
        // The first message only says that the server listens now.
        if (!listening) {
            listening = true;
            Hlx::CChangeEvent opened;
            opened.listening = true;
            opened.resync = reopened;
            opened.allIds = reopened;
            m_handler(opened);
            continue;
        }
        m_handler(CRecordCodec::decodeChange(event));
    }
    const grpc::Status status = reader->Finish();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_context = nullptr;
    return status;
}

bool CRemoteEvents::waitBeforeRetry() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_stopped.wait_for(lock, std::chrono::milliseconds(kRetryMs),
                               [this] { return m_stop; });
}
