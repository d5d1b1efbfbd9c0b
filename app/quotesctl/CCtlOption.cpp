#include "CCtlOption.h"

#include <QDateTime>

const std::vector<CCtlOption>& CCtlOption::all() {
    static const std::vector<CCtlOption> options = {
        {kTradeType, "trade-type", Kind::Int, "N"},
        {kPlatform, "platform", Kind::Int, "N"},
        {kPort, "port", Kind::Int, "N"},
        {kBroker, "broker", Kind::Int, "N"},
        {kServerGroup, "server-group", Kind::Int, "N"},
        {kSubsystem, "subsystem", Kind::Text, "NAME"},
        {kAddress, "address", Kind::Text, "ADDR"},
        {kUser, "user", Kind::Text, "NAME"},
        {kPassword, "password", Kind::Secret, "TEXT", kPasswordFile},
        {kPasswordFile, "password-file", Kind::Input, "FILE"},
        {kMarkets, "markets", Kind::Text, "LIST"},
        {kJson, "json", Kind::Flag, ""},
        {kRights, "rights", Kind::Rights, "LIST"},
        {kSince, "since", Kind::Time, "T"},
        {kUntil, "until", Kind::Time, "T"},
        {kBefore, "before", Kind::Text, "DATE|ID"},
        {kLogin, "login", Kind::Text, "NAME"},
        {kAction, "action", Kind::Text, "A"},
        {kOutput, "output", Kind::File, "FILE"},
        {kNoSecrets, "no-secrets", Kind::Flag, ""},
        {kWithAudit, "with-audit", Kind::Flag, ""},
        {kDryRun, "dry-run", Kind::Flag, ""},
        {kBackup, "backup", Kind::File, "FILE"},
        {kKey, "key", Kind::File, "FILE"},
        {kLimit, "limit", Kind::Int, "N"},
        {kIfRevision, "if-revision", Kind::Int, "N"},
        {kData, "data", Kind::Directory, "DIR"},
        {kOnly, "only", Kind::Text, "LIST"},
        {kAll, "all", Kind::Flag, ""},
        {kEntry, "entry", Kind::Int, "N"},
    };
    return options;
}

const CCtlOption& CCtlOption::of(Id id) {
    // The registry lists the options in the order of their ids.
    return all().at(size_t(id));
}

const CCtlOption* CCtlOption::named(const QString& name) {
    for (const CCtlOption& option : all()) {
        if (name == QLatin1String(option.name))
            return &option;
    }
    return nullptr;
}

QString CCtlOption::flag() const {
    return QStringLiteral("--") + QLatin1String(name);
}

QString CCtlOption::synopsis() const {
    if (!takesValue())
        return flag();
    const QString value = QLatin1String(metavar);
    return flag() + QLatin1Char(' ') + (kind == Kind::Input ? value + QStringLiteral("|-") : value);
}

bool CCtlOption::readsStandardInput(const QString& value) const {
    return kind == Kind::Input && value == QLatin1String("-");
}

QString CCtlOption::problem(const QString& value) const {
    bool ok = true;
    long long ms = 0;
    std::set<int> rights;
    switch (kind) {
        case Kind::Int:
            value.toInt(&ok, 10);
            return ok ? QString()
                      : QStringLiteral("option %1 needs a whole number, not \"%2\"")
                            .arg(flag(), value);
        case Kind::Time:
            return parseTime(value, &ms)
                       ? QString()
                       : QStringLiteral("option %1 needs an ISO-8601 time").arg(flag());
        case Kind::Rights:
            return parseRights(value, &rights)
                       ? QString()
                       : QStringLiteral("%1 takes right numbers separated by commas").arg(flag());
        default:
            return QString();
    }
}

bool CCtlOption::parseTime(const QString& text, long long* ms) {
    QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!time.isValid())
        time = QDateTime(QDate::fromString(text, Qt::ISODate), QTime(0, 0));
    if (!time.isValid())
        return false;
    *ms = time.toMSecsSinceEpoch();
    return true;
}

bool CCtlOption::parseRights(const QString& text, std::set<int>* rights) {
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int right = part.trimmed().toInt(&ok, 10);
        if (!ok || right < 0)
            return false;
        rights->insert(right);
    }
    return true;
}
