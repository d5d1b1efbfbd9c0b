#pragma once

// The refusal of a change made from rows read before the latest import: the ids it names may
// belong to other sources now, so the client reloads before it tries again.
class CStaleRows {
public:
    static constexpr const char* kRefusal = "行情源已变更，请刷新后重试";
};
