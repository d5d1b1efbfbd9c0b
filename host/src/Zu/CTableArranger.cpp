#include "CTableArranger.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "CTableModel.h"

namespace Zu {

namespace {

// Rows between two looks at the clock.
const int kRowsPerLook = 64;

// The first of a list such as "10.0.0.1,10.0.0.2" (the broker rows join their addresses).
QString firstEntry(const QString& text) {
    const int comma = text.indexOf(QLatin1Char(','));
    return (comma < 0 ? text : text.left(comma)).trimmed();
}

}  // namespace

CTableArranger::CTableArranger(CTableModel* model, QObject* parent)
    : QObject(parent), m_model(model) {
    m_timer.setSingleShot(true);
    m_timer.setInterval(0);
    connect(&m_timer, &QTimer::timeout, this, &CTableArranger::step);
}

CTableArranger::~CTableArranger() = default;

void CTableArranger::setFilter(const QString& text) {
    if (text == m_filter) {
        return;
    }
    m_filter = text;
    m_needle = text.trimmed().toCaseFolded();
    restart();
}

void CTableArranger::setSort(int columnId, Qt::SortOrder order, SortKind kind) {
    if (columnId != m_sortId || kind != m_sortKind) {
        m_keys.clear();
        m_keyMade.clear();
    }
    m_sortId = columnId;
    m_sortOrder = order;
    m_sortKind = kind;
    restart();
}

void CTableArranger::setSearchedColumns(const QVector<int>& ids) {
    if (ids == m_searched) {
        return;
    }
    m_searched = ids;
    m_haystacks.clear();
    if (!m_needle.isEmpty()) {
        restart();
    }
}

void CTableArranger::rowChanged(int row) {
    if (row >= 0 && size_t(row) < m_haystacks.size()) {
        m_haystacks[size_t(row)] = QString();
    }
    if (row >= 0 && size_t(row) < m_keyMade.size()) {
        m_keyMade[size_t(row)] = false;
    }
}

void CTableArranger::rowsCleared() {
    m_haystacks.clear();
    m_keys.clear();
    m_keyMade.clear();
    m_matches.clear();
    m_next = 0;
}

void CTableArranger::restart() {
    m_matches.clear();
    m_next = 0;
    m_longestSlice = 0;
    if (!isActive()) {
        m_timer.stop();
        m_busy = false;
        m_model->clearOrder();
        emit arranged();
        return;
    }
    m_busy = true;
    m_timer.start();
}

void CTableArranger::finish() {
    while (m_busy) {
        m_timer.stop();
        step();
    }
}

void CTableArranger::step() {
    QElapsedTimer clock;
    clock.start();
    const int rows = m_model->storedRows();
    m_haystacks.resize(size_t(rows));
    if (m_sortId >= 0) {
        m_keys.resize(size_t(rows));
        m_keyMade.resize(size_t(rows), false);
    }
    while (m_next < rows) {
        const int end = std::min(rows, m_next + kRowsPerLook);
        for (; m_next < end; ++m_next) {
            if (stepRow(m_next)) {
                m_matches.push_back(m_next);
            }
        }
        if (clock.elapsed() >= kSliceMs) {
            break;
        }
    }
    if (m_next >= rows) {
        complete();
    } else {
        m_timer.start();
    }
    m_longestSlice = std::max(m_longestSlice, clock.elapsed());
}

bool CTableArranger::stepRow(int row) {
    if (!m_needle.isEmpty() && !haystack(row).contains(m_needle)) {
        return false;
    }
    if (m_sortId >= 0) {
        sortKey(row);
    }
    return true;
}

void CTableArranger::complete() {
    if (m_sortId >= 0) {
        std::stable_sort(m_matches.begin(), m_matches.end(),
                         [this](int a, int b) { return less(a, b); });
    }
    m_busy = false;
    m_model->setOrder(std::move(m_matches));
    m_matches = std::vector<int>();
    emit arranged();
}

const QString& CTableArranger::haystack(int row) {
    QString& made = m_haystacks[size_t(row)];
    if (made.isNull()) {
        // The shown texts, each on a line of its own, so that no match spans two cells.
        QString joined(QLatin1String(""));
        for (int id : m_searched) {
            joined += m_model->text(row, id);
            joined += QLatin1Char('\n');
        }
        made = joined.toCaseFolded();
    }
    return made;
}

const CTableArranger::SortKey& CTableArranger::sortKey(int row) {
    if (!m_keyMade[size_t(row)]) {
        m_keys[size_t(row)] = makeKey(m_model->text(row, m_sortId));
        m_keyMade[size_t(row)] = true;
    }
    return m_keys[size_t(row)];
}

CTableArranger::SortKey CTableArranger::makeKey(const QString& text) const {
    SortKey key;
    const QString first = firstEntry(text);
    if (m_sortKind == SortAddress) {
        const QByteArray bytes = first.toLatin1();
        unsigned char address[16] = {};
        if (inet_pton(AF_INET, bytes.constData(), address) == 1) {
            key.low = (quint64(address[0]) << 24) | (quint64(address[1]) << 16) |
                      (quint64(address[2]) << 8) | quint64(address[3]);
            return key;
        }
        if (inet_pton(AF_INET6, bytes.constData(), address) == 1) {
            key.kind = 1;
            for (int i = 0; i < 8; ++i) {
                key.high = (key.high << 8) | address[i];
                key.low = (key.low << 8) | address[8 + i];
            }
            return key;
        }
    } else if (m_sortKind == SortNumber) {
        bool ok = false;
        const qulonglong value = first.toULongLong(&ok);
        if (ok) {
            key.low = value;
            return key;
        }
    }
    key.kind = m_sortKind == SortText ? 0 : 2;
    key.text = text.toCaseFolded();
    return key;
}

bool CTableArranger::less(int a, int b) {
    const SortKey& x = m_keys[size_t(a)];
    const SortKey& y = m_keys[size_t(b)];
    int order = x.kind != y.kind ? (x.kind < y.kind ? -1 : 1) : 0;
    if (order == 0 && x.high != y.high) {
        order = x.high < y.high ? -1 : 1;
    }
    if (order == 0 && x.low != y.low) {
        order = x.low < y.low ? -1 : 1;
    }
    if (order == 0) {
        order = x.text.compare(y.text);
    }
    if (order == 0) {
        return false;  // stable: stored order among equals
    }
    return m_sortOrder == Qt::AscendingOrder ? order < 0 : order > 0;
}

}  // namespace Zu
