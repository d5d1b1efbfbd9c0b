#include "panels/CConnectionTest.h"

#include <QApplication>
#include <QMessageBox>
#include <QMetaObject>
#include <QPointer>
#include <QStringList>
#include <QThreadPool>
#include <boost/pointer_cast.hpp>

#include "Hlx/CAdminBackend.h"
#include "Hlx/COrinClientCenter.h"
#include "model/CProbeVocabulary.h"

namespace Hlx {

const char* const CConnectionTest::kBoxName = "connectionTestBox";

namespace {

QString lineOf(const CProbeResult& result) {
    QString line = QStringLiteral("%1:%2 %3")
                       .arg(QString::fromStdString(result.address))
                       .arg(result.port)
                       .arg(QString::fromUtf8(CProbeVocabulary::label(result.state.c_str())));
    if (result.state == CProbeVocabulary::kReachable)
        line += QStringLiteral("，连接 %1 ms").arg(result.connectUs / 1000.0, 0, 'f', 1);
    if (!result.error.empty())
        line += QStringLiteral("（%1）").arg(QString::fromStdString(result.error));
    return line;
}

}  // namespace

bool CConnectionTest::start(QWidget* widget, int sourceId) {
    const auto backend =
        boost::dynamic_pointer_cast<CAdminBackend>(COrinClientCenter::instance()->backend());
    if (!backend || !backend->admin()) {
        show(widget, QStringLiteral("此连接不提供连接测试"));
        return false;
    }
    const boost::shared_ptr<IQuotesAdmin> admin = backend->admin();
    QPointer<QWidget> alive(widget);
    // A probe waits up to its timeout: never on the user-interface thread.
    QThreadPool::globalInstance()->start([admin, sourceId, alive] {
        std::vector<CProbeResult> results;
        const utils::RKError error = admin->probeSources({sourceId}, false, &results);
        const QString text = describe(error, results);
        // Posted to the application, which outlives the widget: the widget is looked at there.
        QMetaObject::invokeMethod(
            qApp,
            [alive, text] {
                if (alive)
                    show(alive.data(), text);
            },
            Qt::QueuedConnection);
    });
    return true;
}

QString CConnectionTest::describe(const utils::RKError& error,
                                  const std::vector<CProbeResult>& results) {
    if (!error.isSuccess())
        return QStringLiteral("测试连接失败：%1").arg(QString::fromStdString(error.errorMsg()));
    if (results.empty())
        return QStringLiteral("此行情源没有可测试的地址");
    QStringList lines;
    for (const CProbeResult& result : results)
        lines << lineOf(result);
    return lines.join(QLatin1Char('\n'));
}

QMessageBox* CConnectionTest::show(QWidget* widget, const QString& text) {
    auto* box = new QMessageBox(QMessageBox::Information, QStringLiteral("测试连接"), text,
                                QMessageBox::Ok, widget);
    box->setObjectName(QString::fromLatin1(kBoxName));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    return box;
}

}  // namespace Hlx
