#include "CScreenshotter.h"

#include <QApplication>
#include <QCoreApplication>
#include <QCursor>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonObject>
#include <QLineEdit>
#include <QPixmap>
#include <QScreen>
#include <QThread>
#include <QThreadPool>
#include <boost/make_shared.hpp>
#include <memory>

#include "CConsoleWindow.h"
#include "CPanelCatalogue.h"
#include "CScriptedReachability.h"
#include "CStatusDock.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "Zu/CComboBox.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/COddEvenRowTable.h"
#include "dialogs/CLevel2QuoteDialog.h"
#include "dialogs/CSetFutureQuotesDialog.h"
#include "dialogs/CSetStockQuotesDialog.h"
#include "dialogs/CSourceHistoryDialog.h"
#include "model/CPlatformTable.h"
#include "model/CTradeTypeTable.h"
#include "panels/CFindBar.h"
#include "panels/CLevel2QuotesManagePanel.h"
#include "panels/CQuotesManagePanel.h"

namespace {

const QSize kPanelSize(1100, 460);

// A record to show the edit mode with when the panel lists none.
rkservice::COrinQuoterSourceInfoPtr sampleRecord(int tradeType) {
    auto record = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    record->m_nId = 1;
    record->m_nPlatformId = Hlx::CPlatformTable::kKxStocks;
    record->m_nTradeType = tradeType;
    record->m_strAddress = "192.0.2.21";
    record->m_nPort = 7709;
    record->m_strUserName = "quote_admin";
    record->m_strPassword = "secret";
    return record;
}

// Chooses the first real entry of a combo, which fills the combos that depend on it.
void chooseFirst(Zu::CComboBox* combo) {
    if (combo && combo->count() > 1)
        combo->setCurrentIndex(1);
    QCoreApplication::processEvents();
}

}  // namespace

CScreenshotter::CScreenshotter(CConsoleWindow* window, const QString& directory)
    : m_window(window), m_directory(directory) {}

void CScreenshotter::waitUntilSettled(int timeoutMs) {
    Hlx::COrinClientCenter* centre = Hlx::COrinClientCenter::instance();
    QElapsedTimer timer;
    timer.start();
    int quietRounds = 0;
    while (quietRounds < 5 && timer.elapsed() < timeoutMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        // Workers (the service's status, the audit trail) answer through queued signals too.
        const bool quiet =
            centre->pendingCount() == 0 && QThreadPool::globalInstance()->activeThreadCount() == 0;
        quietRounds = quiet ? quietRounds + 1 : 0;
        if (quietRounds == 0)
            QThread::msleep(5);
    }
}

void CScreenshotter::holdStill() {
    // Pictures that can be compared from run to run: no caret, no animation, no hover.
    QApplication::setCursorFlashTime(0);
    for (Qt::UIEffect effect : {Qt::UI_AnimateMenu, Qt::UI_FadeMenu, Qt::UI_AnimateCombo,
                                Qt::UI_AnimateTooltip, Qt::UI_FadeTooltip, Qt::UI_AnimateToolBox})
        QApplication::setEffectEnabled(effect, false);
    if (QScreen* screen = QGuiApplication::primaryScreen())
        QCursor::setPos(screen->geometry().bottomRight());
}

void CScreenshotter::settlePicture(QWidget* widget) {
    if (QWidget* focus = QApplication::focusWidget())
        focus->clearFocus();
    // A window that is not active keeps a focus child of its own (the dialogs' 地址), whose
    // caret and selection would come and go with the window manager's timing.
    if (QWidget* focus = widget->focusWidget())
        focus->clearFocus();
    for (QLineEdit* edit : widget->findChildren<QLineEdit*>())
        edit->deselect();
    for (Zu::CLoadingMaskWidget* mask : widget->findChildren<Zu::CLoadingMaskWidget*>())
        mask->hide();
    QCoreApplication::processEvents();
}

bool CScreenshotter::save(QWidget* widget, const QString& name, QString* error) {
    settlePicture(widget);
    const QString path = QDir(m_directory).filePath(name + QStringLiteral(".png"));
    if (!widget->grab().save(path)) {
        *error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    m_written << path;
    return true;
}

bool CScreenshotter::run(QString* error) {
    if (!QDir().mkpath(m_directory)) {
        *error = QStringLiteral("cannot create %1").arg(m_directory);
        return false;
    }
    holdStill();
    m_window->show();
    waitUntilSettled();
    using Hlx::CTradeTypeTable;
    return save(m_window, QStringLiteral("console"), error) && shootPanels(error) &&
           shootStockDialogs(CPanelCatalogue::sourcesPanel(CTradeTypeTable::kStocks), error) &&
           shootStockDialogs(CPanelCatalogue::sourcesPanel(CTradeTypeTable::kAll), error) &&
           shootFutureDialog(CPanelCatalogue::sourcesPanel(CTradeTypeTable::kFutures), error) &&
           shootFutureDialog(CPanelCatalogue::sourcesPanel(CTradeTypeTable::kFuturesOptions),
                             error) &&
           shootWholeQuoteDialog(error) && shootTokenDialog(error) && shootFindBar(error) &&
           shootHistoryDialog(error) && shootStatusDock(error);
}

bool CScreenshotter::shootFindBar(QString* error) {
    // The all-types panel found by an address prefix, sorted by port.
    const QString panelName = CPanelCatalogue::sourcesPanel(Hlx::CTradeTypeTable::kAll);
    std::unique_ptr<Hlx::IorinDockableWidget> created =
        loadedPanel(*CPanelCatalogue::find(panelName));
    auto* panel = qobject_cast<Hlx::CQuotesManagePanel*>(created.get());
    if (!panel)
        return true;
    panel->openFind();
    panel->findBar()->setText(QStringLiteral("192.0.2."));
    panel->table()->sortByColumnId(Hlx::CQuotesManagePanel::kColPort, Qt::DescendingOrder);
    panel->table()->finishArranging();
    waitUntilSettled();
    return save(panel, panelName + QStringLiteral("_find"), error);
}

std::unique_ptr<Hlx::IorinDockableWidget> CScreenshotter::loadedPanel(const CPanelEntry& entry) {
    std::unique_ptr<Hlx::IorinDockableWidget> panel(entry.create(nullptr));
    if (!m_window->currentSystem().isEmpty())
        panel->switchSystem(0, m_window->currentSystem());
    panel->resize(kPanelSize);
    panel->show();
    panel->onActive();
    waitUntilSettled();
    return panel;
}

bool CScreenshotter::shootPanels(QString* error) {
    // Each panel is rendered on its own at a fixed size, so every picture shows all of it.
    for (const CPanelEntry& entry : CPanelCatalogue::entries()) {
        std::unique_ptr<Hlx::IorinDockableWidget> panel = loadedPanel(entry);
        if (!save(panel.get(), entry.objectName, error))
            return false;
    }
    return true;
}

bool CScreenshotter::shootStockDialogs(const QString& panelName, QString* error) {
    auto* panel = qobject_cast<Hlx::CQuotesManagePanel*>(m_window->openPanel(panelName));
    if (!panel)
        return true;
    const QString name = panel->tradeType2String(panel->tradeType(), -1);
    Hlx::CSetStockQuotesDialog add(panel->tradeType(), panel, false);
    add.setTitle(QStringLiteral("添加%1行情源").arg(name));
    add.setBasicInfo(panel->systemName());
    add.setIsAdd(true);
    add.show();
    waitUntilSettled();
    if (!save(&add, panelName + QStringLiteral("_dialog_add"), error))
        return false;

    rkservice::COrinQuoterSourceInfoPtr record = panel->rowRecord(0);
    if (!record)
        record = sampleRecord(panel->tradeType());
    const int tradeType = panel->tradeType() == Hlx::CTradeTypeTable::kAll ? record->m_nTradeType
                                                                           : panel->tradeType();
    Hlx::CSetStockQuotesDialog edit(tradeType, panel, false);
    edit.setTitle(QStringLiteral("编辑行情源"));
    edit.setBasicInfo(panel->systemName());
    edit.setIsAdd(false);
    edit.setBasicInfo(record);
    edit.show();
    waitUntilSettled();
    return save(&edit, panelName + QStringLiteral("_dialog_edit"), error);
}

bool CScreenshotter::shootFutureDialog(const QString& panelName, QString* error) {
    auto* panel = qobject_cast<Hlx::CQuotesManagePanel*>(m_window->openPanel(panelName));
    if (!panel)
        return true;
    Hlx::CSetFutureQuotesDialog dialog(panel->tradeType(), panel);
    dialog.setBasicInfo(panel->systemName());
    dialog.show();
    waitUntilSettled();
    chooseFirst(dialog.platformCombo());
    chooseFirst(dialog.brokerCombo());
    chooseFirst(dialog.serverGroupCombo());
    waitUntilSettled();
    return save(&dialog, panelName + QStringLiteral("_dialog_add"), error);
}

bool CScreenshotter::shootWholeQuoteDialog(QString* error) {
    const QString panelName = CPanelCatalogue::sourcesPanel(Hlx::CTradeTypeTable::kAll);
    auto* panel = qobject_cast<Hlx::CQuotesManagePanel*>(m_window->openPanel(panelName));
    if (!panel)
        return true;
    panel->onActive();
    waitUntilSettled();
    Hlx::CWholeQuoteSettingDialog dialog(QString(), panel);
    rkservice::CGlobalFeaturePermissionInfoPtr info = panel->permissionInfo();
    dialog.setWholeQuote(info ? info->m_wholeQuote
                              : boost::make_shared<rkservice::CWholeQuotedivision>());
    dialog.show();
    waitUntilSettled();
    return save(&dialog, panelName + QStringLiteral("_wholequote"), error);
}

bool CScreenshotter::shootTokenDialog(QString* error) {
    Hlx::CLevel2QuoteDialog dialog(nullptr);
    dialog.setFixedSize(450, 150);
    dialog.setTokenText(QStringLiteral("A1b2C3d4E5f6G7h8"));
    dialog.show();
    waitUntilSettled();
    return save(&dialog, CPanelCatalogue::level2Panel() + QStringLiteral("_dialog"), error);
}

namespace {

Hlx::CAuditEntry historyEntry(long long id, const char* time, const char* account,
                              const char* address, const char* action, const QJsonObject& before,
                              const QJsonObject& after) {
    Hlx::CAuditEntry entry;
    entry.id = id;
    entry.timeMs = QDateTime::fromString(QLatin1String(time), Qt::ISODate).toMSecsSinceEpoch();
    entry.account = account;
    entry.clientAddress = address;
    entry.action = action;
    entry.dataType = "quote_source";
    entry.details.push_back({"12", before, after});
    return entry;
}

QJsonObject historyFields(const char* address, int port, const char* user, bool passwordChanged) {
    return QJsonObject{{QStringLiteral("subsystem"), QStringLiteral("sys1")},
                       {QStringLiteral("platform_id"), 10000},
                       {QStringLiteral("broker_id"), 2147483647},
                       {QStringLiteral("server_group_id"), 0},
                       {QStringLiteral("address"), QLatin1String(address)},
                       {QStringLiteral("port"), port},
                       {QStringLiteral("user_name"), QLatin1String(user)},
                       {QStringLiteral("password"), QStringLiteral("******")},
                       {QStringLiteral("password_changed"), passwordChanged},
                       {QStringLiteral("trade_type"), 2},
                       {QStringLiteral("markets"), QStringLiteral("SH,SZ")}};
}

}  // namespace

bool CScreenshotter::shootHistoryDialog(QString* error) {
    Hlx::CSourceHistory history;
    history.sourceId = 12;
    history.exists = true;
    history.revision = 3;
    history.begin = Hlx::CSourceHistory::Begin::Added;
    const QJsonObject added = historyFields("192.0.2.11", 9999, "quote", true);
    const QJsonObject moved = historyFields("192.0.2.12", 9100, "quote", true);
    const QJsonObject renamed = historyFields("192.0.2.12", 9100, "quote2", false);
    history.entries = {
        historyEntry(101, "2026-11-20T09:30:00Z", "admin", "10.8.0.21", "add", {}, added),
        historyEntry(117, "2026-11-21T14:05:12Z", "operator1", "10.8.0.35", "modify", added, moved),
        historyEntry(142, "2026-11-23T08:41:50Z", "operator2", "10.8.0.40", "modify", moved,
                     renamed)};
    Hlx::CSourceHistoryDialog dialog(nullptr, history.sourceId);
    dialog.showHistory(history, 117);
    dialog.show();
    waitUntilSettled();
    return save(&dialog, QStringLiteral("source_history_dialog"), error);
}

bool CScreenshotter::shootStatusDock(QString* error) {
    CStatusDock dock(boost::make_shared<CScriptedReachability>());
    dock.setSubsystem(m_window->currentSystem());
    dock.resize(900, 700);
    dock.show();
    waitUntilSettled();
    dock.selectEndpoint(CScriptedReachability::kChartAddress, CScriptedReachability::kChartPort);
    waitUntilSettled();
    // The chart's span ends at the script's time, not at the time of the run.
    dock.showHistory(CScriptedReachability::hour(), CScriptedReachability::kUntilMs);
    waitUntilSettled();
    return save(&dock, QStringLiteral("source_status_dock"), error);
}
