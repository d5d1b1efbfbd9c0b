#pragma once

// The texts of a source's history (查看历史) as the console shows them: the dialog's own words
// (its actions and fields read as in the audit dock, CAuditNames).
class CHistoryTexts {
public:
    static constexpr const char* kTime = "时间";
    static constexpr const char* kWho = "操作人";
    static constexpr const char* kAddress = "客户端地址";
    static constexpr const char* kAction = "操作";
    static constexpr const char* kField = "字段";
    static constexpr const char* kBefore = "修改前";
    static constexpr const char* kAfter = "修改后";
    static constexpr const char* kRestore = "恢复到此版本";
    static constexpr const char* kClose = "关闭";

    static constexpr const char* kBeginAdded = "历史从该行情源新增时开始。";
    static constexpr const char* kBeginEarlier =
        "该行情源在操作记录开始前已存在，更早的修改没有记录。";
    // %1: the time before which entries were pruned.
    static constexpr const char* kBeginPruned = "历史从 %1 开始：更早的操作记录已被清理。";
    // %1: the time of the import.
    static constexpr const char* kBeginImported =
        "历史从 %1 的导入开始：导入替换了全部行情源，之前的记录不再属于该行情源。";
    static constexpr const char* kPasswordKept = "操作记录不保存密码：恢复后保留当前密码。";
    static constexpr const char* kPasswordNone =
        "操作记录不保存密码：恢复已删除的行情源后它没有密码，请在编辑中设置。";
    // %1: the entry restored to.
    static constexpr const char* kRestored = "已恢复到操作记录 %1 之后的状态。";
};
