#include "model/CAuditNames.h"

namespace {

template <size_t N>
std::string lookUp(const CAuditNames::Name (&names)[N], const std::string& stored) {
    for (const CAuditNames::Name& name : names) {
        if (stored == name.stored)
            return name.shown;
    }
    return stored;
}

}  // namespace

std::string CAuditNames::action(const std::string& stored) {
    return lookUp(kActions, stored);
}

std::string CAuditNames::dataType(const std::string& stored) {
    return lookUp(kDataTypes, stored);
}

std::string CAuditNames::field(const std::string& stored) {
    return lookUp(kFields, stored);
}
