#pragma once

#include <QString>

namespace Hlx {

// The display name of the NEEQ trade type.
QString getNeeqString();

}  // namespace Hlx
