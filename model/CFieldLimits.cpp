#include "CFieldLimits.h"

namespace Hlx {

const std::vector<CFieldLimit>& CFieldLimits::all() {
    // An address fits a DNS name's 255. A user name is what the stock dialog accepts: 25
    // characters of up to three bytes each. The others leave room for any real login.
    static const std::vector<CFieldLimit> limits = {
        {CFieldLimit::Address, "地址", 255},
        {CFieldLimit::UserName, "用户名", 75},
        {CFieldLimit::Password, "密码", 256},
        {CFieldLimit::Markets, "市场", 256},
    };
    return limits;
}

const CFieldLimit& CFieldLimits::of(CFieldLimit::Field field) {
    for (const CFieldLimit& limit : all()) {
        if (limit.field == field)
            return limit;
    }
    return all().front();
}

}  // namespace Hlx
