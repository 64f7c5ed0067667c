#include <cstdint>
#include <cstdio>

#include "json.h"
#include "store.h"
#include "topo/server.h"
#include "trace.h"

int server_info(cJSON *request, cJSON *) {
    const JsonText text(cJSON_Print(request));
    NX_TRACE("\ntopo server info :%s\n", text ? text.get() : "");
    const auto ip = static_cast<uint32_t>(cJSON_GetObjectIntValue(request, "server_ip", 0));
    TopoServer server;
    snprintf(server.ip, sizeof server.ip, "%u.%u.%u.%u", ip >> 24, ip >> 16 & 0xff, ip >> 8 & 0xff,
             ip & 0xff);
    snprintf(server.port, sizeof server.port, "%d",
             cJSON_GetObjectIntValue(request, "server_port", 0));
    text_copy(server.proto, cJSON_GetObjectStringValue(request, "server_proto", "tcp"));
    topo_server_set(server);
    NX_TRACE("get server info successfully,server_ip:%s, server_port:%s\n", server.ip, server.port);
    ntdd_set_server_info(server.ip, server.port, server.proto);
    return 0;
}
