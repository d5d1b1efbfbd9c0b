#pragma once

#include <QString>
#include <QStringList>
#include <set>
#include <vector>

#include "CCtlOption.h"

class CCtlArguments;
class CCtlGlobals;
class CCtlSession;

// One command of quotesctl as the command table declares it: its words, options and positional
// arguments (in the order of its synopsis), what it needs and its description. The parser,
// --help, the manual page and the completion all read it from here.
class CCtlCommand {
public:
    // How a command takes one of its options.
    enum class Presence {
        Optional,  // documented, may be given
        Required,  // documented, must be given
        Hidden,    // accepted and checked, not documented (an older spelling, or ignored)
        Ignored,   // accepted and neither checked nor used
        Refused,   // accepted by the parser, then refused with the message
    };
    struct Option {
        CCtlOption::Id id;
        Presence presence;
        int alternative;  // 0, or which of the command's alternative sets it belongs to
        // When it is missing (Required) or given (Refused): %1 is the option, %2 the command,
        // %3 its value's name. Empty: "%2 needs %1".
        QString message;
    };
    enum class PositionalKind {
        None,
        SourceId,     // a source id (a whole number)
        Name,         // any text
        Input,        // a file to read, or - for standard input
        SecretInput,  // a secret (warns: others can read it), or - for standard input
    };
    struct Positional {
        PositionalKind kind = PositionalKind::None;
        QString name;  // "ID", "TOKEN"
        int min = 0;
        int max = 0;     // -1: no limit
        int at = 0;      // how many of the declared options come before it
        QString suffix;  // the completion offers files of this suffix
    };
    using Run = void (*)(CCtlSession& session);
    // Checks the arguments before the database is touched; throws CCtlError.
    using Check = void (*)(const CCtlCommand& command, const CCtlArguments& arguments,
                           const CCtlGlobals& globals);

    CCtlCommand(const QStringList& words, Run run);

    // Declaration, in the order of the synopsis.
    CCtlCommand& option(CCtlOption::Id id);
    CCtlCommand& required(CCtlOption::Id id, const char* message = "");
    CCtlCommand& hidden(CCtlOption::Id id);
    CCtlCommand& ignored(CCtlOption::Id id);
    CCtlCommand& refused(CCtlOption::Id id, const char* message);
    // The options that follow belong to the next set of alternatives.
    CCtlCommand& alternative();
    CCtlCommand& positional(PositionalKind kind, const char* name, int min, int max,
                            const char* suffix = "");
    // The message when the number of positional arguments is wrong (default: generated).
    CCtlCommand& arity(const char* message);
    CCtlCommand& checkedBy(Check check);
    CCtlCommand& changesData();
    CCtlCommand& needs(int right);
    // The command asks a server without logging in (--login is not needed).
    CCtlCommand& withoutLogin();
    // The command works only on a database of its own; %1, %2, %3: --data, --db, --server.
    CCtlCommand& localOnly(const char* message);
    // The command runs without opening the database (it replaces the database file itself).
    CCtlCommand& withoutDatabase();
    // Lines of --help; none: described together with the next command.
    CCtlCommand& help(const char* lines);
    // Lines --help adds after the description, about the commands of the group.
    CCtlCommand& note(const char* lines);

    const QStringList& words() const { return m_words; }
    QString name() const { return m_words.join(QLatin1Char(' ')); }
    const std::vector<Option>& options() const { return m_options; }
    const Option* find(CCtlOption::Id id) const;
    std::set<CCtlOption::Id> accepted() const;
    const Positional& positionals() const { return m_positional; }
    QString arityMessage() const { return m_arity; }
    Run runner() const { return m_run; }
    Check checker() const { return m_check; }
    bool changes() const { return m_changes; }
    int right() const { return m_right; }
    bool needsLogin() const { return !m_withoutLogin; }
    QString localOnlyMessage() const { return m_localOnly; }
    // Whether the command needs a database opened or a server logged in to.
    bool opensSession() const { return !m_withoutLogin && m_opensDatabase; }
    QString helpText() const { return m_help; }
    QString noteText() const { return m_note; }
    // The message of an option's presence, filled in.
    QString presenceMessage(const Option& option) const;

private:
    CCtlCommand& add(CCtlOption::Id id, Presence presence, const char* message);

    QStringList m_words;
    Run m_run;
    Check m_check = nullptr;
    std::vector<Option> m_options;
    Positional m_positional;
    int m_alternative = 0;
    QString m_arity;
    bool m_changes = false;
    int m_right = 0;
    bool m_withoutLogin = false;
    QString m_localOnly;
    bool m_opensDatabase = true;
    QString m_help;
    QString m_note;
};
