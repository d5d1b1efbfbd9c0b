#include "CCtlHelp.h"

#include "CCtlCommandTable.h"
#include "CCtlGlobals.h"
#include "CCtlSynopsis.h"

namespace {

// A synopsis wraps before this column; its continuation lines are indented, and those of an
// alternative one more.
const int kWidth = 84;
const int kContinuation = 14;
// Where the descriptions of the global options begin; a longer name pushes the first line
// right, or up to its own line.
const int kOptionText = 15;
const int kWideOption = 18;
const int kDescription = 6;

QString spaces(int count) {
    return QString(count, QLatin1Char(' '));
}

// Appends a word to the last line, or starts a new one with indent when it would not fit.
void append(QStringList* lines, const QString& word, int indent) {
    if (lines->last().size() + 1 + word.size() > kWidth)
        *lines << spaces(indent) + word;
    else
        lines->last() += QLatin1Char(' ') + word;
}

}  // namespace

QString CCtlHelp::text(const QString& defaultDataDir) {
    return usage() +
           QStringLiteral(
               "\nManages the quote sources (行情源) of the platform's data service.\n") +
           QStringLiteral("\nGlobal options:\n") + globalOptions(defaultDataDir) +
           QStringLiteral("\nCommands:\n") + commands() + QLatin1Char('\n') +
           notes().join(QLatin1Char('\n')) +
           QStringLiteral(
               "\n\nExit codes:\n"
               "  0  success\n"
               "  1  the service refused the request or the database failed (message on stderr)\n"
               "  2  bad command line\n"
               "  3  the database cannot be opened, or the server reached or logged in to\n");
}

QStringList CCtlHelp::notes() {
    return {QStringLiteral("Tables are for reading; %1 gives stable field names for scripts.")
                .arg(CCtlOption::of(CCtlOption::kJson).flag()),
            QStringLiteral("At most one input of a command may be standard input (-).")};
}

QString CCtlHelp::usage() {
    using G = CCtlGlobals;
    const auto label = [](G::Id id) { return CCtlSynopsis::plain(CCtlSynopsis::global(id, true)); };
    return QStringLiteral(
               "Usage: quotesctl [%1 | %2] COMMAND [ARGS]\n"
               "       quotesctl %3 [%3]... [%4]\n"
               "                 %5 %6 COMMAND [ARGS]\n")
        .arg(label(G::kData), label(G::kDb), label(G::kServer), label(G::kCa), label(G::kLogin),
             label(G::kLoginPasswordFile));
}

QString CCtlHelp::globalOptions(const QString& defaultDataDir) {
    QString text;
    for (const CCtlGlobals::Option& option : CCtlGlobals::options()) {
        const QString label = QStringLiteral("  ") + CCtlGlobals::label(option.id);
        QString description = QString::fromUtf8(option.help);
        description.replace(QLatin1String("%1"), defaultDataDir);
        if (label.size() < kOptionText)
            text += label.leftJustified(kOptionText, QLatin1Char(' '));
        else if (label.size() <= 2 + kWideOption)
            text += label + spaces(2);
        else
            text += label + QLatin1Char('\n') + spaces(kOptionText);
        text += indented(description, kOptionText).mid(kOptionText);
    }
    return text;
}

QString CCtlHelp::commands() {
    QString text;
    QString joined;
    for (const CCtlCommand& command : CCtlCommandTable::all()) {
        const QStringList lines = synopsis(command, joined);
        if (command.helpText().isEmpty()) {
            // Described together with the next command, on the same line.
            joined = lines.join(QLatin1Char(' ')).mid(2) + QStringLiteral(" | ");
            continue;
        }
        joined.clear();
        text += lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
        text += indented(command.helpText(), kDescription);
        if (!command.noteText().isEmpty())
            text += indented(command.noteText(), kDescription);
    }
    return text;
}

QStringList CCtlHelp::synopsis(const CCtlCommand& command, const QString& prefix) {
    const CCtlSynopsis synopsis(command);
    QStringList lines = {QStringLiteral("  ") + prefix + CCtlSynopsis::plain(synopsis.words())};
    for (const CCtlSynopsis::Token& token : synopsis.arguments())
        append(&lines, CCtlSynopsis::plain(token), kContinuation);
    const auto& alternatives = synopsis.alternatives();
    for (size_t i = 0; i < alternatives.size(); ++i) {
        const QString start = i == 0 ? spaces(kContinuation) + QLatin1Char('(')
                                     : spaces(kContinuation + 1) + QStringLiteral("| ");
        lines << start + CCtlSynopsis::plain(alternatives[i].front());
        for (size_t j = 1; j < alternatives[i].size(); ++j)
            append(&lines, CCtlSynopsis::plain(alternatives[i][j]), kContinuation + 1);
    }
    if (!alternatives.empty())
        lines.last() += QLatin1Char(')');
    return lines;
}

QString CCtlHelp::indented(const QString& lines, int indent) {
    QString text;
    for (const QString& line : lines.split(QLatin1Char('\n')))
        text += spaces(indent) + line + QLatin1Char('\n');
    return text;
}
