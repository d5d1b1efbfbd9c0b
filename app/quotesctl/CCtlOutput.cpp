#include "CCtlOutput.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVector>
#include <cstdio>

namespace {

void writeOut(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

int width(const QString& text) {
    int w = 0;
    for (const QChar c : text)
        w += c.unicode() >= 0x1100 ? 2 : 1;
    return w;
}

}  // namespace

void CCtlOutput::print(const QString& text) {
    writeOut(stdout, text);
}

void CCtlOutput::printJson(const QJsonValue& value) {
    const QJsonDocument document =
        value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    print(QString::fromUtf8(document.toJson(QJsonDocument::Indented)));
}

void CCtlOutput::printTable(const QStringList& header, const QList<QStringList>& rows) {
    QVector<int> widths(header.size());
    for (int i = 0; i < header.size(); ++i)
        widths[i] = width(header[i]);
    for (const QStringList& row : rows)
        for (int i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    auto line = [&](const QStringList& cells) {
        QString text;
        for (int i = 0; i < cells.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size())
                text += QString(widths[i] - width(cells[i]) + 2, QLatin1Char(' '));
        }
        print(text + QLatin1Char('\n'));
    };
    line(header);
    for (const QStringList& row : rows)
        line(row);
}

void CCtlOutput::warn(const QString& message) {
    error(QStringLiteral("warning: ") + message);
}

void CCtlOutput::error(const QString& message) {
    QString text;
    for (const QString& line : message.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        text += QStringLiteral("quotesctl: ") + line + QLatin1Char('\n');
    writeOut(stderr, text);
}

void CCtlOutput::installMessageHandler() {
    qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext&, const QString& message) { error(message); });
}

void CCtlOutput::printKept(const std::vector<std::string>& keptValues) {
    for (const std::string& kept : keptValues)
        print(QStringLiteral("kept %1\n").arg(QString::fromStdString(kept)));
}

QString CCtlOutput::rightsCell(const std::set<int>& rights) {
    QStringList list;
    for (int right : rights)
        list << QString::number(right);
    return list.isEmpty() ? QStringLiteral("-") : list.join(QLatin1Char(','));
}

QJsonArray CCtlOutput::rightsJson(const std::set<int>& rights) {
    QJsonArray array;
    for (int right : rights)
        array.append(right);
    return array;
}
