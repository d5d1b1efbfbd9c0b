#include "CCtlSession.h"

#include <QFile>
#include <boost/make_shared.hpp>
#include <cstdio>

#include "CCtlError.h"
#include "CCtlGlobals.h"
#include "CEmbeddedAdmin.h"
#include "CQuotesService.h"
#include "CRemoteAdmin.h"

CCtlSession CCtlSession::open(const CCtlGlobals& globals, const CCtlArguments& arguments) {
    CCtlSession session = withoutOpening(globals, arguments);
    if (globals.remote()) {
        session.m_remote = login(globals);
        session.m_admin = session.m_remote;
        return session;
    }
    // On its own database file quotesctl acts with every right: its user could change the file
    // anyway.
    QString error;
    session.m_service = CQuotesService::open(globals.service, &error);
    if (!session.m_service)
        throw CCtlError::unavailable(error);
    session.m_admin = CEmbeddedAdmin::asOwner(session.m_service);
    return session;
}

CCtlSession CCtlSession::withoutOpening(const CCtlGlobals& globals,
                                        const CCtlArguments& arguments) {
    CCtlSession session;
    session.m_arguments = &arguments;
    session.m_globals = &globals;
    return session;
}

void CCtlSession::end() {
    // What the command printed stands: a logout that fails changes nothing of it.
    if (m_remote && m_remote->isLoggedIn())
        m_remote->logout();
}

boost::shared_ptr<CRemoteAdmin> CCtlSession::login(const CCtlGlobals& globals) {
    QByteArray ca;
    if (!globals.caFile.isEmpty()) {
        QFile file(globals.caFile);
        if (!file.open(QIODevice::ReadOnly))
            throw CCtlError::unavailable(
                QStringLiteral("无法读取证书文件: %1").arg(globals.caFile));
        ca = file.readAll();
    }
    QByteArray password;
    try {
        password = passwordFrom(globals.passwordFile);
    } catch (const CCtlError& error) {
        throw CCtlError::unavailable(error.message());
    }
    std::vector<std::string> servers;
    for (const QString& server : globals.servers)
        servers.push_back(server.toStdString());
    auto remote = boost::make_shared<CRemoteAdmin>(servers, ca.toStdString());
    const utils::RKError login = remote->login(globals.login.toStdString(), password.toStdString());
    password.fill('\0');
    if (!login.isSuccess())
        throw CCtlError::whileConnecting(login);
    return remote;
}

QByteArray CCtlSession::passwordFrom(const QString& file) {
    QByteArray password;
    if (!readFirstLine(file, &password))
        throw CCtlError::refused(QStringLiteral("无法读取密码文件: %1").arg(file));
    return password;
}

bool CCtlSession::openInput(QFile* file, const QString& name) {
    if (name == QLatin1String("-"))
        return file->open(stdin, QIODevice::ReadOnly);
    file->setFileName(name);
    return file->open(QIODevice::ReadOnly);
}

bool CCtlSession::readFirstLine(const QString& name, QByteArray* line) {
    QFile file;
    if (!openInput(&file, name))
        return false;
    // A trailing line end is not part of the secret.
    *line = file.readLine();
    while (line->endsWith('\n') || line->endsWith('\r'))
        line->chop(1);
    return true;
}
