#pragma once

#include <cstddef>

// The states a reachability probe reports for an address: the name stored and sent, and the
// text the operator reads. The one table of them; every layer looks names up here.
class CProbeVocabulary {
public:
    struct State {
        const char* name;
        const char* label;
    };

    static constexpr const char* kNotProbed = "not_probed";
    static constexpr const char* kReachable = "reachable";
    static constexpr const char* kRefused = "refused";
    static constexpr const char* kTimeout = "timeout";
    static constexpr const char* kUnreachable = "unreachable";

    static constexpr State kStates[] = {{kNotProbed, "未探测"},
                                        {kReachable, "可达"},
                                        {kRefused, "拒绝连接"},
                                        {kTimeout, "超时"},
                                        {kUnreachable, "不可达"}};

    // The data type of a change event that tells of a probe's new state.
    static constexpr const char* kProbeStatus = "probe_status";

    // The operator's text of a stored name; the name itself when it is none of them.
    static const char* label(const char* name) {
        for (const State& state : kStates) {
            if (same(state.name, name))
                return state.label;
        }
        return name;
    }
    static bool known(const char* name) {
        for (const State& state : kStates) {
            if (same(state.name, name))
                return true;
        }
        return false;
    }

private:
    static bool same(const char* a, const char* b) {
        std::size_t i = 0;
        for (; a[i] != '\0' && a[i] == b[i]; ++i) {
        }
        return a[i] == b[i];
    }
};
