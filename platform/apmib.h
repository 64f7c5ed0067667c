/**
 * Configuration store: text values under dotted keys, and the factory values.
 *
 * One set of pending writes belongs to the whole process: a write is seen by
 * every later read at once, and the next commit, whoever makes it, saves all of
 * them. Store calls return nonzero on success and 0 on failure; they may be
 * called from any thread.
 */
#ifndef PLATFORM_APMIB_H
#define PLATFORM_APMIB_H

#ifdef __cplusplus
extern "C" {
#endif

/** Longest value, its terminating NUL counted. Every buffer that is handed to
 *  `GetValue` or `ApmibGetValue` must be at least this long. */
#define APMIB_VALUE_MAX 1024

/** Longest key, its terminating NUL counted. */
#define APMIB_KEY_MAX 96

/** Opens the store; call once before all others. 0: the store cannot be read. */
int apmib_init(void);

/**
 * Reads a configuration value.
 * @param key    dotted key, NUL-terminated
 * @param value  at least APMIB_VALUE_MAX bytes; "" when the key is absent
 * @return nonzero when the key is present, also with an empty value
 */
int GetValue(const char *key, char *value);

/** Sets a value in the pending set. 0: the key or the value is too long or
 *  holds no valid text; nothing is changed. */
int SetValue(const char *key, const char *value);

/** Saves the pending set; afterwards it is empty. 0: nothing was saved and the
 *  pending set stays as it was. */
int CommitCfm(void);

/** Identifiers of `apmib_get`: the BSSID of an SSID slot, 6 bytes each. */
enum {
    APMIB_BSSID_SLOT0 = 203,
    APMIB_BSSID_SLOT1 = 303, /**< slots 1 to 4: 303 to 306 */
    APMIB_BSSID_SLOT5 = 511  /**< slots 5 to 7: 511 to 513 */
};

/** Reads a binary value of the access-point store into `value` (6 bytes for
 *  every identifier above). 0: unknown identifier, `value` untouched. */
int apmib_get(int id, void *value);

/** Factory values, such as "ZQ_ATE_SN" (serial number), with the same rules as
 *  the three calls above. A factory restore keeps them. */
int ApmibGetValue(const char *key, char *value);
int ApmibSetValue(const char *key, const char *value);
int ApmibCommitCfm(void);

#ifdef __cplusplus
}
#endif

#endif
