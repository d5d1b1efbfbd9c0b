#include "CCtlGlobals.h"

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlSynopsis.h"
#include "CDatabaseUrl.h"

const std::vector<CCtlGlobals::Option>& CCtlGlobals::options() {
    using Kind = CCtlOption::Kind;
    static const std::vector<Option> table = {
        {kData, "--data", "", Kind::Directory, "DIR",
         "data directory holding quotes.db (default: the console's, %1)"},
        {kDb, "--db", "", Kind::Text, "URL",
         "a database URL instead, e.g.\n"
         "postgresql://user@/dbname?host=/run/postgresql&port=5432\n"
         "(its password from ~/.pgpass, or the file PGPASSFILE names,\n"
         "lines host:port:dbname:user:password, mode 0600; a password in\n"
         "the URL works but other local users can read it)"},
        {kSecretsKey, "--secrets-key", "", Kind::File, "FILE",
         "the key of the stored passwords and token (default:\n"
         "secrets.key in the data directory; every program on one\n"
         "database needs the same key)"},
        {kServer, "--server", "", Kind::Text, "HOST:PORT",
         "a quotesd server instead (several: logins and reads move on\n"
         "to the next when one is down; a change is never sent twice)"},
        {kCa, "--ca", "", Kind::File, "FILE",
         "the server's certificate (PEM) to trust; default: the system's"},
        {kLogin, "--login", "", Kind::Text, "NAME", "the account to log in as"},
        {kLoginPasswordFile, "--login-password-file", "", Kind::Input, "FILE",
         "its password: the first line of FILE, or of standard input for -\n"
         "(never a command-line argument)"},
        {kHelp, "--help", "-h", Kind::Flag, "", "this text",
         "print every command with its options and arguments"},
        {kVersion, "--version", "", Kind::Flag, "", "the version and the commit it was built from"},
    };
    return table;
}

const CCtlGlobals::Option& CCtlGlobals::option(Id id) {
    // The table lists the options in the order of their ids.
    return options().at(size_t(id));
}

QString CCtlGlobals::flag(Id id) {
    return QLatin1String(option(id).name);
}

QString CCtlGlobals::label(Id id) {
    return CCtlSynopsis::plain(CCtlSynopsis::global(id, false));
}

bool CCtlGlobals::take(QStringList* arguments) {
    while (!arguments->isEmpty() && arguments->front().startsWith(QLatin1Char('-'))) {
        const QString name = arguments->takeFirst();
        const Option* found = nullptr;
        for (const Option& o : options()) {
            if (name == QLatin1String(o.name) || (*o.alias && name == QLatin1String(o.alias)))
                found = &o;
        }
        if (found && (found->id == kHelp || found->id == kVersion)) {
            wantsVersion = found->id == kVersion;
            return true;
        }
        if (!found)
            throw CCtlError::usage(QStringLiteral("unknown option %1").arg(name));
        if (arguments->isEmpty() || arguments->front().isEmpty())
            throw CCtlError::usage(QStringLiteral("option %1 needs a value").arg(name));
        set(found->id, arguments->takeFirst());
    }
    return false;
}

void CCtlGlobals::set(Id id, const QString& value) {
    switch (id) {
        case kData:
            service.dataDir = value;
            break;
        case kDb:
            service.dbUrl = value;
            break;
        case kSecretsKey:
            service.secretsKeyFile = value;
            break;
        case kServer:
            servers << value;
            break;
        case kCa:
            caFile = value;
            break;
        case kLogin:
            login = value;
            break;
        case kLoginPasswordFile:
            passwordFile = value;
            break;
        case kHelp:
        case kVersion:
            break;
    }
}

void CCtlGlobals::check() const {
    // An option's value is never empty, so a given option is a non-empty value.
    const bool local =
        !service.dataDir.isEmpty() || !service.dbUrl.isEmpty() || !service.secretsKeyFile.isEmpty();
    if (!service.dataDir.isEmpty() && !service.dbUrl.isEmpty())
        throw CCtlError::usage(
            QStringLiteral("%1 and %2 exclude each other").arg(flag(kData), flag(kDb)));
    if (remote() && local)
        throw CCtlError::usage(QStringLiteral("%1 excludes %2, %3 and %4")
                                   .arg(flag(kServer), flag(kData), flag(kDb), flag(kSecretsKey)));
    if (!remote() && (!caFile.isEmpty() || !login.isEmpty() || !passwordFile.isEmpty()))
        throw CCtlError::usage(
            QStringLiteral("%1, %2 and %3 need %4")
                .arg(flag(kCa), flag(kLogin), flag(kLoginPasswordFile), flag(kServer)));
}

void CCtlGlobals::checkLogin() const {
    if (remote() && (login.isEmpty() || passwordFile.isEmpty()))
        throw CCtlError::usage(QStringLiteral("%1 needs %2 and %3 (or - for standard input)")
                                   .arg(flag(kServer), label(kLogin), label(kLoginPasswordFile)));
}

int CCtlGlobals::inputReaders() const {
    return passwordFile == QLatin1String("-") ? 1 : 0;
}

QStringList CCtlGlobals::warnings() const {
    if (!CDatabaseUrl::hasPassword(service.dbUrl))
        return {};
    return {CCtlArguments::exposed(QStringLiteral("the password in the %1 URL").arg(flag(kDb)),
                                   QStringLiteral("keep it in ~/.pgpass (or PGPASSFILE) instead"))};
}

QStringList CCtlGlobals::describe() const {
    QStringList lines;
    const auto given = [&lines](Id id, const QString& value) {
        if (!value.isEmpty())
            lines << QStringLiteral("global %1 %2").arg(flag(id), CCtlArguments::quoted(value));
    };
    given(kData, service.dataDir);
    given(kDb, service.dbUrl);
    given(kSecretsKey, service.secretsKeyFile);
    for (const QString& server : servers)
        given(kServer, server);
    given(kCa, caFile);
    given(kLogin, login);
    given(kLoginPasswordFile, passwordFile);
    return lines;
}
