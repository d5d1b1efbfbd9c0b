#include "CConsoleLocale.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibraryInfo>
#include <QTranslator>

QString CConsoleLocale::qtTranslationsFile() {
    return QDir(QLibraryInfo::location(QLibraryInfo::TranslationsPath))
        .filePath(QStringLiteral("qtbase_zh_CN.qm"));
}

bool CConsoleLocale::install(QCoreApplication* app, QString* warning) {
    const QString file = qtTranslationsFile();
    auto* translator = new QTranslator(app);
    if (!translator->load(file) || !QCoreApplication::installTranslator(translator)) {
        delete translator;
        *warning = QStringLiteral(
                       "Qt's Chinese translations not loaded (%1); install "
                       "qttranslations5-l10n")
                       .arg(file);
        return false;
    }
    return true;
}
