#pragma once

#include <string>

#include "model/CAuditVocabulary.h"

// What the operator reads for the names the audit trail stores (CAuditVocabulary): the console
// shows, filters and exports these; the stored names, quotesctl's --action and --json stay as
// stored. A name without an entry reads as it is stored.
class CAuditNames {
public:
    struct Name {
        const char* stored;
        const char* shown;  // UTF-8
    };

    static std::string action(const std::string& stored);
    static std::string dataType(const std::string& stored);
    static std::string field(const std::string& stored);

    static constexpr Name kActions[] = {
        {CAuditVocabulary::kAdd, "添加"},
        {CAuditVocabulary::kModify, "修改"},
        {CAuditVocabulary::kDelete, "删除"},
        {CAuditVocabulary::kSave, "保存"},
        {CAuditVocabulary::kRestore, "恢复"},
        {CAuditVocabulary::kSetPassword, "设置密码"},
        {CAuditVocabulary::kSetEnabled, "启用或停用"},
        {CAuditVocabulary::kSetRights, "设置权限"},
        {CAuditVocabulary::kSet, "设置"},
        {CAuditVocabulary::kImport, "导入"},
        {CAuditVocabulary::kPrune, "清理记录"},
        {CAuditVocabulary::kLogin, "登录"},
        {CAuditVocabulary::kLogout, "退出登录"},
        {CAuditVocabulary::kExpire, "登录过期"},
        {CAuditVocabulary::kUnlock, "解除锁定"},
        {CAuditVocabulary::kRead, "读取"},
        {CAuditVocabulary::kExport, "导出"},
        {CAuditVocabulary::kCheck, "检查数据库"},
        {CAuditVocabulary::kRekey, "更换密钥"},
        {CAuditVocabulary::kMigrate, "升级数据库"},
        {CAuditVocabulary::kSeal, "加密密码"},
        {CAuditVocabulary::kBackup, "备份"},
    };

    static constexpr Name kDataTypes[] = {
        {CAuditVocabulary::kQuoteSource, "行情源"},
        {CAuditVocabulary::kLevel2Token, "Level-2令牌"},
        {CAuditVocabulary::kWholeQuote, "行情全推设置"},
        {CAuditVocabulary::kAccount, "账户"},
        {CAuditVocabulary::kSubsystems, "分系统"},
        {CAuditVocabulary::kLoginType, "登录类型"},
        {CAuditVocabulary::kDocument, "数据文件"},
        {CAuditVocabulary::kAuditTrail, "操作记录"},
        {CAuditVocabulary::kSession, "登录会话"},
        {CAuditVocabulary::kSchema, "数据库结构"},
        {CAuditVocabulary::kSecrets, "密码密钥"},
        {CAuditVocabulary::kDatabase, "数据库"},
    };

    // The fields of a record's before and after, by their stored names.
    static constexpr Name kFields[] = {
        {"subsystem", "分系统"},   {"trade_type", "交易类型"},      {"platform_id", "平台"},
        {"broker_id", "期货公司"}, {"server_group_id", "服务器组"}, {"address", "地址"},
        {"port", "端口"},          {"user_name", "用户名"},         {"password", "密码"},
        {"markets", "市场"},
    };
};
