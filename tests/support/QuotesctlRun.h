#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>

// One run of quotesctl as a process: its exit code (-1 when it did not end normally) and what
// it wrote.
struct QuotesctlRun {
    int code = -1;
    QByteArray out;
    QByteArray err;

    static QuotesctlRun start(const QString& program, const QStringList& arguments,
                              const QByteArray& input = QByteArray()) {
        QProcess process;
        process.start(program, arguments);
        QuotesctlRun result;
        if (!process.waitForStarted())
            return result;
        if (!input.isEmpty())
            process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000))
            process.kill();
        result.code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }
};
