#include "CCtlParser.h"

#include "CCtlCheck.h"
#include "CCtlCommandTable.h"
#include "CCtlError.h"

bool CCtlParser::parse(const QStringList& arguments) {
    m_command = nullptr;
    m_globals = CCtlGlobals();
    QStringList rest = arguments;
    if (m_globals.take(&rest))
        return false;
    m_globals.check();
    if (rest.isEmpty())
        throw CCtlError::usage(QStringLiteral("no command given"));
    // The command line is checked before the database is touched, so a typo never creates one.
    const CCtlCommand& command = takeArguments(select(&rest), rest);
    if (command.needsLogin())
        m_globals.checkLogin();
    command.checker()(command, m_arguments, m_globals);
    CCtlCheck::inputs(command, m_arguments, m_globals);
    m_command = &command;
    return true;
}

const CCtlCommand& CCtlParser::select(QStringList* rest) const {
    const QString group = rest->takeFirst();
    if (!CCtlCommandTable::groups().contains(group))
        throw CCtlError::usage(QStringLiteral("unknown command \"%1\"").arg(group));
    if (const CCtlCommand* command = CCtlCommandTable::find({group}))
        return *command;
    if (rest->isEmpty())
        throw CCtlError::usage(QStringLiteral("\"%1\" needs an action").arg(group));
    const QString action = rest->takeFirst();
    const CCtlCommand* command = CCtlCommandTable::find({group, action});
    if (!command)
        throw CCtlError::usage(QStringLiteral("unknown action \"%1 %2\"").arg(group, action));
    return *command;
}

const CCtlCommand& CCtlParser::takeArguments(const CCtlCommand& command, const QStringList& rest) {
    const QString fault = m_arguments.take(rest, command.accepted());
    const CCtlCommand* taken = &command;
    const QStringList& positional = m_arguments.positional();
    if (positional.size() == 1) {
        if (const CCtlCommand* sub = CCtlCommandTable::find(command.words() + positional)) {
            taken = sub;
            m_arguments.clearPositional();
        }
    }
    if (!command.localOnlyMessage().isEmpty() && m_globals.remote()) {
        // Both are named: the bad option and where the command cannot run.
        if (!fault.isEmpty())
            CCtlError::usage(fault).report();
        throw CCtlError::usage(command.localOnlyMessage().arg(
            CCtlGlobals::flag(CCtlGlobals::kData), CCtlGlobals::flag(CCtlGlobals::kDb),
            CCtlGlobals::flag(CCtlGlobals::kServer)));
    }
    if (!fault.isEmpty())
        throw CCtlError::usage(fault);
    return *taken;
}

QStringList CCtlParser::warnings() const {
    return m_command ? CCtlCheck::warnings(*m_command, m_arguments, m_globals) : QStringList();
}
