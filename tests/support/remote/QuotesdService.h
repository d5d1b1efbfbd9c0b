#pragma once

#include <boost/shared_ptr.hpp>
#include <map>

#include "QuotesdProcess.h"
#include "ServiceUnderTest.h"

class CRemoteAdmin;

// quotesd as the data service of a test: a real server process, the seeded accounts with
// passwords, and the client centre asking it through the remote client, as the console does.
class QuotesdService : public ServiceUnderTest {
public:
    QuotesdService();
    ~QuotesdService() override;

    bool isOpen() const override { return m_open; }
    QString error() const override { return m_error; }
    void restart() override;
    bool loginAs(const std::string& name) override;
    Hlx::IQuotesAdmin& administrator() override;

    static QString passwordOf(const std::string& account);

private:
    QuotesdProcess m_server;
    boost::shared_ptr<CRemoteAdmin> m_console;
    boost::shared_ptr<CRemoteAdmin> m_administrator;
    QString m_error;
    bool m_open = false;
};
