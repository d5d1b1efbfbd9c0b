#include "panels/CFindBar.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>

namespace Hlx {

CFindBar::CFindBar(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("findBar"));
    m_edit = new QLineEdit(this);
    m_edit->setObjectName(QStringLiteral("findEdit"));
    m_edit->setPlaceholderText(QStringLiteral("查找：名称、地址、端口…"));
    m_edit->setClearButtonEnabled(true);
    m_edit->setFixedWidth(260);
    m_edit->installEventFilter(this);
    m_matches = new QLabel(this);
    m_matches->setObjectName(QStringLiteral("findMatches"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(10, 0, 10, 0);
    layout->setSpacing(10);
    layout->addWidget(m_edit);
    layout->addWidget(m_matches);
    layout->addStretch(1);
    connect(m_edit, &QLineEdit::textChanged, this, &CFindBar::textChanged);
    hide();
}

CFindBar::~CFindBar() = default;

QString CFindBar::text() const {
    return m_edit->text();
}

void CFindBar::setText(const QString& text) {
    m_edit->setText(text);
}

void CFindBar::open() {
    show();
    m_edit->setFocus(Qt::ShortcutFocusReason);
    m_edit->selectAll();
}

void CFindBar::dismiss() {
    m_edit->clear();
    hide();
}

void CFindBar::setMatches(int shown, int total) {
    m_matches->setText(QStringLiteral("匹配 %1 / %2").arg(shown).arg(total));
}

QString CFindBar::matchesText() const {
    return m_matches->text();
}

bool CFindBar::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_edit && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        // The rows come back as the bar goes: no filter stays that the operator cannot see.
        dismiss();
        if (parentWidget())
            parentWidget()->setFocus(Qt::ShortcutFocusReason);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace Hlx
