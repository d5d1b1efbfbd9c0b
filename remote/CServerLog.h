#pragma once

#include <QString>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "IAdminObserver.h"
#include "IServiceObserver.h"

// quotesd's log of what its clients did: one line per login (ok, refused, locked out), per
// refused request and per change, with the account, the address, the action and the ids, never
// a secret (the audit entries it reads hold none, and a refused change carries no details).
// Under systemd (standard error is the journal's stream) each line is a journal entry with
// structured fields (QUOTES_ACCOUNT, QUOTES_ADDRESS, QUOTES_ACTION, QUOTES_IDS, PRIORITY);
// otherwise a plain line on standard error. Lines below the threshold are left out.
class CServerLog final : public IServiceObserver, public IAdminObserver {
public:
    // syslog's priorities, which the journal's PRIORITY field takes.
    enum class Level { Error = 3, Warning = 4, Notice = 5, Info = 6, Debug = 7 };
    enum class Output { StandardError, Journal };

    struct Fields {
        std::string account;
        std::string address;
        std::string action;
        std::string ids;
    };
    using Writer = std::function<void(const std::string& line)>;

    CServerLog(Level threshold, Output output);
    // Plain lines handed to the writer instead.
    CServerLog(Level threshold, Writer writer);

    // "error", "warning", "notice", "info" or "debug"; false for anything else.
    static bool parseLevel(const QString& name, Level* level);
    static const char* levelName(Level level);
    // Whether standard error is the journal's stream: systemd then sets JOURNAL_STREAM to the
    // stream's device and inode.
    static bool journalAttached();

    bool enabled(Level level) const { return int(level) <= int(m_threshold); }
    void write(Level level, const std::string& message, const Fields& fields = Fields()) const;

    // "quotesd: notice: modify quote_source account=admin address=10.0.0.5 ids=3,4"; a value
    // with a space, quote, backslash or control character is quoted.
    static std::string plainLine(Level level, const std::string& message, const Fields& fields);
    // One journal entry: MESSAGE, PRIORITY, SYSLOG_IDENTIFIER and the QUOTES_ fields given.
    static std::vector<std::string> journalFields(Level level, const std::string& message,
                                                  const Fields& fields);

    // Sends Qt's messages (qWarning and the like) through the log from now on, until the log
    // is destroyed.
    void takeQtMessages();

    ~CServerLog() override;

    void statementRan(std::chrono::nanoseconds) override {}
    void groupCommitted(std::size_t) override {}
    void recorded(const Hlx::CAuditEntry& entry, bool repeat) override;
    void loginAnswered(const std::string& name, const std::string& address, LoginOutcome outcome,
                       const std::string& refusal) override;
    void eventStreamsChanged(int) override {}

private:
    void emitLine(Level level, const std::string& message, const Fields& fields) const;

    const Level m_threshold;
    const Output m_output;
    const Writer m_writer;
    mutable std::mutex m_mutex;
    bool m_tookQtMessages = false;
};
