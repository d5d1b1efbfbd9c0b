#pragma once

#include <signal.h>

#include <QString>

#include "CDaemonOptions.h"

class CQuotesService;
class CServedCertificate;
class CSystemdNotifier;
struct CServiceOptions;

// quotesd's commands: set a server up, reset a password, serve.
class CQuotesDaemon {
public:
    enum ExitCode { kOk = 0, kFailed = 1, kUsage = 2 };

    explicit CQuotesDaemon(const CDaemonOptions& options) : m_options(options) {}

    int run();

private:
    int init();
    int resetPassword();
    int serve();
    // Waits for SIGTERM or SIGINT; a SIGHUP meanwhile reads the settings again.
    void awaitStop(const sigset_t& waited, CQuotesService& service,
                   CServedCertificate& certificate, const CSystemdNotifier& systemd,
                   const QString& serving) const;

    CServiceOptions serviceOptions() const;
    // The caps of the options within the open files this process may hold, said in the log.
    CServerLimits fittedLimits(const CQuotesService& service) const;
    // --probe-allow and --probe-interval.
    void startProbing(CQuotesService& service) const;
    // The data directory with mode 0700, created when absent.
    bool prepareDataDir(QString* error) const;
    // Copies the key named by --secrets-key into the data directory.
    bool adoptSecretsKey(QString* error) const;
    int fail(const QString& message) const;

    CDaemonOptions m_options;
};
