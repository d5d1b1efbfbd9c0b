#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVector>
#include <vector>

namespace Zu {

class CTableModel;

// Makes the view's order of a kit table: the stored rows whose shown texts contain the find text
// (case-insensitive), sorted by one column. The work runs in slices of a few milliseconds between
// event-loop turns, so that a table of 100,000 rows never holds the user-interface thread; the
// rows' search texts and sort keys are kept until a row changes.
class CTableArranger : public QObject {
    Q_OBJECT
public:
    enum SortKind { SortText, SortNumber, SortAddress };

    explicit CTableArranger(CTableModel* model, QObject* parent = nullptr);
    ~CTableArranger() override;

    void setFilter(const QString& text);
    QString filter() const { return m_filter; }
    // Column -1: the stored order.
    void setSort(int columnId, Qt::SortOrder order, SortKind kind);
    int sortColumn() const { return m_sortId; }
    Qt::SortOrder sortOrder() const { return m_sortOrder; }
    // The columns whose texts the find text is looked for in.
    void setSearchedColumns(const QVector<int>& ids);

    // A row's texts changed, or every row went.
    void rowChanged(int row);
    void rowsCleared();

    // Makes the order again (rows were added or changed).
    void restart();
    bool isBusy() const { return m_busy; }
    bool isActive() const { return !m_needle.isEmpty() || m_sortId >= 0; }
    // Does the rest of the work now (tests, bench).
    void finish();
    // The longest slice of the last order made, in ms.
    qint64 longestSliceMs() const { return m_longestSlice; }

    static const int kSliceMs = 12;

signals:
    // The model shows the new order (or the stored one again).
    void arranged();

private:
    struct SortKey {
        int kind = 0;  // addresses and numbers first, then texts
        quint64 high = 0;
        quint64 low = 0;
        QString text;
    };
    void step();
    bool stepRow(int row);
    void complete();
    const QString& haystack(int row);
    const SortKey& sortKey(int row);
    SortKey makeKey(const QString& text) const;
    bool less(int a, int b);

    CTableModel* m_model;
    QTimer m_timer;
    QString m_filter;
    QString m_needle;
    int m_sortId = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    SortKind m_sortKind = SortText;
    QVector<int> m_searched;
    std::vector<QString> m_haystacks;  // null: not made yet
    std::vector<SortKey> m_keys;
    std::vector<bool> m_keyMade;
    std::vector<int> m_matches;
    int m_next = 0;
    bool m_busy = false;
    qint64 m_longestSlice = 0;
};

}  // namespace Zu
