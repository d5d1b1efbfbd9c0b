#pragma once

#include <QString>
#include <string>

// Passwords of the accounts that log in: the policy a new password must meet, its Argon2id hash
// (libsodium, interactive limits), its check against a stored hash, and generated passwords.
// Thread-safe; nothing here keeps or logs a password.
class CPasswordHasher {
public:
    static constexpr int kMinCharacters = 12;
    static constexpr int kMaxBytes = 256;
    static constexpr int kGeneratedLength = 20;

    // Empty when the password may be set, else the refusal naming the rule it breaks.
    static QString checkPolicy(const std::string& password);

    // The encoded hash ("$argon2id$..."). Throws CServiceError when the hash cannot be computed
    // (out of memory); does not apply the policy.
    static std::string hash(const std::string& password);

    // Whether the password matches the encoded hash; false for a malformed hash.
    static bool verify(const std::string& encodedHash, const std::string& password);

    // A random password from letters and digits that cannot be mistaken for one another
    // (no 0/O, 1/l/I), at least 16 characters long.
    static std::string generate(int length = kGeneratedLength);

    // SHA-256 of the text as lower-case hex.
    static std::string sha256Hex(const std::string& text);

    // `bytes` random bytes as URL-safe base64 without padding.
    static std::string randomToken(int bytes);

    // Initialises libsodium once; throws CServiceError when it cannot be.
    static void ensureInitialised();
};
