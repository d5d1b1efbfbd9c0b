// A source's history and its restore through quotesd: the history carries each entry's caller
// and fields, a restore is a change of the caller's rights, and quotesctl shows the history and
// restores through the server, saying that the password stays as stored.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "CRemoteAdmin.h"
#include "QuotesctlOnServer.h"
#include "QuotesdLogin.h"
#include "SourceAdds.h"
#include "TestPasswords.h"
#include "rkservice/DataTypeIds.h"

class TestHistoryRemote : public QObject {
    Q_OBJECT

    QuotesdProcess m_server;

    QByteArray quotesctl(const QStringList& arguments, int* code) {
        const QuotesctlRun run =
            QuotesctlOnServer(m_server, QStringLiteral("admin"), kAdminPassword).run(arguments);
        *code = run.code;
        if (run.code != 0)
            qWarning("quotesctl: %s", run.err.constData());
        return run.out;
    }

    int add(CRemoteAdmin& admin, int port) {
        int id = 0;
        const utils::RKError error = addStockSource(admin, "10.1.1.1", port, &id);
        if (!error.isSuccess())
            qWarning("add: %s", error.errorMsg().c_str());
        return id;
    }

private slots:
    void initTestCase() {
        QString output;
        QVERIFY2(startWithViewer(m_server, kAdminPassword, kViewerPassword, &output),
                 qPrintable(output + m_server.log()));
    }

    void cleanupTestCase() {
        if (m_server.isRunning())
            QCOMPARE(m_server.stop(), 0);
    }

    void historyAndRestoreThroughTheServer() {
        std::unique_ptr<CRemoteAdmin> admin = loggedInTo(m_server, "admin", kAdminPassword);
        const int id = add(*admin, 9500);
        Hlx::CSourcePatch patch;
        patch.port = 9600;
        QVERIFY(admin->modifySource(id, patch).isSuccess());

        Hlx::CSourceHistory history;
        QVERIFY(admin->sourceHistory(id, &history).isSuccess());
        QCOMPARE(history.sourceId, id);
        QVERIFY(history.exists);
        QCOMPARE(history.revision, 2LL);
        QCOMPARE(int(history.begin), int(Hlx::CSourceHistory::Begin::Added));
        QCOMPARE(int(history.entries.size()), 2);
        QCOMPARE(history.entries[1].account, std::string("admin"));
        QCOMPARE(history.entries[1].clientAddress, std::string("127.0.0.1"));
        QCOMPARE(history.entries[1].details.front().after.value("port").toInt(), 9600);

        std::unique_ptr<CRemoteAdmin> viewer = loggedInTo(m_server, "viewer", kViewerPassword);
        long long written = 0;
        const utils::RKError refused =
            viewer->restoreSource(id, history.entries[0].id, history.revision, &written);
        QCOMPARE(refused.kind(), utils::ErrorKind::Refused);

        int code = -1;
        const QByteArray said = quotesctl({"sources", "restore", QString::number(id), "--entry",
                                           QString::number(history.entries[0].id)},
                                          &code);
        QCOMPARE(code, 0);
        QVERIFY2(said.contains("password is kept as stored"), said.constData());
        const QJsonObject shown =
            QJsonDocument::fromJson(
                quotesctl({"sources", "history", QString::number(id), "--json"}, &code))
                .object();
        QCOMPARE(code, 0);
        QCOMPARE(shown.value("begin").toString(), QStringLiteral("added"));
        const QJsonArray entries = shown.value("entries").toArray();
        QCOMPARE(entries.size(), 3);
        const QJsonObject restore = entries[2].toObject();
        QCOMPARE(restore.value("action").toString(), QStringLiteral("restore"));
        QCOMPARE(restore.value("summary").toObject().value("from_entry").toDouble(),
                 double(history.entries[0].id));
        QVERIFY(quotesctl({"sources", "history", QString::number(id)}, &code)
                    .contains("port 9600 -> 9500"));
    }
};

QTEST_GUILESS_MAIN(TestHistoryRemote)
#include "tst_history_remote.moc"
