#pragma once

// The refusals of a change made from an older read: every quote source, each sub-system's
// whole-quote settings and the Level-2 token carry a revision that each change advances, and a
// modify or delete sends back the revision it read. The console keeps the operator's input and
// reads the stored state again on any of them.
class CRevisionConflicts {
public:
    static constexpr const char* kSource = "行情源已被他人修改，请刷新后重试";
    static constexpr const char* kWholeQuote = "行情全推设置已被他人修改，请刷新后重试";
    static constexpr const char* kToken = "Level-2行情源token已被他人修改，请刷新后重试";
    // A modify or delete through Operate that names no revision.
    static constexpr const char* kMissing = "缺少版本号";

    // Whether a refusal's text says the stored state changed since it was read (a conflict of
    // revisions or rows read before an import), so that reading it again is the way on.
    static bool isStale(const char* text);
};
