#include "CStatusDock.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QResizeEvent>
#include <QSplitter>
#include <QTableView>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>

#include "CStatusChart.h"
#include "CStatusModel.h"
#include "CTableHeights.h"
#include "Hlx/IReachability.h"

CStatusDock::CStatusDock(boost::shared_ptr<Hlx::IReachability> admin, QWidget* parent)
    : QDockWidget(QStringLiteral("行情源状态"), parent), m_admin(std::move(admin)) {
    setObjectName(QStringLiteral("sourceStatus"));
    createUi();
    m_reloadTimer = new QTimer(this);
    m_reloadTimer->setSingleShot(true);
    m_reloadTimer->setInterval(kCoalesceMs);
    connect(m_reloadTimer, &QTimer::timeout, this, &CStatusDock::reload);
    connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            reload();
    });
}

CStatusDock::~CStatusDock() = default;

Qt::Orientation CStatusDock::layoutOrientation() const {
    return m_split->orientation();
}

void CStatusDock::resizeEvent(QResizeEvent* event) {
    QDockWidget::resizeEvent(event);
    // Docked under the panels the dock is wide and low: the chart goes beside the table there,
    // so that both keep a useful size.
    const QSize size = event->size();
    m_split->setOrientation(size.width() > 2 * size.height() ? Qt::Horizontal : Qt::Vertical);
}

void CStatusDock::createUi() {
    auto* body = new QWidget(this);
    auto* layout = new QVBoxLayout(body);
    auto* bar = new QHBoxLayout;
    m_failingOnly = new QCheckBox(QStringLiteral("只看不可达/超时"), body);
    m_failingOnly->setObjectName(QStringLiteral("statusFailingOnly"));
    m_span = new QComboBox(body);
    m_span->setObjectName(QStringLiteral("statusSpan"));
    m_span->addItem(QStringLiteral("最近一小时"), kHourMs);
    m_span->addItem(QStringLiteral("最近一天"), kDayMs);
    m_note = new QLabel(body);
    m_note->setObjectName(QStringLiteral("statusNote"));
    bar->addWidget(m_failingOnly);
    bar->addWidget(m_span);
    bar->addWidget(m_note, 1);
    layout->addLayout(bar);
    // Side by side until the dock is found tall (resizeEvent): it opens low, under the panels.
    m_split = new QSplitter(Qt::Horizontal, body);
    QSplitter* split = m_split;
    m_model = new CStatusModel(this);
    m_table = new QTableView(split);
    m_table->setObjectName(QStringLiteral("statusTable"));
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setMinimumHeight(CTableHeights::forRows(m_table, kShownRows));
    m_chart = new CStatusChart(split);
    layout->addWidget(split, 1);
    setWidget(body);
    connect(m_failingOnly, &QCheckBox::toggled, this, [this](bool on) {
        const Hlx::CProbeResult* chosen = selectedProbe();
        const std::string address = chosen ? chosen->address : std::string();
        const int port = chosen ? chosen->port : 0;
        m_model->setFailingOnly(on);
        if (!selectEndpoint(address, port))
            reloadChart();
        updateNote();
    });
    connect(m_span, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            [this] { reloadChart(); });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { reloadChart(); });
}

void CStatusDock::later(std::function<Answer()> work) {
    QPointer<CStatusDock> self(this);
    ++m_pending;
    QThreadPool::globalInstance()->start([self, work] {
        const Answer answer = work();
        // Posted to the application, which outlives the dock: the dock is looked at there.
        QMetaObject::invokeMethod(
            qApp,
            [self, answer] {
                if (!self)
                    return;
                --self->m_pending;
                answer(self.data());
            },
            Qt::QueuedConnection);
    });
}

void CStatusDock::setSubsystem(const QString& name) {
    if (name == m_subsystem)
        return;
    m_subsystem = name;
    reload();
}

void CStatusDock::reload() {
    if (!isVisible())
        return;
    const int generation = ++m_statusGeneration;
    const auto admin = m_admin;
    const std::string subsystem = m_subsystem.toStdString();
    later([admin, subsystem, generation]() -> Answer {
        std::vector<Hlx::CProbeResult> results;
        const utils::RKError error = admin->probeStatus(subsystem, &results);
        const bool ok = error.isSuccess();
        const QString message = QString::fromStdString(error.errorMsg());
        return [generation, ok, message, results](CStatusDock* dock) mutable {
            dock->onStatus(generation, ok, message, std::move(results));
        };
    });
}

void CStatusDock::reloadSoon() {
    if (!m_reloadTimer->isActive())
        m_reloadTimer->start();
}

void CStatusDock::onStatus(int generation, bool ok, const QString& error,
                           std::vector<Hlx::CProbeResult> results) {
    // A later read is on its way: it answers for the dock.
    if (generation != m_statusGeneration)
        return;
    ++m_readsAnswered;
    m_error = ok ? QString() : error;
    if (ok)
        showResults(std::move(results));
    else
        updateNote();
}

void CStatusDock::showResults(std::vector<Hlx::CProbeResult> results) {
    const Hlx::CProbeResult* chosen = selectedProbe();
    const std::string address = chosen ? chosen->address : std::string();
    const int port = chosen ? chosen->port : 0;
    m_model->setResults(std::move(results));
    if (!selectEndpoint(address, port))
        m_chart->clearSamples();
    updateNote();
}

bool CStatusDock::selectEndpoint(const std::string& address, int port) {
    const int row = m_model->shownForEndpoint(address, port);
    if (row < 0)
        return false;
    m_table->selectRow(row);
    m_table->scrollTo(m_model->index(row, 0));
    return true;
}

long long CStatusDock::spanMs() const {
    return m_span->currentData().toLongLong();
}

const Hlx::CProbeResult* CStatusDock::selectedProbe() const {
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    return rows.isEmpty() ? nullptr : m_model->probeAt(rows.first().row());
}

void CStatusDock::reloadChart() {
    const Hlx::CProbeResult* chosen = selectedProbe();
    const int generation = ++m_chartGeneration;
    if (!chosen) {
        m_chart->clearSamples();
        return;
    }
    const auto admin = m_admin;
    const std::string address = chosen->address;
    const int port = chosen->port;
    const long long until = QDateTime::currentMSecsSinceEpoch();
    const long long since = until - spanMs();
    later([admin, address, port, since, until, generation]() -> Answer {
        std::vector<Hlx::CProbeSample> samples;
        admin->probeHistory(address, port, since, &samples);
        return [generation, samples, until](CStatusDock* dock) {
            if (generation == dock->m_chartGeneration)
                dock->showHistory(samples, until);
        };
    });
}

void CStatusDock::showHistory(const std::vector<Hlx::CProbeSample>& samples, long long untilMs) {
    const Hlx::CProbeResult* chosen = selectedProbe();
    const QString title =
        chosen
            ? QStringLiteral("%1:%2").arg(QString::fromStdString(chosen->address)).arg(chosen->port)
            : QString();
    m_chart->showSamples(title, samples, untilMs - spanMs(), untilMs);
}

void CStatusDock::updateNote() {
    if (!m_error.isEmpty()) {
        m_note->setText(QStringLiteral("读取状态失败：%1").arg(m_error));
        return;
    }
    m_note->setText(QStringLiteral("共 %1 行").arg(m_model->rowCount()));
}
