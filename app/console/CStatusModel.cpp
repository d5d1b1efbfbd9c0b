#include "CStatusModel.h"

#include <QBrush>
#include <QColor>
#include <QDateTime>
#include <algorithm>

#include "model/CProbeVocabulary.h"

namespace {

const char* const kHeaders[CStatusModel::kColumns] = {"行情源", "地址",     "端口",
                                                      "状态",   "连接时间", "状态始于"};

QString connectText(const Hlx::CProbeResult& probe) {
    if (probe.state != CProbeVocabulary::kReachable)
        return QString();
    return QStringLiteral("%1 ms").arg(probe.connectUs / 1000.0, 0, 'f', 1);
}

QString sinceText(long long sinceMs) {
    if (sinceMs <= 0)
        return QString();
    return QDateTime::fromMSecsSinceEpoch(sinceMs).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

}  // namespace

CStatusModel::CStatusModel(QObject* parent) : QAbstractTableModel(parent) {}

void CStatusModel::setResults(std::vector<Hlx::CProbeResult> results) {
    beginResetModel();
    m_results = std::move(results);
    rebuildShown();
    endResetModel();
}

void CStatusModel::setFailingOnly(bool failingOnly) {
    if (failingOnly == m_failingOnly)
        return;
    beginResetModel();
    m_failingOnly = failingOnly;
    rebuildShown();
    endResetModel();
}

bool CStatusModel::isFailing(const std::string& state) {
    return state == CProbeVocabulary::kUnreachable || state == CProbeVocabulary::kTimeout;
}

void CStatusModel::rebuildShown() {
    m_shown.clear();
    for (const Hlx::CProbeResult& probe : m_results) {
        if (m_failingOnly && !isFailing(probe.state))
            continue;
        for (int id : probe.sourceIds)
            m_shown.push_back({id, &probe});
    }
    // By source, then address: a source's addresses stay together.
    std::stable_sort(m_shown.begin(), m_shown.end(),
                     [](const Row& a, const Row& b) { return a.sourceId < b.sourceId; });
}

const Hlx::CProbeResult* CStatusModel::probeAt(int row) const {
    return row >= 0 && row < int(m_shown.size()) ? m_shown[row].probe : nullptr;
}

int CStatusModel::sourceAt(int row) const {
    return row >= 0 && row < int(m_shown.size()) ? m_shown[row].sourceId : 0;
}

int CStatusModel::shownForEndpoint(const std::string& address, int port) const {
    for (std::size_t row = 0; row < m_shown.size(); ++row) {
        if (m_shown[row].probe->address == address && m_shown[row].probe->port == port)
            return int(row);
    }
    return -1;
}

int CStatusModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_shown.size());
}

int CStatusModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : kColumns;
}

QString CStatusModel::text(const Row& row, int column) {
    const Hlx::CProbeResult& probe = *row.probe;
    switch (column) {
        case kColSource:
            return QString::number(row.sourceId);
        case kColAddress:
            return QString::fromStdString(probe.address);
        case kColPort:
            return QString::number(probe.port);
        case kColState:
            return QString::fromUtf8(CProbeVocabulary::label(probe.state.c_str()));
        case kColConnect:
            return connectText(probe);
        case kColSince:
            return sinceText(probe.sinceMs);
        default:
            return QString();
    }
}

QVariant CStatusModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= int(m_shown.size()))
        return QVariant();
    const Row& row = m_shown[index.row()];
    if (role == Qt::DisplayRole)
        return text(row, index.column());
    if (role == Qt::ToolTipRole && !row.probe->error.empty())
        return QString::fromStdString(row.probe->error);
    if (role == Qt::ForegroundRole && index.column() == kColState) {
        if (isFailing(row.probe->state) || row.probe->state == CProbeVocabulary::kRefused)
            return QBrush(QColor(0xc0, 0x30, 0x30));
        if (row.probe->state == CProbeVocabulary::kReachable)
            return QBrush(QColor(0x20, 0x80, 0x40));
    }
    return QVariant();
}

QVariant CStatusModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 ||
        section >= kColumns)
        return QVariant();
    return QString::fromUtf8(kHeaders[section]);
}
