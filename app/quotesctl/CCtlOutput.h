#pragma once

#include <QJsonArray>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <set>
#include <string>
#include <vector>

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
    // "quotesctl: MESSAGE" on standard error, each line of it so prefixed.
    static void error(const QString& message);
    // Qt's own messages (a driver's warning) go through error() too, so that every line
    // quotesctl writes on standard error names it.
    static void installMessageHandler();
    // The lines of values kept although they break a rule of today ("kept 行情源 18: ...").
    static void printKept(const std::vector<std::string>& keptValues);
    // Rights as a table cell ("10937,90001", or "-" for none) and as JSON.
    static QString rightsCell(const std::set<int>& rights);
    static QJsonArray rightsJson(const std::set<int>& rights);
};
