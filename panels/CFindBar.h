#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;

namespace Hlx {

// The find bar above a quote-source table: the text to find and "匹配 M / N". Esc hides it and
// clears the text; the owner filters its table on textChanged.
class CFindBar : public QWidget {
    Q_OBJECT
public:
    explicit CFindBar(QWidget* parent = nullptr);
    ~CFindBar() override;

    QString text() const;
    void setText(const QString& text);
    // Shows the bar with the cursor in its text.
    void open();
    // Clears the text and hides the bar.
    void dismiss();
    void setMatches(int shown, int total);
    QString matchesText() const;
    QLineEdit* edit() const { return m_edit; }

signals:
    void textChanged(const QString& text);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QLineEdit* m_edit;
    QLabel* m_matches;
};

}  // namespace Hlx
