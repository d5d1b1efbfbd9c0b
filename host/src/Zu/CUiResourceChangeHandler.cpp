#include "Zu/CUiResourceChangeHandler.h"

namespace Zu {

CUiResourceChangeHandler::~CUiResourceChangeHandler() = default;

void CUiResourceChangeHandler::onUiResourceChanged() {}

}  // namespace Zu
