#include "CStatusReader.h"

#include <QThreadPool>
#include <exception>
#include <mutex>

#include "Hlx/IAuditTransfer.h"

// The reader as the worker sees it: null once the reader is gone.
struct CStatusReader::Guard {
    std::mutex mutex;
    CStatusReader* reader = nullptr;
};

namespace {

std::string readDatabase(Hlx::IAuditTransfer& admin) {
    Hlx::CServiceStatus status;
    try {
        admin.status(&status);
    } catch (const std::exception&) {
        // A worker must not end the process; the window then names no database.
        return std::string();
    }
    return status.database;
}

}  // namespace

CStatusReader::CStatusReader(boost::shared_ptr<Hlx::IAuditTransfer> admin, QObject* parent)
    : QObject(parent), m_admin(std::move(admin)), m_guard(std::make_shared<Guard>()) {
    m_guard->reader = this;
}

CStatusReader::~CStatusReader() {
    // Waits for an answer being emitted right now; none comes after.
    std::lock_guard<std::mutex> lock(m_guard->mutex);
    m_guard->reader = nullptr;
}

void CStatusReader::start() {
    const std::shared_ptr<Guard> guard = m_guard;
    const boost::shared_ptr<Hlx::IAuditTransfer> admin = m_admin;
    QThreadPool::globalInstance()->start([guard, admin] {
        const QString database = QString::fromStdString(readDatabase(*admin));
        // Emitted on this worker thread: receivers on the user-interface thread get it queued,
        // and Qt drops it with a receiver destroyed before it arrives.
        std::lock_guard<std::mutex> lock(guard->mutex);
        if (guard->reader)
            emit guard->reader->databaseRead(database);
    });
}
