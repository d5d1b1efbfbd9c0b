#include "panels/IReloadable.h"

namespace Hlx {

// Out of line: the interface's type information lives once, in the library, so that a host
// recognises it in the panels the library makes.
IReloadable::~IReloadable() = default;

bool IReloadable::isLoading() const {
    return false;
}

void IReloadable::reloadSources() {}

void IReloadable::reloadWholeQuoteSettings() {}

void IReloadable::reloadLevel2Token() {}

}  // namespace Hlx
