#include "CFieldLimits.h"

namespace Hlx {

const std::vector<CFieldLimit>& CFieldLimits::all() {
    // An address fits a DNS name's 255; the others leave room for any real login.
    static const std::vector<CFieldLimit> limits = {
        {CFieldLimit::Address, "地址", 255},
        {CFieldLimit::UserName, "用户名", 64},
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
