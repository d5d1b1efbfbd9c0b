#pragma once

#include <string>

// What quotesd's transport tells those who watch it (metrics, logs) beyond the audit trail: how
// each login ended and the live-update streams open. Called on the call's own thread.
class IAdminObserver {
public:
    enum class LoginOutcome {
        Ok,
        Refused,  // checked and refused (or malformed)
        Locked,   // refused unchecked: the name (or the address) is locked out for a while
    };

    virtual ~IAdminObserver() = default;

    // A login answered (not one the database could not check); the refusal's text otherwise.
    virtual void loginAnswered(const std::string& name, const std::string& address,
                               LoginOutcome outcome, const std::string& refusal) = 0;
    // An Events stream opened (+1) or ended (-1).
    virtual void eventStreamsChanged(int delta) = 0;
};
