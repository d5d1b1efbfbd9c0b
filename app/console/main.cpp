#include <sys/stat.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QStandardPaths>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstring>

#include "CConsoleLocale.h"
#include "CConsoleLogging.h"
#include "CConsoleOptions.h"
#include "CConsoleProber.h"
#include "CConsoleWindow.h"
#include "CDataDirectory.h"
#include "CDatabaseUrl.h"
#include "CDemoData.h"
#include "CDemoLoopback.h"
#include "CDisplayCheck.h"
#include "CEmbeddedAdmin.h"
#include "CEmbeddedBackends.h"
#include "CQuotesService.h"
#include "CRemoteAdmin.h"
#include "CRemoteSession.h"
#include "CScreenshotter.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "Hlx/QuotesVersion.h"
#include "Zu/CMessageBox.h"

namespace {

int fail(bool interactive, const QString& message) {
    std::fprintf(stderr, "quotes-console: %s\n", message.toLocal8Bit().constData());
    if (interactive)
        Zu::CMessageBox::critical(nullptr, QStringLiteral("行情源管理"), message, 0, 0, false);
    return 1;
}

// Shows the window until it closes, or renders its screenshots.
int runWindow(QApplication& app, CConsoleWindow& window, const CConsoleOptions& options) {
    window.restoreSettings();
    if (options.screenshotDir.isEmpty()) {
        window.show();
        return app.exec();
    }
    QString error;
    CScreenshotter screenshotter(&window, options.screenshotDir);
    const int status = screenshotter.run(&error) ? 0 : fail(false, error);
    for (const QString& path : screenshotter.written())
        std::printf("%s\n", path.toLocal8Bit().constData());
    return status;
}

void install(const boost::shared_ptr<Hlx::IQuotesAdmin>& admin) {
    Hlx::COrinClientCenter::instance()->setBackend(
        boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(admin)));
}

void uninstall() {
    // Answers still on their way must not outlive the service they come from.
    Hlx::COrinClientCenter::instance()->waitForIdle();
    Hlx::COrinClientCenter::instance()->setBackend({});
}

int runEmbedded(QApplication& app, const CConsoleOptions& options, const QString& dataDir,
                bool fillDemo) {
    const bool interactive = options.screenshotDir.isEmpty();
    QString error;
    CServiceOptions serviceOptions;
    serviceOptions.dataDir = dataDir;
    serviceOptions.dbUrl = options.dbUrl;
    serviceOptions.secretsKeyFile = options.secretsKeyFile;
    // The demonstration's broker sources name the sample brokers; real data never starts with them.
    serviceOptions.sampleData = options.demo;
    const boost::shared_ptr<CQuotesService> service = CQuotesService::open(serviceOptions, &error);
    if (!service)
        return fail(interactive, error);
    if (fillDemo && !CDemoData::fill(*service, &error))
        return fail(interactive, QStringLiteral("示例数据: %1").arg(error));
    // Live ports only on screen: pictures show the same sources on every run.
    CDemoLoopback loopback;
    if (options.demo && interactive && !loopback.start(*service, &error))
        return fail(interactive, error);
    // The embedded console acts for the user chosen in its tool bar.
    const boost::shared_ptr<CEmbeddedAdmin> admin = CEmbeddedBackends::forCurrentUser(service);
    install(admin);
    int status = 0;
    // Made first, gone last: the window's dock starts and stops it.
    CConsoleProber prober(service);
    {
        CConsoleWindow window(admin, QDir(dataDir).filePath(QStringLiteral("console.ini")),
                              options.user);
        window.runWhileStatusOpen(&prober);
        status = runWindow(app, window, options);
    }
    uninstall();
    return status;
}

int runOnServers(QApplication& app, const CConsoleOptions& options, const QString& dataDir) {
    const bool interactive = options.screenshotDir.isEmpty();
    QByteArray ca;
    if (!options.caFile.isEmpty()) {
        QFile file(options.caFile);
        if (!file.open(QIODevice::ReadOnly))
            return fail(interactive, QStringLiteral("无法读取证书文件: %1").arg(options.caFile));
        ca = file.readAll();
    }
    std::vector<std::string> servers;
    for (const QString& server : options.servers)
        servers.push_back(server.toStdString());
    const auto remote = boost::make_shared<CRemoteAdmin>(servers, ca.toStdString());
    CConsoleLogging::logConnection(*remote);
    const CConsoleSession session =
        CRemoteSession::make(remote, options.servers.join(QStringLiteral(", ")));
    if (!session.login(nullptr))
        return 0;
    install(remote);
    int status = 0;
    {
        CConsoleWindow window(remote, QDir(dataDir).filePath(QStringLiteral("console.ini")),
                              QString(), nullptr, session);
        remote->setLoginExpiredHandler(window.loginExpiredNotifier());
        status = runWindow(app, window, options);
        remote->setLoginExpiredHandler({});
    }
    // Calls still waiting for a slow or stopped server are answered at once, so quitting never
    // waits for a deadline.
    remote->shutdown();
    uninstall();
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // Before the display is looked for: a version needs none.
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("%s\n", Hlx::quotesVersionLine("quotes-console").c_str());
        return 0;
    }
    QString noDisplay;
    if (!CDisplayCheck::prepare(argc, argv, &noDisplay)) {
        std::fprintf(stderr, "quotes-console: %s\n", noDisplay.toLocal8Bit().constData());
        return 1;
    }
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("PanelQuotesManage"));
    QApplication::setApplicationName(QStringLiteral("quotes-console"));
    // The panels' fixed sizes are laid out for a 12-pixel font.
    QFont font = QApplication::font();
    font.setPixelSize(12);
    QApplication::setFont(font);

    CConsoleOptions options;
    QString error;
    if (!CConsoleOptions::parse(QApplication::arguments(), &options, &error)) {
        std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
        return error.startsWith(QStringLiteral("Usage")) ? 0 : 2;
    }
    if (CDatabaseUrl::hasPassword(options.dbUrl))
        std::fputs(
            "quotes-console: warning: the --db URL holds a password, which other local "
            "users can read; keep it in ~/.pgpass (or PGPASSFILE) instead\n",
            stderr);
    const bool interactive = options.screenshotDir.isEmpty();
    // The data directory keeps the settings and the log; on quotesd the data stays there.
    QString dataDir =
        options.dataDir.isEmpty() ? CQuotesService::defaultDataDir() : options.dataDir;
    // The directory holds the database and its key: the owner's alone, as every file made in it.
    ::umask(077);
    bool fillDemo = false;
    if (options.demo) {
        dataDir = CDemoData::defaultDirectory();
        if (!CDemoData::prepare(dataDir, options.reset, &fillDemo, &error))
            return fail(interactive, error);
    }
    if (!CDataDirectory::prepare(dataDir, &error) || !CConsoleLogging::start(dataDir, &error))
        return fail(interactive, error);
    QString warning;
    if (!CConsoleLocale::install(&app, &warning)) {
        std::fprintf(stderr, "quotes-console: warning: %s\n", warning.toLocal8Bit().constData());
        qWarning("%s", qPrintable(warning));
    }

    return options.servers.isEmpty() ? runEmbedded(app, options, dataDir, fillDemo)
                                     : runOnServers(app, options, dataDir);
}
