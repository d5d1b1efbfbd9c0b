#include <QApplication>
#include <QPointer>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "ScriptedBackend.h"
#include "ServerMessages.h"
#include "TestIds.h"
#include "TestUsers.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"
#include "dialogs/CLevel2QuoteDialog.h"
#include "model/CRevisionConflicts.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinQuoterSourceInfo.h"

using namespace Hlx;
using namespace TestIds;

namespace {

rkservice::IDataPtr token(const std::string& text, long long revision = 0) {
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    record->token = text;
    record->setRevision(revision);
    return record;
}

std::string tokenOf(const rkservice::IDataPtr& data) {
    auto record = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(data);
    return record ? record->token : std::string("<not a token>");
}

const QString kTitle = QStringLiteral("Level-2 token 修改");

}  // namespace

class TestLevel2Panel : public QObject {
    Q_OBJECT

    boost::shared_ptr<ScriptedBackend> m_backend;
    ServerMessages m_messages;

    Zu::CBaseTableColumnMultiButtonsDelegate* delegate(CLevel2QuotesManagePanel* panel) {
        return qobject_cast<Zu::CBaseTableColumnMultiButtonsDelegate*>(
            panel->table()->columnDelegate(1));
    }

    // Waits for the load that construction or a refresh started.
    void waitLoaded(CLevel2QuotesManagePanel* panel) {
        COrinClientCenter::instance()->waitForIdle();
        QTRY_VERIFY(panel->loadingMask()->isHidden());
    }

    std::vector<ScriptedBackend::Request> operations() const {
        std::vector<ScriptedBackend::Request> result;
        for (const auto& request : m_backend->requests()) {
            if (!request.isQuery)
                result.push_back(request);
        }
        return result;
    }

    int queryCount() const {
        int count = 0;
        for (const auto& request : m_backend->requests())
            count += request.isQuery ? 1 : 0;
        return count;
    }

    // Answers the token dialog when it comes up: types the text (replacing what it holds when
    // replace is set) and presses a button. seen receives the text it held on opening.
    void answerDialog(const QString& text, int buttonId, QString* seen = nullptr,
                      bool replace = true) {
        QTimer::singleShot(0, this, [=] {
            auto* dialog = qobject_cast<CLevel2QuoteDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            if (seen)
                *seen = dialog->getTokenText();
            if (replace)
                dialog->setTokenText(text);
            QTest::mouseClick(kitButton(dialog, buttonId), Qt::LeftButton);
        });
    }

private slots:
    void initTestCase() { COrinClientCenter::instance()->setShowMessageBoxes(false); }

    void init() {
        m_backend = ScriptedBackend::install();
        TestUsers::setCurrent(TestUsers::allRights(), false);
        m_messages.clear();
    }

    void cleanup() {
        m_backend->setHolding(false);
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
    }

    void layout() {
        CLevel2QuotesManagePanel panel(nullptr);
        QCOMPARE(panel.objectName(), QString("level2quote"));
        QVERIFY(!panel.isFloatingPanel());
        QVERIFY(panel.isClosablePanel());
        QVERIFY(panel.tokenDialog() == nullptr);

        auto* refresh = kitButton(&panel, 0);
        QVERIFY(refresh);
        QCOMPARE(refresh->text(), QString("刷新"));
        QCOMPARE(refresh->size(), QSize(50, 26));
        QVERIFY(panel.addButton());
        QCOMPARE(panel.addButton()->id(), 1);
        QCOMPARE(panel.addButton()->text(), QString("+添加Level-2行情源token"));
        QCOMPARE(panel.addButton()->size(), QSize(150, 26));
        QCOMPARE(panel.maskHost()->size(), QSize(130, 40));
        QCOMPARE(panel.loadingMask()->parentWidget(), static_cast<QWidget*>(panel.maskHost()));
        QVERIFY(panel.loadingMask()->text().isEmpty());
        QCOMPARE(panel.loadingMask()->animationSize(), QSize(150, 45));

        QCOMPARE(panel.table()->layoutId(), 2);
        QCOMPARE(panel.table()->menuFlags(), 255);
        QCOMPARE(panel.table()->tableFlags(), 0);
        QCOMPARE(panel.table()->columnIds(), QVector<int>({0, 1}));
        QCOMPARE(panel.table()->columnHeader(0), QString("Level-2行情token"));
        QCOMPARE(panel.table()->columnHeader(1), QString("操作"));

        panel.resize(600, 400);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QVERIFY(refresh->x() < panel.addButton()->x());
        QVERIFY(panel.addButton()->x() < panel.maskHost()->x());
        QVERIFY(panel.maskHost()->mapTo(&panel, QPoint()).y() <
                panel.table()->mapTo(&panel, QPoint()).y());
        waitLoaded(&panel);
    }

    void noParameters() {
        CLevel2QuotesManagePanel panel(nullptr);
        panel.setParam("anything");
        QVERIFY(panel.param().isEmpty());
        waitLoaded(&panel);
    }

    void loadsOnConstruction() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("AbC123")});
        m_backend->setHolding(true);
        CLevel2QuotesManagePanel panel(nullptr);
        // The mask is up while the query runs.
        QCOMPARE(panel.loadingMask()->attachedTo(), static_cast<QWidget*>(panel.maskHost()));
        QVERIFY(!panel.loadingMask()->isHidden());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        const auto request = m_backend->requests().front();
        QVERIFY(request.isQuery);
        QCOMPARE(request.dataType, kDataLevel2Tokens);
        QVERIFY(request.condition.empty());
        QVERIFY(request.toCentre);
        m_backend->releaseAll();
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QVERIFY(panel.loadingMask()->isHidden());
        QCOMPARE(panel.table()->itemText(0, 0), QString("AbC123"));
        // With a token stored, adding is closed.
        QVERIFY(!panel.addButton()->isEnabled());
        const auto buttons = delegate(&panel)->itemButtons("0");
        QCOMPARE(buttons.size(), 2);
        QCOMPARE(buttons[0].id, 3);
        QCOMPARE(buttons[0].text, QString("编辑"));
        QCOMPARE(buttons[0].type, 1);
        QVERIFY(!buttons[0].flag);
        QVERIFY(buttons[0].extra.isEmpty());
        QCOMPARE(buttons[1].id, 4);
        QCOMPARE(buttons[1].text, QString("删除"));
        QCOMPARE(buttons[1].type, 1);
        QCOMPARE(delegate(&panel)->id(), 1);
    }

    void onlyTokenRecordsAreListedButAllCount() {
        m_backend->setQueryAnswer(
            kDataLevel2Tokens,
            {boost::make_shared<rkservice::COrinQuoterSourceInfo>(), token("T1")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, 0), QString("T1"));
        m_backend->setQueryAnswer(kDataLevel2Tokens,
                                  {boost::make_shared<rkservice::COrinQuoterSourceInfo>()});
        panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::RefreshButton, 0,
                          QString(), nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 0);
        // Any record at all keeps adding closed.
        QVERIFY(!panel.addButton()->isEnabled());
    }

    void routingOfTheQuery() {
        m_backend->setSubsystems({{"sys1", "上海"}, {"sys2", "深圳"}});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QVERIFY(m_backend->requests().back().toCentre);
        panel.switchSystem(2, "sys2");
        m_backend->clearRequests();
        QVERIFY(panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::RefreshButton,
                                  0, QString(), nullptr));
        waitLoaded(&panel);
        QCOMPARE(queryCount(), 1);
        QVERIFY(!m_backend->requests().back().toCentre);
        QCOMPARE(m_backend->requests().back().subsystem, std::string("sys2"));
        QCOMPARE(m_backend->requests().back().dataType, kDataLevel2Tokens);

        // Saves and deletes go to the centre all the same.
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("X1")});
        panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::RefreshButton, 0,
                          QString(), nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        answerDialog("X2", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        COrinClientCenter::instance()->waitForIdle();
        QVERIFY(delegate(&panel)->clickButton(0, 4));
        COrinClientCenter::instance()->waitForIdle();
        const auto sent = operations();
        QCOMPARE(int(sent.size()), 2);
        QVERIFY(sent[0].toCentre);
        QVERIFY(sent[1].toCentre);
    }

    void f5Reloads() {
        CLevel2QuotesManagePanel panel(nullptr);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        waitLoaded(&panel);
        m_backend->clearRequests();
        panel.table()->setFocus();
        QTest::keyClick(panel.table(), Qt::Key_F5);
        waitLoaded(&panel);
        QCOMPARE(queryCount(), 1);
        QCOMPARE(m_backend->requests().back().dataType, kDataLevel2Tokens);
    }

    void failedQueryLeavesListEmpty() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {}, utils::RKError::fail("timeout"));
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 0);
        QVERIFY(panel.addButton()->isEnabled());
        QVERIFY(m_messages.isEmpty());
    }

    // A database or server that does not answer takes nothing away: the token shown stays
    // (adding stays closed) and the panel says why.
    void unavailableQueryKeepsTheTokenShown() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("AbC123")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 1);
        m_backend->setQueryAnswer(
            kDataLevel2Tokens, {},
            utils::RKError::fail(utils::ErrorKind::Unavailable, "数据库无响应"));
        panel.refresh();
        waitLoaded(&panel);
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 1);
        QCOMPARE(m_messages[0].text, QString("数据库无响应"));
        QCOMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, 0), QString("AbC123"));
        QVERIFY(!panel.addButton()->isEnabled());
    }

    void addWhileEmpty() {
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QVERIFY(panel.addButton()->isEnabled());
        m_backend->clearRequests();
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("NewToken1")});
        m_backend->setHolding(true);
        answerDialog("NewToken1", 1);
        QTest::mouseClick(panel.addButton(), Qt::LeftButton);
        QVERIFY(panel.tokenDialog());
        QVERIFY(panel.tokenDialog()->parent() == nullptr);
        QCOMPARE(panel.tokenDialog()->size(), QSize(450, 150));
        QCOMPARE(panel.loadingMask()->text(), QString("正在提交数据"));
        QVERIFY(!panel.loadingMask()->isHidden());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].dataType, kDataLevel2Tokens);
        QCOMPARE(sent[0].operateType, 2);
        QCOMPARE(int(sent[0].datas.size()), 1);
        QCOMPARE(tokenOf(sent[0].datas[0]), std::string("NewToken1"));
        m_backend->setHolding(false);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 0);
        QVERIFY(m_messages[0].success);
        QCOMPARE(m_messages[0].parent, static_cast<QWidget*>(&panel));
        QCOMPARE(m_messages[0].title, kTitle);
        QCOMPARE(m_messages[0].text, QString("操作成功"));
        // The reload lists the new token and closes adding.
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QTRY_VERIFY(!panel.addButton()->isEnabled());
    }

    void editSendsModify() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("OldToken")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QVERIFY(!panel.addButton()->isEnabled());
        m_backend->clearRequests();
        QString seen;
        answerDialog("NewToken", 1, &seen);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QCOMPARE(seen, QString("OldToken"));
        COrinClientCenter::instance()->waitForIdle();
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].dataType, kDataLevel2Tokens);
        QCOMPARE(sent[0].operateType, 0);
        QCOMPARE(tokenOf(sent[0].datas[0]), std::string("NewToken"));
        QTRY_COMPARE(m_messages.size(), 1);
        // Reloaded after success.
        QTRY_COMPARE(queryCount(), 1);
    }

    void cancelledOrEmptySendsNothing() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Kept")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        answerDialog("Changed", 0);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        answerDialog(QString(), 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        COrinClientCenter::instance()->waitForIdle();
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(m_messages.isEmpty());
        QVERIFY(panel.loadingMask()->isHidden());
    }

    void addAfterCancelledEditShowsPreviousText() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Stored1")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QString seen;
        answerDialog("Typed2", 0, &seen);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QCOMPARE(seen, QString("Stored1"));
        // The add button is disabled with a token stored; the event does the same as a click.
        QString seenOnAdd;
        answerDialog(QString(), 0, &seenOnAdd, false);
        QVERIFY(panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                                  QString(), nullptr));
        QCOMPARE(seenOnAdd, QString("Typed2"));
        COrinClientCenter::instance()->waitForIdle();
        QCOMPARE(int(operations().size()), 0);
    }

    void deleteAndReloadEnablesAdd() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Gone")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QVERIFY(!panel.addButton()->isEnabled());
        m_backend->clearRequests();
        m_backend->setQueryAnswer(kDataLevel2Tokens, {});
        m_backend->setHolding(true);
        // No question is asked.
        QVERIFY(delegate(&panel)->clickButton(0, 4));
        QVERIFY(QApplication::activeModalWidget() == nullptr);
        QCOMPARE(panel.loadingMask()->text(), QString("正在提交删除"));
        QVERIFY(!panel.loadingMask()->isHidden());
        QTRY_COMPARE(m_backend->heldCount(), 1);
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(sent[0].dataType, kDataLevel2Tokens);
        QCOMPARE(sent[0].operateType, 3);
        QCOMPARE(tokenOf(sent[0].datas[0]), std::string("Gone"));
        // The row stays until the reload.
        QCOMPARE(panel.table()->rowCount(), 1);
        QVERIFY(!panel.addButton()->isEnabled());
        m_backend->setHolding(false);
        m_backend->releaseAll();
        QTRY_COMPARE(m_messages.size(), 1);
        QTRY_COMPARE(panel.table()->rowCount(), 0);
        QTRY_VERIFY(panel.addButton()->isEnabled());
        QVERIFY(panel.loadingMask()->isHidden());
    }

    void deleteNamesTheClickedRow() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("First"), token("Second")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.table()->rowCount(), 2);
        m_backend->clearRequests();
        panel.table()->selectRow(0);
        QVERIFY(panel.handleEvent(Zu::EventRowButtonClicked, 1,
                                  CLevel2QuotesManagePanel::DeleteRowButton, "1", nullptr));
        COrinClientCenter::instance()->waitForIdle();
        auto sent = operations();
        QCOMPARE(int(sent.size()), 1);
        QCOMPARE(tokenOf(sent[0].datas[0]), std::string("Second"));
    }

    void messageMeansFailure_data() {
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("failureShown");
        QTest::newRow("failed with message") << false << "已存在token" << true;
        QTest::newRow("ok with message") << true << "警告" << true;
        QTest::newRow("failed without message") << false << "" << false;
        QTest::newRow("ok") << true << "" << false;
    }

    void messageMeansFailure() {
        QFETCH(bool, success);
        QFETCH(QString, text);
        QFETCH(bool, failureShown);
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        m_backend->setOperateAnswer(kDataLevel2Tokens, utils::RKError(success, text.toStdString()));
        answerDialog("Abc", 1);
        QVERIFY(panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                                  QString(), nullptr));
        QTRY_COMPARE(m_messages.size(), 1);
        QVERIFY(panel.loadingMask()->isHidden() || !failureShown);
        QCOMPARE(m_messages[0].title, kTitle);
        QCOMPARE(m_messages[0].parent, static_cast<QWidget*>(&panel));
        if (failureShown) {
            QCOMPARE(m_messages[0].type, 1);
            QVERIFY(!m_messages[0].success);
            QCOMPARE(m_messages[0].text, text);
            QVERIFY(panel.loadingMask()->isHidden());
            m_backend->settle();
            QCOMPARE(queryCount(), 0);
        } else {
            QCOMPARE(m_messages[0].type, 0);
            QVERIFY(m_messages[0].success);
            QCOMPARE(m_messages[0].text, QString("操作成功"));
            QTRY_COMPARE(queryCount(), 1);
            waitLoaded(&panel);
        }
    }

    // A refused edit keeps the dialog open with the operator's text while the box and, for a
    // stale refusal, the reload come; 确定 then sends the same text with the reloaded revision,
    // and its success closes the dialog.
    void refusedEditKeepsTheDialogOpen_data() {
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<bool>("reloads");
        QTest::newRow("changed by another operator")
            << QString::fromUtf8(CRevisionConflicts::kToken) << true;
        QTest::newRow("rows read before an import")
            << QString("行情源已变更，请刷新后重试") << true;
        QTest::newRow("any other refusal") << QString("已存在token") << false;
    }

    void refusedEditKeepsTheDialogOpen() {
        QFETCH(QString, refusal);
        QFETCH(bool, reloads);
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Stored1", 4)});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Theirs2", 9)});
        m_backend->setOperateAnswer(kDataLevel2Tokens,
                                    utils::RKError(false, refusal.toStdString()));
        answerDialog("Typed3", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_COMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].type, 1);
        QCOMPARE(m_messages[0].text, refusal);
        CLevel2QuoteDialog* dialog = panel.tokenDialog();
        QVERIFY(dialog);
        QTRY_VERIFY(dialog->isVisible());
        QCOMPARE(QApplication::activeModalWidget(), static_cast<QWidget*>(dialog));
        QCOMPARE(dialog->getTokenText(), QString("Typed3"));
        waitLoaded(&panel);
        m_backend->settle();
        QCOMPARE(queryCount(), reloads ? 1 : 0);
        QCOMPARE(panel.table()->itemText(0, 0), QString(reloads ? "Theirs2" : "Stored1"));
        // The row's edit while the dialog is shown again opens no second one.
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QCOMPARE(dialog->getTokenText(), QString("Typed3"));

        m_backend->setOperateAnswer(kDataLevel2Tokens, utils::RKError(true, std::string()));
        QTest::mouseClick(kitButton(dialog, 1), Qt::LeftButton);
        QTRY_COMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 0);
        QVERIFY(!dialog->isVisible());
        QVERIFY(QApplication::activeModalWidget() == nullptr);
        auto sent = operations();
        QCOMPARE(int(sent.size()), 2);
        QCOMPARE(sent[1].operateType, 0);
        QCOMPARE(tokenOf(sent[1].datas[0]), std::string("Typed3"));
        QCOMPARE(sent[1].datas[0]->getRevision(), reloads ? 9LL : 4LL);
        waitLoaded(&panel);
    }

    // Closed instead, the dialog shown again sends nothing; the next edit opens it afresh.
    void refusedEditClosedSendsNothing() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("Stored1", 4)});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        m_backend->setOperateAnswer(kDataLevel2Tokens, utils::RKError(false, "已存在token"));
        answerDialog("Typed3", 1);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QTRY_VERIFY(panel.tokenDialog()->isVisible());
        QTest::mouseClick(kitButton(panel.tokenDialog(), 0), Qt::LeftButton);
        QVERIFY(!panel.tokenDialog()->isVisible());
        m_backend->settle();
        QCOMPARE(int(operations().size()), 1);
        QString seen;
        answerDialog(QString(), 0, &seen, false);
        QVERIFY(delegate(&panel)->clickButton(0, 3));
        QCOMPARE(seen, QString("Stored1"));
        m_backend->settle();
        QCOMPARE(int(operations().size()), 1);
    }

    // Destroyed while the dialog is shown again: the dialog goes with the panel.
    void destroyedWhileRefusedDialogShown() {
        auto* panel = new CLevel2QuotesManagePanel(nullptr);
        waitLoaded(panel);
        m_backend->setOperateAnswer(kDataLevel2Tokens, utils::RKError(false, "已存在token"));
        answerDialog("Typed3", 1);
        panel->handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                           QString(), nullptr);
        QPointer<CLevel2QuoteDialog> dialog = panel->tokenDialog();
        QTRY_VERIFY(dialog->isVisible());
        delete panel;
        QVERIFY(dialog.isNull());
        QVERIFY(QApplication::activeModalWidget() == nullptr);
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
    }

    void slotDecidesByTextAlone() {
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        panel.slotOnOperationFinished(true, QString());
        QCOMPARE(m_messages.size(), 1);
        QCOMPARE(m_messages[0].text, QString("操作成功"));
        waitLoaded(&panel);
        QCOMPARE(queryCount(), 1);
        panel.slotOnOperationFinished(false, "坏");
        QCOMPARE(m_messages.size(), 2);
        QCOMPARE(m_messages[1].type, 1);
        QCOMPARE(m_messages[1].text, QString("坏"));
    }

    void rights_data() {
        QTest::addColumn<bool>("add");
        QTest::addColumn<bool>("edit");
        QTest::addColumn<bool>("remove");
        QTest::newRow("all") << true << true << true;
        QTest::newRow("no add") << false << true << true;
        QTest::newRow("no edit") << true << false << true;
        QTest::newRow("no delete") << true << true << false;
        QTest::newRow("none") << false << false << false;
    }

    void rights() {
        QFETCH(bool, add);
        QFETCH(bool, edit);
        QFETCH(bool, remove);
        std::set<int> held;
        if (add)
            held.insert(12532);
        if (edit)
            held.insert(12534);
        if (remove)
            held.insert(12536);
        TestUsers::setCurrent(held, false);
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("R")});
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        QCOMPARE(panel.addButton() != nullptr, add);
        QCOMPARE(kitButton(&panel, 1) != nullptr, add);
        QStringList texts;
        QList<int> ids;
        for (const auto& data : delegate(&panel)->itemButtons("0")) {
            texts << data.text;
            ids << data.id;
        }
        QStringList expectedTexts;
        QList<int> expectedIds;
        if (edit) {
            expectedTexts << "编辑";
            expectedIds << 3;
        }
        if (remove) {
            expectedTexts << "删除";
            expectedIds << 4;
        }
        QCOMPARE(texts, expectedTexts);
        QCOMPARE(ids, expectedIds);
    }

    void eventTable() {
        CLevel2QuotesManagePanel panel(nullptr);
        waitLoaded(&panel);
        m_backend->clearRequests();
        QVERIFY(panel.handleEvent(Zu::EventButtonClicked, 9, 0, QString(), nullptr));
        QVERIFY(panel.handleEvent(Zu::EventRowButtonClicked, 0, 9, "0", nullptr));
        QVERIFY(!panel.handleEvent(Zu::EventComboIndexChanged, 0, 0, QString(), nullptr));
        QVERIFY(!panel.handleEvent(Zu::EventQuoteSourcesChanged, 0, 0, QString(), nullptr));
        QCoreApplication::processEvents();
        QCOMPARE(m_backend->requestCount(), 0);
        QVERIFY(panel.tokenDialog() == nullptr);
        QVERIFY(panel.handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::RefreshButton,
                                  0, QString(), nullptr));
        waitLoaded(&panel);
        QCOMPARE(queryCount(), 1);
    }

    void dialogIsReusedAndDeletedWithThePanel() {
        auto* panel = new CLevel2QuotesManagePanel(nullptr);
        waitLoaded(panel);
        answerDialog("a", 0);
        panel->handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                           QString(), nullptr);
        QPointer<CLevel2QuoteDialog> dialog = panel->tokenDialog();
        QVERIFY(dialog);
        answerDialog("b", 0);
        panel->handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                           QString(), nullptr);
        QCOMPARE(panel->tokenDialog(), dialog.data());
        delete panel;
        QVERIFY(dialog.isNull());
    }

    void destroyedWhileQueryHeld() {
        m_backend->setQueryAnswer(kDataLevel2Tokens, {token("late")});
        m_backend->setHolding(true);
        auto* panel = new CLevel2QuotesManagePanel(nullptr);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        delete panel;
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
    }

    void destroyedWhileSaveHeld() {
        auto* panel = new CLevel2QuotesManagePanel(nullptr);
        waitLoaded(panel);
        m_backend->setHolding(true);
        answerDialog("Late1", 1);
        panel->handleEvent(Zu::EventButtonClicked, CLevel2QuotesManagePanel::AddButton, 0,
                           QString(), nullptr);
        QTRY_COMPARE(m_backend->heldCount(), 1);
        delete panel;
        m_backend->releaseAll();
        COrinClientCenter::instance()->waitForIdle();
        QCoreApplication::processEvents();
        QVERIFY(m_messages.isEmpty());
    }

    void destroyedWithAnswerQueued() {
        auto* panel = new CLevel2QuotesManagePanel(nullptr);
        COrinClientCenter::instance()->waitForIdle();
        delete panel;
        QCoreApplication::processEvents();
    }
};

QTEST_MAIN(TestLevel2Panel)
#include "tst_level2panel.moc"
