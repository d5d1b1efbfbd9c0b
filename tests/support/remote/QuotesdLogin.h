#pragma once

#include <QString>
#include <QtGlobal>
#include <memory>
#include <string>

#include "CRemoteAdmin.h"
#include "QuotesdProcess.h"

// A test's client of a running quotesd, logged in as the account (a warning when it could not).
inline std::unique_ptr<CRemoteAdmin> loggedInTo(const QuotesdProcess& server,
                                                const std::string& name, const QString& password) {
    auto admin =
        std::make_unique<CRemoteAdmin>(std::vector<std::string>{server.address().toStdString()},
                                       server.certificatePem().toStdString());
    const utils::RKError error = admin->login(name, password.toStdString());
    if (!error.isSuccess())
        qWarning("%s", error.errorMsg().c_str());
    return admin;
}

// Sets a server up with the administrator's and the viewer's passwords and starts it; false
// with what it said in *output when a step failed.
inline bool startWithViewer(QuotesdProcess& server, const QString& adminPassword,
                            const QString& viewerPassword, QString* output) {
    return server.init(adminPassword, output) &&
           server.setPassword(QStringLiteral("viewer"), viewerPassword) && server.start();
}
