/**
 * Notices to the network control daemon and the Wi-Fi service.
 */
#ifndef NOTIFY_H
#define NOTIFY_H

/** Module numbers of the network control daemon. */
namespace netctrl {
constexpr int lan = 1;
constexpr int clock = 24;
constexpr int maintenance = 32;
constexpr int led = 37;
constexpr int cloud = 39;
constexpr int identify_os = 61;
}  // namespace netctrl

/** Sends "op=<number>" to a module of the daemon. */
void notify_op(int module, int op);

/** Commits the pending settings and, when that succeeded, sends "op=<number>".
 *  Returns whether the commit succeeded. */
bool commit_and_notify(int module, int op);

/** Commits the pending settings and, when that succeeded, has the Wi-Fi service
 *  restart a radio (0: 2.4 GHz, 1: 5 GHz) on them. Returns whether it did. */
bool commit_and_restart_wifi(int band);

#endif
