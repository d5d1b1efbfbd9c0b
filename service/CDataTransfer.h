#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QString>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CAccountStore.h"
#include "CWholeQuoteStore.h"
#include "Hlx/IDataServiceBackend.h"
#include "Hlx/IQuotesAdmin.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CDatabase;

// The whole content of the service as one JSON document (backup, migration between engines),
// and its replacement from one.
class CDataTransfer {
public:
    using User = CAccountStore::Row;
    // A parsed and checked document.
    struct Content {
        std::vector<Hlx::SubsystemInfo> subsystems;
        std::map<int, bool> loginTypeAuth;
        QJsonArray platforms;
        QJsonArray brokers;
        std::vector<std::pair<QString, rkservice::COrinQuoterSourceInfo>> sources;
        std::map<QString, CWholeQuoteStore::Flags> wholeQuote;
        bool hasToken = false;
        bool keepsToken = false;  // the document showed the token masked
        QString level2Token;
        std::vector<User> users;
        // The values kept although they break a rule of today (an earlier release accepted
        // them), each with the rule: "行情源 18: 密码不能含控制字符".
        std::vector<std::string> keptValues;
    };

    static QJsonObject exportAll(const CDatabase& database, QSqlDatabase& db);
    // The document without secrets: sources without passwords, no token, accounts without a
    // password hash (their key left out, so that an import keeps the stored one).
    static QJsonObject withoutSecrets(QJsonObject document);
    // The document with its token (if any) shown as "******", which an import reads as "keep the
    // stored token".
    static QJsonObject withMaskedToken(QJsonObject document);
    // One source as it stands in the document (and in quotesctl's JSON listings).
    static QJsonObject sourceToJson(const rkservice::COrinQuoterSourceInfo& source);
    // Reads and checks a document completely; throws CServiceError naming the first fault.
    static Content parse(const QJsonObject& document);
    // The stored content (as exportAll wrote it) with the named sections taken from the
    // document, which must be of this format version and hold each of them; throws
    // CServiceError naming an unknown or missing section.
    static QJsonObject withSections(QJsonObject stored, const QJsonObject& document,
                                    const std::vector<std::string>& sections);
    // Replaces everything with the content; runs in the caller's transaction. Accounts the
    // content names keep their password, enabled flag and logins. Refused when it would leave no
    // enabled account with the administrator right where one had it.
    static void importAll(const CDatabase& database, QSqlDatabase& db, const Content& content);

    // Per section, what replacing the content before with the content after changes; both
    // are documents written by exportAll.
    static std::vector<Hlx::CSectionChange> changes(const QJsonObject& before,
                                                    const QJsonObject& after);

private:
    static void parseSubsystems(const QJsonObject& document, Content* content);
    static void parseSources(const QJsonObject& document, Content* content);
    static void parseWholeQuote(const QJsonObject& document, Content* content);
    static void parseUsers(const QJsonObject& document, int version, Content* content);
    static QJsonArray sourcesToJson(const CDatabase& database, QSqlDatabase& db);
};
