#include <QApplication>
#include <QCheckBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>
#include <boost/make_shared.hpp>

#include "CQuotesService.h"
#include "EmbeddedService.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CSourcePatch.h"
#include "Hlx/CUserManager.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "ModalDriver.h"
#include "PanelEvents.h"
#include "QuotesdService.h"
#include "TestIds.h"
#include "Zu/CComboBox.h"
#include "Zu/COddEvenRowTable.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "model/CRevisionConflicts.h"
#include "model/CStaleRows.h"
#include "panels/QuotesManagePanel.h"
#include "rkservice/DataTypeIds.h"

using namespace Hlx;
using namespace TestIds;
using Panel = CQuotesManagePanel;

// The panels against the data service, embedded and then through quotesd: what the operator does
// is stored and read back.
class TestQuotesPanelService : public QObject {
    Q_OBJECT
public:
    using Factory = std::function<std::unique_ptr<ServiceUnderTest>()>;
    explicit TestQuotesPanelService(Factory factory) : m_factory(std::move(factory)) {}

private slots:
    void init() {
        m_service = m_factory();
        QVERIFY2(m_service->isOpen(), qPrintable(m_service->error()));
        loginAsAdmin();
        m_messages.reset(
            new QSignalSpy(COrinClientCenter::instance(), &COrinClientCenter::serverMessageShown));
    }

    void cleanup() { m_service.reset(); }

    void addStockSourceAndSeeItListed() {
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        waitUntilIdle();
        QCOMPARE(panel.table()->rowCount(), 0);
        submitStockDialog(&panel, [](CSetStockQuotesDialog* dialog) {
            dialog->addressEdit()->setText("192.168.7.7");
            dialog->portEdit()->setText("7709");
            dialog->userEdit()->setText("行情用户_1");
            dialog->passwordEdit()->setText("pw123");
        });
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        QCOMPARE(panel.table()->itemText(0, Panel::kColAddress), QString("192.168.7.7"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPort), QString("7709"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColUser), QString("行情用户_1"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPassword), QString("pw123"));
        QCOMPARE(lastMessage(), QString("操作成功"));
    }

    void refusedSourceShowsTheServicesMessage() {
        // A viewer may not add: the service refuses what the form accepts.
        loginAs("viewer");
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        waitUntilIdle();
        ModalDriver::onNext([this](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            dialog->addressEdit()->setText("10.0.0.1");
            dialog->portEdit()->setText("7000");
            dialog->userEdit()->setText("u");
            dialog->passwordEdit()->setText("p");
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                QString(), nullptr);
            QTRY_VERIFY(m_messages->count() >= 1);
            // Refused: the dialog stays open with everything typed.
            QVERIFY(dialog->isVisible());
            QCOMPARE(dialog->addressEdit()->text(), QString("10.0.0.1"));
            dialog->reject();
        });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnAdd);
        waitUntilIdle();
        QCOMPARE(m_messages->last().at(1).toBool(), false);
        QVERIFY(!lastMessage().isEmpty());
        QVERIFY(lastMessage() != QString("操作失败"));
        QCOMPARE(panel.table()->rowCount(), 0);
    }

    // The all-types panel offers 删除 and 全部删除 on every row whatever the user's rights; the
    // service refuses them for a user without the rights, and the rows come back.
    void viewersDeletesAreRefusedAndTheRowsStay() {
        for (const char* address : {"10.3.0.1", "10.3.0.2"}) {
            auto request = boost::make_shared<rkservice::COperateDataReq>();
            request->dataType = kDataQuoteSources;
            request->operateType = rkservice::kOperateAdd;
            auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
            source->m_nPlatformId = 10000;
            source->m_nTradeType = 2;
            source->m_strAddress = address;
            source->m_nPort = 7000;
            request->datas.push_back(source);
            QVERIFY(m_service->administrator()
                        .operate(CRequestTarget::centre(), *request, nullptr)
                        .isSuccess());
        }
        loginAs("viewer");
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.refresh();
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        waitUntilIdle();
        m_messages->clear();

        panel.table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(m_messages->last().at(3).toString(), QString("全部行情源"));
        QCOMPARE(lastMessage(), QString("没有权限：删除证券行情源"));
        waitUntilIdle();
        QCOMPARE(panel.table()->rowCount(), 2);

        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QCOMPARE(panel.table()->rowCount(), 0);
        QTRY_COMPARE(m_messages->count(), 2);
        QCOMPARE(lastMessage(), QString("没有权限：删除证券行情源"));
        QTRY_COMPARE(panel.table()->rowCount(), 2);
    }

    void addFuturesSourceAndSeeItsBrokerRow() {
        CFutureQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        waitUntilIdle();
        const int before = panel.table()->rowCount();
        QString platform, broker, group;
        ModalDriver::onNext([&](QWidget* modal) {
            auto* dialog = qobject_cast<CSetFutureQuotesDialog*>(modal);
            QVERIFY(dialog);
            // Platforms and brokers come back as two answers in either order: a platform chosen
            // before the brokers are in would list none.
            QTRY_VERIFY(!dialog->platformsPending() && !dialog->brokersPending());
            QVERIFY(dialog->platformCombo()->count() > 1);
            dialog->platformCombo()->setCurrentIndex(1);
            QTRY_VERIFY(dialog->brokerCombo()->count() > 1);
            dialog->brokerCombo()->setCurrentIndex(1);
            QTRY_VERIFY(dialog->serverGroupCombo()->count() > 1);
            dialog->serverGroupCombo()->setCurrentIndex(1);
            platform = dialog->platformCombo()->currentText();
            broker = dialog->brokerCombo()->currentText();
            group = dialog->serverGroupCombo()->currentText();
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                QString(), nullptr);
        });
        PanelEvents::press(panel, CQuotesManagePanel::kBtnAdd);
        QTRY_COMPARE(panel.table()->rowCount(), before + 1);
        waitUntilIdle();
        int row = -1;
        for (int r = 0; r < panel.table()->rowCount(); ++r) {
            if (panel.table()->itemText(r, Panel::kColName) == broker)
                row = r;
        }
        QVERIFY2(row >= 0, qPrintable(broker));
        QCOMPARE(panel.table()->itemText(row, Panel::kColServerGroup), group);
        QVERIFY(!panel.table()->itemText(row, Panel::kColAddress).isEmpty());
        QCOMPARE(panel.table()->itemText(row, Panel::kColSubsystem), QString("上海主站"));
    }

    void editDeleteAndDeleteAll() {
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        waitUntilIdle();
        addStockSources(&panel, {"10.1.0.1", "10.1.0.2", "10.1.0.3"}, "p");
        QTRY_COMPARE(panel.table()->rowCount(), 3);

        // Edit the second source's port.
        editPort(&panel, 1, "10.1.0.2", "9100");
        QTRY_COMPARE(panel.table()->itemText(1, Panel::kColPort), QString("9100"));

        // Delete the first.
        panel.table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        waitUntilIdle();
        QCOMPARE(panel.table()->itemText(0, Panel::kColAddress), QString("10.1.0.2"));

        // Delete all, then reload: nothing is left.
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QCOMPARE(panel.table()->rowCount(), 0);
        waitUntilIdle();
        panel.refresh();
        waitUntilIdle();
        QCOMPARE(panel.table()->rowCount(), 0);
    }

    // Each action of the panel is one request, recorded as one entry of the audit trail with a
    // detail row per source it touched, and none holds a password.
    void panelActionsEachMakeOneAuditEntry() {
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        waitUntilIdle();
        const std::size_t before = auditEntries().size();
        addStockSources(&panel, {"10.2.0.1", "10.2.0.2"}, "secretpw77");
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        editPort(&panel, 1, "10.2.0.2", "9100");
        QTRY_COMPARE(panel.table()->itemText(1, Panel::kColPort), QString("9100"));
        panel.table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        waitUntilIdle();

        const std::vector<Hlx::CAuditEntry> entries = auditEntries();
        QCOMPARE(entries.size(), before + 4);
        const std::vector<std::string> actions{entries[0].action, entries[1].action,
                                               entries[2].action, entries[3].action};
        QCOMPARE(actions, (std::vector<std::string>{"delete", "modify", "add", "add"}));
        for (std::size_t i = 0; i < 4; ++i) {
            QCOMPARE(entries[i].dataType, std::string("quote_source"));
            QCOMPARE(entries[i].account, std::string("admin"));
            QCOMPARE(int(entries[i].details.size()), 1);
            for (const auto& detail : entries[i].details) {
                const QString fields = QString::fromUtf8(
                    QJsonDocument(QJsonArray{detail.before, detail.after}).toJson());
                QVERIFY2(!fields.contains(QStringLiteral("secretpw77")), qPrintable(fields));
            }
        }
    }

    // A row shown before an import may name another source now: its delete is refused, the
    // panel says so and reloads, and the reloaded row deletes.
    void staleDeleteAfterAnImportReloads() {
        CStockQuotesManagePanel panel(nullptr);
        showThenImport(&panel, "10.4.0.1", "10.4.0.9");

        panel.table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(lastMessage(), QString::fromUtf8(CStaleRows::kRefusal));
        QTRY_COMPARE(panel.table()->itemText(0, Panel::kColAddress), QString("10.4.0.9"));
        QCOMPARE(storedCount(), 1);

        panel.table()->selectRow(0);
        ModalDriver::answerNextBox(QMessageBox::Ok);
        PanelEvents::pressDeleteInRow(panel, 0);
        QTRY_COMPARE(panel.table()->rowCount(), 0);
        QCOMPARE(storedCount(), 0);
    }

    // The same for an edit: the dialog stays open with the operator's input, reads the row
    // again, and the panel reloads once it closes.
    void staleEditAfterAnImportKeepsTheInputAndReloads() {
        CStockQuotesManagePanel panel(nullptr);
        showThenImport(&panel, "10.5.0.1", "10.5.0.9");

        panel.table()->selectRow(0);
        ModalDriver::onNext([this](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            QCOMPARE(dialog->addressEdit()->text(), QString("10.5.0.1"));
            dialog->portEdit()->setText("9100");
            submit(dialog);
            QTRY_COMPARE(m_messages->count(), 1);
            QCOMPARE(lastMessage(), QString::fromUtf8(CStaleRows::kRefusal));
            QVERIFY(dialog->isVisible());
            QCOMPARE(dialog->portEdit()->text(), QString("9100"));
            // Read again: the address the operator left is the stored one now.
            QTRY_COMPARE(dialog->addressEdit()->text(), QString("10.5.0.9"));
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::CloseButton, 0,
                                QString(), nullptr);
        });
        PanelEvents::pressEditInRow(panel, 0);
        QTRY_COMPARE(panel.table()->itemText(0, Panel::kColAddress), QString("10.5.0.9"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColPort), QString("9000"));
    }

    // Operator A opens 编辑 on a source; meanwhile B changes its user name; A changes only the
    // port and submits: refused, nothing changes, the dialog stays open with A's port and takes
    // B's user name into the field A left; A's second submission keeps both changes.
    void staleEditIsRefusedAndBothChangesSurviveTheNextTry() {
        addStockSource("10.6.0.1");
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        QTRY_COMPARE(panel.table()->rowCount(), 1);
        waitUntilIdle();
        const int id = panel.table()->itemText(0, Panel::kColId).toInt();
        m_messages->clear();
        panel.table()->selectRow(0);
        ModalDriver::onNext([this, id](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            QCOMPARE(dialog->userEdit()->text(), QString("u"));
            changeUserElsewhere(id, "bob");
            const long long read = dialog->editRevision();
            dialog->portEdit()->setText("9100");
            submit(dialog);
            QTRY_COMPARE(m_messages->count(), 1);
            QCOMPARE(lastMessage(), QString::fromUtf8(CRevisionConflicts::kSource));
            QCOMPARE(storedSource(id)->m_nPort, 9000);
            QVERIFY(dialog->isVisible());
            QTRY_VERIFY(dialog->editRevision() > read);
            QCOMPARE(dialog->portEdit()->text(), QString("9100"));
            QCOMPARE(dialog->userEdit()->text(), QString("bob"));
            submit(dialog);
            QTRY_COMPARE(m_messages->count(), 2);
            QCOMPARE(lastMessage(), QString("操作成功"));
            QTRY_VERIFY(!dialog->isVisible());
        });
        PanelEvents::pressEditInRow(panel, 0);
        QTRY_COMPARE(panel.table()->itemText(0, Panel::kColPort), QString("9100"));
        QCOMPARE(panel.table()->itemText(0, Panel::kColUser), QString("bob"));
        QCOMPARE(storedSource(id)->m_strUserName, std::string("bob"));
        QCOMPARE(storedSource(id)->m_nPort, 9100);
    }

    // A source changed elsewhere after the panel read it: 全部删除 is refused whole, and the
    // reload shows every source again.
    void staleDeleteAllIsRefusedWhole() {
        addStockSource("10.7.0.1");
        addStockSource("10.7.0.2");
        CStockQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        waitUntilIdle();
        changeUserElsewhere(panel.table()->itemText(1, Panel::kColId).toInt(), "bob");
        m_messages->clear();
        ModalDriver::answerNextBox(QMessageBox::Yes);
        PanelEvents::press(panel, CQuotesManagePanel::kBtnDeleteAll);
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(lastMessage(), QString::fromUtf8(CRevisionConflicts::kSource));
        QTRY_COMPARE(panel.table()->rowCount(), 2);
        QCOMPARE(storedCount(), 2);
        QTRY_COMPARE(panel.table()->itemText(1, Panel::kColUser), QString("bob"));
    }

    // Two whole-quote saves in a row: the held record takes the revision the first answered.
    void twoWholeQuoteSavesInARow() {
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        for (bool enabled : {true, false}) {
            m_messages->clear();
            saveWholeQuote(&panel, "HGT", enabled);
            QTRY_COMPARE(m_messages->count(), 1);
            QCOMPARE(lastMessage(), QString("保存成功"));
        }
        QVERIFY(!storedWholeQuote()->m_wholeQuote->isEnabled("HGT"));
    }

    // A save from settings someone else changed since they were read is refused, and the panel
    // reads what is stored again instead of keeping the refused choice.
    void staleWholeQuoteSaveReadsTheStoredSettings() {
        CAllTypeQuotesManagePanel panel(nullptr);
        panel.switchSystem(0, "sys1");
        panel.onActive();
        QTRY_VERIFY(panel.permissionInfo());
        auto other = storedWholeQuote();
        other->m_wholeQuote->setEnabled("SGT", true);
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataGlobalPermission;
        request.operateType = rkservice::kOperateSaveWholeQuote;
        request.datas.push_back(other);
        QVERIFY(m_service->administrator()
                    .operate(CRequestTarget::subsystem("sys1"), request, nullptr)
                    .isSuccess());
        m_messages->clear();
        saveWholeQuote(&panel, "HGT", true);
        QTRY_COMPARE(m_messages->count(), 1);
        QCOMPARE(lastMessage(), QString::fromUtf8(CRevisionConflicts::kWholeQuote));
        QTRY_VERIFY(panel.permissionInfo()->m_wholeQuote->isEnabled("SGT"));
        QVERIFY(!panel.permissionInfo()->m_wholeQuote->isEnabled("HGT"));
        QVERIFY(!storedWholeQuote()->m_wholeQuote->isEnabled("HGT"));
    }

    void wholeQuoteSettingsSurviveARestart() {
        {
            CAllTypeQuotesManagePanel panel(nullptr);
            panel.switchSystem(1, "sys2");
            panel.onActive();
            QTRY_VERIFY(panel.permissionInfo());
            ModalDriver::onNext([](QWidget* modal) {
                auto* dialog = qobject_cast<CWholeQuoteSettingDialog*>(modal);
                QVERIFY(dialog);
                dialog->marketCheckBox("HGT")->setChecked(true);
                dialog->accept();
            });
            PanelEvents::press(panel, CQuotesManagePanel::kBtnWholeQuote);
            QTRY_COMPARE(lastMessage(), QString("保存成功"));
        }
        // A new service on the same database, as after a restart of the console or server.
        m_service->restart();
        loginAsAdmin();
        CAllTypeQuotesManagePanel sys2(nullptr);
        sys2.switchSystem(1, "sys2");
        sys2.onActive();
        QTRY_VERIFY(sys2.permissionInfo());
        QVERIFY(sys2.permissionInfo()->m_wholeQuote->isEnabled("HGT"));
        // The other sub-system kept its own settings.
        CAllTypeQuotesManagePanel sys1(nullptr);
        sys1.switchSystem(0, "sys1");
        sys1.onActive();
        QTRY_VERIFY(sys1.permissionInfo());
        QVERIFY(!sys1.permissionInfo()->m_wholeQuote->isEnabled("HGT"));
    }

private:
    void loginAs(const std::string& name) {
        QVERIFY(m_service->loginAs(name));
        QCOMPARE(CUserManager::instance()->getUserInfoPtr()->m_strName, name);
    }

    void loginAsAdmin() {
        loginAs("admin");
        QVERIFY(CUserManager::instance()->getUserInfoPtr()->routesBySystem());
    }

    void addStockSource(const char* address) {
        rkservice::COperateDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        request.operateType = rkservice::kOperateAdd;
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nPlatformId = 10000;
        source->m_nTradeType = 2;
        source->m_strAddress = address;
        source->m_nPort = 9000;
        source->m_strUserName = "u";
        source->m_strPassword = "p";
        request.datas.push_back(source);
        QVERIFY(m_service->administrator()
                    .operate(CRequestTarget::subsystem("sys1"), request, nullptr)
                    .isSuccess());
    }

    // The panel shows one source at shown; then an import moves it to imported.
    void showThenImport(Panel* panel, const char* shown, const QString& imported) {
        addStockSource(shown);
        panel->switchSystem(0, "sys1");
        QTRY_COMPARE(panel->table()->rowCount(), 1);
        waitUntilIdle();
        reimportWithAddress(imported);
        m_messages->clear();
    }

    // Everything exported and imported back by the administrator, each source at the address.
    void reimportWithAddress(const QString& address) {
        QJsonObject document;
        QVERIFY(m_service->administrator().exportDocument(&document).isSuccess());
        QJsonArray sources = document.value(QStringLiteral("sources")).toArray();
        for (int i = 0; i < sources.size(); ++i) {
            QJsonObject source = sources.at(i).toObject();
            source.insert(QStringLiteral("address"), address);
            sources.replace(i, source);
        }
        document.insert(QStringLiteral("sources"), sources);
        const utils::RKError imported = m_service->administrator().importDocument(document);
        QVERIFY2(imported.isSuccess(), imported.errorMsg().c_str());
    }

    // Another operator's change of the user name (a patch, which needs no revision).
    void changeUserElsewhere(int id, const std::string& user) {
        Hlx::CSourcePatch patch;
        patch.userName = user;
        const utils::RKError error = m_service->administrator().modifySource(id, patch);
        QVERIFY2(error.isSuccess(), error.errorMsg().c_str());
    }

    rkservice::COrinQuoterSourceInfoPtr storedSource(int id) {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        m_service->administrator().query(CRequestTarget::centre(), request, &datas);
        for (const auto& data : datas) {
            auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
            if (source && source->m_nId == id)
                return source;
        }
        return boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    }

    rkservice::CGlobalFeaturePermissionInfoPtr storedWholeQuote() {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataGlobalPermission;
        std::vector<rkservice::IDataPtr> datas;
        m_service->administrator().query(CRequestTarget::subsystem("sys1"), request, &datas);
        return datas.empty() ? boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>()
                             : boost::dynamic_pointer_cast<rkservice::CGlobalFeaturePermissionInfo>(
                                   datas.front());
    }

    static void saveWholeQuote(Panel* panel, const char* market, bool enabled) {
        ModalDriver::onNext([market, enabled](QWidget* modal) {
            auto* dialog = qobject_cast<CWholeQuoteSettingDialog*>(modal);
            QVERIFY(dialog);
            dialog->marketCheckBox(market)->setChecked(enabled);
            dialog->accept();
        });
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnWholeQuote);
    }

    static void submit(CSetStockQuotesDialog* dialog) {
        dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                            QString(), nullptr);
    }

    int storedCount() {
        rkservice::COrinQueryDataReq request;
        request.dataType = rkservice::kDataQuoteSources;
        std::vector<rkservice::IDataPtr> datas;
        if (!m_service->administrator()
                 .query(CRequestTarget::centre(), request, &datas)
                 .isSuccess())
            return -1;
        return int(datas.size());
    }

    std::vector<Hlx::CAuditEntry> auditEntries() {
        Hlx::CAuditFilter filter;
        filter.limit = 1000;
        std::vector<Hlx::CAuditEntry> entries;
        const utils::RKError error = m_service->administrator().auditEntries(filter, &entries);
        if (!error.isSuccess())
            qWarning("%s", error.errorMsg().c_str());
        return entries;
    }

    static void waitUntilIdle() {
        for (int i = 0; i < 4; ++i) {
            COrinClientCenter::instance()->waitForIdle();
            QCoreApplication::processEvents();
        }
    }

    QString lastMessage() const {
        return m_messages->isEmpty() ? QString() : m_messages->last().at(4).toString();
    }

    // Adds one stock source per address through the panel's dialog.
    void addStockSources(Panel* panel, const QStringList& addresses, const QString& password) {
        for (const QString& address : addresses) {
            submitStockDialog(panel, [address, password](CSetStockQuotesDialog* dialog) {
                dialog->addressEdit()->setText(address);
                dialog->portEdit()->setText("9000");
                dialog->userEdit()->setText("u");
                dialog->passwordEdit()->setText(password);
            });
            waitUntilIdle();
        }
    }

    // Edits the port of the row's source through the panel's dialog, which shows its address.
    static void editPort(Panel* panel, int row, const QString& address, const QString& port) {
        panel->table()->selectRow(row);
        ModalDriver::onNext([address, port](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            QCOMPARE(dialog->addressEdit()->text(), address);
            dialog->portEdit()->setText(port);
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                QString(), nullptr);
        });
        PanelEvents::pressEditInRow(*panel, row);
    }

    void submitStockDialog(Panel* panel, std::function<void(CSetStockQuotesDialog*)> fill) {
        ModalDriver::onNext([fill](QWidget* modal) {
            auto* dialog = qobject_cast<CSetStockQuotesDialog*>(modal);
            QVERIFY(dialog);
            fill(dialog);
            dialog->handleEvent(Zu::EventButtonClicked, CSetStockQuotesDialog::SubmitButton, 0,
                                QString(), nullptr);
        });
        PanelEvents::press(*panel, CQuotesManagePanel::kBtnAdd);
    }

    Factory m_factory;
    std::unique_ptr<ServiceUnderTest> m_service;
    std::unique_ptr<QSignalSpy> m_messages;
};

// The same tests through a quotesd of their own.
class TestQuotesPanelServiceOnQuotesd : public TestQuotesPanelService {
    Q_OBJECT
public:
    TestQuotesPanelServiceOnQuotesd()
        : TestQuotesPanelService([] { return std::make_unique<QuotesdService>(); }) {}
};

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    TestQuotesPanelService embedded([] { return std::make_unique<EmbeddedService>(); });
    int status = QTest::qExec(&embedded, argc, argv);
    TestQuotesPanelServiceOnQuotesd onQuotesd;
    status |= QTest::qExec(&onQuotesd, argc, argv);
    return status;
}

#include "tst_quotespanel_service.moc"
