#include "CPasswordHasher.h"

#include <sodium.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "CServiceError.h"

namespace {

// Decodes strict UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF). False when
// the text is not valid UTF-8.
bool decodeUtf8(const std::string& text, std::vector<char32_t>* codePoints) {
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        int extra = 0;
        char32_t cp = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            cp = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            extra = 1;
            cp = lead & 0x1F;
            minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2;
            cp = lead & 0x0F;
            minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3;
            cp = lead & 0x07;
            minimum = 0x10000;
        } else {
            return false;
        }
        if (text.size() - i <= size_t(extra))
            return false;
        for (int k = 1; k <= extra; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        codePoints->push_back(cp);
        i += extra + 1;
    }
    return true;
}

bool isControl(char32_t cp) {
    return cp < 0x20 || cp == 0x7F || (cp >= 0x80 && cp <= 0x9F);
}

}  // namespace

void CPasswordHasher::ensureInitialised() {
    static std::once_flag once;
    static bool ok = false;
    std::call_once(once, [] { ok = sodium_init() >= 0; });
    if (!ok)
        throw CServiceError::unavailable("密码库初始化失败");
}

QString CPasswordHasher::checkPolicy(const std::string& password) {
    if (password.size() > size_t(kMaxBytes))
        return QStringLiteral("密码最多 %1 个字节").arg(kMaxBytes);
    std::vector<char32_t> codePoints;
    if (!decodeUtf8(password, &codePoints))
        return QStringLiteral("密码必须是有效的 UTF-8 文本");
    if (std::any_of(codePoints.begin(), codePoints.end(), isControl))
        return QStringLiteral("密码不能包含控制字符");
    if (codePoints.size() < size_t(kMinCharacters))
        return QStringLiteral("密码至少需要 %1 个字符").arg(kMinCharacters);
    return QString();
}

std::string CPasswordHasher::hash(const std::string& password) {
    ensureInitialised();
    char encoded[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str(encoded, password.data(), password.size(),
                          crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
        throw CServiceError::unavailable("计算密码摘要失败（内存不足）");
    return std::string(encoded);
}

bool CPasswordHasher::verify(const std::string& encodedHash, const std::string& password) {
    ensureInitialised();
    // The encoded form must fit libsodium's buffer with its terminating zero.
    if (encodedHash.empty() || encodedHash.size() >= crypto_pwhash_STRBYTES)
        return false;
    return crypto_pwhash_str_verify(encodedHash.c_str(), password.data(), password.size()) == 0;
}

std::string CPasswordHasher::generate(int length) {
    ensureInitialised();
    static const char kAlphabet[] = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
    const uint32_t size = sizeof(kAlphabet) - 1;
    std::string password;
    const int wanted = std::max(length, 16);
    password.reserve(size_t(wanted));
    for (int i = 0; i < wanted; ++i)
        password.push_back(kAlphabet[randombytes_uniform(size)]);
    return password;
}

std::string CPasswordHasher::sha256Hex(const std::string& text) {
    ensureInitialised();
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(text.data()), text.size());
    char hex[crypto_hash_sha256_BYTES * 2 + 1];
    sodium_bin2hex(hex, sizeof(hex), digest, sizeof(digest));
    return std::string(hex);
}

std::string CPasswordHasher::randomToken(int bytes) {
    ensureInitialised();
    std::vector<unsigned char> raw(size_t(std::max(bytes, 16)));
    randombytes_buf(raw.data(), raw.size());
    const int variant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
    std::vector<char> text(sodium_base64_ENCODED_LEN(raw.size(), variant));
    sodium_bin2base64(text.data(), text.size(), raw.data(), raw.size(), variant);
    sodium_memzero(raw.data(), raw.size());
    return std::string(text.data());
}
