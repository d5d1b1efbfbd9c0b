#pragma once

#include <QString>
#include <QStringList>

class CCtlCommand;

// quotesctl's bash completion, made from the table of global options and the command table:
// packaging/quotesctl.bash-completion is this text, which a test checks.
class CCtlCompletion {
public:
    static QString text();

private:
    // What follows an option that takes a value: files, directories, or nothing to offer.
    static QString optionValues();
    // Finds the command and its verb among the words before the cursor.
    static QString commandAndVerb();
    static QString commandsOrGlobals();
    // The command a group's verb completes, or the verbs to offer.
    static QString keys();
    static QString arguments();
    static QString argumentsOf(const CCtlCommand& command, bool offersSubcommands);

    // "a | b | \" lines, each at most so wide.
    static QString alternatives(const QStringList& words, int indent);
    // "compgen -W 'words' -- \"$cur\"" wrapped.
    static QString compgen(const QStringList& words, int indent);
};
