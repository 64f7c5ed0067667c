/**
 * How the cloud numbers the security settings of an SSID.
 */
#ifndef SSID_SECURITY_H
#define SSID_SECURITY_H

#include <array>

/** An authentication mode; `type` is null where "wpapsk_type" has no meaning. */
struct SsidEncryption {
    int code;
    const char *security; /**< value of "security" */
    const char *type;     /**< value of "wpapsk_type" */
};

inline constexpr std::array<SsidEncryption, 3> ssid_encryptions{{
    {0, "none", nullptr},
    {1, "wpapsk", "psk"},
    {2, "wpapsk", "psk2"},
}};

/** Code of every other mode. */
inline constexpr int ssid_encryption_other = 5;

/** Values of "wpapsk_crypto"; the position is the code. */
inline constexpr std::array<const char *, 3> ssid_ciphers{"aes", "tkip", "tkip+aes"};

#endif
