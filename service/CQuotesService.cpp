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

#include "CAccessPolicy.h"
#include "CAccountStore.h"
#include "CChangeFeed.h"
#include "CDataTransfer.h"
#include "CDatabase.h"
#include "CDatabaseBackup.h"
#include "CImportBackups.h"
#include "CImportGeneration.h"
#include "CLoginFailures.h"
#include "CProbeStore.h"
#include "CProbeThrottle.h"
#include "CQuoteSourceStore.h"
#include "CReferenceData.h"
#include "CRevisionCheck.h"
#include "CSchema.h"
#include "CSecretBox.h"
#include "CSecretKeys.h"
#include "CSeedData.h"
#include "CServiceError.h"
#include "CSettingsStore.h"
#include "CSourceHistoryStore.h"
#include "CSourceProber.h"
#include "CSourceValidator.h"
#include "CTokenStore.h"
#include "CWholeQuoteStore.h"
#include "Hlx/CAnswer.h"
#include "Hlx/QuotesVersion.h"
#include "model/CAuditVocabulary.h"
#include "model/CProbeVocabulary.h"
#include "model/CRevisionConflicts.h"
#include "model/CRightsTable.h"
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

void checkChangeOfRows(int operateType) {
    if (operateType != rkservice::kOperateAdd && operateType != rkservice::kOperateModify &&
        operateType != rkservice::kOperateDelete)
        throw CServiceError("不支持的操作类型: " + std::to_string(operateType));
}

QJsonObject subsystemFields(const std::vector<Hlx::SubsystemInfo>& subsystems) {
    QJsonObject fields;
    for (const auto& info : subsystems)
        fields.insert(QString::fromStdString(info.name), QString::fromStdString(info.displayName));
    return fields;
}

QJsonObject flagFields(const CWholeQuoteStore::Flags& flags) {
    QJsonObject fields;
    for (const auto& flag : flags)
        fields.insert(flag.first, flag.second);
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

QJsonArray textList(const std::vector<std::string>& texts) {
    QJsonArray list;
    for (const std::string& text : texts)
        list.append(QString::fromStdString(text));
    return list;
}

// The document checked, its counts and kept values in the entry and the report.
CDataTransfer::Content parseImport(const QJsonObject& document, Hlx::CImportReport* report,
                                   CAuditTrail::Entry* entry) {
    CDataTransfer::Content content = CDataTransfer::parse(document);
    entry->summary.insert(QStringLiteral("counts"), importCounts(content));
    if (!content.keptValues.empty())
        entry->summary.insert(QStringLiteral("kept"), textList(content.keptValues));
    if (report)
        report->keptValues = content.keptValues;
    return content;
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

// The records of a change of sources, each a quote source.
std::vector<rkservice::COrinQuoterSourceInfoPtr> sourcesOf(
    const rkservice::COperateDataReq& request) {
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
    return sources;
}

// A filter's action must be one the trail records: a misspelt one would list nothing.
void checkAuditAction(const std::string& action) {
    if (action.empty())
        return;
    std::string known;
    for (const char* name : CAuditVocabulary::kActions) {
        if (action == name)
            return;
        known += (known.empty() ? "" : ", ") + std::string(name);
    }
    throw CServiceError("未知操作: " + action + "（可用: " + known + "）");
}

// Thrown out of a dry run's transaction so that it rolls back.
struct DryRunDone {};

}  // namespace

CQuotesService::CQuotesService() = default;

CQuotesService::~CQuotesService() = default;

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
    CDatabase& database = *service->m_database;
    service->m_audit.reset(new CAuditTrail(database, resolved.auditTrail));
    service->m_generations.reset(new CImportGeneration(database));
    service->m_keys.reset(new CSecretKeys(database, resolved));
    service->m_probeThrottle.reset(new CProbeThrottle);
    service->m_prober.reset(new CSourceProber(database));
    const QString file = database.filePath();
    service->m_backups.reset(new CImportBackups(!resolved.dataDir.isEmpty() ? resolved.dataDir
                                                : file.isEmpty()            ? QString()
                                                                 : QFileInfo(file).absolutePath(),
                                                database));
    try {
        service->initialise(resolved);
    } catch (const CServiceError& e) {
        *failure = QString::fromStdString(e.what());
        return nullptr;
    }
    service->m_opened.start();
    return service;
}

void CQuotesService::initialise(const CServiceOptions& options) {
    CSettingsCache::Settings settings;
    m_database->transact(true, [&](QSqlDatabase& db) {
        const int version = CSchema::version(*m_database, db);
        if (version > CSchema::currentVersion())
            throw CServiceError::unavailable(
                "数据库结构版本 " + std::to_string(version) + " 比本程序支持的版本 " +
                std::to_string(CSchema::currentVersion()) + " 新，拒绝打开；请使用更新的程序");
        if (version == 0 && !options.createMissing)
            throw CServiceError::unavailable(
                "数据库尚未初始化：请先在第一台服务器上运行 quotesd init");
        m_keys->unlock(db, version);
        CSchema::migrate(*m_database, db, version, CSchema::currentVersion());
        if (version == 0) {
            if (options.seed)
                CSeedData::seed(*m_database, db, options.sampleData);
            else
                CSeedData::seedMinimal(*m_database, db);
        } else if (version < CSchema::currentVersion()) {
            auditUpgrade(db, version);
        }
        settings = readSettings(db);
    });
    m_settings.apply(settings);
}

void CQuotesService::auditUpgrade(QSqlDatabase& db, int from) const {
    // The program that opens the database migrates it, for the operating-system user it runs as.
    const CCaller self = CCaller::localOwner();
    CAuditTrail::Entry migration =
        CAuditTrail::entry(CAuditVocabulary::kMigrate, CAuditVocabulary::kSchema);
    migration.summary.insert(QStringLiteral("from"), from);
    migration.summary.insert(QStringLiteral("to"), CSchema::currentVersion());
    m_audit->write(db, self, migration);
    if (from >= CSchema::sealedSince())
        return;
    CAuditTrail::Entry seal =
        CAuditTrail::entry(CAuditVocabulary::kSeal, CAuditVocabulary::kSecrets);
    seal.summary = sealedCounts(db);
    m_audit->write(db, self, seal);
}

QJsonObject CQuotesService::sealedCounts(QSqlDatabase& db) const {
    QJsonObject counts;
    for (const char* table : {"kx_orin_quoter_source", "level2_token"}) {
        QSqlQuery count(db);
        count.prepare(QStringLiteral("SELECT count(*) FROM %1").arg(QLatin1String(table)));
        m_database->exec(count);
        counts.insert(QLatin1String(table), count.next() ? count.value(0).toInt() : 0);
    }
    return counts;
}

CSettingsCache::Settings CQuotesService::readSettings(QSqlDatabase& db) const {
    const CSettingsStore store(*m_database);
    return {store.subsystems(db), store.loginTypeAuth(db)};
}

CChangeFeed& CQuotesService::changes() {
    std::lock_guard<std::mutex> lock(m_changesMutex);
    if (!m_changes)
        m_changes.reset(new CChangeFeed(*m_database, *m_audit));
    return *m_changes;
}

std::vector<Hlx::SubsystemInfo> CQuotesService::subsystems() const {
    return m_settings.subsystems();
}

bool CQuotesService::hasClientLoginTypeAuth(int loginType) const {
    return m_settings.hasClientLoginTypeAuth(loginType);
}

std::map<int, bool> CQuotesService::loginTypeAuth() const {
    return m_settings.loginTypeAuth();
}

QString CQuotesService::keyFile() const {
    return m_keys->keyFile();
}

QString CQuotesService::backupDir() const {
    return m_backups->dir();
}

QString CQuotesService::databaseDescription() const {
    return m_database->description();
}

QString CQuotesService::databaseFile() const {
    return m_database->filePath();
}

utils::RKError CQuotesService::answer(const CCaller& caller, const CAuditTrail::Entry* refusal,
                                      const std::function<void()>& work) {
    utils::RKError error;
    try {
        work();
        return utils::RKError::ok();
    } catch (const CServiceError& e) {
        error = e.toError();
    } catch (const std::exception& e) {
        error = utils::RKError::fail(utils::ErrorKind::Unavailable,
                                     std::string("数据服务内部错误: ") + e.what());
    }
    if (refusal)
        m_audit->refused(caller, *refusal, error.errorMsg());
    return error;
}

utils::RKError CQuotesService::administer(const CCaller& caller, const std::string& what,
                                          const CAuditTrail::Entry* refusal,
                                          const std::function<void()>& work) {
    return answer(caller, refusal, [&] {
        CAccessPolicy::checkAdminister(caller, what);
        work();
    });
}

QString CQuotesService::resolveTarget(const Hlx::CRequestTarget& target) const {
    if (target.isCentre())
        return QString();
    const QString name = QString::fromStdString(target.subsystemName());
    if (!m_settings.knowsSubsystem(name))
        throw CServiceError::notFound("分系统不存在: " + target.subsystemName());
    return name;
}

std::vector<std::string> CQuotesService::scopeOf(const QString& subsystem) const {
    if (!subsystem.isEmpty())
        return {utf8(subsystem)};
    std::vector<std::string> scope;
    for (const auto& info : subsystems())
        scope.push_back(info.name);
    return scope;
}

utils::RKError CQuotesService::querySync(const CCaller& caller, const Hlx::CRequestTarget& target,
                                         const rkservice::COrinQueryDataReq& request,
                                         std::vector<rkservice::IDataPtr>* datas) {
    datas->clear();
    return answer(caller, nullptr, [&] { *datas = doQuery(caller, target, request); });
}

std::vector<rkservice::IDataPtr> CQuotesService::doQuery(
    const CCaller& caller, const Hlx::CRequestTarget& target,
    const rkservice::COrinQueryDataReq& request) {
    const QString subsystem = resolveTarget(target);
    switch (request.dataType) {
        case rkservice::kDataQuoteSources:
            return querySources(caller, subsystem, request);
        case rkservice::kDataBrokers:
        case rkservice::kDataPlatforms:
            return queryReference(subsystem, request);
        case rkservice::kDataGlobalPermission:
            return queryWholeQuote(subsystem);
        case rkservice::kDataLevel2Tokens:
            return queryToken(caller, subsystem);
        case rkservice::kDataUsers:
            return queryUsers(caller, subsystem, request);
        default:
            throw CServiceError("不支持的数据类型: " + std::to_string(request.dataType));
    }
}

std::vector<rkservice::IDataPtr> CQuotesService::querySources(
    const CCaller& caller, const QString& subsystem, const rkservice::COrinQueryDataReq& request) {
    int tradeType = 0;
    const bool filter = CSourceValidator::parseCondition(request.condition, &tradeType);
    // Passwords are opened only for the rows whose password the caller receives.
    CQuoteSourceStore::PasswordFilter mayRead;
    if (!caller.isOwner())
        mayRead = [&caller](const rkservice::COrinQuoterSourceInfo& source) {
            return CAccessPolicy::mayReadPassword(caller, source);
        };
    std::vector<rkservice::IDataPtr> result;
    CImportGeneration::Seen seen;
    m_database->transact(false, [&](QSqlDatabase& db) {
        seen = m_generations->beforeQuery(db, caller);
        result = CQuoteSourceStore(*m_database).query(db, subsystem, filter, tradeType, mayRead);
    });
    m_generations->afterQuery(caller, seen);
    return result;
}

std::vector<rkservice::IDataPtr> CQuotesService::queryReference(
    const QString& subsystem, const rkservice::COrinQueryDataReq& request) {
    int tradeType = 0;
    const bool filter = CSourceValidator::parseCondition(request.condition, &tradeType);
    const bool branded = !hasClientLoginTypeAuth(0);
    std::vector<rkservice::IDataPtr> records;
    m_database->transact(false, [&](QSqlDatabase& db) {
        records =
            request.dataType == rkservice::kDataBrokers
                ? CReferenceData::brokerRecords(*m_database, db, filter, tradeType, branded)
                : CReferenceData::platformRecords(*m_database, db, filter, tradeType, branded);
    });
    // The reference data is the same on every sub-system; each sub-system answers with its
    // own tagged copy, so records match sources of the same sub-system.
    std::vector<rkservice::IDataPtr> result;
    for (const std::string& tag : scopeOf(subsystem)) {
        for (const auto& record : records)
            result.push_back(tagged(record, tag));
    }
    return result;
}

std::vector<rkservice::IDataPtr> CQuotesService::queryWholeQuote(const QString& subsystem) {
    std::vector<rkservice::IDataPtr> result;
    const CWholeQuoteStore store(*m_database);
    m_database->transact(false, [&](QSqlDatabase& db) {
        for (const std::string& tag : scopeOf(subsystem)) {
            auto record = boost::make_shared<rkservice::CGlobalFeaturePermissionInfo>();
            record->setSystemTag(tag);
            record->setRevision(store.revision(db, QString::fromStdString(tag)));
            if (!record->m_wholeQuote)
                record->m_wholeQuote = boost::make_shared<rkservice::CWholeQuotedivision>();
            for (const std::string& market : rkservice::CWholeQuotedivision::knownMarkets())
                record->m_wholeQuote->setEnabled(market, false);
            for (const auto& flag : store.read(db, QString::fromStdString(tag)))
                record->m_wholeQuote->setEnabled(utf8(flag.first), flag.second);
            result.push_back(record);
        }
    });
    return result;
}

std::vector<rkservice::IDataPtr> CQuotesService::queryToken(const CCaller& caller,
                                                            const QString& subsystem) {
    // The Level-2 source is one for the whole platform: whichever client asks sees that it is
    // there, its token only with a Level-2 right.
    const std::string tag =
        subsystem.isEmpty() ? utf8(m_settings.defaultSubsystem()) : utf8(subsystem);
    std::vector<rkservice::IDataPtr> result;
    m_database->transact(false, [&](QSqlDatabase& db) {
        auto record = boost::make_shared<rkservice::CLevel2Token>();
        long long revision = 0;
        if (CTokenStore(*m_database).read(db, &record->token, &revision)) {
            if (!CAccessPolicy::mayReadToken(caller))
                record->token = CAuditVocabulary::kMasked;
            record->setSystemTag(tag);
            record->setRevision(revision);
            result.push_back(record);
        }
    });
    return result;
}

std::vector<rkservice::IDataPtr> CQuotesService::queryUsers(
    const CCaller& caller, const QString& subsystem, const rkservice::COrinQueryDataReq& request) {
    const std::string tag =
        subsystem.isEmpty() ? utf8(m_settings.defaultSubsystem()) : utf8(subsystem);
    const bool everyone = CAccessPolicy::mayReadUsers(caller);
    std::vector<rkservice::IDataPtr> result;
    for (const CAccount& account : CAccountStore(*m_database).accounts()) {
        if (!request.condition.empty() && utf8(account.name) != request.condition)
            continue;
        if (!everyone && utf8(account.name) != caller.name())
            continue;
        rkservice::CUserInfoPtr user = account.userInfo();
        user->setSystemTag(tag);
        result.push_back(user);
    }
    return result;
}

utils::RKError CQuotesService::users(const CCaller& caller,
                                     std::vector<rkservice::CUserInfoPtr>* users) {
    users->clear();
    return answer(caller, nullptr, [&] {
        for (const CAccount& account : CAccountStore(*m_database).accounts())
            users->push_back(account.userInfo());
    });
}

utils::RKError CQuotesService::operateSync(const CCaller& caller, const Hlx::CRequestTarget& target,
                                           const rkservice::COperateDataReq& request,
                                           bson::BSONObj* result) {
    bson::BSONObj local;
    const CAuditTrail::Entry refusal = CAuditTrail::forRequest(
        request, target.isCentre() ? QString() : QString::fromStdString(target.subsystemName()));
    return answer(caller, &refusal,
                  [&] { doOperate(caller, target, request, result ? result : &local); });
}

void CQuotesService::doOperate(const CCaller& caller, const Hlx::CRequestTarget& target,
                               const rkservice::COperateDataReq& request, bson::BSONObj* result) {
    switch (request.dataType) {
        case rkservice::kDataQuoteSources:
            operateSources(caller, target, request, result);
            break;
        case rkservice::kDataLevel2Tokens:
            resolveTarget(target);
            result->appendString("revisions", std::to_string(operateToken(caller, request)));
            break;
        case rkservice::kDataGlobalPermission:
            result->appendString("revisions",
                                 std::to_string(operatePermission(caller, target, request)));
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
    checkChangeOfRows(request.operateType);
    const QString subsystem = resolveTarget(target);
    const std::vector<rkservice::COrinQuoterSourceInfoPtr> sources = sourcesOf(request);
    if (request.operateType == rkservice::kOperateAdd) {
        const std::vector<int> ids = addSources(caller, subsystem, request, sources);
        result->appendInt("count", int(ids.size()));
        result->appendString("ids", CAuditTrail::idList(ids));
        // A new row starts at revision 1.
        result->appendString("revisions",
                             CRevisionCheck::list(std::vector<long long>(ids.size(), 1)));
        return;
    }
    if (request.operateType == rkservice::kOperateModify)
        result->appendString(
            "revisions", CRevisionCheck::list(modifySources(caller, subsystem, request, sources)));
    else
        deleteSources(caller, subsystem, request, sources);
    result->appendInt("count", int(sources.size()));
}

std::vector<int> CQuotesService::addSources(
    const CCaller& caller, const QString& subsystem, const rkservice::COperateDataReq& request,
    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) {
    // An add sent to the centre goes to the default sub-system.
    const QString owner = subsystem.isEmpty() ? m_settings.defaultSubsystem() : subsystem;
    for (const auto& source : sources)
        CSourceValidator::checkTradeType(source->m_nTradeType);
    CAccessPolicy::checkAdd(caller, sources);
    std::vector<int> ids;
    m_database->transact(true, [&](QSqlDatabase& db) {
        ids = CQuoteSourceStore(*m_database).add(db, owner, sources);
        std::map<int, rkservice::COrinQuoterSourceInfo> added;
        for (size_t i = 0; i < ids.size(); ++i) {
            rkservice::COrinQuoterSourceInfo source(*sources[i]);
            source.m_nId = ids[i];
            source.setSystemTag(utf8(owner));
            added.emplace(ids[i], source);
        }
        auditSources(db, caller, request, owner, {}, added);
    });
    return ids;
}

std::vector<long long> CQuotesService::modifySources(
    const CCaller& caller, const QString& subsystem, const rkservice::COperateDataReq& request,
    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) {
    const std::vector<int> ids = distinctIds(sources, "修改");
    for (const auto& source : sources) {
        if (source->m_nTradeType != -1)  // -1 keeps the stored type
            CSourceValidator::checkTradeType(source->m_nTradeType);
    }
    const CQuoteSourceStore store(*m_database);
    std::vector<long long> revisions;
    // The rights and revisions of the stored rows are read in the transaction that changes them.
    m_database->transact(true, [&](QSqlDatabase& db) {
        m_generations->checkModify(db, caller);
        const auto before = store.byIds(db, subsystem, ids, true);
        CAccessPolicy::checkModify(caller, sources, CQuoteSourceStore::kindsOf(before));
        CRevisionCheck::checkSources(sources, before);
        const auto written = store.modify(db, before, sources);
        revisions.clear();
        for (int id : ids)
            revisions.push_back(written.at(id).getRevision());
        auditSources(db, caller, request, subsystem, before, written);
    });
    return revisions;
}

void CQuotesService::deleteSources(
    const CCaller& caller, const QString& subsystem, const rkservice::COperateDataReq& request,
    const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources) {
    const std::vector<int> ids = distinctIds(sources, "删除");
    const CQuoteSourceStore store(*m_database);
    m_database->transact(true, [&](QSqlDatabase& db) {
        const auto before = store.byIds(db, subsystem, ids, true);
        const std::map<int, CStoredKind> kinds = CQuoteSourceStore::kindsOf(before);
        m_generations->checkDelete(db, caller, sources, kinds);
        CAccessPolicy::checkDelete(caller, ids, kinds);
        CRevisionCheck::checkSources(sources, before);
        store.remove(db, subsystem, ids);
        auditSources(db, caller, request, subsystem, before, {});
    });
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

utils::RKError CQuotesService::modifySource(const CCaller& caller, int id,
                                            const Hlx::CSourcePatch& patch) {
    rkservice::COperateDataReq request;
    request.dataType = rkservice::kDataQuoteSources;
    request.operateType = rkservice::kOperateModify;
    const CAuditTrail::Entry refusal = CAuditTrail::forRequest(request, QString());
    return answer(caller, &refusal, [&] {
        if (patch.isEmpty())
            throw CServiceError("没有要修改的字段");
        const CQuoteSourceStore store(*m_database);
        m_database->transact(true, [&](QSqlDatabase& db) {
            const auto stored = store.byIds(db, QString(), {id}, true);
            if (stored.empty())
                throw CServiceError::notFound("行情源不存在: " + std::to_string(id));
            const rkservice::COrinQuoterSourceInfo& before = stored.begin()->second;
            auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>(before);
            patch.applyTo(source.get());
            source->m_nId = id;
            request.datas = {source};
            m_generations->checkModify(db, caller);
            CAccessPolicy::checkModify(caller, {source}, CQuoteSourceStore::kindsOf(stored));
            if (patch.ifRevision)
                CRevisionCheck::check(*patch.ifRevision, before.getRevision(),
                                      CRevisionConflicts::kSource);
            auditSources(db, caller, request, QString::fromStdString(before.getSystemTag()), stored,
                         store.modify(db, stored, {source}));
        });
    });
}

utils::RKError CQuotesService::sourceHistory(const CCaller& caller, int id,
                                             Hlx::CSourceHistory* history) {
    *history = Hlx::CSourceHistory();
    return answer(caller, nullptr, [&] {
        const CQuoteSourceStore store(*m_database);
        m_database->transact(false, [&](QSqlDatabase& db) {
            *history = CSourceHistoryStore(*m_audit, store).read(db, id);
        });
        // Neither stored nor in the trail: no source ever had the id (or none this content
        // knows of), as a probe or a restore of it says.
        if (!history->exists && history->entries.empty())
            throw CServiceError::notFound("行情源不存在: " + std::to_string(id));
    });
}

utils::RKError CQuotesService::restoreSource(const CCaller& caller, int id, long long entryId,
                                             long long revision, long long* written) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kRestore, CAuditVocabulary::kQuoteSource);
    entry.ids = std::to_string(id);
    entry.summary.insert(QStringLiteral("from_entry"), double(entryId));
    *written = 0;
    return answer(caller, &entry, [&] {
        const CQuoteSourceStore store(*m_database);
        m_database->transact(true, [&](QSqlDatabase& db) {
            auto source = boost::make_shared<rkservice::COrinQuoterSourceInfo>(
                CSourceHistoryStore(*m_audit, store).after(db, id, entryId));
            m_generations->checkModify(db, caller);
            const auto stored = store.byIds(db, QString(), {id}, true);
            const auto after = stored.empty() ? restoreDeleted(db, caller, source)
                                              : restoreStored(db, caller, stored, source, revision);
            *written = after.at(id).getRevision();
            CAuditTrail::Entry change = entry;
            change.subsystem = after.at(id).getSystemTag();
            CAuditTrail::addSourceDetails(&change, stored, after);
            m_audit->write(db, caller, change);
        });
    });
}

std::map<int, rkservice::COrinQuoterSourceInfo> CQuotesService::restoreStored(
    QSqlDatabase& db, const CCaller& caller,
    const std::map<int, rkservice::COrinQuoterSourceInfo>& stored,
    const rkservice::COrinQuoterSourceInfoPtr& source, long long revision) const {
    const rkservice::COrinQuoterSourceInfo& current = stored.begin()->second;
    // The trail keeps no password: the stored one stays.
    source->m_strPassword = current.m_strPassword;
    CAccessPolicy::checkModify(caller, {source}, CQuoteSourceStore::kindsOf(stored));
    if (revision != 0) {
        // 0 is "whatever is stored"; a negative one was never read, as in a modify.
        CRevisionCheck::require(revision);
        CRevisionCheck::check(revision, current.getRevision(), CRevisionConflicts::kSource);
    }
    return CQuoteSourceStore(*m_database).modify(db, stored, {source});
}

std::map<int, rkservice::COrinQuoterSourceInfo> CQuotesService::restoreDeleted(
    QSqlDatabase& db, const CCaller& caller,
    const rkservice::COrinQuoterSourceInfoPtr& source) const {
    const QString subsystem = QString::fromStdString(source->getSystemTag());
    if (!m_settings.knowsSubsystem(subsystem))
        throw CServiceError::notFound("分系统不存在: " + source->getSystemTag());
    CAccessPolicy::checkAdd(caller, {source});
    source->m_strPassword.clear();
    const CQuoteSourceStore store(*m_database);
    store.check(db, subsystem, *source, -1);
    // Its former id is free: no stored source has it. The id sequences are past it already
    // (AUTOINCREMENT and identities never hand out an id twice), so they stay as they are.
    store.insertRaw(db, subsystem, *source);
    source->setRevision(1);
    return {{source->m_nId, *source}};
}

long long CQuotesService::operateToken(const CCaller& caller,
                                       const rkservice::COperateDataReq& request) {
    const int op = request.operateType;
    checkChangeOfRows(op);
    CAccessPolicy::checkLevel2(caller, recordAction(op));
    if (request.datas.size() != 1)
        throw CServiceError("Level-2 token 请求必须恰好带一条记录");
    auto token = boost::dynamic_pointer_cast<rkservice::CLevel2Token>(request.datas.front());
    if (!token)
        throw CServiceError("记录类型不符: 需要 Level-2 token 记录");
    if (op != rkservice::kOperateDelete)
        CSourceValidator::checkToken(token->token);
    long long written = 0;
    m_database->transact(true, [&](QSqlDatabase& db) {
        const CTokenStore store(*m_database);
        std::string stored;
        long long revision = 0;
        const bool exists = store.read(db, &stored, &revision, true);
        if (exists && op != rkservice::kOperateAdd) {
            CRevisionCheck::require(token->getRevision());
            CRevisionCheck::check(token->getRevision(), revision, CRevisionConflicts::kToken);
        }
        written = changeToken(db, op, exists, stored, token->token, revision);
        CAuditTrail::Entry entry = CAuditTrail::forRequest(request, QString());
        entry.ids = "1";
        entry.details.push_back({entry.ids, exists ? CAuditTrail::secret(false) : QJsonObject(),
                                 op == rkservice::kOperateDelete
                                     ? QJsonObject()
                                     : CAuditTrail::secret(stored != token->token)});
        m_audit->write(db, caller, entry);
    });
    return written;
}

long long CQuotesService::changeToken(QSqlDatabase& db, int op, bool exists,
                                      const std::string& stored, const std::string& token,
                                      long long revision) const {
    const CTokenStore store(*m_database);
    if (op == rkservice::kOperateAdd) {
        if (exists)
            throw CServiceError::conflict("已有 Level-2 行情源 token，请修改或删除后再添加");
        store.insert(db, token);
        return 1;
    }
    if (op == rkservice::kOperateModify) {
        if (!exists)
            throw CServiceError::notFound("没有可修改的 Level-2 行情源 token");
        store.update(db, token);
        return revision + 1;
    }
    if (!exists || stored != token)
        throw CServiceError::notFound("Level-2 行情源 token 不存在");
    store.remove(db);
    return 0;
}

long long CQuotesService::operatePermission(const CCaller& caller,
                                            const Hlx::CRequestTarget& target,
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
    CRevisionCheck::require(record->getRevision());
    if (subsystem.isEmpty()) {
        // Sent to the centre: the record belongs where it was read from.
        const QString tag = QString::fromStdString(record->getSystemTag());
        subsystem = m_settings.knowsSubsystem(tag) ? tag : m_settings.defaultSubsystem();
    }
    const auto& known = rkservice::CWholeQuotedivision::knownMarkets();
    CWholeQuoteStore::Flags flags;
    for (const auto& flag : record->m_wholeQuote->flags()) {
        if (std::find(known.begin(), known.end(), flag.first) == known.end())
            throw CServiceError("未知的市场代码: " + flag.first);
        flags[QString::fromStdString(flag.first)] = flag.second;
    }
    const CWholeQuoteStore store(*m_database);
    long long written = 0;
    m_database->transact(true, [&](QSqlDatabase& db) {
        const long long stored = store.revision(db, subsystem, true);
        CRevisionCheck::check(record->getRevision(), stored, CRevisionConflicts::kWholeQuote);
        CAuditTrail::Entry entry = CAuditTrail::forRequest(request, subsystem);
        entry.ids = utf8(subsystem);
        const QJsonObject before = flagFields(store.read(db, subsystem));
        store.replace(db, subsystem, flags);
        written = store.advance(db, subsystem, stored);
        entry.details.push_back({entry.ids, before, flagFields(store.read(db, subsystem))});
        m_audit->write(db, caller, entry);
    });
    return written;
}

utils::RKError CQuotesService::setLoginTypeAuth(const CCaller& caller, int loginType,
                                                bool granted) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kSet, CAuditVocabulary::kLoginType);
    entry.ids = std::to_string(loginType);
    return administer(caller, "修改登录类型设置", &entry, [&] {
        CSettingsCache::Settings settings;
        m_database->transact(true, [&](QSqlDatabase& db) {
            const std::map<int, bool> stored = loginTypeAuth();
            const auto old = stored.find(loginType);
            entry.details.push_back({entry.ids,
                                     old == stored.end()
                                         ? QJsonObject()
                                         : QJsonObject{{QStringLiteral("granted"), old->second}},
                                     QJsonObject{{QStringLiteral("granted"), granted}}});
            m_audit->write(db, caller, entry);
            CSettingsStore(*m_database).setLoginTypeAuth(db, loginType, granted);
            settings = readSettings(db);
        });
        m_settings.apply(settings);
    });
}

utils::RKError CQuotesService::setSubsystems(const CCaller& caller,
                                             const std::vector<Hlx::SubsystemInfo>& subsystems) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kSet, CAuditVocabulary::kSubsystems);
    return administer(caller, "修改分系统", &entry, [&] {
        CSettingsStore::checkSubsystems(subsystems);
        CSettingsCache::Settings settings;
        m_database->transact(true, [&](QSqlDatabase& db) {
            const QJsonObject before = subsystemFields(this->subsystems());
            CSettingsStore(*m_database).writeSubsystems(db, subsystems, true);
            settings = readSettings(db);
            entry.details = {{CAuditVocabulary::kSubsystems, before, subsystemFields(subsystems)}};
            m_audit->write(db, caller, entry);
        });
        m_settings.apply(settings);
    });
}

utils::RKError CQuotesService::currentSubsystems(const CCaller& caller,
                                                 std::vector<Hlx::SubsystemInfo>* subsystems) {
    return answer(caller, nullptr, [&] { *subsystems = this->subsystems(); });
}

utils::RKError CQuotesService::currentLoginTypeAuth(const CCaller& caller,
                                                    std::map<int, bool>* settings) {
    return answer(caller, nullptr, [&] { *settings = loginTypeAuth(); });
}

utils::RKError CQuotesService::reloadSettings(const CCaller& caller) {
    return answer(caller, nullptr, [&] {
        CSettingsCache::Settings settings;
        m_database->transact(false, [&](QSqlDatabase& db) { settings = readSettings(db); });
        m_settings.apply(settings);
    });
}

utils::RKError CQuotesService::exportDocument(const CCaller& caller, QJsonObject* document,
                                              const Hlx::CExportOptions& options) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kExport, CAuditVocabulary::kDocument);
    entry.summary.insert(QStringLiteral("secrets"), !options.withoutSecrets);
    return administer(caller, "导出数据", &entry, [&] {
        QJsonObject exported;
        m_database->transact(false, [&](QSqlDatabase& db) {
            // One snapshot for every table, so concurrent changes cannot tear the document.
            if (m_database->engine() == CDatabase::PostgreSQL)
                m_database->exec(
                    db,
                    QStringLiteral("SET TRANSACTION ISOLATION LEVEL REPEATABLE READ READ ONLY"));
            exported = CDataTransfer::exportAll(*m_database, db);
        });
        if (options.withoutSecrets)
            exported = CDataTransfer::withoutSecrets(exported);
        else if (!CAccessPolicy::mayReadToken(caller))
            exported = CDataTransfer::withMaskedToken(exported);
        // The one read that carries every secret: on record before the document leaves.
        m_database->transact(true, [&](QSqlDatabase& db) { m_audit->write(db, caller, entry); });
        *document = exported;
    });
}

utils::RKError CQuotesService::importDocument(const CCaller& caller, const QJsonObject& document,
                                              const Hlx::CImportOptions& options,
                                              Hlx::CImportReport* report) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kImport, CAuditVocabulary::kDocument);
    entry.summary.insert(
        QStringLiteral("sha256"),
        QString::fromLatin1(
            QCryptographicHash::hash(QJsonDocument(document).toJson(QJsonDocument::Compact),
                                     QCryptographicHash::Sha256)
                .toHex()));
    return administer(caller, "导入数据", &entry,
                      [&] { runImport(caller, document, options, report, &entry); });
}

void CQuotesService::runImport(const CCaller& caller, const QJsonObject& document,
                               const Hlx::CImportOptions& options, Hlx::CImportReport* report,
                               CAuditTrail::Entry* entry) {
    // A partial import takes its other sections from the stored content, so it is parsed in the
    // transaction that reads them; a whole document is refused before anything is opened.
    const bool partial = !options.onlySections.empty();
    CDataTransfer::Content content;
    if (partial)
        entry->summary.insert(QStringLiteral("only"), textList(options.onlySections));
    else
        content = parseImport(document, report, entry);
    const QString backup = options.dryRun ? QString() : m_backups->target(options);
    CSettingsCache::Settings settings;
    bool backupWritten = false;
    try {
        m_database->transact(true, [&](QSqlDatabase& db) {
            if (!options.dryRun)
                m_generations->advance(db);
            const QJsonObject before = CDataTransfer::exportAll(*m_database, db);
            if (partial)
                content =
                    parseImport(CDataTransfer::withSections(before, document, options.onlySections),
                                report, entry);
            CDataTransfer::importAll(*m_database, db, content);
            if (report)
                report->sections =
                    CDataTransfer::changes(before, CDataTransfer::exportAll(*m_database, db));
            if (options.dryRun)
                throw DryRunDone();
            settings = readSettings(db);
            m_audit->write(db, caller, *entry);
            // Only a document that passed every check makes a backup, so refused imports never
            // push real backups out of the ones kept; it is on disk before the change commits.
            m_backups->write(before, backup);
            backupWritten = true;
        });
    } catch (const DryRunDone&) {
        return;
    } catch (...) {
        // The commit failed (a full disk): the backup is of nothing that changed.
        if (backupWritten)
            QFile::remove(backup);
        throw;
    }
    m_backups->keep(backup);
    if (report)
        report->backupFile = backup.toStdString();
    m_settings.apply(settings);
}

utils::RKError CQuotesService::accounts(const CCaller& caller,
                                        std::vector<Hlx::CAdminAccount>* accounts) {
    accounts->clear();
    const CAuditTrail::Entry refusal =
        CAuditTrail::entry(CAuditVocabulary::kRead, CAuditVocabulary::kAccount);
    return administer(caller, "管理账户", &refusal, [&] {
        for (const CAccount& account : CAccountStore(*m_database).accounts())
            accounts->push_back({account.userInfo(), account.enabled});
    });
}

utils::RKError CQuotesService::changeAccount(const CCaller& caller, const std::string& what,
                                             const std::string& action, const std::string& name,
                                             const QJsonObject& after,
                                             const std::function<void(CAccountStore&)>& change) {
    CAuditTrail::Entry refusal = CAuditTrail::entry(action, CAuditVocabulary::kAccount);
    refusal.ids = name;
    return administer(caller, what, &refusal, [&] {
        CAccountStore store(*m_database);
        store.alsoInTransaction([&](QSqlDatabase& db) {
            m_audit->write(db, caller,
                           CAuditTrail::accountChange(*m_database, db, action,
                                                      QString::fromStdString(name), after));
        });
        change(store);
    });
}

utils::RKError CQuotesService::setPassword(const CCaller& caller, const std::string& name,
                                           const std::string& password) {
    return changeAccount(
        caller, "修改账户密码", CAuditVocabulary::kSetPassword, name,
        {{QStringLiteral("password"), CAuditTrail::secret(true)}},
        [&](CAccountStore& store) { store.setPassword(QString::fromStdString(name), password); });
}

utils::RKError CQuotesService::setAccountEnabled(const CCaller& caller, const std::string& name,
                                                 bool enabled) {
    return changeAccount(caller, "启用或停用账户", CAuditVocabulary::kSetEnabled, name,
                         {{QStringLiteral("enabled"), enabled}}, [&](CAccountStore& store) {
                             store.setEnabled(QString::fromStdString(name), enabled);
                         });
}

utils::RKError CQuotesService::setRights(const CCaller& caller, const std::string& name,
                                         const std::set<int>& rights) {
    CAccount changed;
    changed.rights = rights;
    return changeAccount(caller, "修改账户权限", CAuditVocabulary::kSetRights, name,
                         {{QStringLiteral("rights"),
                           CAuditTrail::accountFields(changed).value(QStringLiteral("rights"))}},
                         [&](CAccountStore& store) {
                             for (int right : rights) {
                                 if (!Hlx::CRightsTable::isKnown(right))
                                     throw CServiceError("未知权限 " + std::to_string(right));
                             }
                             store.setRights(QString::fromStdString(name), rights);
                         });
}

utils::RKError CQuotesService::unlockLogins(const CCaller& caller, const std::string& name,
                                            const std::string& address) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kUnlock, CAuditVocabulary::kSession);
    entry.ids = name;
    entry.summary.insert(QStringLiteral("address"), QString::fromStdString(address));
    return administer(caller, "解除登录锁定", &entry, [&] {
        if (name.empty() && address.empty())
            throw CServiceError("需要账户名或地址");
        m_database->transact(true, [&](QSqlDatabase& db) {
            const int cleared =
                CLoginFailures(*m_database, CLoginFailures::Rule())
                    .clear(db, QString::fromStdString(name), QString::fromStdString(address));
            entry.summary.insert(QStringLiteral("cleared"), cleared);
            m_audit->write(db, caller, entry);
        });
    });
}

utils::RKError CQuotesService::rekey(const CCaller& caller) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kRekey, CAuditVocabulary::kSecrets);
    return administer(caller, "更换密钥", &entry, [&] {
        const std::shared_ptr<const CSecretBox> old = m_database->secrets();
        m_keys->rekey();
        // The backups follow the key, so that the one key file opens them all.
        m_backups->reseal(*old);
        m_database->transact(true, [&](QSqlDatabase& db) { m_audit->write(db, caller, entry); });
    });
}

utils::RKError CQuotesService::auditEntries(const CCaller& caller, const Hlx::CAuditFilter& filter,
                                            std::vector<Hlx::CAuditEntry>* entries) {
    Hlx::CAuditPage page;
    const utils::RKError error = auditPage(caller, filter, &page);
    entries->swap(page.entries);
    return error;
}

utils::RKError CQuotesService::auditPage(const CCaller& caller, const Hlx::CAuditFilter& filter,
                                         Hlx::CAuditPage* page) {
    *page = Hlx::CAuditPage();
    const CAuditTrail::Entry refusal =
        CAuditTrail::entry(CAuditVocabulary::kRead, CAuditVocabulary::kAuditTrail);
    return administer(caller, "查看操作记录", &refusal, [&] {
        checkAuditAction(filter.action);
        *page = m_audit->read(filter);
    });
}

utils::RKError CQuotesService::pruneAudit(const CCaller& caller, long long beforeMs, int* removed) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kPrune, CAuditVocabulary::kAuditTrail);
    entry.summary.insert(QStringLiteral("before_ms"), double(beforeMs));
    *removed = 0;
    return administer(caller, "清理操作记录", &entry, [&] {
        m_database->transact(true, [&](QSqlDatabase& db) {
            *removed = m_audit->prune(db, beforeMs);
            entry.summary.insert(QStringLiteral("removed"), *removed);
            m_audit->write(db, caller, entry);
        });
    });
}

utils::RKError CQuotesService::checkIntegrity(const CCaller& caller,
                                              std::vector<std::string>* keptValues) {
    const CAuditTrail::Entry refusal =
        CAuditTrail::entry(CAuditVocabulary::kCheck, CAuditVocabulary::kDatabase);
    return administer(caller, "一致性检查", &refusal, [&] {
        QString detail;
        std::vector<std::string> kept;
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
            if (detail.isEmpty())
                kept = storedFaults(db);
        });
        if (!detail.isEmpty())
            throw CServiceError::unavailable(detail.trimmed().toStdString());
        if (keptValues)
            *keptValues = kept;
    });
}

utils::RKError CQuotesService::backupDatabase(const CCaller& caller,
                                              const Hlx::CBackupOptions& options,
                                              std::string* written) {
    CAuditTrail::Entry entry =
        CAuditTrail::entry(CAuditVocabulary::kBackup, CAuditVocabulary::kDatabase);
    return administer(caller, "备份数据库", &entry, [&] {
        if (m_database->engine() == CDatabase::PostgreSQL)
            throw CServiceError("PostgreSQL 数据库请用 pg_dump 备份");
        if (options.file.empty() && backupDir().isEmpty())
            throw CServiceError("没有数据目录可存放备份，请指定备份文件");
        const QString path = options.file.empty() ? CDatabaseBackup::target(backupDir())
                                                  : QString::fromStdString(options.file);
        entry.summary.insert(QStringLiteral("file"), path);
        m_database->transact(true, [&](QSqlDatabase& db) { m_audit->write(db, caller, entry); });
        QSqlDatabase db = m_database->connection();
        CDatabaseBackup::write(*m_database, db, path);
        *written = path.toStdString();
    });
}

std::vector<std::string> CQuotesService::storedFaults(QSqlDatabase& db) const {
    std::vector<std::string> faults;
    for (const auto& data : CQuoteSourceStore(*m_database).query(db, QString(), false, 0)) {
        const auto& source = static_cast<const rkservice::COrinQuoterSourceInfo&>(*data);
        for (const std::string& fault : CSourceValidator::textFaults(source))
            faults.push_back(fault);
    }
    return faults;
}

utils::RKError CQuotesService::status(const CCaller& caller, Hlx::CServiceStatus* status) {
    return answer(caller, nullptr, [&] {
        status->version = Hlx::quotesVersion();
        status->commit = Hlx::quotesCommit();
        status->database = databaseDescription().toStdString();
        status->uptimeMs = m_opened.elapsed();
    });
}

utils::RKError CQuotesService::probeSources(const CCaller& caller, const std::vector<int>& ids,
                                            bool all, std::vector<Hlx::CProbeResult>* results) {
    return answer(caller, nullptr, [&] {
        CProbeTargets::Endpoints endpoints;
        std::set<int> found;
        m_database->transact(false, [&](QSqlDatabase& db) {
            const CProbeTargets targets(*m_database);
            endpoints = all ? targets.all(db) : targets.of(db, ids, &found);
        });
        for (int id : all ? std::vector<int>() : ids) {
            if (found.count(id) == 0)
                throw CServiceError::notFound("行情源不存在: " + std::to_string(id));
        }
        const long long now = QDateTime::currentMSecsSinceEpoch();
        CProbeTargets::Endpoints admitted;
        CProbeTargets::Endpoints recent;
        for (const auto& endpoint : endpoints) {
            const bool admit = m_probeThrottle->admit(
                caller.session(), endpoint.first.first.toStdString(), endpoint.first.second, now);
            (admit ? admitted : recent).insert(endpoint);
        }
        *results = m_prober->probeNow(admitted);
        const std::vector<Hlx::CProbeResult> stored = storedProbes(recent);
        results->insert(results->end(), stored.begin(), stored.end());
    });
}

utils::RKError CQuotesService::probeStatus(const CCaller& caller, const std::string& subsystem,
                                           std::vector<Hlx::CProbeResult>* results) {
    return answer(caller, nullptr, [&] {
        CProbeTargets::Endpoints endpoints;
        m_database->transact(false, [&](QSqlDatabase& db) {
            endpoints = CProbeTargets(*m_database).all(db, QString::fromStdString(subsystem));
        });
        *results = storedProbes(endpoints);
    });
}

utils::RKError CQuotesService::probeHistory(const CCaller& caller, const std::string& address,
                                            int port, long long sinceMs,
                                            std::vector<Hlx::CProbeSample>* samples) {
    return answer(caller, nullptr, [&] {
        // No source connects elsewhere: such a port has no history, and asking is a bad request.
        CSourceValidator::checkPort(port);
        m_database->transact(false, [&](QSqlDatabase& db) {
            *samples = CProbeStore(*m_database)
                           .history(db, QString::fromStdString(address), port, sinceMs);
        });
    });
}

std::vector<Hlx::CProbeResult> CQuotesService::storedProbes(
    const CProbeTargets::Endpoints& endpoints) const {
    std::map<CProbeTargets::Endpoint, Hlx::CProbeResult> stored;
    m_database->transact(false, [&](QSqlDatabase& db) {
        for (Hlx::CProbeResult& result : CProbeStore(*m_database).status(db))
            stored[{QString::fromStdString(result.address), result.port}] = std::move(result);
    });
    std::vector<Hlx::CProbeResult> results;
    for (const auto& [endpoint, ids] : endpoints) {
        Hlx::CProbeResult result;
        const auto found = stored.find(endpoint);
        if (found != stored.end()) {
            result = found->second;
        } else {
            result.address = endpoint.first.toStdString();
            result.port = endpoint.second;
            result.state = CProbeVocabulary::kNotProbed;
            result.error = "尚未探测";
        }
        result.sourceIds = ids;
        results.push_back(std::move(result));
    }
    return results;
}
