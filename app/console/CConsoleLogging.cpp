#include "CConsoleLogging.h"

#include <log4cxx/fileappender.h>
#include <log4cxx/logger.h>
#include <log4cxx/patternlayout.h>
#include <QDir>

bool CConsoleLogging::start(const QString& dataDir, QString* error) {
    if (!QDir().mkpath(dataDir)) {
        *error = QStringLiteral("cannot create %1").arg(dataDir);
        return false;
    }
    const std::string path =
        QDir(dataDir).filePath(QStringLiteral("quotes-console.log")).toStdString();
    log4cxx::LayoutPtr layout(
        new log4cxx::PatternLayout(LOG4CXX_STR("%d{ISO8601} %-5p %c - %m%n")));
    log4cxx::AppenderPtr appender(new log4cxx::FileAppender(layout, path, true));
    log4cxx::LoggerPtr root = log4cxx::Logger::getRootLogger();
    root->addAppender(appender);
    root->setLevel(log4cxx::Level::getInfo());
    return true;
}
