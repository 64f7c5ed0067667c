#include "topo/server.h"

#include <pthread.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "builtin.h"
#include "heap.h"
#include "json.h"
#include "platform/holymsg.h"
#include "store.h"
#include "trace.h"

std::atomic<int> topo_upport{224};

char topo_serverip[64];
char topo_serverport[8];
char topo_server_proto[16];

namespace {

constexpr const char *module_topic = "net_topo.to_kernel";

/** Command codes of the module, sent in native byte order. */
enum : int32_t { set_valid_interface = 2, set_server_info = 3, get_server_port = 4 };

pthread_mutex_t server_mutex = PTHREAD_MUTEX_INITIALIZER;

class ServerLock {
  public:
    ServerLock() { pthread_mutex_lock(&server_mutex); }
    ~ServerLock() { pthread_mutex_unlock(&server_mutex); }
    ServerLock(const ServerLock &) = delete;
    ServerLock &operator=(const ServerLock &) = delete;
};

/** Sends a command code with an object behind it, as text with its NUL. 0; 1: no
 *  object, or out of memory. */
int publish(int32_t code, const cJSON *object) {
    const JsonText text(object != nullptr ? cJSON_Print(object) : nullptr);
    if (!text) {
        return 1;
    }
    const size_t text_size = strlen(text.get()) + 1;
    const Heap<char> message(static_cast<char *>(malloc(sizeof code + text_size)));
    if (!message) {
        return 1;
    }
    memcpy(message.get(), &code, sizeof code);
    memcpy(message.get() + sizeof code, text.get(), text_size);
    holymsg_publish(module_topic, message.get(), static_cast<int>(sizeof code + text_size));
    return 0;
}

/** Keeps the port of an answer or event of the module. False: it holds none. */
bool take_port(const cJSON *object) {
    const cJSON *port = cJSON_GetObjectItem(object, "port");
    if (!cJSON_IsNumber(port)) {
        return false;
    }
    topo_upport.store(json_int(port->valuedouble), std::memory_order_relaxed);
    return true;
}

/* ---- interfaces that count --------------------------------------------- */

struct Interface {
    const char *name;
    const char *type;
};

constexpr std::array interfaces{
    Interface{"br0", "lan"},   Interface{"eth0", "wan"},      Interface{"wlan0", "lan"},
    Interface{"wlan1", "lan"}, Interface{"wlan0-vxd", "wan"}, Interface{"wlan1-vxd", "wan"},
};

/** Settings of the VLAN ids whose interfaces count. The module expects the last one
 *  twice. */
constexpr std::array vlan_keys{"manage.vlanid", "lan.2.vlanid", "wlan1.0_bss_vlanid",
                               "wlan1.0_bss_vlanid"};

bool add_interface(cJSON *ifnames, const char *name, const char *type) {
    cJSON *interface = json_append(ifnames, json_object());
    return json_add_string(interface, "name", name) != nullptr &&
           json_add_string(interface, "type", type) != nullptr;
}

/** False: out of memory, and the list is not whole. */
bool add_interfaces(cJSON *ifnames) {
    bool whole = true;
    for (const Interface &row : interfaces) {
        whole = whole && add_interface(ifnames, row.name, row.type);
    }
    if (store_int("wl.0.vlan.enable") == 1 && store_int("qvlan_mode_enable") == 1) {
        for (const char *key : vlan_keys) {
            char name[64];
            snprintf(name, sizeof name, "vlan%s", store_get(key).text);
            whole = whole && add_interface(ifnames, name, "lan");
        }
    }
    return whole;
}

}  // namespace

TopoServer topo_server_get() {
    TopoServer server;
    const ServerLock lock;
    text_copy(server.ip, topo_serverip);
    text_copy(server.port, topo_serverport);
    text_copy(server.proto, topo_server_proto);
    return server;
}

void topo_server_set(const TopoServer &server) {
    const ServerLock lock;
    text_copy(topo_serverip, server.ip);
    text_copy(topo_serverport, server.port);
    text_copy(topo_server_proto, server.proto);
}

void ntdd_set_server_info(const char *address, const char *port, const char *protocol) {
    struct Member {
        JsonKey name;
        const char *value;
    };
    const std::array members{
        Member{"server_proto", protocol},   Member{"server_ip", address},
        Member{"server_port", port},        Member{"pass_throuth_ip", NX_RESOLVER},
        Member{"pass_throuth_port", "514"},
    };
    const Json info = json_object();
    for (const Member &row : members) {
        if (json_add_string(info.get(), row.name, row.value) == nullptr) {
            return;
        }
    }
    km_net_topo_set_server_info(info.get());
}

void ntdd_set_valid_ifname() {
    const Json info = json_object();
    if (add_interfaces(json_add_array(info.get(), "ifnames"))) {
        km_net_topo_set_valid_interface(info.get());
    }
}

void ntdd_get_server_in_which_port() {
    const Json result = json_object();
    km_net_topo_get_server_in_which_port(result.get());
    if (take_port(result.get())) {
        NX_TRACE("topo_upport is:%d\n", topo_upport.load(std::memory_order_relaxed));
    }
}

void ntdd_server_in_which_port_event_callback(const char *, const char *text, int, void *) {
    const Json event(cJSON_Parse(text));
    if (take_port(event.get())) {
        NX_TRACE("server in port %d\n", topo_upport.load(std::memory_order_relaxed));
    }
    if (const char *name = cJSON_GetObjectStringValue(event.get(), "if_name", nullptr)) {
        NX_TRACE("if_name %s\n", name);
    }
}

int km_net_topo_set_valid_interface(const cJSON *object) {
    return publish(set_valid_interface, object);
}

int km_net_topo_set_server_info(const cJSON *object) {
    return publish(set_server_info, object);
}

int km_net_topo_get_server_in_which_port(cJSON *result) {
    if (result == nullptr) {
        return 1;
    }
    const int32_t code = get_server_port;
    cJSON *answer = nullptr;
    const int answered = holymsg_publish_and_respond(module_topic, &code, sizeof code, &answer);
    const Json owner(answer);
    if (answered == 0) {
        return 0;
    }
    const Json data(cJSON_Parse(cJSON_GetObjectStringValue(answer, "data", "")));
    const cJSON *port = cJSON_GetObjectItem(data.get(), "port");
    const char *name = cJSON_GetObjectStringValue(data.get(), "if_name", nullptr);
    if (cJSON_IsNumber(port)) {
        json_add_number(result, "port", port->valuedouble);
    }
    if (name != nullptr) {
        json_add_string(result, "if_name", name);
    }
    return cJSON_IsNumber(port) && name != nullptr ? 0 : answered;
}
