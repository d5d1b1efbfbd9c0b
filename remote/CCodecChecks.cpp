#include "CCodecChecks.h"

#include <climits>

#include "model/CFieldLimits.h"

bool CCodecChecks::isUtf8(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        unsigned code = *p++;
        if (code < 0x80)
            continue;
        int extra = 0;
        unsigned minimum = 0;
        if ((code & 0xE0) == 0xC0) {
            extra = 1, code &= 0x1F, minimum = 0x80;
        } else if ((code & 0xF0) == 0xE0) {
            extra = 2, code &= 0x0F, minimum = 0x800;
        } else if ((code & 0xF8) == 0xF0) {
            extra = 3, code &= 0x07, minimum = 0x10000;
        } else {
            return false;
        }
        if (end - p < extra)
            return false;
        for (int i = 0; i < extra; ++i, ++p) {
            if ((*p & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (*p & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
    }
    return true;
}

int CCodecChecks::narrow(google::protobuf::int64 value, const char* field) {
    if (value < INT_MIN || value > INT_MAX) {
        fail(std::string("消息中的数值超出范围: ") + field + " = " + std::to_string(value));
        return 0;
    }
    return static_cast<int>(value);
}

const std::string& CCodecChecks::text(const std::string& value, const char* field) {
    if (!isUtf8(value))
        fail(std::string("文本不是有效的 UTF-8: ") + field);
    return value;
}

const std::string& CCodecChecks::bounded(const std::string& value, const char* field,
                                         int maxBytes) {
    if (value.size() > std::size_t(maxBytes))
        fail(std::string(field) + " 超过 " + std::to_string(maxBytes) + " 字节");
    return text(value, field);
}

const std::string& CCodecChecks::name(const std::string& value, const char* field) {
    return bounded(value, field, Hlx::CFieldLimits::of(Hlx::CFieldLimit::UserName).maxBytes);
}

void CCodecChecks::fail(const std::string& message) {
    if (m_error.isSuccess())
        m_error = utils::RKError::fail(utils::ErrorKind::Invalid, message);
}
