#include <QCoreApplication>

#include "CCtlOutput.h"
#include "CQuotesCtl.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quotesctl"));
    CCtlOutput::installMessageHandler();
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    CQuotesCtl ctl;
    return ctl.run(arguments);
}
