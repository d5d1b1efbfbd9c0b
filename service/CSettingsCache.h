#pragma once

#include <QString>
#include <map>
#include <mutex>
#include <vector>

#include "Hlx/IDataServiceBackend.h"

// What the service keeps of its settings in memory: the sub-systems (first = default) and the
// login-type settings. Thread-safe. Changes replace it only after their commit, so a change that
// fails at commit leaves it as it was.
class CSettingsCache {
public:
    struct Settings {
        std::vector<Hlx::SubsystemInfo> subsystems;
        std::map<int, bool> loginTypeAuth;
    };

    void apply(const Settings& settings);

    std::vector<Hlx::SubsystemInfo> subsystems() const;
    std::map<int, bool> loginTypeAuth() const;
    bool hasClientLoginTypeAuth(int loginType) const;
    QString defaultSubsystem() const;
    bool knowsSubsystem(const QString& name) const;

private:
    mutable std::mutex m_mutex;
    Settings m_settings;
};
