#include "controller/store/vault.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace store {
namespace {

using Bytes = std::vector<unsigned char>;

const unsigned char *bytes_of(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

std::string hex(const unsigned char *bytes, size_t size) {
    std::string text(2 * size + 1, '\0');
    sodium_bin2hex(text.data(), text.size(), bytes, size);
    text.pop_back();
    return text;
}

Bytes unhex(const std::string &text) {
    Bytes bytes(text.size() / 2);
    size_t size = 0;
    if (sodium_hex2bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &size,
                       nullptr) != 0 ||
        2 * size != text.size()) {
        bytes.clear();
    }
    return bytes;
}

void make_key(const std::filesystem::path &file) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 && errno == EEXIST) {
        return;
    }
    const std::string key = random_text(crypto_secretbox_KEYBYTES) + "\n";
    const bool written =
        fd >= 0 && write(fd, key.data(), key.size()) == ssize_t(key.size()) && fsync(fd) == 0;
    const std::string why = strerror(errno);
    if (fd >= 0) {
        close(fd);
    }
    if (!written) {
        throw std::runtime_error("cannot write " + file.string() + ": " + why);
    }
}

std::string read_key(const std::filesystem::path &file) {
    make_key(file);
    struct stat state {};
    if (stat(file.c_str(), &state) == 0 && (state.st_mode & 077) != 0) {
        throw std::runtime_error(file.string() + " can be read by others (chmod 600 it)");
    }
    std::string key;
    std::ifstream(file) >> key;
    return key;
}

}  // namespace

void prepare_secrets() {
    if (sodium_init() < 0) {
        throw std::runtime_error("no random numbers on this machine");
    }
}

Vault::Vault(const std::string &given, const std::filesystem::path &file) {
    const Bytes key = unhex(given.empty() ? read_key(file) : given);
    if (key.size() != key_.size()) {
        throw std::runtime_error(given.empty()
                                     ? file.string() + " holds no key"
                                     : "the given secret key is not 64 hexadecimal digits");
    }
    std::copy(key.begin(), key.end(), key_.begin());
}

std::string Vault::seal(const std::string &text) const {
    Bytes sealed(crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES + text.size());
    randombytes_buf(sealed.data(), crypto_secretbox_NONCEBYTES);
    crypto_secretbox_easy(sealed.data() + crypto_secretbox_NONCEBYTES, bytes_of(text), text.size(),
                          sealed.data(), key_.data());
    return hex(sealed.data(), sealed.size());
}

std::string Vault::unseal(const std::string &sealed) const {
    constexpr size_t overhead = crypto_secretbox_NONCEBYTES + crypto_secretbox_MACBYTES;
    const Bytes bytes = unhex(sealed);
    std::string text(bytes.size() < overhead ? 0 : bytes.size() - overhead, '\0');
    if (bytes.size() < overhead ||
        crypto_secretbox_open_easy(reinterpret_cast<unsigned char *>(text.data()),
                                   bytes.data() + crypto_secretbox_NONCEBYTES,
                                   bytes.size() - crypto_secretbox_NONCEBYTES, bytes.data(),
                                   key_.data()) != 0) {
        throw std::runtime_error("what is sealed in the database is not of this key");
    }
    return text;
}

std::string hash_password(const std::string &password) {
    std::string hash(crypto_pwhash_STRBYTES, '\0');
    if (crypto_pwhash_str(hash.data(), password.data(), password.size(),
                          crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
        throw std::runtime_error("no memory to hash a password");
    }
    return hash.c_str();
}

bool is_password(const std::string &hash, const std::string &password) {
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::string random_text(size_t bytes) {
    Bytes random(bytes);
    randombytes_buf(random.data(), random.size());
    return hex(random.data(), random.size());
}

std::string hash_secret(const std::string &secret) {
    std::array<unsigned char, crypto_generichash_BYTES> hash{};
    crypto_generichash(hash.data(), hash.size(), bytes_of(secret), secret.size(), nullptr, 0);
    return hex(hash.data(), hash.size());
}

}  // namespace store
