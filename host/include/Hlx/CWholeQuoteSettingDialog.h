#pragma once

#include <QMap>
#include <string>

#include "Zu/CCommonDialog.h"
#include "rkservice/CWholeQuotedivision.h"

class QCheckBox;
class QPushButton;

namespace Hlx {

// Edits which markets receive whole-market quote pushes: one check box per known market.
// exec() returns 1 on "确定", 0 on "取消" or close.
class CWholeQuoteSettingDialog : public Zu::CCommonDialog {
    Q_OBJECT
public:
    CWholeQuoteSettingDialog(const QString& name, QWidget* parent);
    ~CWholeQuoteSettingDialog() override;

    // Shows the division's flags; a null division clears every box.
    void setWholeQuote(const rkservice::CWholeQuotedivisionPtr& division);
    // Writes the boxes into division.
    void getWholeQuote(const rkservice::CWholeQuotedivisionPtr& division) const;

    QCheckBox* marketCheckBox(const std::string& code) const;
    QPushButton* okButton() const { return m_okButton; }
    QPushButton* cancelButton() const { return m_cancelButton; }

private:
    void createUi();

    QMap<QString, QCheckBox*> m_boxes;
    QPushButton* m_okButton = nullptr;
    QPushButton* m_cancelButton = nullptr;
};

}  // namespace Hlx
