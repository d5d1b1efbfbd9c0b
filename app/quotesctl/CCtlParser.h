#pragma once

#include <QStringList>

#include "CCtlArguments.h"
#include "CCtlGlobals.h"

class CCtlCommand;

// Reads a quotesctl command line by the command table: the global options, the command and its
// arguments, checked before any database is touched.
class CCtlParser {
public:
    // False when the command line asks for --help. Throws CCtlError naming the first fault.
    bool parse(const QStringList& arguments);

    const CCtlGlobals& globals() const { return m_globals; }
    // Null until a command line parsed.
    const CCtlCommand* command() const { return m_command; }
    const CCtlArguments& arguments() const { return m_arguments; }
    // The secrets the command line exposes.
    QStringList warnings() const;

private:
    // The command the first words name; a group whose own word is a command takes its
    // sub-command's word among the positional arguments.
    const CCtlCommand& select(QStringList* rest) const;
    // Takes the command's options and positional arguments; answers the command they make (the
    // sub-command whose word is the only positional argument).
    const CCtlCommand& takeArguments(const CCtlCommand& command, const QStringList& rest);

    CCtlGlobals m_globals;
    const CCtlCommand* m_command = nullptr;
    CCtlArguments m_arguments;
};
