// The console asks the service which database it works on without blocking its window: the
// status is read on a worker thread (on quotesd it is a network call), the window keeps
// handling events meanwhile, the answer shows when it comes, and an answer that comes after the
// window is gone does nothing.

#include <malloc.h>

#include <QLabel>
#include <QTemporaryDir>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QtTest>
#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "CConsoleWindow.h"
#include "CEmbeddedAdmin.h"
#include "EmbeddedService.h"

// Freed memory is scribbled over and held back for a while before it is reused, so that an
// answer that reaches a destroyed reader or window fails at once instead of reading whatever
// remains there (what a sanitizer build does, in every build).
namespace {

constexpr std::size_t kHeldBlocks = 1 << 16;
std::atomic_flag g_heldLock = ATOMIC_FLAG_INIT;
void* g_held[kHeldBlocks];
std::size_t g_nextHeld = 0;

}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    if (!memory)
        return;
    std::memset(memory, 0xdd, malloc_usable_size(memory));
    while (g_heldLock.test_and_set(std::memory_order_acquire)) {
    }
    void* oldest = g_held[g_nextHeld];
    g_held[g_nextHeld] = memory;
    g_nextHeld = (g_nextHeld + 1) % kHeldBlocks;
    g_heldLock.clear(std::memory_order_release);
    std::free(oldest);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

// The embedded service, but its status is held until the test releases it (a slow server), and
// the thread that asked is recorded.
class HeldStatusAdmin : public CEmbeddedAdmin {
public:
    explicit HeldStatusAdmin(const EmbeddedService& embedded)
        : CEmbeddedAdmin(embedded.service(), [] { return CCaller::owner(); }) {}

    utils::RKError status(Hlx::CServiceStatus* status) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_askedOn = QThread::currentThread();
        ++m_calls;
        // Bounded: asked on the window's thread, the test sees that thread instead of hanging.
        m_releasedChanged.wait_for(lock, std::chrono::seconds(5), [this] { return m_released; });
        status->database = "held.db";
        ++m_answered;
        return utils::RKError::ok();
    }

    void release() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
        m_releasedChanged.notify_all();
    }

    int calls() const { return m_calls; }
    int answered() const { return m_answered; }
    QThread* askedOn() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_askedOn;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_releasedChanged;
    bool m_released = false;
    QThread* m_askedOn = nullptr;
    std::atomic<int> m_calls{0};
    std::atomic<int> m_answered{0};
};

}  // namespace

class TestConsoleStatus : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    EmbeddedService m_embedded;

    QString settingsFile() const { return m_dir.filePath("console.ini"); }

    static void settle() {
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents();
    }

private slots:
    void statusIsAskedOnAWorkerWhileTheWindowResponds() {
        auto admin = boost::make_shared<HeldStatusAdmin>(m_embedded);
        CConsoleWindow window(admin, settingsFile());
        QTRY_COMPARE(admin->calls(), 1);
        QVERIFY(admin->askedOn() != QThread::currentThread());
        // The window's thread keeps handling events while the server holds the answer.
        bool handled = false;
        QTimer::singleShot(0, &window, [&handled] { handled = true; });
        QTRY_VERIFY(handled);
        auto* database = window.findChild<QLabel*>(QStringLiteral("databaseLabel"));
        QVERIFY(database);
        QVERIFY(database->text().isEmpty());
        admin->release();
        QTRY_COMPARE(database->text(), QString("held.db"));
        settle();
    }

    void anAnswerAfterTheWindowIsGoneDoesNothing() {
        auto admin = boost::make_shared<HeldStatusAdmin>(m_embedded);
        {
            CConsoleWindow window(admin, settingsFile());
            QTRY_COMPARE(admin->calls(), 1);
        }
        admin->release();
        QTRY_COMPARE(admin->answered(), 1);
        settle();
        QCOMPARE(admin->calls(), 1);
    }
};

QTEST_MAIN(TestConsoleStatus)
#include "tst_console_status.moc"
