#pragma once

#include <QString>

#include "Zu/CCommonDialog.h"
#include "model/PanelQuotesManageGlobal.h"

namespace Hlx {

class CSafeLineEdit;

// The dialog in which the Level-2 access token is typed. It belongs to no widget: whoever
// creates it deletes it.
class PANELQUOTESMANAGE_EXPORT CLevel2QuoteDialog : public Zu::CCommonDialog {
    Q_OBJECT
public:
    enum ButtonId { CloseButton = 0, OkButton = 1 };

    // The parent is ignored on purpose.
    explicit CLevel2QuoteDialog(QWidget* parent);
    ~CLevel2QuoteDialog() override;

    // The full text, never the masked form.
    QString getTokenText() const;
    void setTokenText(const QString& token);

    bool handleEvent(int eventId, int widgetId, int arg, QString text, void* data) override;

    CSafeLineEdit* tokenEdit() const { return m_tokenEdit; }

protected:
    void createUi();

private:
    CSafeLineEdit* m_tokenEdit;
};

}  // namespace Hlx
