#include "CCtlCommand.h"

#include "CCtlCheck.h"

CCtlCommand::CCtlCommand(const QStringList& words, Run run)
    : m_words(words), m_run(run), m_check(&CCtlCheck::standard) {}

CCtlCommand& CCtlCommand::add(CCtlOption::Id id, Presence presence, const char* message) {
    m_options.push_back({id, presence, m_alternative, QString::fromUtf8(message)});
    return *this;
}

CCtlCommand& CCtlCommand::option(CCtlOption::Id id) {
    return add(id, Presence::Optional, "");
}

CCtlCommand& CCtlCommand::required(CCtlOption::Id id, const char* message) {
    return add(id, Presence::Required, message);
}

CCtlCommand& CCtlCommand::hidden(CCtlOption::Id id) {
    return add(id, Presence::Hidden, "");
}

CCtlCommand& CCtlCommand::ignored(CCtlOption::Id id) {
    return add(id, Presence::Ignored, "");
}

CCtlCommand& CCtlCommand::refused(CCtlOption::Id id, const char* message) {
    return add(id, Presence::Refused, message);
}

CCtlCommand& CCtlCommand::alternative() {
    ++m_alternative;
    return *this;
}

CCtlCommand& CCtlCommand::positional(PositionalKind kind, const char* name, int min, int max,
                                     const char* suffix) {
    m_positional = {kind, QString::fromUtf8(name), min,
                    max,  int(m_options.size()),   QString::fromUtf8(suffix)};
    return *this;
}

CCtlCommand& CCtlCommand::arity(const char* message) {
    m_arity = QString::fromUtf8(message);
    return *this;
}

CCtlCommand& CCtlCommand::checkedBy(Check check) {
    m_check = check;
    return *this;
}

CCtlCommand& CCtlCommand::withoutLogin() {
    m_withoutLogin = true;
    return *this;
}

CCtlCommand& CCtlCommand::changesData() {
    m_changes = true;
    return *this;
}

CCtlCommand& CCtlCommand::needs(int right) {
    m_right = right;
    return *this;
}

CCtlCommand& CCtlCommand::localOnly(const char* message) {
    m_localOnly = QString::fromUtf8(message);
    return *this;
}

CCtlCommand& CCtlCommand::withoutDatabase() {
    m_opensDatabase = false;
    return *this;
}

CCtlCommand& CCtlCommand::help(const char* lines) {
    m_help = QString::fromUtf8(lines);
    return *this;
}

CCtlCommand& CCtlCommand::note(const char* lines) {
    m_note = QString::fromUtf8(lines);
    return *this;
}

const CCtlCommand::Option* CCtlCommand::find(CCtlOption::Id id) const {
    for (const Option& option : m_options) {
        if (option.id == id)
            return &option;
    }
    return nullptr;
}

std::set<CCtlOption::Id> CCtlCommand::accepted() const {
    std::set<CCtlOption::Id> ids;
    for (const Option& option : m_options)
        ids.insert(option.id);
    return ids;
}

QString CCtlCommand::presenceMessage(const Option& option) const {
    const CCtlOption& o = CCtlOption::of(option.id);
    QString message = option.message.isEmpty() ? QStringLiteral("%2 needs %1") : option.message;
    return message.replace(QLatin1String("%1"), o.flag())
        .replace(QLatin1String("%2"), name())
        .replace(QLatin1String("%3"), QLatin1String(o.metavar));
}
