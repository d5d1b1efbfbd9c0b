#pragma once

#include <QString>

class QMessageBox;
class QWidget;

namespace Zu {

// Modal message boxes. buttons and defaultButton are QMessageBox::StandardButton values
// (0 = no default); each returns the StandardButton the user chose.
class CMessageBox {
public:
    static int question(QWidget* parent, const QString& title, const QString& text, int buttons,
                        int defaultButton);
    // richText: the text is shown as rich text, else as plain text.
    static int information(QWidget* parent, const QString& title, const QString& text, int buttons,
                           int defaultButton, bool richText);
    static int warning(QWidget* parent, const QString& title, const QString& text, int buttons,
                       int defaultButton, bool richText);
    static int critical(QWidget* parent, const QString& title, const QString& text, int buttons,
                        int defaultButton, bool richText);
    // Names the box's standard buttons in Chinese, whether or not Qt's translations are loaded:
    // every text of the product is Chinese, its buttons included.
    static void localise(QMessageBox* box);
};

}  // namespace Zu
