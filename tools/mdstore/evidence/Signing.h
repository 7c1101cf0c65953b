// SHA-256 of files and Ed25519 keys and signatures, all done by OpenSSL's libcrypto. Keys are
// PEM files the openssl command reads: the private key as PKCS#8, the public key as
// SubjectPublicKeyInfo. Every function says what went wrong in `error` when it returns false.
#pragma once

#include <string>
#include <vector>

namespace evidence {

// The lowercase hex SHA-256 and the size of the regular file at `path` (no link followed),
// read in blocks so memory does not grow with the file.
bool HashFile(const std::string& path, std::string& hex, unsigned long long& size,
              std::string& error);

// A new key pair: `base`.pem (private, mode 0600 from its creation) and `base`.pub.pem.
// Refuses when either file exists; leaves neither behind on failure.
bool MakeKeyPair(const std::string& base, std::string& error);

// The 64-byte Ed25519 signature of `data` with the private key in `keyPath`.
bool SignBytes(const std::string& keyPath, const std::string& data, std::string& signature,
               std::string& error);

// True when `signature` is a signature of `data` by the public key in `publicKeyPath`;
// `error` says why not (a key that cannot be read, or a signature that does not verify).
bool VerifyBytes(const std::string& publicKeyPath, const std::string& data,
                 const std::string& signature, std::string& error);

// True when `publicKeyPath` holds an Ed25519 public key.
bool ReadablePublicKey(const std::string& publicKeyPath, std::string& error);

}  // namespace evidence
