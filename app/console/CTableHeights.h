#pragma once

class QTableView;

// The height a table needs to show some rows whole: the rows, the header, the frame and a
// horizontal scroll bar for when the columns are wide.
class CTableHeights {
public:
    static int forRows(const QTableView* view, int rows);
};
