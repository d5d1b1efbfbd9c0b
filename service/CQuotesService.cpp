#include "CQuotesService.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QVariant>
#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <set>

#include "CAccessPolicy.h"
#include "CAccountStore.h"
#include "CAuditTrail.h"
#include "CChangeFeed.h"
#include "CDataTransfer.h"
#include "CDatabase.h"
#include "CImportGeneration.h"
#include "CPrivateFile.h"
#include "CQuoteSourceStore.h"
#include "CReferenceData.h"
#include "CSchema.h"
#include "CSecretBox.h"
#include "CSecretColumns.h"
#include "CSecretKeyFile.h"
#include "CSeedData.h"
#include "CServiceError.h"
#include "CSourceValidator.h"
#include "CTokenStore.h"
#include "Hlx/CAnswer.h"
#include "model/CAuditVocabulary.h"
#include "rkservice/CGlobalFeaturePermissionInfo.h"
#include "rkservice/CLevel2Token.h"
#include "rkservice/DataTypeIds.h"

// Outside any namespace, as Q_INIT_RESOURCE requires; the resources live in a static library.
static void initServiceResources() {
    Q_INIT_RESOURCE(quotes_service);
}

namespace {

std::string utf8(const QString& text) {
    return text.toStdString();
}

Hlx::CRecordAction recordAction(int operateType) {
    switch (operateType) {
        case rkservice::kOperateAdd:
            return Hlx::CRecordAction::Add;
        case rkservice::kOperateModify:
            return Hlx::CRecordAction::Modify;
        default:
            return Hlx::CRecordAction::Delete;
    }
}

// Blanks the passwords of the sources the caller may not modify; the records are this answer's
// own, so they are changed in place.
void hidePasswords(const CCaller& caller, const std::vector<rkservice::IDataPtr>& records) {
    for (const auto& record : records) {
        auto* source = static_cast<rkservice::COrinQuoterSourceInfo*>(record.get());
        if (!CAccessPolicy::mayReadPassword(caller, *source))
            source->m_strPassword.clear();
    }
}

QJsonObject subsystemFields(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    QJsonObject fields;
    for (const auto& info : subsystems)
        fields.insert(QString::fromStdString(info.name), QString::fromStdString(info.displayName));
    return fields;
}

// What an import replaces, by section; the document's fields stay out of the trail.
QJsonObject importCounts(const CDataTransfer::Content& content) {
    return QJsonObject{{QStringLiteral("subsystems"), int(content.subsystems.size())},
                       {QStringLiteral("login_type_auth"), int(content.loginTypeAuth.size())},
                       {QStringLiteral("platforms"), content.platforms.size()},
                       {QStringLiteral("brokers"), content.brokers.size()},
                       {QStringLiteral("sources"), int(content.sources.size())},
                       {QStringLiteral("whole_quote"), int(content.wholeQuote.size())},
                       {QStringLiteral("level2_token"), content.hasToken ? 1 : 0},
                       {QStringLiteral("users"), int(content.users.size())}};
}

// The ids a modify or delete names, each once: a second record for the same row would make the
// outcome depend on the order of the records.
std::vector<int> distinctIds(const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                             const std::string& what) {
    std::vector<int> ids;
    std::set<int> seen;
    for (const auto& source : sources) {
        if (!seen.insert(source->m_nId).second)
            throw CServiceError(what + "请求中行情源重复: " + std::to_string(source->m_nId));
        ids.push_back(source->m_nId);
    }
    return ids;
}

rkservice::IDataPtr tagged(const rkservice::IDataPtr& record, const std::string& tag) {
    rkservice::IDataPtr copy = record->clone();
    copy->setSystemTag(tag);
    return copy;
}

}  // namespace

CQuotesService::CQuotesService() = default;

CQuotesService::~CQuotesService() = default;

CChangeFeed& CQuotesService::changes() {
    std::lock_guard<std::mutex> lock(m_changesMutex);
    if (!m_changes)
        m_changes.reset(new CChangeFeed(*m_database, *m_audit));
    return *m_changes;
}

bool CQuotesService::reloadCaches(QString* error) {
    try {
        Caches caches;
        m_database->transact(false, [&](QSqlDatabase& db) { caches = readCaches(db); });
        applyCaches(caches);
        return true;
    } catch (const std::exception& e) {
        if (error)
            *error = QString::fromUtf8(e.what());
        return false;
    }
}

QString CQuotesService::defaultDataDir() {
    // The application data directory of "PanelQuotesManage", the same for the console and
    // quotesctl whatever each calls itself.
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .filePath(QStringLiteral("PanelQuotesManage"));
}

boost::shared_ptr<CQuotesService> CQuotesService::open(const CServiceOptions& options,
                                                       QString* error) {
    initServiceResources();
    QString ignored;
    QString* failure = error ? error : &ignored;
    CServiceOptions resolved = options;
    if (resolved.dataDir.isEmpty() && resolved.dbUrl.isEmpty())
        resolved.dataDir = defaultDataDir();
    boost::shared_ptr<CQuotesService> service(new CQuotesService);
    service->m_database = CDatabase::create(resolved, failure);
    if (!service->m_database)
        return nullptr;
    service->m_audit.reset(new CAuditTrail(*service->m_database, resolved.auditTrail));
    service->m_generations.reset(new CImportGeneration(*service->m_database));
    const QString file = service->m_database->filePath();
    service->m_backupDir = !resolved.dataDir.isEmpty() ? resolved.dataDir
                           : file.isEmpty()            ? QString()
                                                       : QFileInfo(file).absolutePath();
    service->m_keyFile = keyFilePath(resolved, *service->m_database);
    try {
        service->initialise(resolved.seed, resolved.createMissing);
    } catch (const CServiceError& e) {
        *failure = QString::fromStdString(e.what());
        return nullptr;
    }
    return service;
}

void CQuotesService::initialise(bool seed, bool createMissing) {
    Caches caches;
    m_database->transact(true, [&](QSqlDatabase& db) {
        const int version = CSchema::version(*m_database, db);
        if (version > CSchema::currentVersion())
            throw CServiceError("数据库结构版本 " + std::to_string(version) +
                                " 比本程序支持的版本 " + std::to_string(CSchema::currentVersion()) +
                                " 新，拒绝打开；请使用更新的程序");
        if (version == 0 && !createMissing)
            throw CServiceError("数据库尚未初始化：请先在第一台服务器上运行 quotesd init");
        unlockSecrets(db, version);
        CSchema::migrate(*m_database, db, version, CSchema::currentVersion());
        if (version == 0) {
            if (seed)
                CSeedData::seed(*m_database, db);
            else
                CSeedData::seedMinimal(*m_database, db);
        }
        caches = readCaches(db);
    });
    applyCaches(caches);
}

QString CQuotesService::keyFilePath(const CServiceOptions& options, const CDatabase& database) {
    if (!options.secretsKeyFile.isEmpty())
        return options.secretsKeyFile;
    if (database.engine() == CDatabase::SQLite)
        return CSecretKeyFile::defaultPath(QFileInfo(database.filePath()).absolutePath());
    return CSecretKeyFile::defaultPath(options.dataDir.isEmpty() ? defaultDataDir()
                                                                 : options.dataDir);
}

void CQuotesService::unlockSecrets(QSqlDatabase& db, int version) {
    const std::string file = m_keyFile.toStdString();
    if (version == 0 || !CSecretColumns::hasCheck(*m_database, db)) {
        // Nothing sealed yet (a new database, or one from before secrets were sealed): the key
        // the file holds, or a new one.
        if (!CSecretKeyFile::exists(m_keyFile))
            CSecretKeyFile::create(m_keyFile, CSecretBox::generate());
        m_database->setSecrets(std::make_shared<CSecretBox>(CSecretKeyFile::read(m_keyFile)));
        return;
    }
    if (!CSecretKeyFile::exists(m_keyFile) && !CSecretKeyFile::exists(pendingKeyFile()))
        throw CServiceError(
            "缺少密钥文件 " + file +
            "：数据库中的密码已加密，需要创建数据库时（或上次更换密钥后）的密钥文件");
    if (CSecretKeyFile::exists(m_keyFile)) {
        auto box = std::make_shared<CSecretBox>(CSecretKeyFile::read(m_keyFile));
        if (CSecretColumns::matches(*m_database, db, *box)) {
            m_database->setSecrets(box);
            return;
        }
    }
    // A key change that committed but whose new key file was not yet moved into place.
    if (CSecretKeyFile::exists(pendingKeyFile())) {
        auto box = std::make_shared<CSecretBox>(CSecretKeyFile::read(pendingKeyFile()));
        if (CSecretColumns::matches(*m_database, db, *box)) {
            CSecretKeyFile::write(m_keyFile, *box);
            QFile::remove(pendingKeyFile());
            m_database->setSecrets(box);
            return;
        }
    }
    throw CServiceError("密钥文件 " + file + " 与数据库不符，拒绝打开（密码无法解密）");
}

QString CQuotesService::pendingKeyFile() const {
    return m_keyFile + QStringLiteral(".new");
}

bool CQuotesService::rekey(const CCaller& caller, QString* error) {
    return administer(caller, "更换密钥", error, [&] {
        const auto old = m_database->secrets();
        const CSecretBox fresh = CSecretBox::generate();
        // The new key is on disk before the change commits, so no crash can leave the database
        // sealed under a key that exists nowhere.
        CSecretKeyFile::write(pendingKeyFile(), fresh);
        try {
            m_database->transact(true, [&](QSqlDatabase& db) {
                CSecretColumns::reseal(
                    *m_database, db, [&](const QString& stored) { return old->open(stored); },
                    fresh);
            });
        } catch (...) {
            QFile::remove(pendingKeyFile());
            throw;
        }
        m_database->setSecrets(std::make_shared<CSecretBox>(fresh));
        if (::rename(QFile::encodeName(pendingKeyFile()).constData(),
                     QFile::encodeName(m_keyFile).constData()) != 0)
            throw CServiceError("密钥已更换，但无法改名为 " + m_keyFile.toStdString() +
                                "，新密钥在 " + pendingKeyFile().toStdString());
    });
}

QString CQuotesService::keyFile() const {
    return m_keyFile;
}

CQuotesService::Caches CQuotesService::readCaches(QSqlDatabase& db) const {
    Caches caches;
    std::vector<Hlx::SubsystemInfo>& subsystems = caches.subsystems;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT name, display_name FROM subsystems ORDER BY ord, name"));
    m_database->exec(query);
    while (query.next())
        subsystems.push_back({utf8(query.value(0).toString()), utf8(query.value(1).toString())});
    if (subsystems.empty())
        throw CServiceError("数据库中没有分系统");
    std::map<int, bool>& auth = caches.loginTypeAuth;
    QSqlQuery settings(db);
    settings.setForwardOnly(true);
    settings.prepare(
        QStringLiteral("SELECT name, val FROM meta WHERE name LIKE 'login_type_auth.%'"));
    m_database->exec(settings);
    while (settings.next())
        auth[settings.value(0).toString().section(QLatin1Char('.'), 1).toInt()] =
            settings.value(1).toString() == QLatin1String("1");
    return caches;
}

void CQuotesService::applyCaches(const Caches& caches) {
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    m_subsystems = caches.subsystems;
    m_loginTypeAuth = caches.loginTypeAuth;
}

std::vector<Hlx::SubsystemInfo> CQuotesService::subsystems() const {
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    return m_subsystems;
}

bool CQuotesService::hasClientLoginTypeAuth(int loginType) const {
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    auto it = m_loginTypeAuth.find(loginType);
    return it != m_loginTypeAuth.end() && it->second;
}

std::map<int, bool> CQuotesService::loginTypeAuth() const {
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    return m_loginTypeAuth;
}

QString CQuotesService::databaseDescription() const {
    return m_database->description();
}

QString CQuotesService::databaseFile() const {
    return m_database->filePath();
}

QString CQuotesService::defaultSubsystem() const {
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    return QString::fromStdString(m_subsystems.front().name);
}

bool CQuotesService::knowsSubsystem(const QString& name) const {
    const std::string wanted = utf8(name);
    std::lock_guard<std::mutex> lock(m_cacheMutex);
    for (const auto& info : m_subsystems) {
        if (info.name == wanted)
            return true;
    }
    return false;
}

QString CQuotesService::resolveTarget(const Hlx::CRequestTarget& target) const {
    if (target.isCentre())
        return QString();
    const QString name = QString::fromStdString(target.subsystemName());
    if (!knowsSubsystem(name))
        throw CServiceError("分系统不存在: " + target.subsystemName());
    return name;
}

utils::RKError CQuotesService::querySync(const CCaller& caller, const Hlx::CRequestTarget& target,
                                         const rkservice::COrinQueryDataReq& request,
                                         std::vector<rkservice::IDataPtr>* datas) {
    try {
        *datas = doQuery(caller, target, request);
        return utils::RKError::ok();
    } catch (const CServiceError& e) {
        datas->clear();
        return utils::RKError::fail(e.what());
    } catch (const std::exception& e) {
        datas->clear();
        return utils::RKError::fail(std::string("数据服务内部错误: ") + e.what());
    }
}

utils::RKError CQuotesService::operateSync(const CCaller& caller, const Hlx::CRequestTarget& target,
                                           const rkservice::COperateDataReq& request,
                                           bson::BSONObj* result) {
    bson::BSONObj local;
    try {
        doOperate(caller, target, request, result ? result : &local);
        return utils::RKError::ok();
    } catch (const CServiceError& e) {
        m_audit->refused(
            caller,
            CAuditTrail::forRequest(request, target.isCentre()
                                                 ? QString()
                                                 : QString::fromStdString(target.subsystemName())),
            e.what());
        return utils::RKError::fail(e.what());
    } catch (const std::exception& e) {
        const std::string error = std::string("数据服务内部错误: ") + e.what();
        m_audit->refused(caller, CAuditTrail::forRequest(request, QString()), error);
        return utils::RKError::fail(error);
    }
}

std::vector<rkservice::IDataPtr> CQuotesService::doQuery(
    const CCaller& caller, const Hlx::CRequestTarget& target,
    const rkservice::COrinQueryDataReq& request) {
    const QString subsystem = resolveTarget(target);
    std::vector<std::string> scope;
    if (subsystem.isEmpty()) {
        for (const auto& info : subsystems())
            scope.push_back(info.name);
    } else {
        scope.push_back(utf8(subsystem));
    }
    std::vector<rkservice::IDataPtr> result;
    switch (request.dataType) {
        case rkservice::kDataQuoteSources: {
            int tradeType = 0;
            const bool filter = CSourceValidator::parseCondition(request.condition, &tradeType);
            const CQuoteSourceStore store(*m_database);
            CImportGeneration::Seen seen;
            m_database->transact(false, [&](QSqlDatabase& db) {
                seen = m_generations->beforeQuery(db, caller);
                result = store.query(db, subsystem, filter, tradeType);
            });
            m_generations->afterQuery(caller, seen);
            if (!caller.isOwner())
                hidePasswords(caller, result);
            break;
        }
        case rkservice::kDataBrokers:
        case rkservice::kDataPlatforms: {
            int tradeType = 0;
            const bool filter = CSourceValidator::parseCondition(request.condition, &tradeType);
            const bool branded = !hasClientLoginTypeAuth(0);
            std::vector<rkservice::IDataPtr> records;
            m_database->transact(false, [&](QSqlDatabase& db) {
                records =
                    request.dataType == rkservice::kDataBrokers
                        ? CReferenceData::brokerRecords(*m_database, db, filter, tradeType, branded)
                        : CReferenceData::platformRecords(*m_database, db, filter, tradeType,
                                                          branded);
            });
            // The reference data is the same on every sub-system; each sub-system answers with its
            // own tagged copy, so records match sources of the same sub-system.
            for (const std::string& tag : scope) {
                for (const auto& record : records)
                    result.push_back(tagged(record, tag));
            }
            break;
        }
        case rkservice::kDataGlobalPermission: {
            m_database->transact(false, [&](QSqlDatabase& db) {
                QSqlQuery query(db);
                query.prepare(QStringLiteral(
                    "SELECT market, enabled FROM whole_quote WHERE subsystem = ? ORDER BY market"));
                for (const std::string& tag : scope) {
                    auto record = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
                    record->setSystemTag(tag);
                    if (!record->m_wholeQuote)
                        record->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
                    for (const std::string& market : rkservice::CWholeQuotedivision::knownMarkets())
                        record->m_wholeQuote->setEnabled(market, false);
                    query.addBindValue(QString::fromStdString(tag));
                    m_database->exec(query);
                    while (query.next())
                        record->m_wholeQuote->setEnabled(utf8(query.value(0).toString()),
                                                         query.value(1).toInt() != 0);
                    query.finish();
                    result.push_back(record);
                }
            });
            break;
        }
        case rkservice::kDataLevel2Tokens: {
            // The Level-2 source is one for the whole platform: whichever client asks sees it.
            const std::string tag =
                subsystem.isEmpty() ? utf8(defaultSubsystem()) : utf8(subsystem);
            m_database->transact(false, [&](QSqlDatabase& db) {
                auto record = boost::make_shared<rkservice::CLevel2Token>();
                if (CTokenStore(*m_database).read(db, &record->token)) {
                    record->setSystemTag(tag);
                    result.push_back(record);
                }
            });
            break;
        }
        case rkservice::kDataUsers: {
            const std::string tag =
                subsystem.isEmpty() ? utf8(defaultSubsystem()) : utf8(subsystem);
            QString error;
            for (const auto& user : users(&error)) {
                if (!request.condition.empty() && user->m_strName != request.condition)
                    continue;
                user->setSystemTag(tag);
                result.push_back(user);
            }
            if (!error.isEmpty())
                throw CServiceError(utf8(error));
            break;
        }
        default:
            throw CServiceError("不支持的数据类型: " + std::to_string(request.dataType));
    }
    return result;
}

void CQuotesService::doOperate(const CCaller& caller, const Hlx::CRequestTarget& target,
                               const rkservice::COperateDataReq& request, bson::BSONObj* result) {
    switch (request.dataType) {
        case rkservice::kDataQuoteSources:
            operateSources(caller, target, request, result);
            break;
        case rkservice::kDataLevel2Tokens:
            resolveTarget(target);
            operateToken(caller, request);
            break;
        case rkservice::kDataGlobalPermission:
            operatePermission(caller, target, request);
            break;
        case rkservice::kDataBrokers:
        case rkservice::kDataPlatforms:
        case rkservice::kDataUsers:
            throw CServiceError("不支持的操作类型: " + std::to_string(request.operateType) +
                                "（数据类型 " + std::to_string(request.dataType) + " 只能查询）");
        default:
            throw CServiceError("不支持的数据类型: " + std::to_string(request.dataType));
    }
}

void CQuotesService::operateSources(const CCaller& caller, const Hlx::CRequestTarget& target,
                                    const rkservice::COperateDataReq& request,
                                    bson::BSONObj* result) {
    const int op = request.operateType;
    if (op != rkservice::kOperateAdd && op != rkservice::kOperateModify &&
        op != rkservice::kOperateDelete)
        throw CServiceError("不支持的操作类型: " + std::to_string(op));
    const QString subsystem = resolveTarget(target);
    if (request.datas.empty())
        throw CServiceError("请求中没有行情源记录");
    std::vector<rkservice::COrinQuoterSourceInfoPtr> sources;
    sources.reserve(request.datas.size());
    for (const auto& data : request.datas) {
        auto source = boost::dynamic_pointer_cast<rkservice::COrinQuoterSourceInfo>(data);
        if (!source)
            throw CServiceError("记录类型不符: 需要行情源记录");
        sources.push_back(source);
    }
    const CQuoteSourceStore store(*m_database);
    if (op == rkservice::kOperateAdd) {
        // An add sent to the centre goes to the default sub-system.
        const QString owner = subsystem.isEmpty() ? defaultSubsystem() : subsystem;
        CAccessPolicy::checkAdd(caller, sources);
        std::vector<int> ids;
        m_database->transact(true, [&](QSqlDatabase& db) {
            ids = store.add(db, owner, sources);
            std::map<int, rkservice::COrinQuoterSourceInfo> added;
            for (size_t i = 0; i < ids.size(); ++i) {
                rkservice::COrinQuoterSourceInfo source(*sources[i]);
                source.m_nId = ids[i];
                source.setSystemTag(utf8(owner));
                added.emplace(ids[i], source);
            }
            auditSources(db, caller, request, owner, {}, added);
        });
        result->appendInt("count", int(ids.size()));
        result->appendString("ids", CAuditTrail::idList(ids));
    } else if (op == rkservice::kOperateModify) {
        const std::vector<int> ids = distinctIds(sources, "修改");
        // The rights of the stored rows are read in the transaction that changes them.
        m_database->transact(true, [&](QSqlDatabase& db) {
            m_generations->checkModify(db, caller);
            CAccessPolicy::checkModify(caller, sources, store.kinds(db, subsystem, ids));
            const auto before = CAuditTrail::storedSources(store, db, subsystem, ids);
            store.modify(db, subsystem, sources);
            auditSources(db, caller, request, subsystem, before,
                         CAuditTrail::storedSources(store, db, subsystem, ids));
        });
        result->appendInt("count", int(sources.size()));
    } else {
        const std::vector<int> ids = distinctIds(sources, "删除");
        m_database->transact(true, [&](QSqlDatabase& db) {
            const std::map<int, CStoredKind> kinds = store.kinds(db, subsystem, ids);
            m_generations->checkDelete(db, caller, sources, kinds);
            CAccessPolicy::checkDelete(caller, ids, kinds);
            const auto before = CAuditTrail::storedSources(store, db, subsystem, ids);
            store.remove(db, subsystem, ids);
            auditSources(db, caller, request, subsystem, before, {});
        });
        result->appendInt("count", int(ids.size()));
    }
}

void CQuotesService::auditSources(
    QSqlDatabase& db, const CCaller& caller, const rkservice::COperateDataReq& request,
    const QString& subsystem, const std::map<int, rkservice::COrinQuoterSourceInfo>& before,
    const std::map<int, rkservice::COrinQuoterSourceInfo>& after) const {
    CAuditTrail::Entry entry = CAuditTrail::forRequest(request, subsystem);
    CAuditTrail::addSourceDetails(&entry, before, after);
    std::vector<int> ids;
    for (const auto& detail : entry.details)
        ids.push_back(std::stoi(detail.recordId));
    entry.ids = CAuditTrail::idList(ids);
    m_audit->write(db, caller, entry);
}

bool CQuotesService::modifySource(const CCaller& caller, int id, const Hlx::CSourcePatch& patch,
                                  QString* error) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateModify;
    try {
        if (patch.isEmpty())
            throw CServiceError("没有要修改的字段");
        const CQuoteSourceStore store(*m_database);
        m_database->transact(true, [&](QSqlDatabase& db) {
            const rkservice::COrinQuoterSourceInfoPtr source = store.find(db, id);
            const rkservice::COrinQuoterSourceInfo before = *source;
            patch.applyTo(source.get());
            source->m_nId = id;
            request.datas = {source};
            const std::vector<rkservice::COrinQuoterSourceInfoPtr> sources = {source};
            m_generations->checkModify(db, caller);
            CAccessPolicy::checkModify(caller, sources, store.kinds(db, QString(), {id}));
            store.modify(db, QString(), sources);
            auditSources(db, caller, request, QString::fromStdString(before.getSystemTag()),
                         {{id, before}}, {{id, *source}});
        });
        return true;
    } catch (const CServiceError& e) {
        m_audit->refused(caller, CAuditTrail::forRequest(request, QString()), e.what());
        if (error)
            *error = QString::fromStdString(e.what());
        return false;
    }
}

void CQuotesService::operateToken(const CCaller& caller,
                                  const rkservice::COperateDataReq& request) {
    const int op = request.operateType;
    if (op != rkservice::kOperateAdd && op != rkservice::kOperateModify &&
        op != rkservice::kOperateDelete)
        throw CServiceError("不支持的操作类型: " + std::to_string(op));
    CAccessPolicy::checkLevel2(caller, recordAction(op));
    if (request.datas.size() != 1)
        throw CServiceError("Level-2 token 请求必须恰好带一条记录");
    auto token = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(request.datas.front());
    if (!token)
        throw CServiceError("记录类型不符: 需要 Level-2 token 记录");
    if (op != rkservice::kOperateDelete)
        CSourceValidator::checkToken(token->token);
    m_database->transact(true, [&](QSqlDatabase& db) {
        const CTokenStore store(*m_database);
        std::string stored;
        const bool exists = store.read(db, &stored);
        if (op == rkservice::kOperateAdd) {
            if (exists)
                throw CServiceError("已有 Level-2 行情源 token，请修改或删除后再添加");
            store.insert(db, token->token);
        } else if (op == rkservice::kOperateModify) {
            if (!exists)
                throw CServiceError("没有可修改的 Level-2 行情源 token");
            store.update(db, token->token);
        } else {
            if (!exists || stored != token->token)
                throw CServiceError("Level-2 行情源 token 不存在");
            store.remove(db);
        }
        CAuditTrail::Entry entry = CAuditTrail::forRequest(request, QString());
        entry.ids = "1";
        entry.details.push_back({entry.ids, exists ? CAuditTrail::secret(false) : QJsonObject(),
                                 op == rkservice::kOperateDelete
                                     ? QJsonObject()
                                     : CAuditTrail::secret(stored != token->token)});
        m_audit->write(db, caller, entry);
    });
}

void CQuotesService::operatePermission(const CCaller& caller, const Hlx::CRequestTarget& target,
                                       const rkservice::COperateDataReq& request) {
    if (request.operateType != rkservice::kOperateSaveWholeQuote)
        throw CServiceError("不支持的操作类型: " + std::to_string(request.operateType));
    CAccessPolicy::checkWholeQuote(caller);
    QString subsystem = resolveTarget(target);
    if (request.datas.size() != 1)
        throw CServiceError("全推设置请求必须恰好带一条记录");
    auto record =
        boost::dynamic_pointer_cast<rkservice::CGlobalFeaturePermissionInfo>(request.datas.front());
    if (!record)
        throw CServiceError("记录类型不符: 需要全局功能权限记录");
    if (!record->m_wholeQuote)
        throw CServiceError("全局功能权限记录缺少全推设置");
    if (subsystem.isEmpty()) {
        // Sent to the centre: the record belongs where it was read from.
        const QString tag = QString::fromStdString(record->getSystemTag());
        subsystem = knowsSubsystem(tag) ? tag : defaultSubsystem();
    }
    const auto& known = rkservice::CWholeQuotedivision::knownMarkets();
    for (const auto& flag : record->m_wholeQuote->flags()) {
        if (std::find(known.begin(), known.end(), flag.first) == known.end())
            throw CServiceError("未知的市场代码: " + flag.first);
    }
    m_database->transact(true, [&](QSqlDatabase& db) {
        CAuditTrail::Entry entry = CAuditTrail::forRequest(request, subsystem);
        entry.ids = utf8(subsystem);
        entry.details.push_back({entry.ids, wholeQuote(db, subsystem), QJsonObject()});
        QSqlQuery clear(db);
        clear.prepare(QStringLiteral("DELETE FROM whole_quote WHERE subsystem = ?"));
        clear.addBindValue(subsystem);
        m_database->exec(clear);
        QSqlQuery insert(db);
        insert.prepare(QStringLiteral(
            "INSERT INTO whole_quote (subsystem, market, enabled) VALUES (?, ?, ?)"));
        for (const auto& flag : record->m_wholeQuote->flags()) {
            insert.addBindValue(subsystem);
            insert.addBindValue(QString::fromStdString(flag.first));
            insert.addBindValue(flag.second ? 1 : 0);
            m_database->exec(insert);
        }
        entry.details.front().after = wholeQuote(db, subsystem);
        m_audit->write(db, caller, entry);
    });
}

QJsonObject CQuotesService::wholeQuote(QSqlDatabase& db, const QString& subsystem) const {
    QJsonObject flags;
    QSqlQuery query(db);
    query.setForwardOnly(true);
    query.prepare(QStringLiteral("SELECT market, enabled FROM whole_quote WHERE subsystem = ?"));
    query.addBindValue(subsystem);
    m_database->exec(query);
    while (query.next())
        flags.insert(query.value(0).toString(), query.value(1).toInt() != 0);
    return flags;
}

std::vector<rkservice::CUserInfoPtr> CQuotesService::users(QString* error) {
    std::vector<rkservice::CUserInfoPtr> result;
    try {
        m_database->transact(false, [&](QSqlDatabase& db) {
            std::map<QString, rkservice::CUserInfoPtr> byName;
            QSqlQuery query(db);
            query.setForwardOnly(true);
            query.prepare(QStringLiteral("SELECT name, system_id FROM users ORDER BY name"));
            m_database->exec(query);
            while (query.next()) {
                auto user = boost::make_shared<rkservice::CUserInfo>();
                user->m_strName = utf8(query.value(0).toString());
                user->m_nSystemId = query.value(1).toInt();
                byName[query.value(0).toString()] = user;
                result.push_back(user);
            }
            QSqlQuery rights(db);
            rights.setForwardOnly(true);
            rights.prepare(QStringLiteral("SELECT user_name, right_id FROM user_rights"));
            m_database->exec(rights);
            while (rights.next()) {
                auto it = byName.find(rights.value(0).toString());
                if (it != byName.end())
                    it->second->m_rights.insert(rights.value(1).toInt());
            }
        });
    } catch (const CServiceError& e) {
        result.clear();
        if (error)
            *error = QString::fromStdString(e.what());
    }
    return result;
}

bool CQuotesService::administer(const CCaller& caller, const std::string& what, QString* error,
                                const std::function<void()>& change,
                                const Hlx::CAuditEntry* refusal) {
    try {
        CAccessPolicy::checkAdminister(caller, what);
        change();
        return true;
    } catch (const CServiceError& e) {
        if (refusal)
            m_audit->refused(caller, *refusal, e.what());
        if (error)
            *error = QString::fromStdString(e.what());
        return false;
    }
}

bool CQuotesService::setLoginTypeAuth(const CCaller& caller, int loginType, bool granted,
                                      QString* error) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kSet, CAuditVocabulary::kLoginType);
    entry.ids = std::to_string(loginType);
    return administer(
        caller, "修改登录类型设置", error,
        [&] {
            Caches caches;
            m_database->transact(true, [&](QSqlDatabase& db) {
                const std::map<int, bool> settings = loginTypeAuth();
                const auto old = settings.find(loginType);
                entry.details.push_back(
                    {entry.ids,
                     old == settings.end() ? QJsonObject()
                                           : QJsonObject{{QStringLiteral("granted"), old->second}},
                     QJsonObject{{QStringLiteral("granted"), granted}}});
                m_audit->write(db, caller, entry);
                const QString name = QStringLiteral("login_type_auth.%1").arg(loginType);
                QSqlQuery erase(db);
                erase.prepare(QStringLiteral("DELETE FROM meta WHERE name = ?"));
                erase.addBindValue(name);
                m_database->exec(erase);
                QSqlQuery insert(db);
                insert.prepare(QStringLiteral("INSERT INTO meta (name, val) VALUES (?, ?)"));
                insert.addBindValue(name);
                insert.addBindValue(granted ? QStringLiteral("1") : QStringLiteral("0"));
                m_database->exec(insert);
                caches = readCaches(db);
            });
            applyCaches(caches);
        },
        &entry);
}

bool CQuotesService::setSubsystems(const CCaller& caller,
                                   const std::vector<Hlx::SubsystemInfo>& subsystems,
                                   QString* error) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kSet, CAuditVocabulary::kSubsystems);
    return administer(
        caller, "修改分系统", error,
        [&] {
            CDataTransfer::checkSubsystems(subsystems);
            Caches caches;
            m_database->transact(true, [&](QSqlDatabase& db) {
                const QJsonObject before = subsystemFields(this->subsystems());
                CDataTransfer::writeSubsystems(*m_database, db, subsystems, true);
                caches = readCaches(db);
                entry.details = {
                    {CAuditVocabulary::kSubsystems, before, subsystemFields(subsystems)}};
                m_audit->write(db, caller, entry);
            });
            applyCaches(caches);
        },
        &entry);
}

bool CQuotesService::exportDocument(const CCaller& caller, QJsonObject* document, QString* error) {
    return administer(caller, "导出数据", error, [&] {
        m_database->transact(false, [&](QSqlDatabase& db) {
            // One snapshot for every table, so concurrent changes cannot tear the document.
            if (m_database->engine() == CDatabase::PostgreSQL)
                m_database->exec(
                    db,
                    QStringLiteral("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ READ ONLY"));
            *document = CDataTransfer::exportAll(*m_database, db);
        });
    });
}

bool CQuotesService::importDocument(const CCaller& caller, const QJsonObject& document,
                                    QString* error) {
    Hlx::CImportReport report;
    return importDocument(caller, document, Hlx::CImportOptions(), &report, error);
}

namespace {
// Thrown out of a dry run's transaction so that it rolls back.
struct DryRunDone {};
}  // namespace

bool CQuotesService::importDocument(const CCaller& caller, const QJsonObject& document,
                                    const Hlx::CImportOptions& options, Hlx::CImportReport* report,
                                    QString* error) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kImport, CAuditVocabulary::kDocument);
    entry.summary.insert(
        QStringLiteral("sha256"),
        QString::fromLatin1(
            QCryptographicHash::hash(QJsonDocument(document).toJson(QJsonDocument::Compact),
                                     QCryptographicHash::Sha256)
                .toHex()));
    return administer(
        caller, "导入数据", error,
        [&] {
            const CDataTransfer::Content content = CDataTransfer::parse(document);
            entry.summary.insert(QStringLiteral("counts"), importCounts(content));
            const QString backup = options.dryRun ? QString() : backupTarget(options);
            Caches caches;
            try {
                m_database->transact(true, [&](QSqlDatabase& db) {
                    if (!options.dryRun)
                        m_generations->advance(db);
                    const QJsonObject before = CDataTransfer::exportAll(*m_database, db);
                    if (!options.dryRun)
                        writeBackup(before, backup);
                    CDataTransfer::importAll(*m_database, db, content);
                    report->sections =
                        CDataTransfer::changes(before, CDataTransfer::exportAll(*m_database, db));
                    if (options.dryRun)
                        throw DryRunDone();
                    caches = readCaches(db);
                    m_audit->write(db, caller, entry);
                });
            } catch (const DryRunDone&) {
                return;
            }
            report->backupFile = backup.toStdString();
            applyCaches(caches);
        },
        &entry);
}

QString CQuotesService::backupTarget(const Hlx::CImportOptions& options) const {
    if (!options.backupFile.empty())
        return QString::fromStdString(options.backupFile);
    if (m_backupDir.isEmpty())
        throw CServiceError("没有数据目录可存放导入前的备份，请指定备份文件");
    // Sortable by time, so the oldest come first by name; a suffix keeps two in one
    // millisecond apart.
    const QString stamp =
        QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
    const QDir dir(m_backupDir);
    QString path = dir.filePath(QStringLiteral("import-backup-%1.json").arg(stamp));
    for (int n = 1; QFileInfo::exists(path); ++n)
        path = dir.filePath(QStringLiteral("import-backup-%1-%2.json").arg(stamp).arg(n));
    return path;
}

void CQuotesService::writeBackup(const QJsonObject& content, const QString& path) const {
    QString failure;
    if (!CPrivateFile::write(path, QJsonDocument(content).toJson(QJsonDocument::Indented),
                             &failure))
        throw CServiceError("导入前备份失败，未导入: " + failure.toStdString());
    if (!m_backupDir.isEmpty() &&
        QFileInfo(path).absolutePath() == QDir(m_backupDir).absolutePath())
        pruneBackups();
}

void CQuotesService::pruneBackups() const {
    QStringList names =
        QDir(m_backupDir)
            .entryList({QStringLiteral("import-backup-*.json")}, QDir::Files, QDir::Name);
    while (names.size() > kKeptBackups)
        QFile::remove(QDir(m_backupDir).filePath(names.takeFirst()));
}

bool CQuotesService::accounts(const CCaller& caller, std::vector<CAccount>* accounts,
                              QString* error) {
    return administer(caller, "管理账户", error,
                      [&] { *accounts = CAccountStore(*m_database).accounts(); });
}

bool CQuotesService::changeAccount(const CCaller& caller, const std::string& what,
                                   const std::string& action, const QString& name,
                                   const QJsonObject& after,
                                   const std::function<void(CAccountStore&)>& change,
                                   QString* error) {
    CAuditTrail::Entry refusal = CAuditTrail::entry(action, CAuditVocabulary::kAccount);
    refusal.ids = utf8(name);
    return administer(
        caller, what, error,
        [&] {
            CAccountStore store(*m_database);
            store.alsoInTransaction([&](QSqlDatabase& db) {
                m_audit->write(db, caller,
                               CAuditTrail::accountChange(*m_database, db, action, name, after));
            });
            change(store);
        },
        &refusal);
}

bool CQuotesService::setPassword(const CCaller& caller, const QString& name,
                                 const std::string& password, QString* error) {
    return changeAccount(
        caller, "修改账户密码", CAuditVocabulary::kSetPassword, name,
        {{QStringLiteral("password"), CAuditTrail::secret(true)}},
        [&](CAccountStore& store) { store.setPassword(name, password); }, error);
}

bool CQuotesService::setAccountEnabled(const CCaller& caller, const QString& name, bool enabled,
                                       QString* error) {
    return changeAccount(
        caller, "启用或停用账户", CAuditVocabulary::kSetEnabled, name,
        {{QStringLiteral("enabled"), enabled}},
        [&](CAccountStore& store) { store.setEnabled(name, enabled); }, error);
}

bool CQuotesService::setRights(const CCaller& caller, const QString& name,
                               const std::set<int>& rights, QString* error) {
    CAccount changed;
    changed.rights = rights;
    return changeAccount(
        caller, "修改账户权限", CAuditVocabulary::kSetRights, name,
        {{QStringLiteral("rights"),
          CAuditTrail::accountFields(changed).value(QStringLiteral("rights"))}},
        [&](CAccountStore& store) { store.setRights(name, rights); }, error);
}

bool CQuotesService::auditEntries(const CCaller& caller, const Hlx::CAuditFilter& filter,
                                  std::vector<Hlx::CAuditEntry>* entries, QString* error) {
    return administer(caller, "查看操作记录", error, [&] { *entries = m_audit->read(filter); });
}

bool CQuotesService::pruneAudit(const CCaller& caller, long long beforeMs, int* removed,
                                QString* error) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kPrune, CAuditVocabulary::kAuditTrail);
    entry.summary.insert(QStringLiteral("before_ms"), double(beforeMs));
    return administer(
        caller, "清理操作记录", error,
        [&] {
            m_database->transact(true, [&](QSqlDatabase& db) {
                *removed = m_audit->prune(db, beforeMs);
                entry.summary.insert(QStringLiteral("removed"), *removed);
                m_audit->write(db, caller, entry);
            });
        },
        &entry);
}

bool CQuotesService::checkIntegrity(const CCaller& caller, QString* error) {
    return administer(caller, "检查数据库", error, [&] {
        QString detail;
        m_database->transact(false, [&](QSqlDatabase& db) {
            QSqlQuery query(db);
            query.prepare(m_database->engine() == CDatabase::SQLite
                              ? QStringLiteral("PRAGMA integrity_check")
                              : QStringLiteral("SELECT 'ok'"));
            m_database->exec(query);
            while (query.next()) {
                const QString line = query.value(0).toString();
                if (line != QLatin1String("ok"))
                    detail += line + QLatin1Char('\n');
            }
        });
        if (!detail.isEmpty())
            throw CServiceError(detail.trimmed().toStdString());
    });
}
