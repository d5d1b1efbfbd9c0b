#pragma once

#include <QString>
#include <QStringList>

class CCtlCommand;

// quotesctl --help, made from the table of global options and the command table.
class CCtlHelp {
public:
    // The whole text; defaultDataDir is where --data points when it is not given.
    static QString text(const QString& defaultDataDir);
    // What the help says after the commands, also in the manual page.
    static QStringList notes();

private:
    static QString usage();
    static QString globalOptions(const QString& defaultDataDir);
    static QString commands();
    // The synopsis of a command, wrapped; its first line begins with prefix.
    static QStringList synopsis(const CCtlCommand& command, const QString& prefix);
    static QString indented(const QString& lines, int indent);
};
