#pragma once

#include <QString>
#include <set>

// An account of the platform as the login machinery sees it; never holds its password or hash.
struct CAccount {
    QString name;
    int systemId = 0;
    std::set<int> rights;
    bool enabled = true;
    bool hasPassword = false;
};
