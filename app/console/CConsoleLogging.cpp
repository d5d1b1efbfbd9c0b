#include "CConsoleLogging.h"

#include <log4cxx/fileappender.h>
#include <log4cxx/logger.h>
#include <log4cxx/patternlayout.h>
#include <QDir>

#include "CRemoteAdmin.h"

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

void CConsoleLogging::logConnection(CRemoteAdmin& remote) {
    remote.setConnectionLog([](CConnectionLog::Level level, const std::string& line) {
        static const log4cxx::LoggerPtr logger =
            log4cxx::Logger::getLogger(LOG4CXX_STR("quotes.console.connection"));
        if (level == CConnectionLog::Level::Warning)
            LOG4CXX_WARN(logger, line);
        else
            LOG4CXX_INFO(logger, line);
    });
}
