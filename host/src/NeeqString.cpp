#include "Hlx/NeeqString.h"

namespace Hlx {

QString getNeeqString() {
    return QStringLiteral("新三板");
}

}  // namespace Hlx
