#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/CRightsTable.h"
#include "rkservice/COrinQuoterSourceInfo.h"

class CCaller;

// What decides a stored source's rights: its trade type and platform as the database holds them.
struct CStoredKind {
    int tradeType;
    int platformId;
};

// Every right the data service enforces, checked here and nowhere else. Each check throws
// CServiceError with a Chinese text naming the refused action; a batch is refused whole.
class CAccessPolicy {
public:
    static void checkAdd(const CCaller& caller,
                         const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources);
    // The stored rows by id; a modify changing the kind needs the modify right of both kinds.
    static void checkModify(const CCaller& caller,
                            const std::vector<rkservice::COrinQuoterSourceInfoPtr>& sources,
                            const std::map<int, CStoredKind>& stored);
    static void checkDelete(const CCaller& caller, const std::vector<int>& ids,
                            const std::map<int, CStoredKind>& stored);
    static void checkLevel2(const CCaller& caller, Hlx::CRecordAction action);
    static void checkWholeQuote(const CCaller& caller);
    // Accounts, sub-systems, settings, export and import; what names the refused action.
    static void checkAdminister(const CCaller& caller, const std::string& what);

    // Whether the caller may read a stored source's password: only who may modify the source.
    static bool mayReadPassword(const CCaller& caller,
                                const rkservice::COrinQuoterSourceInfo& source);
    // Whether the caller may read the Level-2 token: who holds any of its rights (a delete sends
    // the token it was shown, so who may delete must see it).
    static bool mayReadToken(const CCaller& caller);
    // Whether the caller may read the users' records of others (data type 9100), not only its
    // own: the administrator.
    static bool mayReadUsers(const CCaller& caller);

    // The trade type a modify stores: -1 keeps the stored one.
    static int storedTradeType(const rkservice::COrinQuoterSourceInfo& incoming,
                               const CStoredKind& stored);
};
