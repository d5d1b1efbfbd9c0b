#pragma once

#include <QJsonObject>
#include <QSqlDatabase>
#include <QString>
#include <boost/shared_ptr.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CServiceOptions.h"
#include "Hlx/IDataServiceBackend.h"
#include "rkservice/CUserInfo.h"

class CDatabase;

// The platform's data service: answers the client centre's requests from a SQLite file or a
// PostgreSQL database. Thread-safe; each worker thread uses its own connection.
class CQuotesService : public Hlx::IDataServiceBackend {
public:
    // Opens (creating, migrating and seeding as needed) the database the options name. Null with
    // *error set when it cannot be used.
    static boost::shared_ptr<CQuotesService> open(const CServiceOptions& options, QString* error);
    // Where the console and quotesctl keep the database by default.
    static QString defaultDataDir();

    ~CQuotesService() override;

    // Hlx::IDataServiceBackend
    void query(const Hlx::CRequestTarget& target, const rkservice::COrinQueryDataReq& request,
               const Hlx::CQueryAnswer& answer) override;
    void operate(const Hlx::CRequestTarget& target, const rkservice::COperateDataReq& request,
                 const Hlx::COperateAnswer& answer) override;
    std::vector<Hlx::SubsystemInfo> subsystems() const override;
    bool hasClientLoginTypeAuth(int loginType) const override;

    // The same requests, answered on the calling thread.
    utils::RKError querySync(const Hlx::CRequestTarget& target,
                             const rkservice::COrinQueryDataReq& request,
                             std::vector<rkservice::IDataPtr>* datas);
    utils::RKError operateSync(const Hlx::CRequestTarget& target,
                               const rkservice::COperateDataReq& request,
                               bson::BSONObj* result = nullptr);

    // "SQLite /path/quotes.db" or "PostgreSQL db@host:port".
    QString databaseDescription() const;
    // The SQLite file, empty for PostgreSQL.
    QString databaseFile() const;

    // The platform's users, by name.
    std::vector<rkservice::CUserInfoPtr> users(QString* error = nullptr);

    // Whether clients count as logged in with the login type (0: plain product names). Kept in
    // the database.
    bool setLoginTypeAuth(int loginType, bool granted, QString* error = nullptr);

    // Replaces the sub-systems (first = default). Refused when a removed one still holds sources.
    bool setSubsystems(const std::vector<Hlx::SubsystemInfo>& subsystems, QString* error = nullptr);

    // The whole content as one JSON document, and its replacement by one (checked first, applied
    // all or nothing).
    bool exportDocument(QJsonObject* document, QString* error = nullptr);
    bool importDocument(const QJsonObject& document, QString* error = nullptr);

    // The database's own consistency check (SQLite integrity_check); true when it passes.
    bool checkIntegrity(QString* error = nullptr);

private:
    CQuotesService();

    void initialise(bool seed);
    void reloadCaches(QSqlDatabase& db);
    QString resolveTarget(const Hlx::CRequestTarget& target) const;
    QString defaultSubsystem() const;
    bool knowsSubsystem(const QString& name) const;

    std::vector<rkservice::IDataPtr> doQuery(const Hlx::CRequestTarget& target,
                                             const rkservice::COrinQueryDataReq& request);
    void doOperate(const Hlx::CRequestTarget& target, const rkservice::COperateDataReq& request,
                   bson::BSONObj* result);
    void operateSources(const Hlx::CRequestTarget& target,
                        const rkservice::COperateDataReq& request, bson::BSONObj* result);
    void operateToken(const rkservice::COperateDataReq& request);
    void operatePermission(const Hlx::CRequestTarget& target,
                           const rkservice::COperateDataReq& request);

    std::unique_ptr<CDatabase> m_database;
    mutable std::mutex m_cacheMutex;
    std::vector<Hlx::SubsystemInfo> m_subsystems;
    std::map<int, bool> m_loginTypeAuth;
};
