// No silent overwrite: every quote source, each sub-system's whole-quote settings and the Level-2
// token carry a revision that each change advances; a modify or delete sends back the revision
// it read, and one made from an older read is refused as a conflict, recorded, and changes
// nothing.

#include <QtTest>

#include "CCaller.h"
#include "CQuotesService.h"
#include "Hlx/CSourcePatch.h"
#include "PostgresCluster.h"
#include "RecordBuilders.h"
#include "ServiceResults.h"
#include "TestDatabases.h"
#include "model/CRevisionConflicts.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/DataTypeIds.h"

namespace {

const int kStocks = 10000;

QString errorText(const utils::RKError& error) {
    return QString::fromStdString(error.errorMsg());
}

void verifyConflict(const utils::RKError& error, const char* text) {
    QCOMPARE(errorText(error), QString::fromUtf8(text));
    QCOMPARE(error.kind(), utils::ErrorKind::Conflict);
}

}  // namespace

class TestRevisions : public QObject {
    Q_OBJECT

public:
    explicit TestRevisions(PostgresCluster* postgres = nullptr, QString postgresDown = QString())
        : m_databases(QStringLiteral("revisions"), postgres, std::move(postgresDown)) {}

private:
    TestDatabases m_databases;
    boost::shared_ptr<CQuotesService> m_service;

    // Two operators, each in a session of its own.
    CCaller operatorA() { return CCaller::user(*storedUser(*m_service, "admin")).inSession("a"); }
    CCaller operatorB() { return CCaller::user(*storedUser(*m_service, "admin")).inSession("b"); }

    std::vector<rkservice::IDataPtr> read(
        const CCaller& caller, int dataType,
        const Hlx::CRequestTarget& target = Hlx::CRequestTarget::centre()) {
        rkservice::COrinQueryDataReq request;
        request.dataType = dataType;
        std::vector<rkservice::IDataPtr> datas;
        const utils::RKError error = m_service->querySync(caller, target, request, &datas);
        if (!error.isSuccess())
            qWarning("query: %s", error.errorMsg().c_str());
        return datas;
    }

    // The source with the id as the caller reads it now (a copy the caller may change).
    rkservice::COrinQuoterSourceInfoPtr source(const CCaller& caller, int id) {
        for (const auto& data : read(caller, rkservice::kDataQuoteSources)) {
            auto found = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (found && found->m_nId == id)
                return boost::make_shared<rkservice::COrinQuoterSourceInfo>(*found);
        }
        return nullptr;
    }

    utils::RKError operate(const CCaller& caller, int dataType, int operateType,
                           const std::vector<rkservice::IDataPtr>& datas,
                           bson::BSONObj* result = nullptr,
                           const Hlx::CRequestTarget& target = Hlx::CRequestTarget::centre()) {
        rkservice::COperateDataReq request;
        request.dataType = dataType;
        request.operateType = operateType;
        request.datas = datas;
        return m_service->operateSync(caller, target, request, result);
    }

    int add(int port) {
        bson::BSONObj result;
        const utils::RKError error =
            operate(CCaller::owner(), rkservice::kDataQuoteSources, rkservice::kOperateAdd,
                    {RecordBuilders::source(0, kStocks, 2, "192.0.2.1", port, "sys1")}, &result);
        if (!error.isSuccess())
            qWarning("add: %s", error.errorMsg().c_str());
        return QString::fromStdString(result.getStringField("ids")).toInt();
    }

    Hlx::CAuditEntry newestEntry() {
        std::vector<Hlx::CAuditEntry> entries;
        Hlx::CAuditFilter filter;
        filter.limit = 1;
        m_service->auditEntries(CCaller::owner(), filter, &entries).isSuccess();
        return entries.empty() ? Hlx::CAuditEntry() : entries.front();
    }

    rkservice::CGlobalFeaturePermissionInfoPtr wholeQuote(const CCaller& caller) {
        const auto datas =
            read(caller, rkservice::kDataGlobalPermission, Hlx::CRequestTarget::subsystem("sys1"));
        return datas.empty()
                   ? nullptr
                   : boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>(
                         dynamic_cast<rkservice::CGlobalFeaturePermissionInfo&>(*datas.front()));
    }

    utils::RKError saveWholeQuote(const CCaller& caller,
                                  const rkservice::CGlobalFeaturePermissionInfoPtr& record,
                                  bson::BSONObj* result = nullptr) {
        return operate(caller, rkservice::kDataGlobalPermission, rkservice::kOperateSaveWholeQuote,
                       {record}, result, Hlx::CRequestTarget::subsystem("sys1"));
    }

    rkservice::IDataPtr token(const CCaller& caller) {
        const auto datas = read(caller, rkservice::kDataLevel2Tokens);
        return datas.empty() ? nullptr : datas.front();
    }

    static rkservice::IDataPtr tokenRecord(const std::string& text, long long revision) {
        auto record = RecordBuilders::token(text);
        record->setRevision(revision);
        return record;
    }

private slots:
    void initTestCase() { m_databases.unavailable(); }

    void init() {
        const CServiceOptions options = m_databases.fresh();
        QString error;
        m_service = CQuotesService::open(options, &error);
        QVERIFY2(m_service, qPrintable(error));
    }

    void cleanup() { m_service.reset(); }

    // A opens the source; B changes its user name; A changes only the port from what it read:
    // refused, nothing changes, the refusal is in the trail. Read again, A's change goes through
    // and both changes are kept.
    void staleModifyIsRefusedAndChangesNothing() {
        const int id = add(9000);
        const auto seenByA = source(operatorA(), id);
        const auto seenByB = source(operatorB(), id);
        QVERIFY(seenByA && seenByB);
        QCOMPARE(seenByA->getRevision(), 1LL);
        seenByB->m_strUserName = "bob";
        QVERIFY_OK(operate(operatorB(), rkservice::kDataQuoteSources, rkservice::kOperateModify,
                           {seenByB}));

        seenByA->m_nPort = 9100;
        verifyConflict(operate(operatorA(), rkservice::kDataQuoteSources, rkservice::kOperateModify,
                               {seenByA}),
                       CRevisionConflicts::kSource);
        const auto stored = source(CCaller::owner(), id);
        QCOMPARE(stored->m_strUserName, std::string("bob"));
        QCOMPARE(stored->m_nPort, 9000);
        QCOMPARE(stored->getRevision(), 2LL);
        const Hlx::CAuditEntry refusal = newestEntry();
        QCOMPARE(refusal.error, std::string(CRevisionConflicts::kSource));
        QCOMPARE(refusal.action, std::string("modify"));

        const auto again = source(operatorA(), id);
        again->m_nPort = 9100;
        QVERIFY_OK(
            operate(operatorA(), rkservice::kDataQuoteSources, rkservice::kOperateModify, {again}));
        QCOMPARE(source(CCaller::owner(), id)->m_strUserName, std::string("bob"));
        QCOMPARE(source(CCaller::owner(), id)->m_nPort, 9100);
    }

    // A client that read the latest revision is not refused, and the answer carries the new
    // revision, so that a second change in a row needs no read in between.
    void latestRevisionPassesAndTheAnswerCarriesTheNext() {
        const int id = add(9000);
        auto record = source(operatorA(), id);
        for (int port = 9001; port <= 9003; ++port) {
            record->m_nPort = port;
            bson::BSONObj result;
            QVERIFY_OK(operate(operatorA(), rkservice::kDataQuoteSources, rkservice::kOperateModify,
                               {record}, &result));
            const long long next = std::stoll(result.getStringField("revisions"));
            QCOMPARE(next, record->getRevision() + 1);
            record->setRevision(next);
        }
        QCOMPARE(source(CCaller::owner(), id)->m_nPort, 9003);
        QCOMPARE(source(CCaller::owner(), id)->getRevision(), 4LL);
    }

    void modifyOrDeleteWithoutRevisionIsRefused() {
        const int id = add(9000);
        auto record = source(operatorA(), id);
        record->setRevision(0);
        record->m_nPort = 9100;
        for (int op : {rkservice::kOperateModify, rkservice::kOperateDelete}) {
            const utils::RKError error =
                operate(operatorA(), rkservice::kDataQuoteSources, op, {record});
            QCOMPARE(errorText(error), QString::fromUtf8(CRevisionConflicts::kMissing));
            QCOMPARE(error.kind(), utils::ErrorKind::Invalid);
        }
        QCOMPARE(source(CCaller::owner(), id)->m_nPort, 9000);
        // An add needs none.
        QVERIFY(add(9001) > 0);
    }

    // A batch delete (全部删除) with one row changed since it was read is refused whole.
    void staleDeleteRefusesTheWholeBatch() {
        const int first = add(9000);
        const int second = add(9001);
        const auto one = source(operatorA(), first);
        const auto two = source(operatorA(), second);
        auto changed = source(operatorB(), second);
        changed->m_strUserName = "bob";
        QVERIFY_OK(operate(operatorB(), rkservice::kDataQuoteSources, rkservice::kOperateModify,
                           {changed}));
        verifyConflict(operate(operatorA(), rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                               {one, two}),
                       CRevisionConflicts::kSource);
        QVERIFY(source(CCaller::owner(), first));
        QVERIFY(source(CCaller::owner(), second));
        QCOMPARE(newestEntry().error, std::string(CRevisionConflicts::kSource));
        QVERIFY_OK(operate(operatorA(), rkservice::kDataQuoteSources, rkservice::kOperateDelete,
                           {source(operatorA(), first), source(operatorA(), second)}));
        QVERIFY(!source(CCaller::owner(), first));
    }

    // A patch (quotesctl sources modify) needs no revision; --if-revision makes it conditional.
    void conditionalPatch() {
        const int id = add(9000);
        Hlx::CSourcePatch patch;
        patch.port = 9100;
        QVERIFY_OK(m_service->modifySource(operatorA(), id, patch));
        patch.port = 9200;
        patch.ifRevision = 1;
        verifyConflict(m_service->modifySource(operatorA(), id, patch),
                       CRevisionConflicts::kSource);
        QCOMPARE(source(CCaller::owner(), id)->m_nPort, 9100);
        patch.ifRevision = 2;
        QVERIFY_OK(m_service->modifySource(operatorA(), id, patch));
        QCOMPARE(source(CCaller::owner(), id)->m_nPort, 9200);
        QCOMPARE(source(CCaller::owner(), id)->getRevision(), 3LL);
    }

    // Two saves in a row, each with the revision the one before answered, both go through; a
    // save from an older read is refused and leaves the settings as stored.
    void wholeQuoteSavesInARowAndStaleOnes() {
        const auto held = wholeQuote(operatorA());
        const auto other = wholeQuote(operatorB());
        QVERIFY(held && other);
        for (bool enabled : {true, false}) {
            held->m_wholeQuote->setEnabled("HGT", enabled);
            bson::BSONObj result;
            QVERIFY_OK(saveWholeQuote(operatorA(), held, &result));
            held->setRevision(std::stoll(result.getStringField("revisions")));
        }
        QCOMPARE(held->getRevision(), 3LL);
        other->m_wholeQuote->setEnabled("HGT", true);
        verifyConflict(saveWholeQuote(operatorB(), other), CRevisionConflicts::kWholeQuote);
        QVERIFY(!wholeQuote(CCaller::owner())->m_wholeQuote->isEnabled("HGT"));
        QCOMPARE(newestEntry().error, std::string(CRevisionConflicts::kWholeQuote));
        other->setRevision(0);
        QCOMPARE(errorText(saveWholeQuote(operatorB(), other)),
                 QString::fromUtf8(CRevisionConflicts::kMissing));
    }

    void level2TokenRevisions() {
        bson::BSONObj result;
        QVERIFY_OK(operate(operatorA(), rkservice::kDataLevel2Tokens, rkservice::kOperateAdd,
                           {tokenRecord("abc123", 0)}, &result));
        QCOMPARE(result.getStringField("revisions"), std::string("1"));
        const long long seenByA = token(operatorA())->getRevision();
        QVERIFY_OK(operate(operatorB(), rkservice::kDataLevel2Tokens, rkservice::kOperateModify,
                           {tokenRecord("def456", token(operatorB())->getRevision())}));
        verifyConflict(operate(operatorA(), rkservice::kDataLevel2Tokens, rkservice::kOperateModify,
                               {tokenRecord("ghi789", seenByA)}),
                       CRevisionConflicts::kToken);
        verifyConflict(operate(operatorA(), rkservice::kDataLevel2Tokens, rkservice::kOperateDelete,
                               {tokenRecord("def456", seenByA)}),
                       CRevisionConflicts::kToken);
        QCOMPARE(dynamic_cast<rkservice::CLevel2Token&>(*token(CCaller::owner())).token,
                 std::string("def456"));
        QCOMPARE(errorText(operate(operatorA(), rkservice::kDataLevel2Tokens,
                                   rkservice::kOperateModify, {tokenRecord("ghi789", 0)})),
                 QString::fromUtf8(CRevisionConflicts::kMissing));
        QVERIFY_OK(operate(operatorA(), rkservice::kDataLevel2Tokens, rkservice::kOperateDelete,
                           {tokenRecord("def456", token(operatorA())->getRevision())}));
        QVERIFY(!token(CCaller::owner()));
    }
};

class TestRevisionsPostgres : public TestRevisions {
    Q_OBJECT

public:
    TestRevisionsPostgres(PostgresCluster* postgres, const QString& down)
        : TestRevisions(postgres, down) {}
};

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    return TestDatabases::runBoth<TestRevisions, TestRevisionsPostgres>(argc, argv);
}
#include "tst_revisions.moc"
