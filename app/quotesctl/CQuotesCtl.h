#pragma once

#include <QJsonValue>
#include <QStringList>
#include <boost/shared_ptr.hpp>
#include <map>
#include <set>

#include <QJsonObject>
#include <string>

#include "CServiceOptions.h"
#include "utils/RKError.h"

class CQuotesService;
namespace Hlx {
class IQuotesAdmin;
}

// The quotesctl command line: parses the arguments, runs one command on the data service and
// answers with an exit code.
class CQuotesCtl {
public:
    enum ExitCode { kOk = 0, kRefused = 1, kUsage = 2, kUnavailable = 3 };
    // parse's answer when the command line is complete and the command may run.
    static constexpr int kParsed = -1;

    // arguments without the program name.
    int run(const QStringList& arguments);
    // Checks the command line without touching any database: kParsed, or the exit code.
    int parse(const QStringList& arguments);
    // Runs the parsed command.
    int execute();

    static QString helpText();
    // What parse understood, one item a line: "command WORDS", the global options, then the
    // command's options and positional arguments ("option --port \"9000\"", "positional
    // \"7\""), values quoted. Stable text for the tests that pin the parser.
    QString describe() const;

private:
    using Handler = int (CQuotesCtl::*)();

    // Options of the form --name VALUE (and the flags --json); the rest are positional.
    bool parseOptions(const QStringList& arguments, const QStringList& valued,
                      const QStringList& flags);
    bool intOption(const QString& name, int* value);

    int sourcesList();
    // Checks the options of an add before the database is opened.
    bool checkAdd();
    int sourcesAdd();
    // Whether the options name a field of a source (what a modify changes).
    bool namesASourceField() const;
    int sourcesModify();
    int sourcesDelete();
    // Every stored source's platform by id; the error when the query fails.
    utils::RKError storedPlatforms(std::map<int, int>* platforms);
    int brokersList();
    int platformsList();
    int reference(bool brokers);
    int token();
    int subsystems();
    int users();
    int exportAll();
    int importAll();
    int integrity();
    int rekey();
    static QJsonObject withoutSecrets(QJsonObject document);
    // The password of sources add|modify from --password-file or --password (unchanged when
    // neither is given); false when the file cannot be read.
    bool sourcePassword(std::string* password);
    // How many inputs of the command line read standard input.
    int inputReaders(Handler handler) const;
    void warnAboutExposedSecrets() const;
    int ping();
    int accounts();
    int accountsList();
    int audit();
    bool timeOption(const QString& name, long long* ms) const;
    QString checkAccountsCommand(const QString& action) const;
    bool rightsOption(std::set<int>* rights) const;

    boost::shared_ptr<Hlx::IQuotesAdmin> openEmbedded(const CServiceOptions& options,
                                                      QString* error);
    boost::shared_ptr<Hlx::IQuotesAdmin> openRemote(QString* error);
    static bool readSecret(const QString& name, QByteArray* secret);

    int usage(const QString& message);
    int refused(const QString& message);
    void print(const QString& text);
    void printJson(const QJsonValue& value);
    void printTable(const QStringList& header, const QList<QStringList>& rows);

    // Every command goes through the administration interface, embedded or remote alike.
    boost::shared_ptr<Hlx::IQuotesAdmin> m_admin;
    struct Remote {
        QStringList servers;
        QString caFile;
        QString login;
        QString passwordFile;
    } m_remote;
    boost::shared_ptr<CQuotesService> m_service;
    CServiceOptions m_serviceOptions;
    Handler m_handler = nullptr;
    std::map<QString, QString> m_options;
    QStringList m_positional;
};
