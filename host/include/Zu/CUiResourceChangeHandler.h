#pragma once

namespace Zu {

// Told when the host switches its colours or images (a skin change).
class CUiResourceChangeHandler {
public:
    virtual ~CUiResourceChangeHandler();
    virtual void onUiResourceChanged();
};

}  // namespace Zu
