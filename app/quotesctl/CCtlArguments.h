#pragma once

#include <QString>
#include <QStringList>
#include <map>
#include <set>
#include <vector>

#include "CCtlOption.h"

// The options and positional arguments a command line gave its command. The parser checks the
// values by their kind before a command runs, so the handlers read them as they are.
class CCtlArguments {
public:
    // Reads options ("--name VALUE", flags "--name") anywhere in arguments and the rest as
    // positional; only the accepted options are known. The first fault, or empty.
    QString take(const QStringList& arguments, const std::set<CCtlOption::Id>& accepted);

    bool has(CCtlOption::Id id) const { return m_values.count(id) > 0; }
    // The value given, or empty.
    QString text(CCtlOption::Id id) const;
    // The value of a whole-number option; false when it is not given.
    bool number(CCtlOption::Id id, int* value) const;
    // The time of a time option in ms; 0 when it is not given.
    long long time(CCtlOption::Id id) const;
    std::set<int> rights(CCtlOption::Id id) const;
    // The given options, in the order of the registry.
    std::vector<CCtlOption::Id> given() const;

    const QStringList& positional() const { return m_positional; }
    void clearPositional() { m_positional.clear(); }

    // One line an option or positional argument: "option --port \"9000\"", "option --json",
    // "positional \"7\"", options sorted by name.
    QStringList describe() const;
    // "\"value\"", with quotes, backslashes and control characters escaped.
    static QString quoted(const QString& value);
    // The warning about a secret on the command line.
    static QString exposed(const QString& what, const QString& instead);

private:
    std::map<CCtlOption::Id, QString> m_values;
    QStringList m_positional;
};
