#pragma once

#include <functional>
#include <memory>

#include "Hlx/CChangeEvent.h"

namespace Hlx {

// The changes committed to the data, by anyone.
class IChangeEvents {
public:
    virtual ~IChangeEvents();

    // Tells handler of every change committed from now on, by anyone, on a thread of the
    // implementation's (never inside this call). Delivery stops when the returned handle is
    // destroyed; its destruction waits for a delivery in progress, so handler must not wait for
    // the thread that destroys it. Null where changes are not announced.
    using ChangeHandler = std::function<void(const CChangeEvent&)>;
    virtual std::shared_ptr<void> watchChanges(const ChangeHandler& handler);
};

}  // namespace Hlx
