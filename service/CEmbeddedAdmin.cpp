#include "CEmbeddedAdmin.h"

#include "CChangeFeed.h"

CEmbeddedAdmin::CEmbeddedAdmin(boost::shared_ptr<CQuotesService> service, CallerProvider caller)
    : m_service(std::move(service)), m_caller(std::move(caller)) {}

boost::shared_ptr<CEmbeddedAdmin> CEmbeddedAdmin::asOwner(
    boost::shared_ptr<CQuotesService> service) {
    return boost::shared_ptr<CEmbeddedAdmin>(
        new CEmbeddedAdmin(std::move(service), [] { return CCaller::localOwner(); }));
}

std::shared_ptr<void> CEmbeddedAdmin::watchChanges(const ChangeHandler& handler) {
    // The session is asked here, on the caller's thread; the feed calls from its own.
    const std::string session = m_caller().session();
    return m_service->changes().subscribe([handler, session](const Hlx::CChangeEvent& change) {
        Hlx::CChangeEvent event = change;
        event.own = !session.empty() && event.session == session;
        handler(event);
    });
}
