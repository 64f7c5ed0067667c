#include "topo/iwconfig.h"

#include <cstdio>

#include "file.h"
#include "json.h"
#include "nx_limits.h"
#include "pipe.h"

int iwconfig_get_ifname_rate(const char *ifname, int *rate) {
    if (!shell_word_is_safe(ifname)) {
        return -1;
    }
    char command[limits::line];
    snprintf(command, sizeof command, "iwconfig %s | grep \"Bit Rate\"", ifname);
    const Pipe pipe = pipe_open(command);
    if (!pipe) {
        return -1;
    }
    char line[limits::line];
    read_line(pipe.get(), line);
    float mbit_per_second = 0;
    sscanf(line, "%*s %*s %*s %*s %*[^=]=%f%*s", &mbit_per_second);
    *rate = json_int(double{mbit_per_second} * 1024 / 8);
    return 0;
}
