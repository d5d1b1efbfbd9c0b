#include "Hlx/IDataServiceBackend.h"

namespace Hlx {

IDataServiceBackend::~IDataServiceBackend() = default;

}  // namespace Hlx
