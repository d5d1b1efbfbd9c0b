#include "CSecretBox.h"

#include <sodium.h>

#include <algorithm>

#include "CPasswordHasher.h"
#include "CServiceError.h"

namespace {

const QLatin1String kPrefix("sb1:");
// What the check value seals: any key but the right one fails to open it.
const char kCheckText[] = "PanelQuotesManage secrets key";

}  // namespace

CSecretBox CSecretBox::generate() {
    CPasswordHasher::ensureInitialised();
    QByteArray key(kKeyBytes, '\0');
    crypto_secretbox_keygen(reinterpret_cast<unsigned char*>(key.data()));
    CSecretBox box(key);
    sodium_memzero(key.data(), size_t(key.size()));
    return box;
}

CSecretBox::CSecretBox(const QByteArray& key) : m_key(key) {
    static_assert(kKeyBytes == crypto_secretbox_KEYBYTES, "secretbox key size");
    if (m_key.size() != kKeyBytes)
        throw CServiceError("密钥长度错误: 需要 " + std::to_string(kKeyBytes) + " 字节");
    m_key.detach();
}

CSecretBox::CSecretBox(const CSecretBox& other) : m_key(other.m_key) {
    m_key.detach();
}

CSecretBox::~CSecretBox() {
    sodium_memzero(m_key.data(), size_t(m_key.size()));
}

QString CSecretBox::seal(const std::string& plain) const {
    CPasswordHasher::ensureInitialised();
    QByteArray sealed(int(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES + plain.size()),
                      '\0');
    auto* nonce = reinterpret_cast<unsigned char*>(sealed.data());
    randombytes_buf(nonce, crypto_secretbox_NONCEBYTES);
    crypto_secretbox_easy(nonce + crypto_secretbox_NONCEBYTES,
                          reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), nonce,
                          reinterpret_cast<const unsigned char*>(m_key.constData()));
    return kPrefix + QString::fromLatin1(sealed.toBase64());
}

std::string CSecretBox::open(const QString& sealed) const {
    return open(sealed.toUtf8());
}

std::string CSecretBox::open(const QByteArray& sealed) const {
    const int minimum = int(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES);
    const QByteArray bytes =
        QByteArray::fromBase64(QByteArray::fromRawData(sealed.constData() + kPrefix.size(),
                                                       std::max(0, sealed.size() - kPrefix.size())),
                               QByteArray::AbortOnBase64DecodingErrors);
    if (!sealed.startsWith(kPrefix.data()) || bytes.size() < minimum)
        throw CServiceError::unavailable("数据库中的密码未加密或已损坏");
    std::string plain(size_t(bytes.size() - minimum), '\0');
    const auto* nonce = reinterpret_cast<const unsigned char*>(bytes.constData());
    if (crypto_secretbox_open_easy(reinterpret_cast<unsigned char*>(&plain[0]),
                                   nonce + crypto_secretbox_NONCEBYTES,
                                   size_t(bytes.size()) - crypto_secretbox_NONCEBYTES, nonce,
                                   reinterpret_cast<const unsigned char*>(m_key.constData())) != 0)
        throw CServiceError::unavailable("无法解密数据库中的密码: 密钥与数据库不符");
    return plain;
}

QString CSecretBox::checkValue() const {
    return seal(kCheckText);
}

bool CSecretBox::matches(const QString& checkValue) const {
    try {
        return open(checkValue) == kCheckText;
    } catch (const CServiceError&) {
        return false;
    }
}
