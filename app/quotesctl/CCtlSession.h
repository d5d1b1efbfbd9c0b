#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <boost/shared_ptr.hpp>

class CCtlArguments;
class CCtlGlobals;
class CQuotesService;
class CRemoteAdmin;
namespace Hlx {
class IQuotesAdmin;
}

// What a command runs with: the administration interface (of the database itself or of a
// quotesd server alike) and its arguments.
class CCtlSession {
public:
    // Opens the database the global options name, or logs in to their server. Throws CCtlError
    // (exit 3) when it cannot.
    static CCtlSession open(const CCtlGlobals& globals, const CCtlArguments& arguments);
    // A session that logs in nowhere and opens no database, for a command that asks a server
    // without a login or works on the database file itself: only its options.
    static CCtlSession withoutOpening(const CCtlGlobals& globals, const CCtlArguments& arguments);

    Hlx::IQuotesAdmin& admin() const { return *m_admin; }
    // The database's own service; null through a server.
    CQuotesService* service() const { return m_service.get(); }
    const CCtlArguments& arguments() const { return *m_arguments; }
    const CCtlGlobals& globals() const { return *m_globals; }
    // Ends the session: through a server, logs out, so its token is not left to expire.
    void end();

    // The first line of the file name, or of standard input for "-", without its line end.
    // False when it cannot be read.
    static bool readFirstLine(const QString& name, QByteArray* line);
    // Opens the file name for reading, or standard input for "-".
    static bool openInput(QFile* file, const QString& name);
    // The password in the first line of file (or of standard input for "-"). Throws CCtlError
    // (exit 1) when it cannot be read.
    static QByteArray passwordFrom(const QString& file);

private:
    static boost::shared_ptr<CRemoteAdmin> login(const CCtlGlobals& globals);

    boost::shared_ptr<Hlx::IQuotesAdmin> m_admin;
    boost::shared_ptr<CRemoteAdmin> m_remote;
    boost::shared_ptr<CQuotesService> m_service;
    const CCtlArguments* m_arguments = nullptr;
    const CCtlGlobals* m_globals = nullptr;
};
