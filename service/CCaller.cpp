#include "CCaller.h"

#include <pwd.h>
#include <sodium.h>
#include <unistd.h>

#include <QByteArray>
#include <stdexcept>

#include "rkservice/CUserInfo.h"

CCaller::CCaller(std::string name, std::set<int> rights, bool owner)
    : m_name(std::move(name)), m_rights(std::move(rights)), m_owner(owner) {}

CCaller CCaller::owner() {
    return CCaller(std::string(), {}, true);
}

CCaller CCaller::localOwner() {
    return owner().locally(operatingSystemUser());
}

CCaller CCaller::user(const std::string& name, const std::set<int>& rights) {
    return CCaller(name, rights, false);
}

CCaller CCaller::user(const rkservice::CUserInfo& user) {
    return CCaller(user.m_strName, user.m_rights, false);
}

bool CCaller::holds(int right) const {
    return m_owner || m_rights.count(right) > 0;
}

bool CCaller::holdsAny(const std::vector<int>& rights) const {
    // The owner passes even where no right is defined, so validation names the real fault.
    if (m_owner)
        return true;
    for (int right : rights) {
        if (holds(right))
            return true;
    }
    return false;
}

CCaller CCaller::locally(const std::string& osUser) const {
    CCaller copy = *this;
    copy.m_osUser = osUser;
    copy.m_local = true;
    return copy;
}

CCaller CCaller::from(const std::string& clientAddress) const {
    CCaller copy = *this;
    copy.m_clientAddress = clientAddress;
    return copy;
}

CCaller CCaller::inSession(const std::string& session) const {
    CCaller copy = *this;
    copy.m_session = session;
    return copy;
}

const std::string& CCaller::processSession() {
    static const std::string session = [] {
        if (sodium_init() < 0)
            throw std::runtime_error("libsodium cannot start");
        unsigned char bytes[8];
        randombytes_buf(bytes, sizeof bytes);
        return QByteArray(reinterpret_cast<const char*>(bytes), sizeof bytes).toHex().toStdString();
    }();
    return session;
}

std::string CCaller::operatingSystemUser() {
    // Asked once: the process does not change its user.
    static const std::string name = [] {
        const passwd* entry = getpwuid(geteuid());
        return entry ? std::string(entry->pw_name) : std::to_string(geteuid());
    }();
    return name;
}
