#pragma once

#include <QString>
#include <string>

namespace Hlx {
class IQuotesAdmin;
}

// The data service a test drives the panels against, installed in the client centre for the
// life of the object: the embedded service, or quotesd over the network.
class ServiceUnderTest {
public:
    virtual ~ServiceUnderTest() = default;

    virtual bool isOpen() const = 0;
    virtual QString error() const = 0;
    // The same data behind a new service (or a restarted server).
    virtual void restart() = 0;
    // Makes a seeded user the current one, as the console does when it logs in.
    virtual bool loginAs(const std::string& name) = 0;
    // Changes made beside the panels, with every right.
    virtual Hlx::IQuotesAdmin& administrator() = 0;
};
