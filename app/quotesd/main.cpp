#include <QCoreApplication>
#include <cstdio>

#include "CDaemonOptions.h"
#include "CQuotesDaemon.h"

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quotesd"));
    QStringList arguments = QCoreApplication::arguments();
    arguments.removeFirst();
    CDaemonOptions options;
    QString error;
    if (!CDaemonOptions::parse(arguments, &options, &error)) {
        std::fprintf(stderr, "quotesd: %s (see quotesd --help)\n", error.toLocal8Bit().constData());
        return CQuotesDaemon::kUsage;
    }
    return CQuotesDaemon(options).run();
}
