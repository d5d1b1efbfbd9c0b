#include "GalleryWindow.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <boost/make_shared.hpp>

#include "Hlx/CSafeLineEdit.h"
#include "Hlx/CWholeQuoteSettingDialog.h"
#include "Hlx/IorinDockableWidget.h"
#include "Zu/CBaseTableColumnMultiButtonsDelegate.h"
#include "Zu/CComboBox.h"
#include "Zu/CCommonDialog.h"
#include "Zu/CLoadingMaskWidget.h"
#include "Zu/CMessageBox.h"
#include "Zu/CMessageTip.h"
#include "Zu/COddEvenRowTable.h"
#include "Zu/CPushButton.h"
#include "Zu/CSimpleTextWidget.h"
#include "Zu/CSmallNormalButton.h"
#include "Zu/CWidgetList.h"

namespace {

Zu::CWidgetList* formRow(const QString& label, QWidget* input, int leftMargin) {
    auto* row = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    row->setMargins(leftMargin, 0, 0, 0);
    row->setSpacing(10);
    auto* text = new Zu::CSimpleTextWidget(nullptr, 0, label);
    text->setFixedHeight(24);
    row->addWidget(text, 0, Zu::CWidgetList::AnchorFill);
    input->setFixedSize(200, 24);
    row->addWidget(input, 0, Zu::CWidgetList::AnchorFill);
    row->addStretch(1);
    return row;
}

void fillTable(Zu::COddEvenRowTable* table, Zu::CBaseTableColumnMultiButtonsDelegate* delegate) {
    const QStringList names = {QStringLiteral("Kx证券"), QStringLiteral("证券Level-2"),
                               QStringLiteral("股票期权")};
    for (int i = 0; i < 14; ++i) {
        const int row = table->appendRow();
        table->setItemText(row, 0, QString::number(1000 + i));
        table->setItemText(row, 1, QStringLiteral("证券"));
        table->setItemText(row, 2, names[i % names.size()]);
        table->setItemText(row, 5, QStringLiteral("192.168.%1.%2").arg(i / 4).arg(10 + i));
        table->setItemText(row, 6, QString::number(7700 + i));
        table->setItemText(row, 7, QStringLiteral("oper%1").arg(i));
        table->setItemText(row, 8, QStringLiteral("secret"));
        QVector<Zu::ButtonData> buttons;
        buttons.append(Zu::ButtonData(5, QStringLiteral("编辑")));
        if (i % 5 != 3) {
            buttons.append(Zu::ButtonData(6, QStringLiteral("删除"), 1, i % 7 == 6,
                                          {{QStringLiteral("tooltip"), QStringLiteral("删除")}}));
        }
        delegate->setItemButtons(std::to_string(row), buttons, false);
    }
    table->setTotalCount(14);
}

Zu::COddEvenRowTable* makeTable(QWidget* parent,
                                Zu::CBaseTableColumnMultiButtonsDelegate** delegateOut) {
    auto* table = new Zu::COddEvenRowTable(parent, 1262, 255);
    table->setColumns({QStringLiteral("ID"), QStringLiteral("行情源类型"),
                       QStringLiteral("平台名称"), QStringLiteral("名称"),
                       QStringLiteral("服务器组"), QStringLiteral("地址"), QStringLiteral("端口"),
                       QStringLiteral("用户名"), QStringLiteral("密码"), QStringLiteral("操作"),
                       QStringLiteral("分系统")});
    table->setColumnHidden(0, true);
    table->setColumnHidden(8, true);
    table->setColumnHidden(10, true);
    table->removeColumn(3);
    table->removeColumn(4);
    auto* delegate = new Zu::CBaseTableColumnMultiButtonsDelegate(table, 0);
    table->setColumnDelegate(9, delegate);
    fillTable(table, delegate);
    table->adjustColumnWidth();
    if (delegateOut) {
        *delegateOut = delegate;
    }
    return table;
}

QPixmap grabWithTip(QWidget* window) {
    QPixmap shot = window->grab();
    QWidget* tip = Zu::CMessageTip::currentTip();
    if (tip && tip->isVisible()) {
        QPainter painter(&shot);
        painter.drawPixmap(window->mapFromGlobal(tip->mapToGlobal(QPoint(0, 0))), tip->grab());
    }
    return shot;
}

}  // namespace

GalleryWindow::GalleryWindow(QWidget* parent) : QTabWidget(parent) {
    setWindowTitle(QStringLiteral("Kit gallery"));
    resize(980, 620);
    addTab(buildControls(), QStringLiteral("控件"));
    addTab(buildPanel(), QStringLiteral("面板与表格"));
    addTab(buildMask(), QStringLiteral("加载"));
    addTab(buildDialog(), QStringLiteral("对话框"));
}

QWidget* GalleryWindow::buildControls() {
    auto* page = new Zu::CWidgetList(nullptr, Qt::Vertical);
    page->setMargins(20, 20, 20, 20);
    page->setSpacing(14);

    auto* buttons = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    buttons->setSpacing(15);
    auto* add = new Zu::CSmallNormalButton(nullptr, 0, QStringLiteral("+添加证券行情源"));
    add->setFixedSize(135, 26);
    auto* refresh = new Zu::CSmallNormalButton(nullptr, 1, QStringLiteral("刷新"));
    refresh->setFixedSize(70, 26);
    auto* submit = new Zu::CSmallNormalButton(nullptr, 2, QStringLiteral("提交"), 1);
    submit->setFixedSize(57, 24);
    auto* primary = new Zu::CSmallNormalButton(nullptr, 3, QStringLiteral("确定"), 2);
    primary->setFixedSize(57, 24);
    auto* disabled =
        new Zu::CSmallNormalButton(nullptr, 4, QStringLiteral("选择分系统后添加行情源"));
    disabled->setFixedSize(170, 26);
    disabled->setEnabled(false);
    auto* link = new Zu::CPushButton(nullptr, 4);
    link->setTextColorKey(QStringLiteral("clr_text_clickable"));
    link->setText(QStringLiteral("行情全推设置"));
    link->setIconKey(QStringLiteral("img_btn_set_small"));
    link->setFixedSize(link->minimumWidth(), 15);
    for (QWidget* w : {static_cast<QWidget*>(add), static_cast<QWidget*>(refresh),
                       static_cast<QWidget*>(submit), static_cast<QWidget*>(primary),
                       static_cast<QWidget*>(disabled), static_cast<QWidget*>(link)}) {
        buttons->addFixedWidget(w);
    }
    buttons->addStretch(1);
    page->addWidget(buttons, 0, Zu::CWidgetList::AnchorFill);

    auto* combo = new Zu::CComboBox(nullptr, 0);
    combo->addItems(
        {QStringLiteral("--请选择--"), QStringLiteral("Kx期货"), QStringLiteral("期货期权")});
    combo->setCurrentIndex(1);
    page->addWidget(formRow(QStringLiteral("平台名称:"), combo, 0), 0, 3);
    auto* address = new Hlx::CSafeLineEdit(nullptr, 1);
    address->setText(QStringLiteral("192.168.1.10"));
    page->addWidget(formRow(QStringLiteral("地址:"), address, 25), 0, 3);
    auto* user = new Zu::CLineEdit(nullptr, 3);
    user->setPlaceholderText(QStringLiteral("1-25位字母或数字"));
    page->addWidget(formRow(QStringLiteral("用户名:"), user, 13), 0, 3);
    auto* password = new Hlx::CSafeLineEdit(nullptr, 4);
    password->setEchoMode(QLineEdit::Password);
    password->setText(QStringLiteral("secret123"));
    page->addWidget(formRow(QStringLiteral("密码:"), password, 25), 0, 3);

    auto* flags = new Zu::CSimpleTextWidget(nullptr, 0, QStringLiteral("右对齐文字 (386)"));
    // 386: the dialogs' labels, right-aligned on one line.
    flags->setTextFlags(int(Qt::AlignRight | Qt::AlignVCenter) | Qt::TextSingleLine);
    flags->setFixedSize(200, 24);
    page->addWidget(flags, 0, 0);
    page->addStretch(1);
    m_groups.insert(QStringLiteral("controls"), page);
    return page;
}

QWidget* GalleryWindow::buildPanel() {
    auto* panel =
        new Hlx::IorinDockableWidget(false, QStringLiteral("gallerypanel"), nullptr, true);
    auto* outer = new Zu::CWidgetList(nullptr, Qt::Vertical);
    outer->setMargins(0, 10, 0, 0);
    outer->setSpacing(5);
    auto* bar = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    bar->setMargins(10, 0, 0, 0);
    bar->setSpacing(15);
    auto* add = new Zu::CSmallNormalButton(nullptr, 0, QStringLiteral("+添加证券行情源"));
    add->setFixedSize(135, 26);
    auto* refresh = new Zu::CSmallNormalButton(nullptr, 1, QStringLiteral("刷新"));
    refresh->setFixedSize(70, 26);
    auto* removeAll = new Zu::CSmallNormalButton(nullptr, 3, QStringLiteral("全部删除"));
    removeAll->setFixedSize(70, 26);
    bar->addFixedWidget(add);
    bar->addFixedWidget(refresh);
    bar->addFixedWidget(removeAll);
    bar->addStretch(1);
    auto* maskHost = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    maskHost->setFixedSize(130, 40);
    auto* mask = new Zu::CLoadingMaskWidget(maskHost);
    mask->resize(130, 40);
    mask->setAnimationSize(QSize(150, 45));
    bar->addFixedWidget(maskHost);
    mask->attach(maskHost);
    outer->addFixedWidget(bar);
    Zu::CBaseTableColumnMultiButtonsDelegate* delegate = nullptr;
    auto* table = makeTable(nullptr, &delegate);
    outer->addStretchWidget(table, 1);
    panel->setInnerStretchWidget(outer);
    m_groups.insert(QStringLiteral("panel"), panel);
    return panel;
}

QWidget* GalleryWindow::buildMask() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* table = makeTable(page, nullptr);
    layout->addWidget(table);
    auto* mask = new Zu::CLoadingMaskWidget(page);
    mask->setText(QStringLiteral("正在加载数据"));
    mask->setAnimationSize(QSize(150, 45));
    mask->attach(table);
    m_groups.insert(QStringLiteral("mask"), page);
    return page;
}

QWidget* GalleryWindow::buildDialog() {
    auto* page = new QWidget;
    auto* dialog = new Zu::CCommonDialog(page);
    dialog->setTitle(QStringLiteral("添加证券行情源"));
    auto* inner = new Zu::CWidgetList(nullptr, Qt::Vertical);
    inner->setMargins(20, 20, 0, 0);
    inner->setSpacing(10);
    auto* combo = new Zu::CComboBox(nullptr, 0);
    combo->addItem(QStringLiteral("Kx证券"));
    inner->addWidget(formRow(QStringLiteral("平台名称:"), combo, 0), 0, 3);
    inner->addWidget(formRow(QStringLiteral("地址:"), new Hlx::CSafeLineEdit(nullptr, 1), 25), 0,
                     3);
    inner->addWidget(formRow(QStringLiteral("端口:"), new Hlx::CSafeLineEdit(nullptr, 2), 25), 0,
                     3);
    inner->addWidget(formRow(QStringLiteral("用户名:"), new Hlx::CSafeLineEdit(nullptr, 3), 13), 0,
                     3);
    auto* password = new Hlx::CSafeLineEdit(nullptr, 4);
    password->setEchoMode(QLineEdit::Password);
    password->setText(QStringLiteral("abc"));
    inner->addWidget(formRow(QStringLiteral("密码:"), password, 25), 0, 3);
    auto* buttons = new Zu::CWidgetList(nullptr, Qt::Horizontal);
    buttons->setMargins(0, 0, 20, 0);
    buttons->setSpacing(10);
    buttons->addStretch(1);
    auto* submit = new Zu::CSmallNormalButton(nullptr, 0, QStringLiteral("提交"), 1);
    submit->setFixedSize(57, 24);
    auto* close = new Zu::CSmallNormalButton(nullptr, 1, QStringLiteral("关闭"), 1);
    close->setFixedSize(57, 24);
    buttons->addWidget(submit);
    buttons->addWidget(close);
    inner->addWidget(buttons, 0, 3);
    inner->addStretch(1);
    dialog->setInnerWidget(inner);
    dialog->setFixedSize(380, 355);
    m_groups.insert(QStringLiteral("dialog"), dialog);
    return page;
}

bool GalleryWindow::writeScreenshots(const QString& dir) {
    QDir().mkpath(dir);
    bool ok = true;
    const Save save = [&ok, &dir](const QPixmap& shot, const QString& name) {
        ok = shot.save(QDir(dir).filePath(name + QStringLiteral(".png"))) && ok;
    };
    show();
    QApplication::processEvents();
    shootControlsAndPanel(save);
    shootDialogs(save);
    shootQuestion(save);
    hide();
    return ok;
}

void GalleryWindow::shootControlsAndPanel(const Save& save) {
    setCurrentIndex(0);
    QApplication::processEvents();
    save(m_groups.value(QStringLiteral("controls"))->grab(), QStringLiteral("controls"));

    // The panel, with the mouse over a row button.
    setCurrentIndex(1);
    QApplication::processEvents();
    QWidget* panel = m_groups.value(QStringLiteral("panel"));
    if (auto* delegate = panel->findChild<Zu::CBaseTableColumnMultiButtonsDelegate*>()) {
        QWidget* viewport = delegate->table()->view()->viewport();
        const QPoint at = delegate->buttonRect(2, 6).center();
        QMouseEvent move(QEvent::MouseMove, at, viewport->mapToGlobal(at), Qt::NoButton,
                         Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &move);
        delegate->table()->selectRow(1);
    }
    QApplication::processEvents();
    save(panel->grab(), QStringLiteral("panel"));
    shootTableMenu(panel, save);

    setCurrentIndex(2);
    QApplication::processEvents();
    save(m_groups.value(QStringLiteral("mask"))->grab(), QStringLiteral("mask"));
}

// The table's context menu, drawn over the panel where it pops up.
void GalleryWindow::shootTableMenu(QWidget* panel, const Save& save) {
    auto* table = panel->findChild<Zu::COddEvenRowTable*>();
    if (!table)
        return;
    QMenu* menu = table->createContextMenu(1, 5, table);
    menu->popup(table->mapToGlobal(QPoint(200, 80)));
    QApplication::processEvents();
    QPixmap shot = panel->grab();
    QPainter painter(&shot);
    painter.drawPixmap(panel->mapFromGlobal(menu->pos()), menu->grab());
    painter.end();
    save(shot, QStringLiteral("table_menu"));
    menu->close();
    delete menu;
}

void GalleryWindow::shootDialogs(const Save& save) {
    setCurrentIndex(3);
    QWidget* dialog = m_groups.value(QStringLiteral("dialog"));
    dialog->show();
    QApplication::processEvents();
    save(dialog->grab(), QStringLiteral("dialog"));

    // Input tips as the dialogs show them.
    const auto edits = dialog->findChildren<Hlx::CSafeLineEdit*>();
    if (!edits.isEmpty()) {
        Zu::CMessageTip::showTip(edits.first(), Zu::CMessageTip::kBelowLeft,
                                 QStringLiteral("请输入有效的服务器地址"),
                                 Zu::CMessageTip::StyleArrow, Zu::CMessageTip::LevelWarning, 5000);
        QApplication::processEvents();
        save(grabWithTip(dialog), QStringLiteral("tip"));
    }
    dialog->hide();

    Hlx::CWholeQuoteSettingDialog wholeQuote(QString(), this);
    auto division = boost::make_shared<rkservice::CWholeQuotedivision>();
    division->setEnabled("SH", true);
    division->setEnabled("SZ", true);
    division->setEnabled("HGT", true);
    wholeQuote.setWholeQuote(division);
    wholeQuote.show();
    QApplication::processEvents();
    save(wholeQuote.grab(), QStringLiteral("wholequote"));
    wholeQuote.hide();
}

// A question box, captured while it runs modally.
void GalleryWindow::shootQuestion(const Save& save) {
    QTimer::singleShot(50, [save]() {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            save(box->grab(), QStringLiteral("messagebox"));
            box->button(QMessageBox::Cancel)->click();
        }
    });
    Zu::CMessageBox::question(this, QStringLiteral("操作提示"),
                              QStringLiteral("确定删除证券行情源吗? "),
                              QMessageBox::Ok | QMessageBox::Cancel, 0);
}
