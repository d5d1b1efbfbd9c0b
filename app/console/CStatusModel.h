#pragma once

#include <QAbstractTableModel>
#include <vector>

#include "Hlx/CProbeResult.h"

// The rows of the dock 行情源状态: one per source and address it connects to, with the state the
// last probe found, how long its connect took and since when the state holds. Optionally only
// the failing ones (不可达, 超时).
class CStatusModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { kColSource, kColAddress, kColPort, kColState, kColConnect, kColSince, kColumns };

    struct Row {
        int sourceId = 0;
        const Hlx::CProbeResult* probe = nullptr;  // into the results kept by the model
    };

    explicit CStatusModel(QObject* parent = nullptr);

    // Replaces every row by those of the results (the stored state of each address).
    void setResults(std::vector<Hlx::CProbeResult> results);
    // Whether only 不可达 and 超时 are shown.
    void setFailingOnly(bool failingOnly);
    bool failingOnly() const { return m_failingOnly; }
    // Whether the state is one the filter for failures keeps.
    static bool isFailing(const std::string& state);

    // The address and port of a shown row; null past the rows.
    const Hlx::CProbeResult* probeAt(int row) const;
    int sourceAt(int row) const;
    int shownForEndpoint(const std::string& address, int port) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    void rebuildShown();
    static QString text(const Row& row, int column);

    std::vector<Hlx::CProbeResult> m_results;
    std::vector<Row> m_shown;
    bool m_failingOnly = false;
};
