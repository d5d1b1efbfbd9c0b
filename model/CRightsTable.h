#pragma once

#include <string>
#include <vector>

namespace Hlx {

// What an operator does to a record.
enum class CRecordAction { Add, Modify, Delete };

// The rights of one kind of quote source: the panel shows its buttons by them and the data
// service checks every change against them.
struct CSourceRights {
    int kind;          // the trade type the rights belong to
    const char* name;  // the kind's name in refusals
    int add;
    int modify;
    int remove;
};

// The one table of user rights, shared by the panels and the data service. It carries no
// widget and no Qt type, so the service and the server read it as the panels do.
class CRightsTable {
public:
    enum : int {
        kKxRowDelete = 11230,
        kLevel2Add = 12532,
        kLevel2Modify = 12534,
        kLevel2Delete = 12536,
        kWholeQuoteSave = 90001,
        kAdminister = 90002,
    };

    static const std::vector<CSourceRights>& sources();
    // Whether the table holds the right (a right of a kind of source, of the Level-2 token, of
    // the whole-quote settings or the administrator's).
    static bool isKnown(int right);
    // The rights of a trade type's own sources; null for a type without any (all types, unknown).
    static const CSourceRights* find(int tradeType);

    // The kind of a stored source: a type-2 source of a Kx futures platform is a futures (or
    // futures options) source.
    static int kindOf(int tradeType, int platformId);
    // A Kx futures source: stored with type 2 on a Kx futures platform.
    static bool isKxRow(int tradeType, int platformId);

    // The rights, any one of which lets a user do the action to a stored source; empty when no
    // right does (a kind the table does not hold).
    static std::vector<int> sourceRights(CRecordAction action, int tradeType, int platformId);
    static int level2Right(CRecordAction action);

    // "没有权限：删除证券行情源" and its siblings, UTF-8.
    static std::string sourceRefusal(CRecordAction action, int tradeType, int platformId);
    static std::string level2Refusal(CRecordAction action);
    static std::string refusal(const std::string& what);
};

}  // namespace Hlx
