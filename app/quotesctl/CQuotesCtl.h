#pragma once

#include <QString>
#include <QStringList>

#include "CCtlError.h"
#include "CCtlParser.h"

class CCtlSession;
// The quotesctl command line: parses the arguments by the command table, runs one command on the
// data service and answers with an exit code.
class CQuotesCtl {
public:
    enum ExitCode {
        kOk = 0,
        kRefused = CCtlError::kRefused,
        kUsage = CCtlError::kUsage,
        kUnavailable = CCtlError::kUnavailable,
    };
    // parse's answer when the command line is complete and the command may run.
    static constexpr int kParsed = -1;

    // arguments without the program name.
    int run(const QStringList& arguments);
    // Checks the command line without touching any database: kParsed, or the exit code.
    int parse(const QStringList& arguments);
    // Runs the parsed command.
    int execute();

    static QString helpText();
    // What parse understood, one item a line: "command WORDS", the global options, then the
    // command's options and positional arguments ("option --port \"9000\"", "positional
    // \"7\""), values quoted. Stable text for the tests that pin the parser.
    QString describe() const;

private:
    // The command's own outcome; the session ends after it either way.
    int runCommand(CCtlSession& session);

    CCtlParser m_parser;
};
