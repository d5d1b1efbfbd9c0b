#pragma once

#include <QPointer>
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

    // Not a parent, on purpose: the dialog belongs to no widget. It only opens centred over
    // the window of the widget given.
    explicit CLevel2QuoteDialog(QWidget* parent);
    ~CLevel2QuoteDialog() override;

    // The full text, never the masked form.
    QString getTokenText() const;
    void setTokenText(const QString& token);

    bool handleEvent(int eventId, int widgetId, int arg, QString text, void* data) override;

    CSafeLineEdit* tokenEdit() const { return m_tokenEdit; }

protected:
    void createUi();
    void showEvent(QShowEvent* event) override;

private:
    CSafeLineEdit* m_tokenEdit;
    QPointer<QWidget> m_anchor;
};

}  // namespace Hlx
