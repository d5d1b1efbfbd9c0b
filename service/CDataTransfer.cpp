#include "CDataTransfer.h"

#include <QJsonDocument>
#include <QSqlQuery>
#include <QVariant>
#include <algorithm>
#include <iterator>
#include <tuple>

#include "CAccount.h"
#include "CAccountStore.h"
#include "CDatabase.h"
#include "CQuoteSourceStore.h"
#include "CReferenceData.h"
#include "CServiceError.h"
#include "CSettingsStore.h"
#include "CSourceValidator.h"
#include "CTokenStore.h"
#include "CWholeQuoteStore.h"
#include "model/CAuditVocabulary.h"
#include "model/CRightsTable.h"
#include "rkservice/CWholeQuotedivision.h"

namespace {

const char* const kFormat = "PanelQuotesManage";
// Version 2 adds each account's enabled flag and password hash (never a password), so that a
// restored server lets the same people log in; version 3 writes null for a source's brokerId
// when it belongs to no broker. Older documents stay importable: version-1 accounts keep the
// passwords and flags they have.
const int kFormatVersion = 3;
const int kOldestFormatVersion = 1;
// The last version written before the administrator's rights of their own (schema 3): the
// import grants them as that migration does.
const int kLastVersionBeforeAdminRights = 2;
// The seeded administrator, the account schema 3 grants them to.
const char* const kSeededAdministrator = "admin";
// Source ids above this are refused, so the id counter always has room to continue after them.
const int kMaxSourceId = 999999999;

// The sections every version carries, with the JSON type export writes. A section that is
// missing or of another type would otherwise read as empty and wipe what it replaces.
struct Section {
    const char* key;
    QJsonValue::Type type;
    bool nullable;
};
const Section kSections[] = {
    {"subsystems", QJsonValue::Array, false},  {"loginTypeAuth", QJsonValue::Object, false},
    {"platforms", QJsonValue::Array, false},   {"brokers", QJsonValue::Array, false},
    {"sources", QJsonValue::Array, false},     {"wholeQuote", QJsonValue::Object, false},
    {"level2Token", QJsonValue::String, true}, {"users", QJsonValue::Array, false},
};
// Keys beside the sections: the header, and an audit trail that an import leaves alone.
const char* const kHeaderKeys[] = {"format", "version", "audit"};

[[noreturn]] void refuse(const QString& text) {
    throw CServiceError(("导入文件无效: " + text).toStdString());
}

bool isInt(const QJsonValue& value) {
    return value.isDouble() && value.toDouble() == double(value.toInt());
}

int intField(const QJsonObject& object, const char* key, const QString& where) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!isInt(value))
        refuse(QStringLiteral("%1 缺少整数字段 %2").arg(where, QLatin1String(key)));
    return value.toInt();
}

QString stringField(const QJsonObject& object, const char* key, const QString& where) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString())
        refuse(QStringLiteral("%1 缺少文本字段 %2").arg(where, QLatin1String(key)));
    return value.toString();
}

// The enabled flag and the password hash of a version-2 account.
void parseLogin(const QJsonObject& u, CDataTransfer::User* user) {
    const QJsonValue enabled = u.value(QLatin1String("enabled"));
    const QJsonValue hash = u.value(QLatin1String("passwordHash"));
    if (!enabled.isBool())
        refuse(QStringLiteral("用户 %1 缺少布尔字段 enabled").arg(user->name));
    user->hasLogin = true;
    user->enabled = enabled.toBool();
    if (hash.isUndefined()) {
        user->keepsHash = true;
        return;
    }
    if (!hash.isNull() &&
        !(hash.isString() && hash.toString().startsWith(QLatin1String("$argon2id$"))))
        refuse(
            QStringLiteral("用户 %1 的 passwordHash 必须是 Argon2id 散列或 null").arg(user->name));
    user->passwordHash = hash.toString();
}

QJsonArray subsystemsToJson(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    QJsonArray result;
    for (const auto& info : subsystems)
        result.append(
            QJsonObject{{QStringLiteral("name"), QString::fromStdString(info.name)},
                        {QStringLiteral("displayName"), QString::fromStdString(info.displayName)}});
    return result;
}

QJsonObject loginTypeAuthToJson(const std::map<int, bool>& settings) {
    QJsonObject result;
    for (const auto& setting : settings)
        result.insert(QString::number(setting.first), setting.second);
    return result;
}

QJsonObject wholeQuoteToJson(const std::map<QString, CWholeQuoteStore::Flags>& all) {
    QJsonObject result;
    for (const auto& subsystem : all) {
        QJsonObject flags;
        for (const auto& flag : subsystem.second)
            flags.insert(flag.first, flag.second);
        result.insert(subsystem.first, flags);
    }
    return result;
}

QJsonArray usersToJson(const std::vector<CAccountStore::Row>& rows) {
    QJsonArray result;
    for (const CAccountStore::Row& row : rows) {
        QJsonArray rights;
        for (int right : row.rights)
            rights.append(right);
        result.append(QJsonObject{{QStringLiteral("name"), row.name},
                                  {QStringLiteral("systemId"), row.systemId},
                                  {QStringLiteral("rights"), rights},
                                  {QStringLiteral("enabled"), row.enabled},
                                  {QStringLiteral("passwordHash"),
                                   row.passwordHash.isEmpty() ? QJsonValue(QJsonValue::Null)
                                                              : QJsonValue(row.passwordHash)}});
    }
    return result;
}

}  // namespace

QJsonArray CDataTransfer::sourcesToJson(const CDatabase& database, QSqlDatabase& db) {
    QJsonArray sources;
    for (const auto& data : CQuoteSourceStore(database).query(db, QString(), false, 0)) {
        const auto& s = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        QJsonObject source = sourceToJson(s);
        if (s.m_nBrokerId == rkservice::COrinQuoterSourceInfo::kNoBroker)
            source.insert(QStringLiteral("brokerId"), QJsonValue(QJsonValue::Null));
        sources.append(source);
    }
    return sources;
}

QJsonObject CDataTransfer::sourceToJson(const rkservice::COrinQuoterSourceInfo& s) {
    QJsonObject o;
    o.insert(QStringLiteral("id"), s.m_nId);
    o.insert(QStringLiteral("subsystem"), QString::fromStdString(s.getSystemTag()));
    o.insert(QStringLiteral("tradeType"), s.m_nTradeType);
    o.insert(QStringLiteral("platformId"), s.m_nPlatformId);
    o.insert(QStringLiteral("brokerId"), s.m_nBrokerId);
    o.insert(QStringLiteral("serverGroupId"), s.m_nServerGroupId);
    o.insert(QStringLiteral("address"), QString::fromStdString(s.m_strAddress));
    o.insert(QStringLiteral("port"), s.m_nPort);
    o.insert(QStringLiteral("userName"), QString::fromStdString(s.m_strUserName));
    o.insert(QStringLiteral("password"), QString::fromStdString(s.m_strPassword));
    o.insert(QStringLiteral("markets"), QString::fromStdString(s.m_strMarkets));
    return o;
}

QJsonObject CDataTransfer::withoutSecrets(QJsonObject document) {
    QJsonArray sources = document.value(QLatin1String("sources")).toArray();
    for (auto it = sources.begin(); it != sources.end(); ++it) {
        QJsonObject source = it->toObject();
        source.insert(QStringLiteral("password"), QString());
        *it = source;
    }
    document.insert(QStringLiteral("sources"), sources);
    document.insert(QStringLiteral("level2Token"), QJsonValue());
    QJsonArray users = document.value(QLatin1String("users")).toArray();
    for (auto it = users.begin(); it != users.end(); ++it) {
        QJsonObject user = it->toObject();
        user.remove(QStringLiteral("passwordHash"));
        *it = user;
    }
    document.insert(QStringLiteral("users"), users);
    return document;
}

QJsonObject CDataTransfer::withMaskedToken(QJsonObject document) {
    if (document.value(QLatin1String("level2Token")).isString())
        document.insert(QStringLiteral("level2Token"), QLatin1String(CAuditVocabulary::kMasked));
    return document;
}

QJsonObject CDataTransfer::exportAll(const CDatabase& database, QSqlDatabase& db) {
    // Accounts come last: a PostgreSQL export is one snapshot, and its test holds that table.
    QJsonObject document;
    document.insert(QStringLiteral("format"), QLatin1String(kFormat));
    document.insert(QStringLiteral("version"), kFormatVersion);
    const CSettingsStore settings(database);
    document.insert(QStringLiteral("subsystems"), subsystemsToJson(settings.subsystems(db)));
    document.insert(QStringLiteral("loginTypeAuth"),
                    loginTypeAuthToJson(settings.loginTypeAuth(db)));
    document.insert(QStringLiteral("platforms"), CReferenceData::readPlatforms(database, db));
    document.insert(QStringLiteral("brokers"), CReferenceData::readBrokers(database, db));
    document.insert(QStringLiteral("sources"), sourcesToJson(database, db));
    document.insert(QStringLiteral("wholeQuote"),
                    wholeQuoteToJson(CWholeQuoteStore(database).readAll(db)));
    std::string token;
    document.insert(QStringLiteral("level2Token"), CTokenStore(database).read(db, &token)
                                                       ? QJsonValue(QString::fromStdString(token))
                                                       : QJsonValue());
    document.insert(QStringLiteral("users"), usersToJson(CAccountStore::rows(database, db)));
    return document;
}

namespace {

// The version of a document whose sections are exactly those export writes.
int checkShape(const QJsonObject& document) {
    if (document.value(QLatin1String("format")).toString() != QLatin1String(kFormat))
        refuse(QStringLiteral("不是行情源导出文件"));
    const QJsonValue versionValue = document.value(QLatin1String("version"));
    const int version = isInt(versionValue) ? versionValue.toInt() : 0;
    if (version < kOldestFormatVersion || version > kFormatVersion)
        refuse(QStringLiteral("不支持的导出文件版本 %1").arg(versionValue.toVariant().toString()));
    std::set<QString> known(std::begin(kHeaderKeys), std::end(kHeaderKeys));
    for (const Section& section : kSections) {
        const QString key = QLatin1String(section.key);
        known.insert(key);
        const QJsonValue value = document.value(key);
        if (value.isUndefined())
            refuse(QStringLiteral("缺少 %1 部分").arg(key));
        if (value.type() != section.type && !(section.nullable && value.isNull()))
            refuse(QStringLiteral("%1 部分的类型错误").arg(key));
    }
    for (const QString& key : document.keys()) {
        if (!known.count(key))
            refuse(QStringLiteral("未知的部分 %1").arg(key));
    }
    return version;
}

const Section* sectionNamed(const QString& key) {
    for (const Section& section : kSections) {
        if (key == QLatin1String(section.key))
            return &section;
    }
    return nullptr;
}

QJsonObject objectIn(const QJsonValue& value, const QString& section) {
    if (!value.isObject())
        refuse(QStringLiteral("%1 部分的条目必须是对象").arg(section));
    return value.toObject();
}

QJsonArray arrayOf(const QJsonObject& document, const char* key) {
    return document.value(QLatin1String(key)).toArray();
}

// The broker of a source: a number, or null (or 2147483647) for none.
int brokerField(const QJsonObject& s, const QString& at) {
    if (s.value(QLatin1String("brokerId")).isNull())
        return rkservice::COrinQuoterSourceInfo::kNoBroker;
    return intField(s, "brokerId", at);
}

// What the sources may refer to: platforms, brokers and their server groups.
struct References {
    std::set<int> platforms = CSourceValidator::fixedPlatforms();
    std::set<std::pair<int, int>> brokers;
    std::set<std::tuple<int, int, int>> groups;
};

// Sources that would collide with each other in the unique indexes.
struct SourceKeys {
    std::set<int> ids;
    std::set<std::tuple<QString, int, int, QString, int>> endpoints;
    std::set<std::tuple<QString, int, int, int, int>> groupUses;
};

rkservice::COrinQuoterSourceInfo readSource(const QJsonObject& s, QString* subsystem) {
    rkservice::COrinQuoterSourceInfo source;
    source.m_nId = intField(s, "id", QStringLiteral("行情源"));
    const QString at = QStringLiteral("行情源 %1").arg(source.m_nId);
    *subsystem = stringField(s, "subsystem", at);
    source.m_nTradeType = intField(s, "tradeType", at);
    source.m_nPlatformId = intField(s, "platformId", at);
    source.m_nBrokerId = brokerField(s, at);
    source.m_nServerGroupId = intField(s, "serverGroupId", at);
    source.m_strAddress = stringField(s, "address", at).toStdString();
    source.m_nPort = intField(s, "port", at);
    source.m_strUserName = stringField(s, "userName", at).toStdString();
    source.m_strPassword = stringField(s, "password", at).toStdString();
    source.m_strMarkets = stringField(s, "markets", at).toStdString();
    return source;
}

void checkSourceReferences(const rkservice::COrinQuoterSourceInfo& source, const QString& subsystem,
                           const References& refs, SourceKeys* keys) {
    const QString at = QStringLiteral("行情源 %1").arg(source.m_nId);
    if (!refs.platforms.count(source.m_nPlatformId))
        refuse(QStringLiteral("%1: 未知的平台: %2").arg(at).arg(source.m_nPlatformId));
    if (source.m_nBrokerId == rkservice::COrinQuoterSourceInfo::kNoBroker) {
        if (!keys->endpoints
                 .insert({subsystem, source.m_nTradeType, source.m_nPlatformId,
                          QString::fromStdString(source.m_strAddress), source.m_nPort})
                 .second)
            refuse(QStringLiteral("%1: 行情源重复").arg(at));
        return;
    }
    if (!refs.brokers.count({source.m_nPlatformId, source.m_nBrokerId}))
        refuse(QStringLiteral("%1: 期货公司不存在: %2").arg(at).arg(source.m_nBrokerId));
    if (!refs.groups.count({source.m_nPlatformId, source.m_nBrokerId, source.m_nServerGroupId}))
        refuse(QStringLiteral("%1: 服务器组不存在: %2").arg(at).arg(source.m_nServerGroupId));
    if (!keys->groupUses
             .insert({subsystem, source.m_nTradeType, source.m_nPlatformId, source.m_nBrokerId,
                      source.m_nServerGroupId})
             .second)
        refuse(QStringLiteral("%1: 行情源重复").arg(at));
}

}  // namespace

void CDataTransfer::parseSubsystems(const QJsonObject& document, Content* content) {
    for (const QJsonValue& value : arrayOf(document, "subsystems")) {
        const QJsonObject info = objectIn(value, QStringLiteral("subsystems"));
        content->subsystems.push_back(
            {stringField(info, "name", QStringLiteral("分系统")).toStdString(),
             stringField(info, "displayName", QStringLiteral("分系统")).toStdString()});
    }
    try {
        CSettingsStore::checkSubsystems(content->subsystems);
    } catch (const CServiceError& e) {
        refuse(QString::fromStdString(e.what()));
    }
    const QJsonObject auth = document.value(QLatin1String("loginTypeAuth")).toObject();
    for (auto it = auth.begin(); it != auth.end(); ++it) {
        bool ok = false;
        const int type = it.key().toInt(&ok);
        if (!ok || !it.value().isBool())
            refuse(QStringLiteral("登录类型设置格式错误: %1").arg(it.key()));
        content->loginTypeAuth[type] = it.value().toBool();
    }
}

void CDataTransfer::parseSources(const QJsonObject& document, Content* content) {
    content->platforms = arrayOf(document, "platforms");
    content->brokers = arrayOf(document, "brokers");
    try {
        CReferenceData::validate(content->platforms, content->brokers);
    } catch (const CServiceError& e) {
        refuse(QString::fromStdString(e.what()));
    }
    References refs;
    for (const QJsonValue& value : content->platforms)
        refs.platforms.insert(value.toObject().value(QLatin1String("platformId")).toInt());
    for (const QJsonValue& value : content->brokers) {
        const QJsonObject b = value.toObject();
        int brokerId = 0;
        CReferenceData::brokerIdOfKey(b.value(QLatin1String("brokerKey")).toString(), &brokerId);
        const int platformId = b.value(QLatin1String("platformId")).toInt();
        refs.brokers.insert({platformId, brokerId});
        for (const QJsonValue& g : b.value(QLatin1String("serverGroups")).toArray())
            refs.groups.insert(
                {platformId, brokerId, g.toObject().value(QLatin1String("serverGroupId")).toInt()});
    }
    std::set<QString> subsystemNames;
    for (const auto& info : content->subsystems)
        subsystemNames.insert(QString::fromStdString(info.name));
    SourceKeys keys;
    for (const QJsonValue& value : arrayOf(document, "sources")) {
        QString subsystem;
        const rkservice::COrinQuoterSourceInfo source =
            readSource(objectIn(value, QStringLiteral("sources")), &subsystem);
        const QString at = QStringLiteral("行情源 %1").arg(source.m_nId);
        if (source.m_nId <= 0 || source.m_nId > kMaxSourceId)
            refuse(QStringLiteral("%1: 编号必须在 1 到 %2 之间").arg(at).arg(kMaxSourceId));
        if (!keys.ids.insert(source.m_nId).second)
            refuse(QStringLiteral("%1: 编号重复").arg(at));
        if (!subsystemNames.count(subsystem))
            refuse(QStringLiteral("%1: 分系统不存在: %2").arg(at, subsystem));
        try {
            // The texts are kept as the document carries them (an earlier release may have
            // stored them), and listed with the rules they break.
            CSourceValidator::checkFields(source, &source);
        } catch (const CServiceError& e) {
            refuse(QStringLiteral("%1: %2").arg(at, QString::fromStdString(e.what())));
        }
        for (const std::string& fault : CSourceValidator::textFaults(source))
            content->keptValues.push_back(fault);
        checkSourceReferences(source, subsystem, refs, &keys);
        content->sources.push_back({subsystem, source});
    }
}

void CDataTransfer::parseWholeQuote(const QJsonObject& document, Content* content) {
    std::set<QString> subsystemNames;
    for (const auto& info : content->subsystems)
        subsystemNames.insert(QString::fromStdString(info.name));
    const auto& known = rkservice::CWholeQuotedivision::knownMarkets();
    const QJsonObject wholeQuote = document.value(QLatin1String("wholeQuote")).toObject();
    for (auto it = wholeQuote.begin(); it != wholeQuote.end(); ++it) {
        if (!subsystemNames.count(it.key()))
            refuse(QStringLiteral("全推设置的分系统不存在: %1").arg(it.key()));
        const QJsonObject flags = objectIn(it.value(), QStringLiteral("wholeQuote"));
        for (auto flag = flags.begin(); flag != flags.end(); ++flag) {
            if (std::find(known.begin(), known.end(), flag.key().toStdString()) == known.end() ||
                !flag.value().isBool())
                refuse(QStringLiteral("全推设置格式错误: %1").arg(flag.key()));
            content->wholeQuote[it.key()][flag.key()] = flag.value().toBool();
        }
    }
    const QJsonValue token = document.value(QLatin1String("level2Token"));
    if (token.toString() == QLatin1String(CAuditVocabulary::kMasked)) {
        content->keepsToken = true;
    } else if (token.isString()) {
        if (!CSourceValidator::isToken(token.toString().toStdString()))
            refuse(QStringLiteral("Level-2 token 格式错误"));
        content->hasToken = true;
        content->level2Token = token.toString();
    }
}

void CDataTransfer::parseUsers(const QJsonObject& document, int version, Content* content) {
    std::set<QString> userNames;
    for (const QJsonValue& value : arrayOf(document, "users")) {
        const QJsonObject u = objectIn(value, QStringLiteral("users"));
        User user;
        user.name = stringField(u, "name", QStringLiteral("用户"));
        user.systemId = intField(u, "systemId", QStringLiteral("用户 %1").arg(user.name));
        if (user.name.isEmpty() || !userNames.insert(user.name).second)
            refuse(QStringLiteral("用户名为空或重复: %1").arg(user.name));
        const QJsonValue rights = u.value(QLatin1String("rights"));
        if (!rights.isArray())
            refuse(QStringLiteral("用户 %1 的权限格式错误").arg(user.name));
        for (const QJsonValue& right : rights.toArray()) {
            if (!isInt(right))
                refuse(QStringLiteral("用户 %1 的权限格式错误").arg(user.name));
            user.rights.insert(right.toInt());
        }
        if (version >= 2)
            parseLogin(u, &user);
        if (version <= kLastVersionBeforeAdminRights && user.name == kSeededAdministrator)
            user.rights.insert(
                {Hlx::CRightsTable::kWholeQuoteSave, Hlx::CRightsTable::kAdminister});
        content->users.push_back(user);
    }
}

namespace {

// The entries of a section as comparable texts: an array's elements, an object's members, a
// value that is not null.
std::multiset<QByteArray> entriesOf(const QJsonValue& section) {
    std::multiset<QByteArray> entries;
    if (section.isArray()) {
        for (const QJsonValue& value : section.toArray())
            entries.insert(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
    } else if (section.isObject()) {
        const QJsonObject object = section.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            entries.insert(
                QJsonDocument(QJsonObject{{it.key(), it.value()}}).toJson(QJsonDocument::Compact));
    } else if (!section.isNull() && !section.isUndefined()) {
        entries.insert(QJsonDocument(QJsonArray{section}).toJson(QJsonDocument::Compact));
    }
    return entries;
}

int countMissing(const std::multiset<QByteArray>& from, const std::multiset<QByteArray>& in) {
    std::vector<QByteArray> missing;
    std::set_difference(from.begin(), from.end(), in.begin(), in.end(),
                        std::back_inserter(missing));
    return int(missing.size());
}

}  // namespace

std::vector<Hlx::CSectionChange> CDataTransfer::changes(const QJsonObject& before,
                                                        const QJsonObject& after) {
    std::vector<Hlx::CSectionChange> result;
    for (const Section& section : kSections) {
        const auto old = entriesOf(before.value(QLatin1String(section.key)));
        const auto now = entriesOf(after.value(QLatin1String(section.key)));
        Hlx::CSectionChange change;
        change.section = section.key;
        change.before = int(old.size());
        change.after = int(now.size());
        change.added = countMissing(now, old);
        change.removed = countMissing(old, now);
        result.push_back(change);
    }
    return result;
}

CDataTransfer::Content CDataTransfer::parse(const QJsonObject& document) {
    const int version = checkShape(document);
    Content content;
    parseSubsystems(document, &content);
    parseSources(document, &content);
    parseWholeQuote(document, &content);
    parseUsers(document, version, &content);
    return content;
}

QJsonObject CDataTransfer::withSections(QJsonObject stored, const QJsonObject& document,
                                        const std::vector<std::string>& sections) {
    // Sections of another version may have another shape; the stored ones are of this one.
    if (document.value(QLatin1String("format")).toString() != QLatin1String(kFormat) ||
        document.value(QLatin1String("version")).toInt() != kFormatVersion)
        refuse(QStringLiteral("部分导入只接受第 %1 版的导出文件").arg(kFormatVersion));
    for (const std::string& name : sections) {
        const QString key = QString::fromStdString(name);
        const Section* section = sectionNamed(key);
        if (!section)
            refuse(QStringLiteral("未知的部分 %1").arg(key));
        const QJsonValue value = document.value(key);
        if (value.isUndefined())
            refuse(QStringLiteral("缺少 %1 部分").arg(key));
        stored.insert(key, value);
    }
    return stored;
}

void CDataTransfer::importAll(const CDatabase& database, QSqlDatabase& db, const Content& content) {
    const bool hadAdministrator = CAccountStore::hasAdministrator(database, db);
    std::string keptToken;
    const bool keepToken = content.keepsToken && CTokenStore(database).read(db, &keptToken);
    // What refers to a sub-system goes before the sub-systems change.
    for (const char* table : {"kx_orin_quoter_source", "whole_quote", "level2_token"})
        database.exec(db, QStringLiteral("DELETE FROM %1").arg(QLatin1String(table)));
    const CSettingsStore settings(database);
    settings.replaceLoginTypeAuth(db, content.loginTypeAuth);
    settings.writeSubsystems(db, content.subsystems, false);
    CWholeQuoteStore(database).replaceAll(db, content.wholeQuote);
    CReferenceData::write(database, db, content.platforms, content.brokers);
    const CQuoteSourceStore store(database);
    for (const auto& entry : content.sources)
        store.insertRaw(db, entry.first, entry.second);
    store.resetIdSequence(db);
    if (content.hasToken || keepToken)
        CTokenStore(database).insert(db, keepToken ? keptToken : content.level2Token.toStdString());
    CAccountStore::replaceRows(database, db, content.users);
    if (hadAdministrator && !CAccountStore::hasAdministrator(database, db))
        refuse(QStringLiteral("导入后将没有启用且有管理权限(%1)的账户")
                   .arg(int(Hlx::CRightsTable::kAdminister)));
}
