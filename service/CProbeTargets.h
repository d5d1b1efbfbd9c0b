#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QVariantList>
#include <map>
#include <set>
#include <utility>
#include <vector>

class CDatabase;

// Where the stored sources connect: a stock source's own address and port, a broker's source
// each address of the server group it names. Many sources may share one address: it is listed
// once, with every source that connects there. Runs inside the caller's transaction.
class CProbeTargets {
public:
    using Endpoint = std::pair<QString, int>;
    using Endpoints = std::map<Endpoint, std::vector<int>>;

    explicit CProbeTargets(const CDatabase& database) : m_database(database) {}

    // Every stored source's endpoints, of one sub-system (all when empty).
    Endpoints all(QSqlDatabase& db, const QString& subsystem = QString()) const;
    // The endpoints of the sources with these ids; found (may be null) gets the ids stored.
    Endpoints of(QSqlDatabase& db, const std::vector<int>& ids, std::set<int>* found) const;

    // "host:port" or "[v6]:port" of a server group; false when it is neither.
    static bool split(const QString& text, Endpoint* out);

private:
    void read(QSqlDatabase& db, const QString& where, const QVariantList& values, Endpoints* into,
              std::set<int>* found = nullptr) const;

    const CDatabase& m_database;
};
