#pragma once

#include <QJsonArray>
#include <QList>
#include <QStringList>
#include <vector>

#include "rkservice/IData.h"

class CCtlSession;

// quotesctl's lists of the reference data: brokers, platforms, sub-systems and users.
class CReferenceCommands {
public:
    static void brokers(CCtlSession& session);
    static void platforms(CCtlSession& session);
    static void subsystems(CCtlSession& session);
    static void users(CCtlSession& session);

private:
    // The records of a data type (filtered by --trade-type), as the default sub-system holds
    // them: the reference data is the same on every one.
    static std::vector<rkservice::IDataPtr> reference(CCtlSession& session, int dataType);
    // Prints a list as JSON with --json, else as the table.
    static void show(CCtlSession& session, const QJsonArray& array, const QStringList& header,
                     const QList<QStringList>& rows);
};
