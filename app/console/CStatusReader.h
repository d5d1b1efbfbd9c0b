#pragma once

#include <QObject>
#include <QString>
#include <boost/shared_ptr.hpp>
#include <memory>

namespace Hlx {
class IAuditTransfer;
}

// Asks the service for its status on a worker thread, so that a slow or unreachable server never
// blocks the window. The answer is the queued signal databaseRead, delivered on the receiver's
// thread; once the reader is destroyed no answer is given.
class CStatusReader : public QObject {
    Q_OBJECT
public:
    CStatusReader(boost::shared_ptr<Hlx::IAuditTransfer> admin, QObject* parent);
    ~CStatusReader() override;

    void start();

    struct Guard;

signals:
    // The database the service works on; empty when the service did not tell.
    void databaseRead(const QString& database);

private:
    boost::shared_ptr<Hlx::IAuditTransfer> m_admin;
    std::shared_ptr<Guard> m_guard;
};
