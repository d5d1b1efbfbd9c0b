#pragma once

// The names the audit trail stores for actions and data types; filters match them exactly.
class CAuditVocabulary {
public:
    // Actions.
    static constexpr const char* kAdd = "add";
    static constexpr const char* kModify = "modify";
    static constexpr const char* kDelete = "delete";
    static constexpr const char* kSave = "save";
    // A source set back to its fields after an earlier entry (the summary names the entry).
    static constexpr const char* kRestore = "restore";
    static constexpr const char* kSetPassword = "set_password";
    static constexpr const char* kSetEnabled = "set_enabled";
    static constexpr const char* kSetRights = "set_rights";
    static constexpr const char* kSet = "set";
    static constexpr const char* kImport = "import";
    static constexpr const char* kPrune = "prune";
    static constexpr const char* kLogin = "login";
    static constexpr const char* kLogout = "logout";
    static constexpr const char* kExpire = "expire";  // a login ended by its idle time
    static constexpr const char* kUnlock = "unlock";  // failed-login counters cleared
    static constexpr const char* kRead = "read";      // a read of administration data
    static constexpr const char* kExport = "export";
    static constexpr const char* kCheck = "check";  // the database's consistency check
    static constexpr const char* kRekey = "rekey";
    static constexpr const char* kBackup = "backup";  // an online copy of the database
    // A program migrated the database's schema; it sealed the stored secrets under a key.
    static constexpr const char* kMigrate = "migrate";
    static constexpr const char* kSeal = "seal";
    // Every action, in the order a filter offers them.
    static constexpr const char* kActions[] = {
        kAdd,    kModify, kDelete, kSave,    kRestore, kSetPassword, kSetEnabled, kSetRights,
        kSet,    kImport, kPrune,  kLogin,   kLogout,  kExpire,      kUnlock,     kRead,
        kExport, kCheck,  kRekey,  kMigrate, kSeal,    kBackup};
    // Actions recorded although they change no data: never announced as a change.
    static constexpr const char* kReadActions[] = {kExport, kRead, kCheck, kBackup};

    // Data types.
    static constexpr const char* kQuoteSource = "quote_source";
    static constexpr const char* kLevel2Token = "level2_token";
    static constexpr const char* kWholeQuote = "whole_quote";
    static constexpr const char* kAccount = "account";
    static constexpr const char* kSubsystems = "subsystems";
    static constexpr const char* kLoginType = "login_type";
    static constexpr const char* kDocument = "document";
    static constexpr const char* kAuditTrail = "audit";
    static constexpr const char* kSession = "session";
    static constexpr const char* kSchema = "schema";
    static constexpr const char* kSecrets = "secrets";
    static constexpr const char* kDatabase = "database";

    // What stands for a secret's value.
    static constexpr const char* kMasked = "******";
};
