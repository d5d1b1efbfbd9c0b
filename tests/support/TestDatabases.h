#pragma once

#include <QTemporaryDir>
#include <QtTest>
#include <memory>

#include "CServiceOptions.h"
#include "PostgresCluster.h"

// The databases of a service test: a fresh SQLite file in a temporary directory each time, or,
// when a cluster is given, a fresh database of that PostgreSQL cluster (with a data directory
// beside it for what the service keeps in files).
class TestDatabases {
public:
    TestDatabases(QString prefix, PostgresCluster* postgres, QString postgresDown)
        : m_prefix(std::move(prefix)), m_postgres(postgres), m_down(std::move(postgresDown)) {}

    // For initTestCase: true when the run cannot go on because the cluster is down; the run is
    // then skipped, or failed in CI, where the cluster must start.
    bool unavailable() const {
        if (!m_postgres || m_down.isEmpty())
            return false;
        if (qEnvironmentVariable("CI") == QLatin1String("true"))
            QTest::qFail(qPrintable(m_down), __FILE__, __LINE__);
        else
            QTest::qSkip(qPrintable(m_down), __FILE__, __LINE__);
        return true;
    }

    // The options of a new empty database; its data directory lasts until the next call.
    CServiceOptions fresh() {
        m_dir.reset(new QTemporaryDir);
        CServiceOptions options;
        options.dataDir = m_dir->path();
        if (m_postgres) {
            const QString name = QStringLiteral("%1_%2").arg(m_prefix).arg(++m_count);
            if (!m_postgres->createDatabase(name))
                qWarning("cannot create database %s", qPrintable(name));
            options.dbUrl = m_postgres->url(name);
        }
        return options;
    }

    void release() { m_dir.reset(); }

    // Runs the suite on SQLite, then its PostgreSQL variant on a cluster of its own.
    template <class OnSqlite, class OnPostgres>
    static int runBoth(int argc, char** argv) {
        int status = 0;
        {
            OnSqlite onSqlite;
            status |= QTest::qExec(&onSqlite, argc, argv);
        }
        PostgresCluster postgres;
        const QString down = postgres.start();
        OnPostgres onPostgres(&postgres, down);
        status |= QTest::qExec(&onPostgres, argc, argv);
        return status;
    }

private:
    QString m_prefix;
    PostgresCluster* m_postgres;
    QString m_down;
    int m_count = 0;
    std::unique_ptr<QTemporaryDir> m_dir;
};
