#include "CQuotesCtl.h"

#include "CCtlCommand.h"
#include "CCtlError.h"
#include "CCtlHelp.h"
#include "CCtlOutput.h"
#include "CCtlSession.h"
#include "CQuotesService.h"
#include "Hlx/QuotesVersion.h"

int CQuotesCtl::run(const QStringList& arguments) {
    const int parsed = parse(arguments);
    return parsed == kParsed ? execute() : parsed;
}

int CQuotesCtl::parse(const QStringList& arguments) {
    try {
        if (!m_parser.parse(arguments)) {
            CCtlOutput::print(m_parser.globals().wantsVersion
                                  ? QString::fromStdString(Hlx::quotesVersionLine("quotesctl")) +
                                        QLatin1Char('\n')
                                  : helpText());
            return kOk;
        }
    } catch (const CCtlError& error) {
        return error.report();
    }
    for (const QString& warning : m_parser.warnings())
        CCtlOutput::warn(warning);
    return kParsed;
}

int CQuotesCtl::execute() {
    try {
        CCtlSession session =
            m_parser.command()->opensSession()
                ? CCtlSession::open(m_parser.globals(), m_parser.arguments())
                : CCtlSession::withoutOpening(m_parser.globals(), m_parser.arguments());
        const int code = runCommand(session);
        session.end();
        return code;
    } catch (const CCtlError& error) {
        return error.report();
    }
}

int CQuotesCtl::runCommand(CCtlSession& session) {
    try {
        m_parser.command()->runner()(session);
        return kOk;
    } catch (const CCtlError& error) {
        return error.report();
    }
}

QString CQuotesCtl::helpText() {
    return CCtlHelp::text(CQuotesService::defaultDataDir());
}

QString CQuotesCtl::describe() const {
    const CCtlCommand* command = m_parser.command();
    if (!command)
        return QString();
    const QStringList lines = QStringList{QStringLiteral("command ") + command->name()} +
                              m_parser.globals().describe() + m_parser.arguments().describe();
    return lines.join(QLatin1Char('\n')) + QLatin1Char('\n');
}
