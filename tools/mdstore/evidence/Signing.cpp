#include "evidence/Signing.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "SegmentFiles.h"

namespace evidence {

namespace {

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct MdFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct KeyContextFree {
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using MdContext = std::unique_ptr<EVP_MD_CTX, MdFree>;
using File = std::unique_ptr<std::FILE, FileClose>;

const unsigned char* Bytes(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// The Ed25519 key in the PEM file `path`, private or public; null with `error` set otherwise.
Key ReadKey(const std::string& path, bool isPrivate, std::string& error) {
    const int fd = mdj::OpenRegularFile(path, O_RDONLY);
    File file(fd < 0 ? nullptr : fdopen(fd, "r"));
    if (file == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        error = path + ": cannot be read";
        return nullptr;
    }
    Key key(isPrivate ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr)
                      : PEM_read_PUBKEY(file.get(), nullptr, nullptr, nullptr));
    if (key == nullptr || EVP_PKEY_get_id(key.get()) != EVP_PKEY_ED25519) {
        error = path + (isPrivate ? ": not an Ed25519 private key (PEM)"
                                  : ": not an Ed25519 public key (PEM)");
        return nullptr;
    }
    return key;
}

// Writes `key` into the new file `path` made with `mode`; false (and nothing left) otherwise.
bool WriteKeyFile(const std::string& path, EVP_PKEY* key, bool isPrivate, mode_t mode,
                  std::string& error) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0) {
        error = path + (errno == EEXIST ? ": exists; not overwritten" : ": cannot be created");
        return false;
    }
    std::FILE* file = fdopen(fd, "w");
    if (file == nullptr) {
        close(fd);
    }
    bool written =
        file != nullptr &&
        (isPrivate ? PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr)
                   : PEM_write_PUBKEY(file, key)) == 1 &&
        std::fflush(file) == 0 && fsync(fd) == 0;
    written = file != nullptr && std::fclose(file) == 0 && written;
    if (!written) {
        unlink(path.c_str());
        error = path + ": cannot be written";
    }
    return written;
}

}  // namespace

bool HashFile(const std::string& path, std::string& hex, unsigned long long& size,
              std::string& error) {
    const int fd = mdj::OpenRegularFile(path, O_RDONLY);
    if (fd < 0) {
        error = "cannot be read";
        return false;
    }
    MdContext context(EVP_MD_CTX_new());
    bool good = context != nullptr && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    std::vector<unsigned char> block(64 * 1024);
    size = 0;
    while (good) {
        const ssize_t got = read(fd, block.data(), block.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            good = got == 0;
            break;
        }
        size += static_cast<unsigned long long>(got);
        good = EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(got)) == 1;
    }
    close(fd);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!good || EVP_DigestFinal_ex(context.get(), digest, &length) != 1) {
        error = "cannot be read";
        return false;
    }
    static const char kHex[] = "0123456789abcdef";
    hex.clear();
    for (unsigned int i = 0; i < length; ++i) {
        hex += kHex[digest[i] >> 4];
        hex += kHex[digest[i] & 15];
    }
    return true;
}

bool MakeKeyPair(const std::string& base, std::string& error) {
    const std::string privatePath = base + ".pem";
    const std::string publicPath = base + ".pub.pem";
    for (const std::string& path : {privatePath, publicPath}) {
        if (access(path.c_str(), F_OK) == 0 || errno != ENOENT) {
            error = path + ": exists; not overwritten";
            return false;
        }
    }
    std::unique_ptr<EVP_PKEY_CTX, KeyContextFree> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr));
    EVP_PKEY* made = nullptr;
    if (context == nullptr || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_keygen(context.get(), &made) != 1) {
        error = "OpenSSL could not make an Ed25519 key";
        return false;
    }
    const Key key(made);
    if (!WriteKeyFile(privatePath, key.get(), true, 0600, error)) {
        return false;
    }
    if (!WriteKeyFile(publicPath, key.get(), false, 0644, error)) {
        unlink(privatePath.c_str());
        return false;
    }
    return true;
}

bool SignBytes(const std::string& keyPath, const std::string& data, std::string& signature,
               std::string& error) {
    const Key key = ReadKey(keyPath, true, error);
    if (key == nullptr) {
        return false;
    }
    MdContext context(EVP_MD_CTX_new());
    std::size_t length = 0;
    if (context == nullptr ||
        EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &length, Bytes(data), data.size()) != 1) {
        error = "OpenSSL could not sign with " + keyPath;
        return false;
    }
    signature.assign(length, '\0');
    unsigned char* out = reinterpret_cast<unsigned char*>(&signature[0]);
    if (EVP_DigestSign(context.get(), out, &length, Bytes(data), data.size()) != 1) {
        error = "OpenSSL could not sign with " + keyPath;
        return false;
    }
    signature.resize(length);
    return true;
}

bool VerifyBytes(const std::string& publicKeyPath, const std::string& data,
                 const std::string& signature, std::string& error) {
    const Key key = ReadKey(publicKeyPath, false, error);
    if (key == nullptr) {
        return false;
    }
    MdContext context(EVP_MD_CTX_new());
    if (context == nullptr ||
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1 ||
        EVP_DigestVerify(context.get(), Bytes(signature), signature.size(), Bytes(data),
                         data.size()) != 1) {
        error = "the signature does not verify with the key in " + publicKeyPath;
        return false;
    }
    return true;
}

bool ReadablePublicKey(const std::string& publicKeyPath, std::string& error) {
    return ReadKey(publicKeyPath, false, error) != nullptr;
}

}  // namespace evidence
