#pragma once

#include <QStringList>
#include <vector>

#include "CCtlCommand.h"

// Every command of quotesctl, each declared once: its words, options, positional arguments,
// checks, handler, right and description. The parser, --help, the manual page and the completion
// are made from it.
class CCtlCommandTable {
public:
    // In the order of --help.
    static const std::vector<CCtlCommand>& all();
    // The command of these words; null when there is none.
    static const CCtlCommand* find(const QStringList& words);
    // The first words of the commands, in order.
    static QStringList groups();
    // The second words of a group's commands, in order.
    static QStringList actions(const QString& group);
};
