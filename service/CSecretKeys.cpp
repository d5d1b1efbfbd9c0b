#include "CSecretKeys.h"

#include <QFile>
#include <QFileInfo>
#include <cstdio>
#include <memory>

#include "CDatabase.h"
#include "CQuotesService.h"
#include "CSecretBox.h"
#include "CSecretColumns.h"
#include "CSecretKeyFile.h"
#include "CServiceError.h"

CSecretKeys::CSecretKeys(CDatabase& database, const CServiceOptions& options)
    : m_database(database), m_keyFile(path(options, database)) {}

QString CSecretKeys::path(const CServiceOptions& options, const CDatabase& database) {
    if (!options.secretsKeyFile.isEmpty())
        return options.secretsKeyFile;
    if (database.engine() == CDatabase::SQLite)
        return CSecretKeyFile::defaultPath(QFileInfo(database.filePath()).absolutePath());
    return CSecretKeyFile::defaultPath(options.dataDir.isEmpty() ? CQuotesService::defaultDataDir()
                                                                 : options.dataDir);
}

QString CSecretKeys::pendingFile() const {
    return m_keyFile + QStringLiteral(".new");
}

bool CSecretKeys::tryKey(QSqlDatabase& db, const QString& path) const {
    if (!CSecretKeyFile::exists(path))
        return false;
    auto box = std::make_shared<CSecretBox>(CSecretKeyFile::read(path));
    if (!CSecretColumns::matches(m_database, db, *box))
        return false;
    m_database.setSecrets(box);
    return true;
}

void CSecretKeys::unlock(QSqlDatabase& db, int version) const {
    const std::string file = m_keyFile.toStdString();
    if (version == 0 || !CSecretColumns::hasCheck(m_database, db)) {
        // Nothing sealed yet (a new database, or one from before secrets were sealed): the key
        // the file holds, or a new one.
        if (!CSecretKeyFile::exists(m_keyFile))
            CSecretKeyFile::create(m_keyFile, CSecretBox::generate());
        m_database.setSecrets(std::make_shared<CSecretBox>(CSecretKeyFile::read(m_keyFile)));
        return;
    }
    if (!CSecretKeyFile::exists(m_keyFile) && !CSecretKeyFile::exists(pendingFile()))
        throw CServiceError::unavailable(
            "缺少密钥文件 " + file +
            "：数据库中的密码已加密，需要创建数据库时（或上次更换密钥后）的密钥文件");
    if (tryKey(db, m_keyFile))
        return;
    // A key change that committed but whose new key file was not yet moved into place.
    if (tryKey(db, pendingFile())) {
        CSecretKeyFile::write(m_keyFile, *m_database.secrets());
        QFile::remove(pendingFile());
        return;
    }
    throw CServiceError::unavailable("密钥文件 " + file +
                                     " 与数据库不符，拒绝打开（密码无法解密）");
}

void CSecretKeys::rekey() const {
    const auto old = m_database.secrets();
    const CSecretBox fresh = CSecretBox::generate();
    // The new key is on disk before the change commits, so no crash can leave the database
    // sealed under a key that exists nowhere.
    CSecretKeyFile::write(pendingFile(), fresh);
    try {
        m_database.transact(true, [&](QSqlDatabase& db) {
            CSecretColumns::reseal(
                m_database, db, [&](const QString& stored) { return old->open(stored); }, fresh);
        });
    } catch (...) {
        QFile::remove(pendingFile());
        throw;
    }
    m_database.setSecrets(std::make_shared<CSecretBox>(fresh));
    if (::rename(QFile::encodeName(pendingFile()).constData(),
                 QFile::encodeName(m_keyFile).constData()) != 0)
        throw CServiceError::unavailable("密钥已更换，但无法改名为 " + m_keyFile.toStdString() +
                                         "，新密钥在 " + pendingFile().toStdString());
}
