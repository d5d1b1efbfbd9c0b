#include "CSettingsCache.h"

void CSettingsCache::apply(const Settings& settings) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_settings = settings;
}

std::vector<Hlx::SubsystemInfo> CSettingsCache::subsystems() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_settings.subsystems;
}

std::map<int, bool> CSettingsCache::loginTypeAuth() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_settings.loginTypeAuth;
}

bool CSettingsCache::hasClientLoginTypeAuth(int loginType) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_settings.loginTypeAuth.find(loginType);
    return it != m_settings.loginTypeAuth.end() && it->second;
}

QString CSettingsCache::defaultSubsystem() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return QString::fromStdString(m_settings.subsystems.front().name);
}

bool CSettingsCache::knowsSubsystem(const QString& name) const {
    const std::string wanted = name.toStdString();
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& info : m_settings.subsystems) {
        if (info.name == wanted)
            return true;
    }
    return false;
}
