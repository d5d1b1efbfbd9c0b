#pragma once

#include <QDockWidget>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <vector>

#include "Hlx/CProbeResult.h"

class CStatusChart;
class CStatusModel;
class QCheckBox;
class QComboBox;
class QLabel;
class QSplitter;
class QTableView;
class QTimer;
namespace Hlx {
class IReachability;
}

// The dock 行情源状态: every source of the sub-system with the state of each address it connects
// to, the connect time and since when; a filter for 不可达/超时; and the connect time of the
// selected address over the last hour or day. Reads run on a worker; an answer older than the
// latest read, or one that arrives after the dock has gone, is dropped.
class CStatusDock : public QDockWidget {
    Q_OBJECT
public:
    static constexpr long long kHourMs = 3600LL * 1000;
    static constexpr long long kDayMs = 24 * kHourMs;

    CStatusDock(boost::shared_ptr<Hlx::IReachability> admin, QWidget* parent = nullptr);
    ~CStatusDock() override;

    // The sub-system whose sources are shown (read again when shown).
    void setSubsystem(const QString& name);
    QString subsystem() const { return m_subsystem; }
    // Reads the states again (nothing while hidden: it reads when shown).
    void reload();
    // Reads them again within kCoalesceMs: a round of probes announces many changes at once.
    void reloadSoon();
    static constexpr int kCoalesceMs = 300;
    // Shows states read elsewhere (scripted ones for a picture); keeps the selected address.
    void showResults(std::vector<Hlx::CProbeResult> results);
    // Shows an address's history read elsewhere, over the span that ends at untilMs.
    void showHistory(const std::vector<Hlx::CProbeSample>& samples, long long untilMs);
    // Selects the first row of the address and port; false when none is shown.
    bool selectEndpoint(const std::string& address, int port);
    // The span of the chart: kHourMs or kDayMs.
    long long spanMs() const;

    bool isLoading() const { return m_pending > 0; }
    CStatusModel* model() const { return m_model; }
    QTableView* table() const { return m_table; }
    CStatusChart* chart() const { return m_chart; }
    QCheckBox* failingOnly() const { return m_failingOnly; }
    QComboBox* span() const { return m_span; }
    QLabel* note() const { return m_note; }
    // Reads of the states answered so far.
    int readsAnswered() const { return m_readsAnswered; }
    // The table above the chart, or beside it when the dock is wide and low.
    Qt::Orientation layoutOrientation() const;
    // Rows the table shows at least.
    static constexpr int kShownRows = 6;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    using Answer = std::function<void(CStatusDock*)>;
    void createUi();
    // Runs work on a worker; what it answers runs on the dock's thread while the dock lives.
    void later(std::function<Answer()> work);
    void onStatus(int generation, bool ok, const QString& error,
                  std::vector<Hlx::CProbeResult> results);
    void reloadChart();
    void updateNote();
    const Hlx::CProbeResult* selectedProbe() const;

    boost::shared_ptr<Hlx::IReachability> m_admin;
    QString m_subsystem;
    CStatusModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    CStatusChart* m_chart = nullptr;
    QSplitter* m_split = nullptr;
    QCheckBox* m_failingOnly = nullptr;
    QComboBox* m_span = nullptr;
    QLabel* m_note = nullptr;
    QTimer* m_reloadTimer = nullptr;
    QString m_error;
    int m_pending = 0;
    int m_statusGeneration = 0;
    int m_chartGeneration = 0;
    int m_readsAnswered = 0;
};
