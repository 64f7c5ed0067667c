#include "notify.h"

#include <cstdio>

#include "platform/apmib.h"
#include "platform/systool.h"

void notify_op(int module, int op) {
    char text[16];
    snprintf(text, sizeof text, "op=%d", op);
    send_msg_to_netctrl(module, text);
}

bool commit_and_notify(int module, int op) {
    const bool committed = CommitCfm() != 0;
    if (committed) {
        notify_op(module, op);
    }
    return committed;
}

bool commit_and_restart_wifi(int band) {
    constexpr int restart = 1;
    const bool committed = CommitCfm() != 0;
    if (committed) {
        send_wifi_msg_handle(restart, band);
    }
    return committed;
}
