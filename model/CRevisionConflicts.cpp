#include "model/CRevisionConflicts.h"

#include <cstring>
#include <initializer_list>

#include "model/CStaleRows.h"

bool CRevisionConflicts::isStale(const char* text) {
    for (const char* refusal : {kSource, kWholeQuote, kToken, CStaleRows::kRefusal}) {
        if (std::strcmp(text, refusal) == 0)
            return true;
    }
    return false;
}
