#include "net/reserved.h"

int basic_set(cJSON *, cJSON *) {
    return 0;
}
int basic_get(cJSON *, cJSON *) {
    return 0;
}
int route_set(cJSON *, cJSON *) {
    return 0;
}
int port_fwd_set(cJSON *, cJSON *) {
    return 0;
}
int lan_set(cJSON *, cJSON *) {
    return 0;
}
