#pragma once

#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include "QuotesctlRun.h"
#include "QuotesdProcess.h"

// The build's quotesctl against a running quotesd, logged in as one account whose password it
// reads from a file, as an operator gives it.
class QuotesctlOnServer {
public:
    QuotesctlOnServer(const QuotesdProcess& server, const QString& login, const QString& password)
        : m_address(server.address()), m_login(login) {
        write(m_files.filePath(QStringLiteral("ca.pem")), server.certificatePem());
        write(m_files.filePath(QStringLiteral("password")), password.toUtf8() + '\n');
    }

    static QString program() {
        return qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
    }

    // The whole command line of one command.
    QStringList arguments(const QStringList& command) const {
        return QStringList{QStringLiteral("--server"),
                           m_address,
                           QStringLiteral("--ca"),
                           m_files.filePath(QStringLiteral("ca.pem")),
                           QStringLiteral("--login"),
                           m_login,
                           QStringLiteral("--login-password-file"),
                           m_files.filePath(QStringLiteral("password"))} +
               command;
    }

    QuotesctlRun run(const QStringList& command, const QByteArray& input = QByteArray()) const {
        return QuotesctlRun::start(program(), arguments(command), input);
    }

private:
    static void write(const QString& path, const QByteArray& bytes) {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            file.write(bytes);
    }

    QTemporaryDir m_files;
    QString m_address;
    QString m_login;
};
