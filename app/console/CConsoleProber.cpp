#include "CConsoleProber.h"

#include "CQuotesService.h"
#include "CSourceProber.h"
#include "CTcpProber.h"

CConsoleProber::CConsoleProber(boost::shared_ptr<CQuotesService> service,
                               std::chrono::milliseconds interval)
    : m_service(std::move(service)), m_interval(interval) {}

CConsoleProber::~CConsoleProber() = default;

void CConsoleProber::setRunning(bool running) {
    if (running == isRunning())
        return;
    if (!running) {
        // Its destructor stops the timer's thread and gives up the database's prober lock.
        m_prober.reset();
        return;
    }
    m_prober = std::make_unique<CSourceProber>(m_service->database());
    m_prober->tcp().setAllowList(m_service->prober().tcp().allowList());
    m_prober->start(m_interval);
}

long long CConsoleProber::rounds() const {
    return m_prober ? m_prober->rounds() : 0;
}
