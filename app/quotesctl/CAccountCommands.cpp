#include "CAccountCommands.h"

#include <QJsonArray>
#include <QJsonObject>

#include "CCtlArguments.h"
#include "CCtlError.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "Hlx/IQuotesAdmin.h"

std::string CAccountCommands::name(const CCtlSession& session) {
    return session.arguments().positional().front().toStdString();
}

void CAccountCommands::list(CCtlSession& session) {
    std::vector<Hlx::CAdminAccount> accounts;
    CCtlError::check(session.admin().accounts(&accounts));
    QJsonArray array;
    QList<QStringList> rows;
    for (const Hlx::CAdminAccount& account : accounts) {
        const QString name = QString::fromStdString(account.user->m_strName);
        const std::set<int>& rights = account.user->m_rights;
        array.append(QJsonObject{{QStringLiteral("name"), name},
                                 {QStringLiteral("systemId"), account.user->m_nSystemId},
                                 {QStringLiteral("enabled"), account.enabled},
                                 {QStringLiteral("rights"), CCtlOutput::rightsJson(rights)}});
        rows << QStringList{name, QString::number(account.user->m_nSystemId),
                            account.enabled ? QStringLiteral("yes") : QStringLiteral("no"),
                            CCtlOutput::rightsCell(rights)};
    }
    if (session.arguments().has(CCtlOption::kJson))
        CCtlOutput::printJson(array);
    else
        CCtlOutput::printTable({QStringLiteral("NAME"), QStringLiteral("SYSTEM_ID"),
                                QStringLiteral("ENABLED"), QStringLiteral("RIGHTS")},
                               rows);
}

void CAccountCommands::password(CCtlSession& session) {
    QByteArray password =
        CCtlSession::passwordFrom(session.arguments().text(CCtlOption::kPasswordFile));
    const utils::RKError error = session.admin().setPassword(name(session), password.toStdString());
    password.fill('\0');
    CCtlError::check(error);
}

void CAccountCommands::enable(CCtlSession& session) {
    CCtlError::check(session.admin().setAccountEnabled(name(session), true));
}

void CAccountCommands::disable(CCtlSession& session) {
    CCtlError::check(session.admin().setAccountEnabled(name(session), false));
}

void CAccountCommands::unlock(CCtlSession& session) {
    const QStringList& positional = session.arguments().positional();
    const std::string account = positional.isEmpty() ? std::string() : name(session);
    const std::string address = session.arguments().text(CCtlOption::kAddress).toStdString();
    if (account.empty() && address.empty())
        throw CCtlError::usage(QStringLiteral("accounts unlock needs NAME or --address A"));
    CCtlError::check(session.admin().unlockLogins(account, address));
}

void CAccountCommands::rights(CCtlSession& session) {
    CCtlError::check(
        session.admin().setRights(name(session), session.arguments().rights(CCtlOption::kRights)));
}
