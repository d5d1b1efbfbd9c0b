#include <QApplication>
#include <QDir>
#include <QFont>
#include <QMessageBox>
#include <QStandardPaths>
#include <cstdio>

#include "CConsoleLogging.h"
#include "CConsoleOptions.h"
#include "CConsoleWindow.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "CScreenshotter.h"
#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"

namespace {

int fail(bool interactive, const QString& message) {
    std::fprintf(stderr, "quotes-console: %s\n", message.toLocal8Bit().constData());
    if (interactive)
        QMessageBox::critical(nullptr, QStringLiteral("行情源管理"), message);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
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
    const bool interactive = options.screenshotDir.isEmpty();
    const QString dataDir =
        options.dataDir.isEmpty() ? CQuotesService::defaultDataDir() : options.dataDir;
    if (!CConsoleLogging::start(dataDir, &error))
        return fail(interactive, error);

    CServiceOptions serviceOptions;
    serviceOptions.dataDir = dataDir;
    serviceOptions.dbUrl = options.dbUrl;
    boost::shared_ptr<CQuotesService> service = CQuotesService::open(serviceOptions, &error);
    if (!service)
        return fail(interactive, error);
    // The embedded console acts for the user chosen in its tool bar.
    const boost::shared_ptr<CEmbeddedAdmin> admin = CEmbeddedAdmin::forCurrentUser(service);
    Hlx::COrinClientCenter::instance()->setBackend(
        boost::shared_ptr<Hlx::IDataServiceBackend>(new Hlx::CAdminBackend(admin)));

    int status = 0;
    {
        CConsoleWindow window(admin, QDir(dataDir).filePath(QStringLiteral("console.ini")),
                              options.user);
        window.restoreSettings();
        if (interactive) {
            window.show();
            status = app.exec();
        } else {
            CScreenshotter screenshotter(&window, options.screenshotDir);
            if (!screenshotter.run(&error))
                status = fail(false, error);
            for (const QString& path : screenshotter.written())
                std::printf("%s\n", path.toLocal8Bit().constData());
        }
    }
    // Answers still on their way must not outlive the service they come from.
    Hlx::COrinClientCenter::instance()->waitForIdle();
    Hlx::COrinClientCenter::instance()->setBackend({});
    return status;
}
