#pragma once

#include <QSqlDatabase>
#include <QString>

#include "CServiceOptions.h"

class CDatabase;

// The key file of the stored secrets and its life: found or made when the database opens,
// proved against the database's check value, replaced by a rekey.
class CSecretKeys {
public:
    CSecretKeys(CDatabase& database, const CServiceOptions& options);

    const QString& keyFile() const { return m_keyFile; }
    // In the opening transaction: loads the key (creating one for a database that has nothing
    // sealed yet, version 0 being an empty one) and proves it; throws with the operator's text
    // when it fails.
    void unlock(QSqlDatabase& db, int version) const;
    // Seals every stored secret under a new key in one transaction and replaces the key file.
    void rekey() const;

private:
    static QString path(const CServiceOptions& options, const CDatabase& database);
    QString pendingFile() const;
    // Uses the key file at path when it opens the database's secrets.
    bool tryKey(QSqlDatabase& db, const QString& path) const;

    CDatabase& m_database;
    QString m_keyFile;
};
