#pragma once

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QStringList>

// Runs the quotesctl of the build as a process of its own: its exit code and both outputs.
class QuotesctlRunner {
public:
    struct Result {
        int code = -1;
        QByteArray out;
        QByteArray err;
    };

    static QString program() {
        const QString built =
            qEnvironmentVariable("QUOTES_BINARY_DIR") + QStringLiteral("/bin/quotesctl");
        return QFileInfo::exists(built)
                   ? built
                   : QCoreApplication::applicationDirPath() + QStringLiteral("/quotesctl");
    }

    // Standard input is the given bytes, then closed.
    static Result run(const QStringList& arguments, const QByteArray& input = QByteArray()) {
        QProcess process;
        process.start(program(), arguments);
        Result result;
        if (!process.waitForStarted())
            return result;
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000))
            process.kill();
        if (process.exitStatus() == QProcess::NormalExit)
            result.code = process.exitCode();
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }
};
