#include <QApplication>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CQuotesService.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "dialogs/CLevel2QuoteDialog.h"
#include "model/CRevisionConflicts.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "rkservice/CLevel2Token.h"

using namespace Hlx;
using namespace TestIds;

namespace {}  // namespace

// The Level-2 panel against the embedded data service.
class TestLevel2Service : public QObject {
    Q_OBJECT

    std::unique_ptr<EmbeddedService> m_embedded;
    boost::shared_ptr<CQuotesService> m_service;
    ServerMessages m_messages;

    QStringList storedTokens() {
        rkservice::COrinQueryDataReq request;
        request.dataType = kDataLevel2Tokens;
        std::vector<rkservice::IDataPtr> datas;
        QStringList tokens;
        if (!m_service->querySync(CCaller::owner(), CRequestTarget::centre(), request, &datas)
                 .isSuccess())
            return {"<query failed>"};
        for (const auto& data : datas) {
            if (auto token = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(data))
                tokens << QString::fromStdString(token->token);
        }
        return tokens;
    }

    void waitLoaded(CLevel2QuotesManagePanel* panel) {
        COrinClientCenter::instance()->waitForIdle();
        QTRY_VERIFY(panel->loadingMask()->isHidden());
    }

    void answerDialog(const QString& text, int buttonId) {
        QTimer::singleShot(0, this, [=] {
            auto* dialog = qobject_cast<CLevel2QuoteDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            dialog->setTokenText(text);
            QTest::mouseClick(kitButton(dialog, buttonId), Qt::LeftButton);
        });
    }

    // Another operator's change of the token, from the revision stored now.
    void changeElsewhere(int operateType, const std::string& text) {
        rkservice::COrinQueryDataReq query;
        query.dataType = kDataLevel2Tokens;
        std::vector<rkservice::IDataPtr> datas;
        QVERIFY(m_service->querySync(CCaller::owner(), CRequestTarget::centre(), query, &datas)
                    .isSuccess());
        auto record = boost::make_shared<rkservice::CLevel2Token>();
        record->token = text;
        record->setRevision(datas.empty() ? 0 : datas.front()->getRevision());
        rkservice::COperateDataReq request;
        request.dataType = kDataLevel2Tokens;
        request.operateType = operateType;
        request.datas.push_back(record);
        const utils::RKError error =
            m_service->operateSync(CCaller::owner(), CRequestTarget::centre(), request);
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
    }

    Zu::CBaseTableColumnMultiButtonsDelegate* delegate(CLevel2QuotesManagePanel* panel) {
        return qobject_cast<Zu::CBaseTableColumnMultiButtonsDelegate*>(
            panel->table()->columnDelegate(1));
    }

private slots:
    void initTestCase() { COrinClientCenter::instance()->setShowMessageBoxes(false); }

    void init() {
        m_embedded.reset(new EmbeddedService);
        QVERIFY2(m_embedded->isOpen(), qPrintable(m_embedded->error()));
        m_service = m_embedded->service();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        m_messages.clear();
    }

    void cleanup() {
        m_service.reset();
        m_embedded.reset();
    }

    void addEditDelete() {
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 0);
        QVERIFY(panel.addButton()->isEnabled());

        answerDialog("FirstToken01", 1);
        QTest::mouseClick(panel.addButton(), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        QCOMPARE(m_messages[0].title, QString("Level-2 token 修改"));
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, 0), QString("FirstToken01"));
        QVERIFY(!panel.addButton()->isEnabled());
        QCOMPARE(storedTokens(), QStringList{"FirstToken01"});

        waitLoaded(&panel);
        answerDialog("SecondToken02", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_COMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 0);
        QTRY_COMPARE(panel.table()->itemText(0, 0), QString("SecondToken02"));
        QCOMPARE(storedTokens(), QStringList{"SecondToken02"});

        waitLoaded(&panel);
        QVERIFY(delegate(&panel)->clickButton(0, 4));
        QTRY_COMPARE(m_messages.size(), 3);
        QCOMPARE(m_messages[2].type, 0);
        QTRY_COMPARE(panel.table()->rowCount(), 0);
        QTRY_VERIFY(panel.addButton()->isEnabled());
        QVERIFY(storedTokens().isEmpty());
    }

    // The token reaches only a user with a Level-2 right; others see it masked.
    void tokenShownMaskedWithoutALevel2Right() {
        auto token = boost::make_shared<rkservice::CLevel2Token>();
        token->token = "HiddenToken07";
        rkservice::COperateDataReq request;
        request.dataType = kDataLevel2Tokens;
        request.operateType = rkservice::kOperateAdd;
        request.datas = {token};
        QVERIFY(m_service->operateSync(CCaller::owner(), CRequestTarget::centre(), request)
                    .isSuccess());
        TestUsers::setCurrent({}, false);
        {
            CLevel2QuotesManagePanel panel(nullptr);
            waitLoaded(&panel);
            QTRY_COMPARE(panel.table()->rowCount(), 1);
            QCOMPARE(panel.table()->itemText(0, 0), QString("******"));
        }
        TestUsers::setCurrent({12536}, false);
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, 0), QString("HiddenToken07"));
    }

    // Changed by another operator after the panel read it: the row's edit is refused with the
    // conflict's text, the dialog stays open with what the operator typed while the panel shows
    // the stored token underneath, and 确定 again sends the new revision and goes through. A
    // stale delete is refused the same way and shows the stored token again.
    void staleTokenIsRefusedAndShownAgain() {
        changeElsewhere(rkservice::kOperateAdd, "FirstToken01");
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->itemText(0, 0), QString("FirstToken01"));
        changeElsewhere(rkservice::kOperateModify, "OtherToken02");

        answerDialog("MineToken03", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 1);
        QCOMPARE(m_messages[0].text, QString::fromUtf8(CRevisionConflicts::kToken));
        QTRY_COMPARE(panel.table()->itemText(0, 0), QString("OtherToken02"));
        QCOMPARE(storedTokens(), QStringList{"OtherToken02"});
        CLevel2QuoteDialog* dialog = panel.tokenDialog();
        QVERIFY(dialog);
        QTRY_VERIFY(dialog->isVisible());
        QCOMPARE(QApplication::activeModalWidget(), static_cast<QWidget*>(dialog));
        QCOMPARE(dialog->getTokenText(), QString("MineToken03"));

        waitLoaded(&panel);
        QTest::mouseClick(kitButton(dialog, 1), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 0);
        QCOMPARE(storedTokens(), QStringList{"MineToken03"});
        QVERIFY(!dialog->isVisible());
        QTRY_COMPARE(panel.table()->itemText(0, 0), QString("MineToken03"));

        waitLoaded(&panel);
        changeElsewhere(rkservice::kOperateModify, "OtherToken04");
        QVERIFY(delegate(&panel)->clickButton(0, 4));
        QTRY_COMPARE(m_messages.size(), 3);
        QCOMPARE(m_messages[2].text, QString::fromUtf8(CRevisionConflicts::kToken));
        QTRY_COMPARE(panel.table()->itemText(0, 0), QString("OtherToken04"));
        QCOMPARE(storedTokens(), QStringList{"OtherToken04"});
        QVERIFY(!dialog->isVisible());

        waitLoaded(&panel);
        answerDialog("MineToken05", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_COMPARE(m_messages.size(), 4);
        QCOMPARE(m_messages[3].type, 0);
        QCOMPARE(storedTokens(), QStringList{"MineToken05"});
        // A second edit in a row, before anything else is read, is not refused.
        waitLoaded(&panel);
        answerDialog("MineToken06", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_COMPARE(m_messages.size(), 5);
        QCOMPARE(m_messages[4].type, 0);
        QCOMPARE(storedTokens(), QStringList{"MineToken06"});
    }

    void secondTokenIsRefused() {
        // Two panels loaded while no token existed; the second add is refused by the service.
        CLevel2QuotesManagePanel first(nullptr);
        CLevel2QuotesManagePanel second(nullptr);
        waitLoaded(&first);
        waitLoaded(&second);
        answerDialog("OnlyOne", 1);
        QTest::mouseClick(first.addButton(), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 1);
        waitLoaded(&first);

        answerDialog("Another", 1);
        QTest::mouseClick(second.addButton(), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 1);
        QCOMPARE(m_messages[1].title, QString("Level-2 token 修改"));
        QVERIFY(!m_messages[1].text.isEmpty());
        QVERIFY(second.loadingMask()->isHidden());
        // Not reloaded: once every answer and the slots it queued have run, the second panel
        // still shows its empty list.
        for (int round = 0; round < 3; ++round) {
            COrinClientCenter::instance()->waitForIdle();
            QCoreApplication::processEvents();
        }
        QCOMPARE(second.table()->rowCount(), 0);
        QCOMPARE(storedTokens(), QStringList{"OnlyOne"});
    }
};

QTEST_MAIN(TestLevel2Service)
#include "tst_level2service.moc"
