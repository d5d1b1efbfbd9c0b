#include <QApplication>
#include <QFont>
#include <cstdio>

#include "GalleryWindow.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setFont(QFont(QStringLiteral("WenQuanYi Micro Hei"), 9));
    const QStringList args = QApplication::arguments();
    GalleryWindow window;
    const int at = args.indexOf(QStringLiteral("--screenshot"));
    if (at >= 0) {
        if (at + 1 >= args.size()) {
            std::fprintf(stderr, "kit-gallery: --screenshot needs a directory\n");
            return 2;
        }
        return window.writeScreenshots(args.at(at + 1)) ? 0 : 1;
    }
    window.show();
    return app.exec();
}
