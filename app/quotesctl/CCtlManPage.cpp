#include "CCtlManPage.h"

#include "CCtlCommandTable.h"
#include "CCtlGlobals.h"
#include "CCtlHelp.h"
#include "Hlx/QuotesVersion.h"
#include "model/CRightsTable.h"

namespace {

// Where --data points by default, as the page names it for every user.
const char* const kDefaultDataDir = "~/.local/share/PanelQuotesManage";

}  // namespace

QString CCtlManPage::text() {
    return QStringLiteral(
               ".TH QUOTESCTL 1 \"2026-11-23\" \"PanelQuotesManage %1\" \"User Commands\"\n"
               ".SH NAME\n"
               "quotesctl \\- manage the quote sources of the PanelQuotesManage data service\n")
               .arg(QLatin1String(Hlx::quotesVersion())) +
           synopsis() + description() + options() + commands() + trailer();
}

QString CCtlManPage::synopsis() {
    using G = CCtlGlobals;
    const auto global = [](G::Id id) { return fonts(CCtlSynopsis::global(id, true)); };
    const QString command = QStringLiteral(".I COMMAND\n.RI [ ARGS ]\n");
    return QStringLiteral(".SH SYNOPSIS\n.B quotesctl\n[%1 | %2]\n")
               .arg(global(G::kData), global(G::kDb)) +
           command +
           QStringLiteral(".br\n.B quotesctl\n%1\n[%1]...\n[%2]\n%3\n%4\n")
               .arg(global(G::kServer), global(G::kCa), global(G::kLogin),
                    global(G::kLoginPasswordFile)) +
           command;
}

QString CCtlManPage::description() {
    return QStringLiteral(
               ".SH DESCRIPTION\n"
               ".B quotesctl\n"
               "lists, adds, modifies and deletes the quote sources of the platform's data\n"
               "service, lists brokers, platforms, sub\\-systems and users, shows and sets the\n"
               "Level\\-2 token, administers the accounts, keeps the audit trail, and exports or\n"
               "imports everything as one JSON document.\n"
               "On its own database file it acts with every right (its user could change the file\n"
               "anyway); with\n"
               ".B \\-\\-server\n"
               "it acts with the rights of the account it logs in as.\n"
               ".PP\n") +
           paragraph(CCtlHelp::notes().join(QLatin1Char('\n')));
}

QString CCtlManPage::options() {
    QString text = QStringLiteral(".SH OPTIONS\n");
    for (const CCtlGlobals::Option& option : CCtlGlobals::options()) {
        QString help = QString::fromUtf8(*option.manual ? option.manual : option.help);
        help.replace(QLatin1String("%1"), QLatin1String(kDefaultDataDir));
        text += QStringLiteral(".TP\n") + fonts(CCtlSynopsis::global(option.id, false)) +
                QLatin1Char('\n') + paragraph(help);
    }
    return text;
}

QString CCtlManPage::commands() {
    QString text = QStringLiteral(".SH COMMANDS\n");
    QString joined;
    for (const CCtlCommand& command : CCtlCommandTable::all()) {
        if (command.helpText().isEmpty()) {
            // Described together with the next command.
            joined += synopsisOf(command) + QStringLiteral(" | ");
            continue;
        }
        text += commandEntry(command, joined);
        joined.clear();
    }
    return text;
}

QString CCtlManPage::commandEntry(const CCtlCommand& command, const QString& joined) {
    QString text = QStringLiteral(".TP\n") + joined + synopsisOf(command) + QLatin1Char('\n') +
                   paragraph(command.helpText());
    QStringList needs;
    if (command.changes())
        needs << QStringLiteral("Changes data");
    if (command.right() == Hlx::CRightsTable::kAdminister)
        needs << QStringLiteral("needs the administrator right (%1)").arg(command.right());
    else if (command.right() != 0)
        needs << QStringLiteral("needs right %1").arg(command.right());
    if (!needs.isEmpty())
        text += paragraph(needs.join(QStringLiteral("; ")));
    return text;
}

QString CCtlManPage::trailer() {
    return QStringLiteral(
        ".SH EXIT STATUS\n"
        ".TP\n.B 0\nSuccess.\n"
        ".TP\n.B 1\n"
        "The service refused the request or the database failed (message on standard error).\n"
        ".TP\n.B 2\nBad command line.\n"
        ".TP\n.B 3\n"
        "The database cannot be opened, or the server cannot be reached or the login was "
        "refused.\n"
        ".SH EXAMPLES\n"
        ".nf\n"
        "quotesctl export > backup.json\n"
        "quotesctl import backup.json\n"
        "quotesctl \\-\\-server quotes.example.com:7461 \\-\\-ca ca.crt \\e\n"
        "    \\-\\-login admin \\-\\-login\\-password\\-file ~/.quotes\\-password sources list\n"
        ".fi\n"
        ".SH SEE ALSO\n"
        ".BR quotes\\-console (1),\n"
        ".BR quotesd (8)\n");
}

QString CCtlManPage::synopsisOf(const CCtlCommand& command) {
    const CCtlSynopsis synopsis(command);
    QStringList words = {fonts(synopsis.words())};
    for (const CCtlSynopsis::Token& token : synopsis.arguments())
        words << fonts(token);
    QStringList alternatives;
    for (const std::vector<CCtlSynopsis::Token>& alternative : synopsis.alternatives()) {
        QStringList tokens;
        for (const CCtlSynopsis::Token& token : alternative)
            tokens << fonts(token);
        alternatives << tokens.join(QLatin1Char(' '));
    }
    if (!alternatives.isEmpty())
        words << QLatin1Char('(') + alternatives.join(QStringLiteral(" | ")) + QLatin1Char(')');
    return words.join(QLatin1Char(' '));
}

QString CCtlManPage::fonts(const CCtlSynopsis::Token& token) {
    QString text;
    for (const CCtlSynopsis::Piece& piece : token) {
        const QString escapedText = escaped(piece.text);
        switch (piece.role) {
            case CCtlSynopsis::Role::Word:
            case CCtlSynopsis::Role::Flag:
                text += QStringLiteral("\\fB%1\\fR").arg(escapedText);
                break;
            case CCtlSynopsis::Role::Value:
                text += QStringLiteral("\\fI%1\\fR").arg(escapedText);
                break;
            case CCtlSynopsis::Role::Plain:
                text += escapedText;
                break;
        }
    }
    return text;
}

QString CCtlManPage::escaped(const QString& text) {
    QString roff = text;
    return roff.replace(QLatin1Char('\\'), QLatin1String("\\e"))
        .replace(QLatin1Char('-'), QLatin1String("\\-"));
}

QString CCtlManPage::paragraph(const QString& lines) {
    QString text = lines;
    text[0] = text[0].toUpper();
    if (!text.endsWith(QLatin1Char('.')))
        text += QLatin1Char('.');
    QString roff;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        // A line that begins with a control character would be read as a request.
        const bool control =
            line.startsWith(QLatin1Char('.')) || line.startsWith(QLatin1Char('\''));
        roff += (control ? QStringLiteral("\\&") : QString()) + escaped(line) + QLatin1Char('\n');
    }
    return roff;
}
