#include "CServerLog.h"

#include <sys/stat.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <QtGlobal>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "model/CAuditVocabulary.h"

namespace {

const char* const kIdentifier = "quotesd";

struct LevelName {
    CServerLog::Level level;
    const char* name;
};

const LevelName kLevels[] = {{CServerLog::Level::Error, "error"},
                             {CServerLog::Level::Warning, "warning"},
                             {CServerLog::Level::Notice, "notice"},
                             {CServerLog::Level::Info, "info"},
                             {CServerLog::Level::Debug, "debug"}};

bool needsQuotes(const std::string& value) {
    return value.empty() || std::any_of(value.begin(), value.end(), [](char c) {
               return c == ' ' || c == '"' || c == '\\' || (unsigned char)(c) < 0x20 || c == 0x7f;
           });
}

// A value as one word of a plain line: control characters escaped, so one entry stays one line.
std::string quoted(const std::string& value) {
    if (!needsQuotes(value))
        return value;
    std::string out = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if ((unsigned char)(c) < 0x20 || c == 0x7f) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", unsigned((unsigned char)(c)));
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

// The message itself cut at its first line end: a field carries the rest, if anything.
std::string oneLine(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return line;
}

std::vector<std::pair<const char*, std::string>> namedFields(const CServerLog::Fields& fields) {
    return {{"ACCOUNT", fields.account},
            {"ADDRESS", fields.address},
            {"ACTION", fields.action},
            {"IDS", fields.ids}};
}

bool isReadAction(const std::string& action) {
    return std::any_of(std::begin(CAuditVocabulary::kReadActions),
                       std::end(CAuditVocabulary::kReadActions),
                       [&](const char* read) { return action == read; });
}

std::atomic<const CServerLog*> g_qtLog{nullptr};

void qtMessage(QtMsgType type, const QMessageLogContext&, const QString& text) {
    const CServerLog* log = g_qtLog;
    std::string message = text.toStdString();
    const std::string prefix = std::string(kIdentifier) + ": ";
    if (message.compare(0, prefix.size(), prefix) == 0)
        message.erase(0, prefix.size());
    const CServerLog::Level level = type == QtDebugMsg     ? CServerLog::Level::Debug
                                    : type == QtInfoMsg    ? CServerLog::Level::Info
                                    : type == QtWarningMsg ? CServerLog::Level::Warning
                                                           : CServerLog::Level::Error;
    if (log)
        log->write(level, message);
    else
        std::fprintf(stderr, "%s\n", CServerLog::plainLine(level, message, {}).c_str());
}

}  // namespace

CServerLog::CServerLog(Level threshold, Output output) : m_threshold(threshold), m_output(output) {}

CServerLog::CServerLog(Level threshold, Writer writer)
    : m_threshold(threshold), m_output(Output::StandardError), m_writer(std::move(writer)) {}

CServerLog::~CServerLog() {
    if (m_tookQtMessages) {
        g_qtLog = nullptr;
        qInstallMessageHandler(nullptr);
    }
}

bool CServerLog::parseLevel(const QString& name, Level* level) {
    for (const LevelName& known : kLevels) {
        if (name == QLatin1String(known.name)) {
            *level = known.level;
            return true;
        }
    }
    return false;
}

const char* CServerLog::levelName(Level level) {
    for (const LevelName& known : kLevels)
        if (known.level == level)
            return known.name;
    return "info";
}

bool CServerLog::journalAttached() {
    const char* stream = std::getenv("JOURNAL_STREAM");
    if (!stream)
        return false;
    unsigned long long device = 0, inode = 0;
    if (std::sscanf(stream, "%llu:%llu", &device, &inode) != 2)
        return false;
    struct stat error {};
    return ::fstat(STDERR_FILENO, &error) == 0 && error.st_dev == dev_t(device) &&
           error.st_ino == ino_t(inode);
}

void CServerLog::takeQtMessages() {
    g_qtLog = this;
    m_tookQtMessages = true;
    qInstallMessageHandler(qtMessage);
}

std::string CServerLog::plainLine(Level level, const std::string& message, const Fields& fields) {
    std::string line = std::string(kIdentifier) + ": " + levelName(level) + ": " + oneLine(message);
    for (const auto& field : namedFields(fields)) {
        if (field.second.empty())
            continue;
        std::string key = field.first;
        std::transform(key.begin(), key.end(), key.begin(), ::tolower);
        line += " " + key + "=" + quoted(field.second);
    }
    return line;
}

std::vector<std::string> CServerLog::journalFields(Level level, const std::string& message,
                                                   const Fields& fields) {
    std::vector<std::string> out{"MESSAGE=" + message, "PRIORITY=" + std::to_string(int(level)),
                                 std::string("SYSLOG_IDENTIFIER=") + kIdentifier};
    for (const auto& field : namedFields(fields))
        if (!field.second.empty())
            out.push_back(std::string("QUOTES_") + field.first + "=" + field.second);
    return out;
}

void CServerLog::write(Level level, const std::string& message, const Fields& fields) const {
    if (enabled(level))
        emitLine(level, message, fields);
}

void CServerLog::emitLine(Level level, const std::string& message, const Fields& fields) const {
    if (m_output == Output::Journal) {
        const std::vector<std::string> entry = journalFields(level, message, fields);
        std::vector<iovec> parts;
        for (const std::string& field : entry)
            parts.push_back({const_cast<char*>(field.data()), field.size()});
        sd_journal_sendv(parts.data(), int(parts.size()));
        return;
    }
    const std::string line = plainLine(level, message, fields);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_writer) {
        m_writer(line);
        return;
    }
    std::fprintf(stderr, "%s\n", line.c_str());
    std::fflush(stderr);
}

void CServerLog::loginAnswered(const std::string& name, const std::string& address,
                               LoginOutcome outcome, const std::string& refusal) {
    const Fields fields{name, address, CAuditVocabulary::kLogin, std::string()};
    switch (outcome) {
        case LoginOutcome::Ok:
            write(Level::Info, "login ok", fields);
            break;
        case LoginOutcome::Locked:
            write(Level::Warning, "login locked out: " + refusal, fields);
            break;
        case LoginOutcome::Refused:
            write(Level::Notice, "login refused: " + refusal, fields);
            break;
    }
}

void CServerLog::recorded(const Hlx::CAuditEntry& entry, bool repeat) {
    const bool login = entry.action == CAuditVocabulary::kLogin;
    // Logins are told by loginAnswered, which knows a lockout from a refusal; a refusal of the
    // login action without an account is a call without a valid login.
    if (login && !entry.account.empty())
        return;
    Fields fields{entry.account, entry.clientAddress, entry.action, entry.ids};
    const std::string what = entry.action + " " + entry.dataType +
                             (entry.subsystem.empty() ? "" : " in " + entry.subsystem);
    if (login) {
        fields.action = "unauthenticated";
        write(Level::Warning, "refused a call without a valid login: " + entry.error, fields);
    } else if (!entry.error.empty()) {
        write(Level::Warning,
              "refused " + what + ": " + entry.error + (repeat ? " (again within the minute)" : ""),
              fields);
    } else if (entry.dataType == CAuditVocabulary::kSession || isReadAction(entry.action)) {
        write(Level::Info, what, fields);
    } else {
        write(Level::Notice, what, fields);
    }
}
