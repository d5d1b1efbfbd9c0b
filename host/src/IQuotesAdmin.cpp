#include "Hlx/IQuotesAdmin.h"

namespace Hlx {

IQuotesAdmin::~IQuotesAdmin() = default;

}  // namespace Hlx
