/**
 * Checks of the diagnosis that ping.
 */
#ifndef NET_REACHABILITY_H
#define NET_REACHABILITY_H

#include <cjson/cJSON.h>

#include <cstddef>

/** What to ping and how. */
struct PingRequest {
    int ip_version;   /**< 4 or 6 */
    int count;        /**< echo requests */
    int size;         /**< payload bytes of each */
    int wait;         /**< seconds to wait for each reply */
    const char *host; /**< address or host name */
};

/** Runs the ping tool and keeps the first `size` - 1 bytes of what it prints,
 *  errors included; `output` is always terminated then. 0: it ran, whatever came
 *  of it; 1: no safe host, a command of more than 255 bytes (which would lose its count
 *  when cut, and ping for ever), or it did not start, each announced on standard
 *  output. */
int cmd_get_ping_output(const PingRequest *request, char *output, size_t size);

/** What the output of a ping tells. */
struct PingVerdict {
    bool answered; /**< a reply came */
    bool fast;     /**< five replies or more, on average within 50 ms */
};

/** Judges the tool's output: a header line, then one line a reply with "ttl=" and
 *  "time=", in milliseconds, of which the fraction is dropped. A reply without
 *  both makes the whole output worthless. Cuts the text into its lines in place. */
PingVerdict judge_ping(char *output);

/** Appends record 4, the LAN gateway. 0; -1: out of memory, nothing appended.
 *  Blocks while the ping waits, up to 3 seconds. */
int check_ping_gate(cJSON *list);

/** Appends records 12 and 13, whether the cloud server answers, and fast. 0: it
 *  answers; -1: it does not, or out of memory, then nothing is appended. Blocks
 *  while its name is looked up and the pings wait, up to 3 seconds each. */
int check_ping_norvex(cJSON *list);

#endif
