// A source's history from the audit trail, and its restore to the fields an entry left: a
// modify with the rights and revision check of any modify, recorded as "restore"; a deleted
// source comes back with its id and no password; where the history begins after a prune or an
// import.

#include <QDateTime>
#include <QtTest>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CSourcePatch.h"
#include "PostgresCluster.h"
#include "RecordBuilders.h"
#include "ServiceResults.h"
#include "TestDatabases.h"
#include "model/CRevisionConflicts.h"
#include "rkservice/DataTypeIds.h"

namespace {

const int kStocks = 10000;
using Begin = Hlx::CSourceHistory::Begin;

Hlx::CSourcePatch portAndPassword(int port, const std::string& password) {
    Hlx::CSourcePatch patch;
    patch.port = port;
    patch.userName = "user" + std::to_string(port);
    patch.password = password;
    return patch;
}

}  // namespace

class TestHistory : public QObject {
    Q_OBJECT

public:
    explicit TestHistory(PostgresCluster* postgres = nullptr, QString postgresDown = QString())
        : m_databases(QStringLiteral("history"), postgres, std::move(postgresDown)) {}

private:
    TestDatabases m_databases;
    boost::shared_ptr<CQuotesService> m_service;

    int add(int port) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        request.datas = {RecordBuilders::source(0, kStocks, 2, "192.0.2.1", port, "sys1")};
        bson::BSONObj result;
        const utils::RKError error = m_service->operateSync(
            CCaller::owner(), Hlx::CRequestTarget::centre(), request, &result);
        if (!error.isSuccess())
            qWarning("add: %s", error.errorMsg().c_str());
        return QString::fromStdString(result.getStringField("ids")).toInt();
    }

    rkservice::COrinQuoterSourceInfoPtr stored(int id) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        m_service->querySync(CCaller::owner(), Hlx::CRequestTarget::centre(), request, &datas);
        for (const auto& data : datas) {
            auto found = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (found && found->m_nId == id)
                return found;
        }
        return nullptr;
    }

    utils::RKError remove(int id) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateDelete;
        auto record = stored(id);
        request.datas = {record};
        return m_service->operateSync(CCaller::owner(), Hlx::CRequestTarget::centre(), request);
    }

    Hlx::CSourceHistory history(int id) {
        Hlx::CSourceHistory result;
        const utils::RKError error = m_service->sourceHistory(CCaller::owner(), id, &result);
        if (!error.isSuccess())
            qWarning("history: %s", error.errorMsg().c_str());
        return result;
    }

    Hlx::CAuditEntry newestEntry() {
        std::vector<Hlx::CAuditEntry> entries;
        Hlx::CAuditFilter filter;
        filter.limit = 1;
        m_service->auditEntries(CCaller::owner(), filter, &entries);
        return entries.empty() ? Hlx::CAuditEntry() : entries.front();
    }

private slots:
    void initTestCase() { m_databases.unavailable(); }

    void init() {
        QString error;
        m_service = CQuotesService::open(m_databases.fresh(), &error);
        QVERIFY2(m_service, qPrintable(error));
    }

    void cleanup() { m_service.reset(); }

    // Each change of the source, oldest first, with its fields before and after and the caller;
    // the password only masked, with whether it changed; another source's changes stay out.
    void historyListsTheSourcesOwnChanges() {
        const int id = add(9000);
        const int other = add(9001);
        QVERIFY_OK(m_service->modifySource(CCaller::owner().from("198.51.100.7"), id,
                                           portAndPassword(9100, "secret2")));
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), other, portAndPassword(9200, "x")));

        const Hlx::CSourceHistory h = history(id);
        QCOMPARE(h.sourceId, id);
        QVERIFY(h.exists);
        QCOMPARE(h.revision, 2LL);
        QCOMPARE(int(h.begin), int(Begin::Added));
        QCOMPARE(int(h.entries.size()), 2);
        QCOMPARE(h.entries[0].action, std::string("add"));
        QCOMPARE(h.entries[1].action, std::string("modify"));
        QCOMPARE(h.entries[1].clientAddress, std::string("198.51.100.7"));
        QCOMPARE(int(h.entries[1].details.size()), 1);
        const Hlx::CAuditEntry::Detail& change = h.entries[1].details.front();
        QCOMPARE(change.before.value("port").toInt(), 9000);
        QCOMPARE(change.after.value("port").toInt(), 9100);
        QCOMPARE(change.after.value("password").toString(), QStringLiteral("******"));
        QVERIFY(change.after.value("password_changed").toBool());
        QVERIFY(!QJsonDocument(change.after).toJson().contains("secret2"));
    }

    // Back to the fields after the add: port and user as they were, the password as stored now
    // (the trail keeps none), a new revision, recorded as restore naming the entry.
    void restoreSetsTheFieldsBackAndKeepsThePassword() {
        const int id = add(9000);
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), id, portAndPassword(9100, "newpw")));
        const long long addEntry = history(id).entries.front().id;
        long long written = 0;
        QVERIFY_OK(m_service->restoreSource(CCaller::owner(), id, addEntry, 2, &written));
        QCOMPARE(written, 3LL);
        const auto now = stored(id);
        QCOMPARE(now->m_nPort, 9000);
        QCOMPARE(now->m_strUserName, "user0");
        QCOMPARE(now->m_strPassword, std::string("newpw"));
        QCOMPARE(now->getRevision(), 3LL);

        const Hlx::CAuditEntry entry = newestEntry();
        QCOMPARE(entry.action, std::string("restore"));
        QCOMPARE(entry.dataType, std::string("quote_source"));
        QCOMPARE(entry.ids, std::to_string(id));
        QCOMPARE(entry.subsystem, std::string("sys1"));
        QCOMPARE(entry.summary.value("from_entry").toVariant().toLongLong(), addEntry);
        QCOMPARE(entry.details.front().after.value("port").toInt(), 9000);
        QVERIFY(!entry.details.front().after.value("password_changed").toBool());
        QCOMPARE(history(id).entries.back().action, std::string("restore"));
    }

    // A restore from an older read is refused as any modify would be; one without the right
    // to modify is refused; both change nothing and are recorded.
    void restoreChecksRevisionAndRights() {
        const int id = add(9000);
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), id, portAndPassword(9100, "p")));
        const long long addEntry = history(id).entries.front().id;
        long long written = 0;
        const utils::RKError stale =
            m_service->restoreSource(CCaller::owner(), id, addEntry, 1, &written);
        QCOMPARE(stale.kind(), utils::ErrorKind::Conflict);
        QCOMPARE(stale.errorMsg(), std::string(CRevisionConflicts::kSource));
        QCOMPARE(newestEntry().action, std::string("restore"));
        QCOMPARE(newestEntry().error, std::string(CRevisionConflicts::kSource));

        const utils::RKError refused = m_service->restoreSource(
            CCaller::user("viewer", {}).inSession("v"), id, addEntry, 2, &written);
        QVERIFY(!refused.isSuccess());
        QCOMPARE(refused.kind(), utils::ErrorKind::Refused);
        QCOMPARE(stored(id)->m_nPort, 9100);
        QCOMPARE(stored(id)->getRevision(), 2LL);
    }

    // An id no source ever had has no history: not found, as a probe or a restore of it.
    // A restore naming a revision below 1 names none it could have read.
    void unknownSourceAndRevisionBelowOneAreRefused() {
        const int id = add(9000);
        Hlx::CSourceHistory result;
        for (int unknown : {id + 1000, -1, 0})
            QCOMPARE(m_service->sourceHistory(CCaller::owner(), unknown, &result).kind(),
                     utils::ErrorKind::NotFound);
        long long written = 0;
        const utils::RKError negative = m_service->restoreSource(
            CCaller::owner(), id, history(id).entries.front().id, -5, &written);
        QCOMPARE(negative.kind(), utils::ErrorKind::Invalid);
        QCOMPARE(stored(id)->getRevision(), 1LL);
    }

    // A deleted source comes back with its former id and fields, without a password; its
    // delete entry itself cannot be restored to.
    void deletedSourceIsAddedAgainWithItsId() {
        const int id = add(9000);
        const int later = add(9001);
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), id, portAndPassword(9100, "pw")));
        QVERIFY_OK(remove(id));
        QVERIFY(!stored(id));
        const Hlx::CSourceHistory h = history(id);
        QVERIFY(!h.exists);
        QCOMPARE(int(h.entries.size()), 3);
        QCOMPARE(h.entries.back().action, std::string("delete"));
        long long written = 0;
        const utils::RKError deleted =
            m_service->restoreSource(CCaller::owner(), id, h.entries.back().id, 0, &written);
        QCOMPARE(deleted.kind(), utils::ErrorKind::Invalid);

        QVERIFY_OK(m_service->restoreSource(CCaller::owner(), id, h.entries[1].id, 0, &written));
        QCOMPARE(written, 1LL);
        const auto back = stored(id);
        QVERIFY(back);
        QCOMPARE(back->m_nPort, 9100);
        QCOMPARE(back->m_strPassword, std::string());
        QCOMPARE(back->getSystemTag(), std::string("sys1"));
        QVERIFY(history(id).exists);
        // The ids go on after the largest ever given, not after the restored one.
        QCOMPARE(add(9002), later + 1);
    }

    // An entry of another source is none of this one's history.
    void entryOfAnotherSourceIsRefused() {
        const int id = add(9000);
        const int other = add(9001);
        long long written = 0;
        const utils::RKError error = m_service->restoreSource(
            CCaller::owner(), id, history(other).entries.front().id, 0, &written);
        QCOMPARE(error.kind(), utils::ErrorKind::NotFound);
    }

    // After a prune the history says where it begins; after an import the entries before it
    // are another content's and no longer this source's history.
    void historyBeginsAtPruneAndImport() {
        const int id = add(9000);
        const long long cut = QDateTime::currentMSecsSinceEpoch() + 1;
        QTRY_VERIFY(QDateTime::currentMSecsSinceEpoch() > cut);
        QVERIFY_OK(m_service->modifySource(CCaller::owner(), id, portAndPassword(9100, "p")));
        int removed = 0;
        QVERIFY_OK(m_service->pruneAudit(CCaller::owner(), cut, &removed));
        Hlx::CSourceHistory h = history(id);
        QCOMPARE(int(h.begin), int(Begin::Pruned));
        QCOMPARE(h.beginMs, cut);
        QCOMPARE(int(h.entries.size()), 1);
        const long long modifyEntry = h.entries.front().id;

        QJsonObject document;
        QVERIFY_OK(m_service->exportDocument(CCaller::owner(), &document));
        QVERIFY_OK(m_service->importDocument(CCaller::owner(), document, {}, nullptr));
        h = history(id);
        QCOMPARE(int(h.begin), int(Begin::Imported));
        QVERIFY(h.beginEntry > modifyEntry);
        QVERIFY(h.entries.empty());
        QVERIFY(h.exists);
        long long written = 0;
        QVERIFY(
            !m_service->restoreSource(CCaller::owner(), id, modifyEntry, 0, &written).isSuccess());
    }
};

class TestHistoryPostgres : public TestHistory {
    Q_OBJECT

public:
    TestHistoryPostgres(PostgresCluster* postgres, const QString& down)
        : TestHistory(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestHistory, TestHistoryPostgres>(argc, argv);
}
#include "tst_history.moc"
