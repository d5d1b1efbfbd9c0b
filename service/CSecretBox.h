#pragma once

#include <QByteArray>
#include <QString>
#include <string>

// Encrypts the secrets the service stores (source passwords, the Level-2 token) with libsodium's
// secretbox (XSalsa20-Poly1305) under one 256-bit key. A sealed value is text, so it fits the
// existing TEXT columns: "sb1:" and the base64 of a random nonce followed by the ciphertext.
// Immutable after construction, so one box may be shared by every thread.
class CSecretBox {
public:
    static constexpr int kKeyBytes = 32;

    // A box with a new random key.
    static CSecretBox generate();
    // A box with the given key; throws CServiceError unless it is kKeyBytes long.
    explicit CSecretBox(const QByteArray& key);
    ~CSecretBox();
    CSecretBox(const CSecretBox& other);
    CSecretBox& operator=(const CSecretBox&) = delete;

    const QByteArray& key() const { return m_key; }

    // The sealed form of plain; a fresh nonce every time.
    QString seal(const std::string& plain) const;
    // The plain text of a sealed value; throws CServiceError when the value is not sealed or
    // was sealed under another key (never returns garbage).
    std::string open(const QString& sealed) const;
    // The same for the sealed value's UTF-8 bytes, as a read that skips text conversion has it.
    std::string open(const QByteArray& sealed) const;

    // The value stored beside the secrets that proves a key is the one they were sealed with.
    QString checkValue() const;
    bool matches(const QString& checkValue) const;

private:
    QByteArray m_key;
};
