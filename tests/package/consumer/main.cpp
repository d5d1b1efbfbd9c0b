// A project outside the tree that finds the installed library and builds a panel from it.
#include <QApplication>

#include "panels/QuotesManagePanel.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    Hlx::CStockQuotesManagePanel panel(nullptr);
    return panel.objectName() == QStringLiteral("stq") ? 0 : 1;
}
