/**
 * Secrets: what is sealed at rest, and what is kept as a hash alone.
 */
#ifndef CONTROLLER_STORE_VAULT_H
#define CONTROLLER_STORE_VAULT_H

#include <array>
#include <filesystem>
#include <string>

namespace store {

/** Seals texts with a key. Any thread. */
class Vault {
  public:
    /** Reads the key, 32 bytes as hexadecimal digits: from `given` unless that is empty,
     *  otherwise from the file, which is made with mode 0600 when it is missing. Throws
     *  std::runtime_error for what is no key and for a file that others can read. */
    Vault(const std::string &given, const std::filesystem::path &file);

    /** Hexadecimal digits of a nonce and the sealed text. */
    std::string seal(const std::string &text) const;

    /** The text; throws std::runtime_error when it was sealed with another key or changed. */
    std::string unseal(const std::string &sealed) const;

  private:
    std::array<unsigned char, 32> key_{};
};

/** Prepares libsodium; before anything else here, once or more. */
void prepare_secrets();

/** argon2id; takes about 50 ms and 64 MiB. */
std::string hash_password(const std::string &password);
bool is_password(const std::string &hash, const std::string &password);

/** `bytes` random ones as hexadecimal digits. */
std::string random_text(size_t bytes);

/** The hash by which a random secret is found again. */
std::string hash_secret(const std::string &secret);

}  // namespace store

#endif
