#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <set>

// What quotesctl writes: text and JSON on standard output, tables for reading, warnings on
// standard error.
class CCtlOutput {
public:
    static void print(const QString& text);
    static void printJson(const QJsonValue& value);
    // Columns as wide as their widest cell (CJK characters take two columns in a terminal).
    static void printTable(const QStringList& header, const QList<QStringList>& rows);
    // "quotesctl: warning: MESSAGE" on standard error.
    static void warn(const QString& message);
    // Rights as a table cell ("10937,90001", or "-" for none) and as JSON.
    static QString rightsCell(const std::set<int>& rights);
    static QJsonArray rightsJson(const std::set<int>& rights);
};
