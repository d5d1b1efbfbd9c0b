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

std::string CFieldLimits::cut(const std::string& text, int maxBytes) {
    if (text.size() <= std::size_t(maxBytes))
        return text;
    std::size_t end = std::size_t(maxBytes);
    // Back to the start of the sequence the limit falls in (continuation bytes are 10xxxxxx).
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end);
}

}  // namespace Hlx
