#include "CQuotesCtl.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <boost/make_shared.hpp>

#include "CAuditCommand.h"
#include "CCaller.h"
#include "CDataTransfer.h"
#include "CDatabaseUrl.h"
#include "CEmbeddedAdmin.h"
#include "CPrivateFile.h"
#include "CQuotesService.h"
#include "CRemoteAdmin.h"
#include "CSourceValidator.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/COrinBrokerInfo.h"
#include "rkservice/COrinPlatformInfo.h"
#include "rkservice/COrinQuoterSourceInfo.h"
#include "rkservice/DataTypeIds.h"

namespace {

const int kNoBroker = rkservice::COrinQuoterSourceInfo::kNoBroker;

void writeOut(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
}

// Display width: CJK characters take two columns in a terminal.
int width(const QString& text) {
    int w = 0;
    for (const QChar c : text)
        w += c.unicode() >= 0x1100 ? 2 : 1;
    return w;
}

}  // namespace

QString CQuotesCtl::helpText() {
    return QStringLiteral(
               "Usage: quotesctl [--data DIR | --db URL] COMMAND [ARGS]\n"
               "       quotesctl --server HOST:PORT [--server HOST:PORT]... [--ca FILE]\n"
               "                 --login NAME --login-password-file FILE|- COMMAND [ARGS]\n"
               "\n"
               "Manages the quote sources (行情源) of the platform's data service.\n"
               "\n"
               "Global options:\n"
               "  --data DIR   data directory holding quotes.db (default: the console's, %1)\n"
               "  --db URL     a database URL instead, e.g.\n"
               "               postgresql://user@/dbname?host=/run/postgresql&port=5432\n"
               "               (its password from ~/.pgpass, or the file PGPASSFILE names,\n"
               "               lines host:port:dbname:user:password, mode 0600; a password in\n"
               "               the URL works but other local users can read it)\n"
               "  --secrets-key FILE  the key of the stored passwords and token (default:\n"
               "               secrets.key in the data directory; every program on one\n"
               "               database needs the same key)\n"
               "  --server HOST:PORT  a quotesd server instead (several: logins and reads move on\n"
               "               to the next when one is down; a change is never sent twice)\n"
               "  --ca FILE    the server's certificate (PEM) to trust; default: the system's\n"
               "  --login NAME the account to log in as\n"
               "  --login-password-file FILE\n"
               "               its password: the first line of FILE, or of standard input for -\n"
               "               (never a command-line argument)\n"
               "  -h, --help   this text\n"
               "\n"
               "Commands:\n"
               "  sources list [--trade-type N] [--subsystem NAME] [--json]\n"
               "      List quote sources (all trade types and sub-systems unless filtered).\n"
               "  sources add --platform N --trade-type N [--subsystem NAME]\n"
               "              (--address ADDR --port N [--user NAME] [--password-file FILE|-]\n"
               "               [--markets LIST]\n"
               "               | --broker N --server-group N)\n"
               "      Add one source (to the default sub-system unless named); prints its id.\n"
               "  sources modify ID [--platform N] [--trade-type N] [--address ADDR] [--port N]\n"
               "              [--user NAME] [--password-file FILE|-] [--markets LIST] [--broker "
               "N]\n"
               "              [--server-group N]\n"
               "      Change the given fields of source ID; the others keep their values. The\n"
               "      service reads and changes the source in one transaction (also through\n"
               "      --server), so a field someone else changed meanwhile is kept.\n"
               "      --password-file: the password is the first line of FILE, or of standard\n"
               "      input for -; --password TEXT still works but warns (other local users\n"
               "      can read the command line).\n"
               "  sources delete ID [ID...]\n"
               "      Delete sources by id (all or nothing).\n"
               "  brokers list [--trade-type N] [--json]\n"
               "      Futures companies with their server groups (trade types 1 and 5).\n"
               "  platforms list [--trade-type N] [--json]\n"
               "      Futures platforms.\n"
               "  token show [--json]\n"
               "      Print the Level-2 token (nothing when none is stored).\n"
               "  token set -|TOKEN\n"
               "      Store the Level-2 token (1 to 100 ASCII letters and digits), read from the\n"
               "      first line of standard input for - (TOKEN on the command line warns).\n"
               "  token delete\n"
               "      Delete the Level-2 token.\n"
               "  subsystems list [--json]\n"
               "      Sub-systems, the default first.\n"
               "  users list [--json]\n"
               "      Users with their rights.\n"
               "  export [--output FILE] [--no-secrets] [--with-audit]\n"
               "      Write everything as one JSON document to standard output, or to FILE (mode\n"
               "      0600, written whole or not at all). Passwords and the token are in clear\n"
               "      (a restore needs no key) unless --no-secrets, which writes empty passwords\n"
               "      and no token. --with-audit adds the audit trail under \"audit\" (import\n"
               "      passes over it).\n"
               "  import [--dry-run] [--backup FILE] FILE\n"
               "      Replace everything with a document written by export (FILE - reads standard\n"
               "      input). The document must hold every section with the type export writes;\n"
               "      source ids go up to 999999999. The whole document is checked first; nothing\n"
               "      changes if any of it is bad, or if no enabled account would keep the\n"
               "      administrator right (90002). --dry-run prints what would change per section\n"
               "      and changes nothing. A real import first writes the current content to\n"
               "      import-backup-<time>.json in the data directory (mode 0600, the last 10 "
               "kept)\n"
               "      and prints its name; with --db postgresql://... name it with --backup FILE;\n"
               "      with --server the server writes it in its own data directory.\n"
               "  integrity\n"
               "      Run the database's consistency check.\n"
               "  rekey\n"
               "      Encrypt the stored passwords and token under a new key in one transaction\n"
               "      and replace the key file (embedded only; copy the new file to every other\n"
               "      program on the same database).\n"
               "  accounts list [--json]\n"
               "      Accounts with their rights and whether they may log in.\n"
               "  accounts password NAME --password-file FILE|-\n"
               "      Set an account's password (at least 12 characters), read from the first\n"
               "      line of FILE or of standard input; its logins end.\n"
               "  accounts enable NAME | accounts disable NAME\n"
               "      Let an account log in, or end its logins and refuse new ones.\n"
               "  accounts rights NAME --rights LIST\n"
               "      Replace an account's rights (comma-separated numbers; empty for none).\n"
               "      The account commands need the administrator right (90002).\n"
               "  audit [--since T] [--until T] [--login NAME] [--action A] [--json]\n"
               "      The audit trail, newest first (times ISO-8601; without an offset local).\n"
               "  audit prune --before DATE\n"
               "      Remove the audit entries older than DATE (the prune itself is recorded).\n"
               "      Both audit commands need the administrator right (90002).\n"
               "  ping [--json]\n"
               "      The data service's version, database and uptime.\n"
               "\n"
               "Tables are for reading; --json gives stable field names for scripts.\n"
               "At most one input of a command may be standard input (-).\n"
               "\n"
               "Exit codes:\n"
               "  0  success\n"
               "  1  the service refused the request or the database failed (message on stderr)\n"
               "  2  bad command line\n"
               "  3  the database cannot be opened, or the server reached or logged in to\n")
        .arg(CQuotesService::defaultDataDir());
}

int CQuotesCtl::usage(const QString& message) {
    writeOut(stderr, QStringLiteral("quotesctl: %1 (see quotesctl --help)\n").arg(message));
    return kUsage;
}

int CQuotesCtl::refused(const QString& message) {
    QString line = message;
    line.replace(QLatin1Char('\n'), QLatin1String("; "));
    writeOut(stderr, QStringLiteral("quotesctl: %1\n").arg(line));
    return kRefused;
}

void CQuotesCtl::print(const QString& text) {
    writeOut(stdout, text);
}

void CQuotesCtl::printJson(const QJsonValue& value) {
    const QJsonDocument document =
        value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    print(QString::fromUtf8(document.toJson(QJsonDocument::Indented)));
}

void CQuotesCtl::printTable(const QStringList& header, const QList<QStringList>& rows) {
    QVector<int> widths(header.size());
    for (int i = 0; i < header.size(); ++i)
        widths[i] = width(header[i]);
    for (const QStringList& row : rows)
        for (int i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], width(row[i]));
    auto line = [&](const QStringList& cells) {
        QString text;
        for (int i = 0; i < cells.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size())
                text += QString(widths[i] - width(cells[i]) + 2, QLatin1Char(' '));
        }
        print(text + QLatin1Char('\n'));
    };
    line(header);
    for (const QStringList& row : rows)
        line(row);
}

bool CQuotesCtl::parseOptions(const QStringList& arguments, const QStringList& valued,
                              const QStringList& flags) {
    m_options.clear();
    m_positional.clear();
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments[i];
        if (arg.startsWith(QLatin1String("--"))) {
            const QString name = arg.mid(2);
            if (flags.contains(name)) {
                m_options[name] = QStringLiteral("1");
            } else if (valued.contains(name)) {
                if (i + 1 >= arguments.size()) {
                    usage(QStringLiteral("option %1 needs a value").arg(arg));
                    return false;
                }
                m_options[name] = arguments[++i];
            } else {
                usage(QStringLiteral("unknown option %1").arg(arg));
                return false;
            }
        } else {
            m_positional << arg;
        }
    }
    return true;
}

bool CQuotesCtl::intOption(const QString& name, int* value) {
    auto it = m_options.find(name);
    if (it == m_options.end())
        return false;
    bool ok = false;
    *value = it->second.toInt(&ok, 10);
    if (!ok)
        throw QStringLiteral("option --%1 needs a whole number, not \"%2\"").arg(name, it->second);
    return true;
}

int CQuotesCtl::run(const QStringList& arguments) {
    const int parsed = parse(arguments);
    return parsed == kParsed ? execute() : parsed;
}

int CQuotesCtl::parse(const QStringList& arguments) {
    QStringList rest = arguments;
    CServiceOptions& options = m_serviceOptions;
    bool haveData = false;
    bool haveDb = false;
    static const QStringList globals = {
        QStringLiteral("--data"),       QStringLiteral("--db"),
        QStringLiteral("--server"),     QStringLiteral("--ca"),
        QStringLiteral("--login"),      QStringLiteral("--login-password-file"),
        QStringLiteral("--secrets-key")};
    while (!rest.isEmpty() && rest.front().startsWith(QLatin1Char('-'))) {
        const QString option = rest.takeFirst();
        if (option == QLatin1String("--help") || option == QLatin1String("-h")) {
            print(helpText());
            return kOk;
        }
        if (!globals.contains(option))
            return usage(QStringLiteral("unknown option %1").arg(option));
        if (rest.isEmpty() || rest.front().isEmpty())
            return usage(QStringLiteral("option %1 needs a value").arg(option));
        const QString value = rest.takeFirst();
        if (option == QLatin1String("--data")) {
            options.dataDir = value;
            haveData = true;
        } else if (option == QLatin1String("--db")) {
            options.dbUrl = value;
            haveDb = true;
        } else if (option == QLatin1String("--server")) {
            m_remote.servers << value;
        } else if (option == QLatin1String("--ca")) {
            m_remote.caFile = value;
        } else if (option == QLatin1String("--login")) {
            m_remote.login = value;
        } else if (option == QLatin1String("--secrets-key")) {
            options.secretsKeyFile = value;
        } else {
            m_remote.passwordFile = value;
        }
    }
    if (haveData && haveDb)
        return usage(QStringLiteral("--data and --db exclude each other"));
    if (!m_remote.servers.isEmpty() && (haveData || haveDb || !options.secretsKeyFile.isEmpty()))
        return usage(QStringLiteral("--server excludes --data, --db and --secrets-key"));
    if (m_remote.servers.isEmpty() && (!m_remote.caFile.isEmpty() || !m_remote.login.isEmpty() ||
                                       !m_remote.passwordFile.isEmpty()))
        return usage(QStringLiteral("--ca, --login and --login-password-file need --server"));
    if (!m_remote.servers.isEmpty() &&
        (m_remote.login.isEmpty() || m_remote.passwordFile.isEmpty()))
        return usage(
            QStringLiteral("--server needs --login NAME and --login-password-file FILE (or - for "
                           "standard input)"));
    if (rest.isEmpty())
        return usage(QStringLiteral("no command given"));
    const QString command = rest.takeFirst();
    static const QStringList withAction = {QStringLiteral("sources"),    QStringLiteral("brokers"),
                                           QStringLiteral("platforms"),  QStringLiteral("token"),
                                           QStringLiteral("subsystems"), QStringLiteral("users"),
                                           QStringLiteral("accounts")};
    static const QStringList single = {QStringLiteral("export"),    QStringLiteral("import"),
                                       QStringLiteral("integrity"), QStringLiteral("ping"),
                                       QStringLiteral("audit"),     QStringLiteral("rekey")};
    if (!withAction.contains(command) && !single.contains(command))
        return usage(QStringLiteral("unknown command \"%1\"").arg(command));
    QString action;
    if (withAction.contains(command)) {
        if (rest.isEmpty())
            return usage(QStringLiteral("\"%1\" needs an action").arg(command));
        action = rest.takeFirst();
    }
    // The command line is checked before the database is touched, so a typo never creates one.
    const QStringList sourceOptions = {
        QStringLiteral("trade-type"),   QStringLiteral("subsystem"),    QStringLiteral("platform"),
        QStringLiteral("address"),      QStringLiteral("port"),         QStringLiteral("user"),
        QStringLiteral("password"),     QStringLiteral("markets"),      QStringLiteral("broker"),
        QStringLiteral("server-group"), QStringLiteral("password-file")};
    const QStringList json = {QStringLiteral("json")};
    bool parsed = true;
    int (CQuotesCtl::*handler)() = nullptr;
    if (command == QLatin1String("sources")) {
        if (action == QLatin1String("list")) {
            parsed = parseOptions(rest, {QStringLiteral("trade-type"), QStringLiteral("subsystem")},
                                  json);
            handler = &CQuotesCtl::sourcesList;
        } else if (action == QLatin1String("add")) {
            parsed = parseOptions(rest, sourceOptions, {});
            handler = &CQuotesCtl::sourcesAdd;
        } else if (action == QLatin1String("modify")) {
            parsed = parseOptions(rest, sourceOptions, {});
            handler = &CQuotesCtl::sourcesModify;
        } else if (action == QLatin1String("delete")) {
            parsed = parseOptions(rest, {}, {});
            handler = &CQuotesCtl::sourcesDelete;
        }
    } else if (command == QLatin1String("brokers") || command == QLatin1String("platforms")) {
        if (action == QLatin1String("list")) {
            parsed = parseOptions(rest, {QStringLiteral("trade-type")}, json);
            handler = command == QLatin1String("brokers") ? &CQuotesCtl::brokersList
                                                          : &CQuotesCtl::platformsList;
        }
    } else if (command == QLatin1String("token")) {
        if (action == QLatin1String("show") || action == QLatin1String("set") ||
            action == QLatin1String("delete")) {
            parsed = parseOptions(rest, {}, action == QLatin1String("show") ? json : QStringList());
            m_positional.prepend(action);
            handler = &CQuotesCtl::token;
        }
    } else if (command == QLatin1String("subsystems") || command == QLatin1String("users")) {
        if (action == QLatin1String("list")) {
            parsed = parseOptions(rest, {}, json);
            handler =
                command == QLatin1String("users") ? &CQuotesCtl::users : &CQuotesCtl::subsystems;
        }
    } else if (command == QLatin1String("accounts")) {
        static const QStringList actions = {QStringLiteral("list"), QStringLiteral("password"),
                                            QStringLiteral("enable"), QStringLiteral("disable"),
                                            QStringLiteral("rights")};
        if (actions.contains(action)) {
            parsed = parseOptions(rest, {QStringLiteral("password-file"), QStringLiteral("rights")},
                                  action == QLatin1String("list") ? json : QStringList());
            m_positional.prepend(action);
            handler = &CQuotesCtl::accounts;
        }
    } else if (command == QLatin1String("audit")) {
        parsed =
            parseOptions(rest,
                         {QStringLiteral("since"), QStringLiteral("until"), QStringLiteral("login"),
                          QStringLiteral("action"), QStringLiteral("before")},
                         json);
        handler = &CQuotesCtl::audit;
    } else if (command == QLatin1String("ping")) {
        parsed = parseOptions(rest, {}, json);
        handler = &CQuotesCtl::ping;
    } else if (command == QLatin1String("export")) {
        parsed = parseOptions(rest, {QStringLiteral("output")},
                              {QStringLiteral("no-secrets"), QStringLiteral("with-audit")});
        handler = &CQuotesCtl::exportAll;
    } else if (command == QLatin1String("import")) {
        parsed = parseOptions(rest, {QStringLiteral("backup")}, {QStringLiteral("dry-run")});
        handler = &CQuotesCtl::importAll;
    } else if (command == QLatin1String("rekey")) {
        parsed = parseOptions(rest, {}, {});
        handler = &CQuotesCtl::rekey;
        if (!m_remote.servers.isEmpty())
            return usage(
                QStringLiteral("rekey changes the key file of the database itself: run it "
                               "with --data or --db where the key lives, not --server"));
    } else {
        parsed = parseOptions(rest, {}, {});
        handler = &CQuotesCtl::integrity;
    }
    if (!parsed)
        return kUsage;
    if (!handler)
        return usage(QStringLiteral("unknown action \"%1 %2\"").arg(command, action));
    // Positional arguments: ids for modify/delete, the token, the import file.
    const bool takesPositional =
        handler == &CQuotesCtl::sourcesModify || handler == &CQuotesCtl::sourcesDelete ||
        handler == &CQuotesCtl::token || handler == &CQuotesCtl::importAll ||
        handler == &CQuotesCtl::accounts || handler == &CQuotesCtl::audit;
    if (!takesPositional && !m_positional.isEmpty())
        return usage(QStringLiteral("unexpected argument \"%1\"").arg(m_positional.front()));
    if (handler == &CQuotesCtl::importAll && m_positional.size() != 1)
        return usage(QStringLiteral("import needs one FILE (or -)"));
    if (handler == &CQuotesCtl::importAll && options.dbUrl.startsWith(QLatin1String("postgres")) &&
        !m_options.count(QStringLiteral("dry-run")) && !m_options.count(QStringLiteral("backup")))
        return usage(QStringLiteral("import into PostgreSQL needs --backup FILE"));
    if (handler == &CQuotesCtl::sourcesModify && m_positional.size() != 1)
        return usage(QStringLiteral("sources modify needs one ID"));
    if (handler == &CQuotesCtl::sourcesModify && !namesASourceField())
        return usage(QStringLiteral("sources modify needs at least one field to change"));
    if (handler == &CQuotesCtl::sourcesDelete && m_positional.isEmpty())
        return usage(QStringLiteral("sources delete needs at least one ID"));
    if (handler == &CQuotesCtl::audit) {
        const bool prune = m_positional == QStringList{QStringLiteral("prune")};
        if (!prune && !m_positional.isEmpty())
            return usage(QStringLiteral("unexpected argument \"%1\"").arg(m_positional.front()));
        if (prune != bool(m_options.count(QStringLiteral("before"))))
            return usage(
                QStringLiteral("--before goes with audit prune, and audit prune needs it"));
        long long ignored = 0;
        for (const char* name : {"since", "until", "before"}) {
            if (!timeOption(QLatin1String(name), &ignored))
                return usage(QStringLiteral("option --%1 needs an ISO-8601 time").arg(name));
        }
    }
    if (handler == &CQuotesCtl::accounts) {
        const QString problem = checkAccountsCommand(action);
        if (!problem.isEmpty())
            return usage(problem);
    }
    if (handler == &CQuotesCtl::token) {
        const int expected = action == QLatin1String("set") ? 2 : 1;
        if (m_positional.size() != expected)
            return usage(
                action == QLatin1String("set")
                    ? QStringLiteral("token set needs one TOKEN")
                    : QStringLiteral("unexpected argument \"%1\"").arg(m_positional.value(1)));
    }
    try {
        for (const char* name : {"trade-type", "platform", "port", "broker", "server-group"}) {
            int ignored = 0;
            intOption(QLatin1String(name), &ignored);
        }
        if (handler == &CQuotesCtl::sourcesAdd && !checkAdd())
            return kUsage;
        int listed = 0;
        if (handler == &CQuotesCtl::sourcesList &&
            intOption(QStringLiteral("trade-type"), &listed) && listed != -1 &&
            !CSourceValidator::tradeTypes().count(listed))
            return usage(QStringLiteral("unknown trade type %1").arg(listed));
        for (const QString& id : m_positional) {
            bool ok = false;
            id.toInt(&ok, 10);
            if (!ok &&
                (handler == &CQuotesCtl::sourcesModify || handler == &CQuotesCtl::sourcesDelete))
                return usage(QStringLiteral("\"%1\" is not a source id").arg(id));
        }
        if (handler == &CQuotesCtl::sourcesModify && m_options.count(QStringLiteral("subsystem")))
            return usage(
                QStringLiteral("a source stays in its sub-system; --subsystem does not apply"));
    } catch (const QString& message) {
        return usage(message);
    }
    if (handler == &CQuotesCtl::sourcesAdd || handler == &CQuotesCtl::sourcesModify) {
        if (m_options.count(QStringLiteral("password")) &&
            m_options.count(QStringLiteral("password-file")))
            return usage(QStringLiteral("--password and --password-file exclude each other"));
    }
    if (inputReaders(handler) > 1)
        return usage(QStringLiteral("only one input may be read from standard input"));
    m_handler = handler;
    warnAboutExposedSecrets();
    return kParsed;
}

namespace {

QString quoted(const QString& value) {
    QString text = QStringLiteral("\"");
    for (const QChar c : value) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\'))
            text += QLatin1Char('\\') + QString(c);
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            text += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            text += c;
    }
    return text + QLatin1Char('"');
}

}  // namespace

QString CQuotesCtl::describe() const {
    if (!m_handler)
        return QString();
    QStringList positional = m_positional;
    QString words;
    if (m_handler == &CQuotesCtl::sourcesList)
        words = QStringLiteral("sources list");
    else if (m_handler == &CQuotesCtl::sourcesAdd)
        words = QStringLiteral("sources add");
    else if (m_handler == &CQuotesCtl::sourcesModify)
        words = QStringLiteral("sources modify");
    else if (m_handler == &CQuotesCtl::sourcesDelete)
        words = QStringLiteral("sources delete");
    else if (m_handler == &CQuotesCtl::brokersList)
        words = QStringLiteral("brokers list");
    else if (m_handler == &CQuotesCtl::platformsList)
        words = QStringLiteral("platforms list");
    else if (m_handler == &CQuotesCtl::subsystems)
        words = QStringLiteral("subsystems list");
    else if (m_handler == &CQuotesCtl::users)
        words = QStringLiteral("users list");
    else if (m_handler == &CQuotesCtl::token)
        words = QStringLiteral("token ") + positional.takeFirst();
    else if (m_handler == &CQuotesCtl::accounts)
        words = QStringLiteral("accounts ") + positional.takeFirst();
    else if (m_handler == &CQuotesCtl::audit)
        words = positional.isEmpty() ? QStringLiteral("audit")
                                     : QStringLiteral("audit ") + positional.takeFirst();
    else if (m_handler == &CQuotesCtl::exportAll)
        words = QStringLiteral("export");
    else if (m_handler == &CQuotesCtl::importAll)
        words = QStringLiteral("import");
    else if (m_handler == &CQuotesCtl::integrity)
        words = QStringLiteral("integrity");
    else if (m_handler == &CQuotesCtl::rekey)
        words = QStringLiteral("rekey");
    else if (m_handler == &CQuotesCtl::ping)
        words = QStringLiteral("ping");
    QStringList lines = {QStringLiteral("command ") + words};
    const auto global = [&lines](const char* name, const QString& value) {
        if (!value.isEmpty())
            lines << QStringLiteral("global --%1 %2").arg(QLatin1String(name), quoted(value));
    };
    global("data", m_serviceOptions.dataDir);
    global("db", m_serviceOptions.dbUrl);
    global("secrets-key", m_serviceOptions.secretsKeyFile);
    for (const QString& server : m_remote.servers)
        global("server", server);
    global("ca", m_remote.caFile);
    global("login", m_remote.login);
    global("login-password-file", m_remote.passwordFile);
    static const QStringList flags = {QStringLiteral("json"), QStringLiteral("no-secrets"),
                                      QStringLiteral("with-audit"), QStringLiteral("dry-run")};
    for (const auto& option : m_options)
        lines << (flags.contains(option.first)
                      ? QStringLiteral("option --%1").arg(option.first)
                      : QStringLiteral("option --%1 %2").arg(option.first, quoted(option.second)));
    for (const QString& argument : positional)
        lines << QStringLiteral("positional ") + quoted(argument);
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}

int CQuotesCtl::inputReaders(Handler handler) const {
    const auto secretFile = m_options.find(QStringLiteral("password-file"));
    const bool importInput =
        handler == &CQuotesCtl::importAll && m_positional.value(0) == QLatin1String("-");
    const bool tokenInput = handler == &CQuotesCtl::token &&
                            m_positional.value(0) == QLatin1String("set") &&
                            m_positional.value(1) == QLatin1String("-");
    return int(m_remote.passwordFile == QLatin1String("-")) +
           int(secretFile != m_options.end() && secretFile->second == QLatin1String("-")) +
           int(importInput) + int(tokenInput);
}

void CQuotesCtl::warnAboutExposedSecrets() const {
    const QString why = QStringLiteral(
        "quotesctl: warning: %1 is on the command line, where other local users can read it; "
        "%2\n");
    if (m_options.count(QStringLiteral("password")))
        writeOut(stderr, why.arg(QStringLiteral("--password"),
                                 QStringLiteral("use --password-file FILE (or - for standard "
                                                "input) instead")));
    if (m_handler == &CQuotesCtl::token && m_positional.value(0) == QLatin1String("set") &&
        m_positional.value(1) != QLatin1String("-"))
        writeOut(stderr, why.arg(QStringLiteral("the token"),
                                 QStringLiteral("use token set - (standard input) instead")));
    if (CDatabaseUrl::hasPassword(m_serviceOptions.dbUrl))
        writeOut(stderr, why.arg(QStringLiteral("the password in the --db URL"),
                                 QStringLiteral("keep it in ~/.pgpass (or PGPASSFILE) instead")));
}

int CQuotesCtl::execute() {
    QString error;
    m_admin =
        m_remote.servers.isEmpty() ? openEmbedded(m_serviceOptions, &error) : openRemote(&error);
    if (!m_admin) {
        writeOut(stderr, QStringLiteral("quotesctl: %1\n").arg(error));
        return kUnavailable;
    }
    try {
        return (this->*m_handler)();
    } catch (const QString& message) {
        return usage(message);
    }
}

boost::shared_ptr<Hlx::IQuotesAdmin> CQuotesCtl::openEmbedded(const CServiceOptions& options,
                                                              QString* error) {
    // On its own database file quotesctl acts with every right: its user could change the file
    // anyway.
    m_service = CQuotesService::open(options, error);
    if (!m_service)
        return nullptr;
    return CEmbeddedAdmin::asOwner(m_service);
}

boost::shared_ptr<Hlx::IQuotesAdmin> CQuotesCtl::openRemote(QString* error) {
    QByteArray ca;
    if (!m_remote.caFile.isEmpty()) {
        QFile file(m_remote.caFile);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("无法读取证书文件: %1").arg(m_remote.caFile);
            return nullptr;
        }
        ca = file.readAll();
    }
    QByteArray password;
    if (!readSecret(m_remote.passwordFile, &password)) {
        *error = QStringLiteral("无法读取密码文件: %1").arg(m_remote.passwordFile);
        return nullptr;
    }
    std::vector<std::string> servers;
    for (const QString& server : m_remote.servers)
        servers.push_back(server.toStdString());
    auto remote = boost::make_shared<CRemoteAdmin>(servers, ca.toStdString());
    const utils::RKError login =
        remote->login(m_remote.login.toStdString(), password.toStdString());
    password.fill('\0');
    if (!login.isSuccess()) {
        *error = QString::fromStdString(login.errorMsg());
        return nullptr;
    }
    return remote;
}

bool CQuotesCtl::readSecret(const QString& name, QByteArray* secret) {
    QFile file;
    const bool opened = name == QLatin1String("-")
                            ? file.open(stdin, QIODevice::ReadOnly)
                            : (file.setFileName(name), file.open(QIODevice::ReadOnly));
    if (!opened)
        return false;
    // The first line; a trailing line end is not part of the secret.
    *secret = file.readLine();
    while (secret->endsWith('\n') || secret->endsWith('\r'))
        secret->chop(1);
    return true;
}

bool CQuotesCtl::sourcePassword(std::string* password) {
    const auto file = m_options.find(QStringLiteral("password-file"));
    if (file != m_options.end()) {
        QByteArray secret;
        if (!readSecret(file->second, &secret))
            return false;
        // The bytes as read: the service refuses what is not UTF-8 instead of altering it.
        password->assign(secret.constData(), size_t(secret.size()));
        secret.fill('\0');
    } else if (m_options.count(QStringLiteral("password"))) {
        *password = m_options[QStringLiteral("password")].toStdString();
    }
    return true;
}

int CQuotesCtl::sourcesList() {
    rkservice::COrinQueryDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    int tradeType = 0;
    if (intOption(QStringLiteral("trade-type"), &tradeType))
        request.condition = std::to_string(tradeType);
    const auto it = m_options.find(QStringLiteral("subsystem"));
    const Hlx::CRequestTarget target =
        it == m_options.end() ? Hlx::CRequestTarget::centre()
                              : Hlx::CRequestTarget::subsystem(it->second.toStdString());
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = m_admin->query(target, request, &datas);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    if (m_options.count(QStringLiteral("json"))) {
        QJsonArray array;
        for (const auto& data : datas)
            array.append(CDataTransfer::sourceToJson(
                static_cast<const rkservice::COrinQuoterSourceInfo&>(*data)));
        printJson(array);
        return kOk;
    }
    QList<QStringList> rows;
    for (const auto& data : datas) {
        const auto& s = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        const bool broker = s.m_nBrokerId != kNoBroker;
        rows << QStringList{QString::number(s.m_nId),
                            QString::fromStdString(s.getSystemTag()),
                            QString::number(s.m_nTradeType),
                            QString::number(s.m_nPlatformId),
                            broker ? QString::number(s.m_nBrokerId) : QStringLiteral("-"),
                            broker ? QString::number(s.m_nServerGroupId) : QStringLiteral("-"),
                            broker ? QStringLiteral("-") : QString::fromStdString(s.m_strAddress),
                            broker ? QStringLiteral("-") : QString::number(s.m_nPort),
                            QString::fromStdString(s.m_strUserName),
                            QString::fromStdString(s.m_strMarkets)};
    }
    printTable({QStringLiteral("ID"), QStringLiteral("SUBSYSTEM"), QStringLiteral("TRADE_TYPE"),
                QStringLiteral("PLATFORM"), QStringLiteral("BROKER"), QStringLiteral("GROUP"),
                QStringLiteral("ADDRESS"), QStringLiteral("PORT"), QStringLiteral("USER"),
                QStringLiteral("MARKETS")},
               rows);
    return kOk;
}

bool CQuotesCtl::checkAdd() {
    int value = 0;
    if (!intOption(QStringLiteral("platform"), &value))
        return usage(QStringLiteral("sources add needs --platform")), false;
    if (!intOption(QStringLiteral("trade-type"), &value))
        return usage(QStringLiteral("sources add needs --trade-type")), false;
    if (m_options.count(QStringLiteral("broker"))) {
        if (!m_options.count(QStringLiteral("server-group")))
            return usage(QStringLiteral("--broker needs --server-group")), false;
        for (const char* name :
             {"address", "port", "user", "password", "password-file", "markets"}) {
            if (m_options.count(QLatin1String(name)))
                return usage(QStringLiteral("--%1 does not go with --broker")
                                 .arg(QLatin1String(name))),
                       false;
        }
    } else {
        if (!m_options.count(QStringLiteral("address")) || !m_options.count(QStringLiteral("port")))
            return usage(QStringLiteral(
                       "sources add needs --address and --port, or --broker and --server-group")),
                   false;
        if (m_options.count(QStringLiteral("server-group")))
            return usage(QStringLiteral("--server-group needs --broker")), false;
    }
    return true;
}

int CQuotesCtl::sourcesAdd() {
    auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
    intOption(QStringLiteral("platform"), &source->m_nPlatformId);
    intOption(QStringLiteral("trade-type"), &source->m_nTradeType);
    if (intOption(QStringLiteral("broker"), &source->m_nBrokerId)) {
        intOption(QStringLiteral("server-group"), &source->m_nServerGroupId);
    } else {
        intOption(QStringLiteral("port"), &source->m_nPort);
        source->m_strAddress = m_options[QStringLiteral("address")].toStdString();
        source->m_strUserName = m_options[QStringLiteral("user")].toStdString();
        if (!sourcePassword(&source->m_strPassword))
            return refused(QStringLiteral("无法读取密码文件: %1")
                               .arg(m_options[QStringLiteral("password-file")]));
        source->m_strMarkets = m_options[QStringLiteral("markets")].toStdString();
    }
    const auto it = m_options.find(QStringLiteral("subsystem"));
    const Hlx::CRequestTarget target =
        it == m_options.end() ? Hlx::CRequestTarget::centre()
                              : Hlx::CRequestTarget::subsystem(it->second.toStdString());
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateAdd;
    request.datas.push_back(source);
    bson::BSONObj result;
    const utils::RKError error = m_admin->operate(target, request, &result);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    print(QString::fromStdString(result.getStringField("ids")) + QLatin1Char('\n'));
    return kOk;
}

bool CQuotesCtl::namesASourceField() const {
    for (const char* name : {"platform", "trade-type", "address", "port", "user", "password",
                             "password-file", "markets", "broker", "server-group"}) {
        if (m_options.count(QLatin1String(name)))
            return true;
    }
    return false;
}

int CQuotesCtl::sourcesModify() {
    const int id = m_positional.front().toInt(nullptr, 10);
    Hlx::CSourcePatch patch;
    const auto number = [this](const char* name, std::optional<int>* field) {
        int value = 0;
        if (intOption(QLatin1String(name), &value))
            *field = value;
    };
    const auto text = [this](const char* name, std::optional<std::string>* field) {
        const auto it = m_options.find(QLatin1String(name));
        if (it != m_options.end())
            *field = it->second.toStdString();
    };
    number("platform", &patch.platformId);
    number("trade-type", &patch.tradeType);
    number("port", &patch.port);
    number("broker", &patch.brokerId);
    number("server-group", &patch.serverGroupId);
    text("address", &patch.address);
    text("user", &patch.userName);
    text("markets", &patch.markets);
    if (m_options.count(QStringLiteral("password")) ||
        m_options.count(QStringLiteral("password-file"))) {
        std::string password;
        if (!sourcePassword(&password))
            return refused(QStringLiteral("无法读取密码文件: %1")
                               .arg(m_options[QStringLiteral("password-file")]));
        patch.password = std::move(password);
    }
    // The id is the operator's own, like a delete's: the read tells a server that this login's
    // view is current. The patch itself is applied to the stored source in the service's
    // transaction, so a field changed meanwhile by someone else is kept.
    std::map<int, int> platforms;
    utils::RKError error = storedPlatforms(&platforms);
    if (error.isSuccess())
        error = m_admin->modifySource(id, patch);
    if (patch.password)
        std::fill(patch.password->begin(), patch.password->end(), '\0');
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    return kOk;
}

utils::RKError CQuotesCtl::storedPlatforms(std::map<int, int>* platforms) {
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataQuoteSources;
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = m_admin->query(Hlx::CRequestTarget::centre(), query, &datas);
    for (const auto& data : datas) {
        const auto& stored = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        (*platforms)[stored.m_nId] = stored.m_nPlatformId;
    }
    return error;
}

int CQuotesCtl::sourcesDelete() {
    // The ids are the operator's own: they are sent with the platforms stored now (the service
    // refuses a delete whose platform is not the stored row's), read by a query that also tells
    // the server this login's view is current. An unknown id goes as it is, for the service to
    // name.
    std::map<int, int> platforms;
    utils::RKError error = storedPlatforms(&platforms);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateDelete;
    for (const QString& text : m_positional) {
        const int id = text.toInt(nullptr, 10);
        auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>();
        source->m_nId = id;
        const auto found = platforms.find(id);
        if (found != platforms.end())
            source->m_nPlatformId = found->second;
        request.datas.push_back(source);
    }
    error = m_admin->operate(Hlx::CRequestTarget::centre(), request, nullptr);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    return kOk;
}

int CQuotesCtl::reference(bool brokers) {
    rkservice::COrinQueryDataReq request;
    request.dataType = brokers ? rkservice::kDataBrokers : rkservice::kDataPlatforms;
    int tradeType = 0;
    if (intOption(QStringLiteral("trade-type"), &tradeType))
        request.condition = std::to_string(tradeType);
    // The reference data is the same on every sub-system: list the default one's.
    std::vector<rkservice::IDataPtr> datas;
    const utils::RKError error = m_admin->query(
        Hlx::CRequestTarget::subsystem(m_admin->subsystems().front().name), request, &datas);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    const bool json = m_options.count(QStringLiteral("json")) > 0;
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& data : datas) {
        if (brokers) {
            const auto& b = static_cast<const rkservice::COrinBrokerInfo&>(*data);
            QJsonArray groups;
            for (const auto& g : b.serverGroups) {
                QJsonArray addresses;
                for (const std::string& a : g->serverAddresses)
                    addresses.append(QString::fromStdString(a));
                QJsonObject group;
                group.insert(QStringLiteral("serverGroupId"), g->serverGroupId);
                group.insert(QStringLiteral("serverGroupName"),
                             QString::fromStdString(g->serverGroupName));
                group.insert(QStringLiteral("serverAddresses"), addresses);
                groups.append(group);
                QStringList list;
                for (const std::string& a : g->serverAddresses)
                    list << QString::fromStdString(a);
                rows << QStringList{QString::number(b.platformId),
                                    QString::fromStdString(b.brokerKey),
                                    QString::fromStdString(b.brokerName),
                                    QString::number(g->serverGroupId),
                                    QString::fromStdString(g->serverGroupName),
                                    list.join(QLatin1Char(','))};
            }
            QJsonObject o;
            o.insert(QStringLiteral("platformId"), b.platformId);
            o.insert(QStringLiteral("platformName"), QString::fromStdString(b.platformName));
            o.insert(QStringLiteral("brokerKey"), QString::fromStdString(b.brokerKey));
            o.insert(QStringLiteral("brokerName"), QString::fromStdString(b.brokerName));
            o.insert(QStringLiteral("serverGroups"), groups);
            array.append(o);
        } else {
            const auto& p = static_cast<const rkservice::COrinPlatformInfo&>(*data);
            QJsonObject o;
            o.insert(QStringLiteral("platformId"), p.platformId);
            o.insert(QStringLiteral("platformName"), QString::fromStdString(p.platformName));
            array.append(o);
            rows << QStringList{QString::number(p.platformId),
                                QString::fromStdString(p.platformName)};
        }
    }
    if (json)
        printJson(array);
    else if (brokers)
        printTable(
            {QStringLiteral("PLATFORM"), QStringLiteral("KEY"), QStringLiteral("NAME"),
             QStringLiteral("GROUP"), QStringLiteral("GROUP_NAME"), QStringLiteral("ADDRESSES")},
            rows);
    else
        printTable({QStringLiteral("PLATFORM"), QStringLiteral("NAME")}, rows);
    return kOk;
}

int CQuotesCtl::brokersList() {
    return reference(true);
}

int CQuotesCtl::platformsList() {
    return reference(false);
}

int CQuotesCtl::token() {
    const QString action = m_positional.front();
    rkservice::COrinQueryDataReq query;
    query.dataType = rkservice::kDataLevel2Tokens;
    std::vector<rkservice::IDataPtr> datas;
    utils::RKError error = m_admin->query(Hlx::CRequestTarget::centre(), query, &datas);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    const QString current =
        datas.empty() ? QString()
                      : QString::fromStdString(
                            static_cast<const rkservice::CLevel2Token&>(*datas.front()).token);
    if (action == QLatin1String("show")) {
        if (m_options.count(QStringLiteral("json"))) {
            QJsonObject o;
            o.insert(QStringLiteral("token"), datas.empty() ? QJsonValue() : QJsonValue(current));
            printJson(o);
        } else if (!datas.empty()) {
            print(current + QLatin1Char('\n'));
        }
        return kOk;
    }
    auto record = boost::make_shared<rkservice::CLevel2Token>();
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataLevel2Tokens;
    if (action == QLatin1String("set")) {
        if (m_positional.at(1) == QLatin1String("-")) {
            QByteArray secret;
            if (!readSecret(m_positional.at(1), &secret))
                return refused(QStringLiteral("无法读取标准输入"));
            record->token.assign(secret.constData(), size_t(secret.size()));
            secret.fill('\0');
        } else {
            record->token = m_positional.at(1).toStdString();
        }
        request.operateType = datas.empty() ? rkservice::kOperateAdd : rkservice::kOperateModify;
    } else {
        if (datas.empty())
            return refused(QStringLiteral("Level-2 行情源 token 不存在"));
        record->token = current.toStdString();
        request.operateType = rkservice::kOperateDelete;
    }
    request.datas.push_back(record);
    error = m_admin->operate(Hlx::CRequestTarget::centre(), request, nullptr);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    return kOk;
}

int CQuotesCtl::subsystems() {
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& info : m_admin->subsystems()) {
        QJsonObject o;
        o.insert(QStringLiteral("name"), QString::fromStdString(info.name));
        o.insert(QStringLiteral("displayName"), QString::fromStdString(info.displayName));
        array.append(o);
        rows << QStringList{QString::fromStdString(info.name),
                            QString::fromStdString(info.displayName)};
    }
    if (m_options.count(QStringLiteral("json")))
        printJson(array);
    else
        printTable({QStringLiteral("NAME"), QStringLiteral("DISPLAY_NAME")}, rows);
    return kOk;
}

int CQuotesCtl::users() {
    std::vector<rkservice::CUserInfoPtr> users;
    const utils::RKError error = m_admin->users(&users);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    QJsonArray array;
    QList<QStringList> rows;
    for (const auto& user : users) {
        QJsonArray rights;
        QStringList list;
        for (int right : user->m_rights) {
            rights.append(right);
            list << QString::number(right);
        }
        QJsonObject o;
        o.insert(QStringLiteral("name"), QString::fromStdString(user->m_strName));
        o.insert(QStringLiteral("systemId"), user->m_nSystemId);
        o.insert(QStringLiteral("rights"), rights);
        array.append(o);
        rows << QStringList{QString::fromStdString(user->m_strName),
                            QString::number(user->m_nSystemId),
                            list.isEmpty() ? QStringLiteral("-") : list.join(QLatin1Char(','))};
    }
    if (m_options.count(QStringLiteral("json")))
        printJson(array);
    else
        printTable({QStringLiteral("NAME"), QStringLiteral("SYSTEM_ID"), QStringLiteral("RIGHTS")},
                   rows);
    return kOk;
}

int CQuotesCtl::exportAll() {
    QJsonObject document;
    const utils::RKError error = m_admin->exportDocument(&document);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    if (m_options.count(QStringLiteral("with-audit"))) {
        Hlx::CAuditFilter everything;
        everything.limit = std::numeric_limits<int>::max();
        std::vector<Hlx::CAuditEntry> entries;
        const utils::RKError read = m_admin->auditEntries(everything, &entries);
        if (!read.isSuccess())
            return refused(QString::fromStdString(read.errorMsg()));
        // For the record only: import passes over it and leaves the trail as it is.
        document.insert(QStringLiteral("audit"), CAuditCommand::toJson(entries));
    }
    if (m_options.count(QStringLiteral("no-secrets")))
        document = withoutSecrets(document);
    const QByteArray text = QJsonDocument(document).toJson(QJsonDocument::Indented);
    const auto output = m_options.find(QStringLiteral("output"));
    QString failure;
    if (output != m_options.end()) {
        if (!CPrivateFile::write(output->second, text, &failure))
            return refused(failure);
        return kOk;
    }
    // A full disk or a closed pipe must not pass for a complete backup.
    if (!CPrivateFile::writeAll(fileno(stdout), text))
        return refused(
            QStringLiteral("无法写出导出数据: %1").arg(QString::fromLocal8Bit(strerror(errno))));
    return kOk;
}

QJsonObject CQuotesCtl::withoutSecrets(QJsonObject document) {
    QJsonArray sources = document.value(QLatin1String("sources")).toArray();
    for (auto it = sources.begin(); it != sources.end(); ++it) {
        QJsonObject source = it->toObject();
        source.insert(QStringLiteral("password"), QString());
        *it = source;
    }
    document.insert(QStringLiteral("sources"), sources);
    document.insert(QStringLiteral("level2Token"), QJsonValue());
    return document;
}

int CQuotesCtl::rekey() {
    const utils::RKError error = m_service->rekey(CCaller::owner());
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    print(QStringLiteral("key %1\n").arg(m_service->keyFile()));
    return kOk;
}

int CQuotesCtl::importAll() {
    const QString name = m_positional.front();
    QFile file;
    bool opened = false;
    if (name == QLatin1String("-"))
        opened = file.open(stdin, QIODevice::ReadOnly);
    else {
        file.setFileName(name);
        opened = file.open(QIODevice::ReadOnly);
    }
    if (!opened)
        return refused(QStringLiteral("无法读取文件: %1").arg(name));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        return refused(QStringLiteral("导入文件不是有效的 JSON: %1").arg(parseError.errorString()));
    Hlx::CImportOptions options;
    options.dryRun = m_options.count(QStringLiteral("dry-run")) > 0;
    if (m_options.count(QStringLiteral("backup")))
        options.backupFile = m_options.at(QStringLiteral("backup")).toStdString();
    Hlx::CImportReport report;
    const utils::RKError error = m_admin->importDocument(document.object(), options, &report);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    if (!report.backupFile.empty())
        print(QStringLiteral("backup %1\n").arg(QString::fromStdString(report.backupFile)));
    for (const Hlx::CSectionChange& change : report.sections)
        print(QStringLiteral("%1 %2 -> %3 (+%4 -%5)\n")
                  .arg(QString::fromStdString(change.section))
                  .arg(change.before)
                  .arg(change.after)
                  .arg(change.added)
                  .arg(change.removed));
    return kOk;
}

int CQuotesCtl::integrity() {
    const utils::RKError error = m_admin->checkIntegrity();
    if (!error.isSuccess())
        return refused(QStringLiteral("数据库一致性检查失败: %1")
                           .arg(QString::fromStdString(error.errorMsg())));
    print(QStringLiteral("ok\n"));
    return kOk;
}

int CQuotesCtl::ping() {
    Hlx::CServiceStatus status;
    const utils::RKError error = m_admin->status(&status);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    const QString version = QString::fromStdString(status.version);
    const QString database = QString::fromStdString(status.database);
    if (m_options.count(QStringLiteral("json"))) {
        QJsonObject o;
        o.insert(QStringLiteral("version"), version);
        o.insert(QStringLiteral("database"), database);
        o.insert(QStringLiteral("uptimeMs"), double(status.uptimeMs));
        printJson(o);
    } else {
        print(QStringLiteral("version %1\ndatabase %2\nuptime %3 s\n")
                  .arg(version, database, QString::number(status.uptimeMs / 1000.0, 'f', 1)));
    }
    return kOk;
}

QString CQuotesCtl::checkAccountsCommand(const QString& action) const {
    const int names = m_positional.size() - 1;
    if (action == QLatin1String("list"))
        return names == 0 ? QString() : QStringLiteral("accounts list takes no NAME");
    if (names != 1)
        return QStringLiteral("accounts %1 needs one NAME").arg(action);
    if (action == QLatin1String("password") && !m_options.count(QStringLiteral("password-file")))
        return QStringLiteral(
            "accounts password needs --password-file FILE (or - for standard "
            "input)");
    if (action == QLatin1String("rights")) {
        if (!m_options.count(QStringLiteral("rights")))
            return QStringLiteral(
                "accounts rights needs --rights LIST (comma-separated; empty "
                "for none)");
        std::set<int> ignored;
        if (!rightsOption(&ignored))
            return QStringLiteral("--rights takes right numbers separated by commas");
    }
    return QString();
}

bool CQuotesCtl::rightsOption(std::set<int>* rights) const {
    const QString text = m_options.at(QStringLiteral("rights"));
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int right = part.trimmed().toInt(&ok, 10);
        if (!ok || right < 0)
            return false;
        rights->insert(right);
    }
    return true;
}

int CQuotesCtl::accounts() {
    const QString action = m_positional.front();
    if (action == QLatin1String("list"))
        return accountsList();
    const std::string name = m_positional.value(1).toStdString();
    utils::RKError error = utils::RKError::ok();
    if (action == QLatin1String("password")) {
        QByteArray password;
        const QString file = m_options.at(QStringLiteral("password-file"));
        if (!readSecret(file, &password))
            return refused(QStringLiteral("无法读取密码文件: %1").arg(file));
        error = m_admin->setPassword(name, password.toStdString());
        password.fill('\0');
    } else if (action == QLatin1String("rights")) {
        std::set<int> rights;
        rightsOption(&rights);
        error = m_admin->setRights(name, rights);
    } else {
        error = m_admin->setAccountEnabled(name, action == QLatin1String("enable"));
    }
    return error.isSuccess() ? kOk : refused(QString::fromStdString(error.errorMsg()));
}

int CQuotesCtl::accountsList() {
    std::vector<Hlx::CAdminAccount> accounts;
    const utils::RKError error = m_admin->accounts(&accounts);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    QJsonArray array;
    QList<QStringList> rows;
    for (const Hlx::CAdminAccount& account : accounts) {
        QJsonArray rights;
        QStringList list;
        for (int right : account.user->m_rights) {
            rights.append(right);
            list << QString::number(right);
        }
        const QString name = QString::fromStdString(account.user->m_strName);
        QJsonObject o;
        o.insert(QStringLiteral("name"), name);
        o.insert(QStringLiteral("systemId"), account.user->m_nSystemId);
        o.insert(QStringLiteral("enabled"), account.enabled);
        o.insert(QStringLiteral("rights"), rights);
        array.append(o);
        rows << QStringList{name, QString::number(account.user->m_nSystemId),
                            account.enabled ? QStringLiteral("yes") : QStringLiteral("no"),
                            list.isEmpty() ? QStringLiteral("-") : list.join(QLatin1Char(','))};
    }
    if (m_options.count(QStringLiteral("json")))
        printJson(array);
    else
        printTable({QStringLiteral("NAME"), QStringLiteral("SYSTEM_ID"), QStringLiteral("ENABLED"),
                    QStringLiteral("RIGHTS")},
                   rows);
    return kOk;
}

bool CQuotesCtl::timeOption(const QString& name, long long* ms) const {
    const auto it = m_options.find(name);
    *ms = 0;
    return it == m_options.end() || CAuditCommand::parseTime(it->second, ms);
}

int CQuotesCtl::audit() {
    if (!m_positional.isEmpty()) {
        long long before = 0;
        timeOption(QStringLiteral("before"), &before);
        int removed = 0;
        const utils::RKError error = m_admin->pruneAudit(before, &removed);
        if (!error.isSuccess())
            return refused(QString::fromStdString(error.errorMsg()));
        print(QStringLiteral("%1\n").arg(removed));
        return kOk;
    }
    Hlx::CAuditFilter filter;
    timeOption(QStringLiteral("since"), &filter.sinceMs);
    timeOption(QStringLiteral("until"), &filter.untilMs);
    const auto login = m_options.find(QStringLiteral("login"));
    if (login != m_options.end())
        filter.account = login->second.toStdString();
    const auto action = m_options.find(QStringLiteral("action"));
    if (action != m_options.end())
        filter.action = action->second.toStdString();
    std::vector<Hlx::CAuditEntry> entries;
    const utils::RKError error = m_admin->auditEntries(filter, &entries);
    if (!error.isSuccess())
        return refused(QString::fromStdString(error.errorMsg()));
    if (m_options.count(QStringLiteral("json")))
        printJson(CAuditCommand::toJson(entries));
    else
        printTable(CAuditCommand::header(), CAuditCommand::rows(entries));
    return kOk;
}
