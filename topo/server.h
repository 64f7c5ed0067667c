/**
 * Talk with the topology kernel module, and the topology server it reports to.
 */
#ifndef TOPO_SERVER_H
#define TOPO_SERVER_H

#include <cjson/cJSON.h>

#include <atomic>

/** Port of the switch behind which the topology server lies; 224: not known. */
extern std::atomic<int> topo_upport;

/** The configured topology server, empty until the cloud has named one. Written
 *  by `server_info` on the main thread; read copies with `topo_server_get`. */
extern char topo_serverip[64];
extern char topo_serverport[8];
extern char topo_server_proto[16];

struct TopoServer {
    char ip[64];
    char port[8];
    char proto[16];
};

/** A consistent copy of the three texts, and a new set of them. Any thread. */
TopoServer topo_server_get();
void topo_server_set(const TopoServer &server);

/** Command: takes "server_ip" (a number whose highest byte is the first octet),
 *  "server_port" and "server_proto", and tells the module. Always 0. */
int server_info(cJSON *request, cJSON *response);

/** Tells the module which server to use; says nothing when out of memory. Any thread. */
void ntdd_set_server_info(const char *address, const char *port, const char *protocol);

/** Tells the module the interfaces that count: all of them, or none when out of memory. */
void ntdd_set_valid_ifname();

/** Asks the module for the server's port and keeps it in `topo_upport`. */
void ntdd_get_server_in_which_port();

/** Bus callback of the module's port events; runs on the bus's thread. */
void ntdd_server_in_which_port_event_callback(const char *topic, const char *text, int length,
                                              void *user);

/** Sends a value object to the module. 1: null object, else 0. */
int km_net_topo_set_valid_interface(const cJSON *object);
int km_net_topo_set_server_info(const cJSON *object);

/** Asks the module for the server's port: adds "port" and "if_name" to `result`
 *  as far as the answer holds them. 0 when both came or when no answer came;
 *  otherwise nonzero; 1 for a null object. */
int km_net_topo_get_server_in_which_port(cJSON *result);

/** Sends the 20-byte marker packet towards the resolver. Bytes sent, or -1. */
int send_pass_route_data(const char *ip, const char *mac, int unused);

#endif
