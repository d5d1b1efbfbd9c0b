#pragma once

#include <QString>

class QCoreApplication;

// Qt's own texts in Chinese (standard buttons, context menus), as every other text is.
class CConsoleLocale {
public:
    // The file of Qt's Chinese translations, in Qt's translations directory.
    static QString qtTranslationsFile();
    // Installs Qt's Chinese translations into the application; false with a warning text when
    // they cannot be loaded (the console then runs with Qt's English texts).
    static bool install(QCoreApplication* app, QString* warning);
};
