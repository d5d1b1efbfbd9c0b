#pragma once

#include <string>
#include <vector>

namespace Hlx {

// A text field of a quote source with the most UTF-8 bytes the data service stores; the dialogs
// and the service read the same table, so the service never refuses what a dialog accepts.
struct CFieldLimit {
    enum Field { Address, UserName, Password, Markets };
    Field field;
    const char* label;  // the field's name in refusals
    int maxBytes;
};

class CFieldLimits {
public:
    static const std::vector<CFieldLimit>& all();
    static const CFieldLimit& of(CFieldLimit::Field field);
    // The text cut to at most maxBytes, never inside a UTF-8 sequence.
    static std::string cut(const std::string& text, int maxBytes);
};

}  // namespace Hlx
