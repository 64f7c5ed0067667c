#include "topo/neighbours.h"

#include <cstdio>

#include "file.h"
#include "json.h"
#include "store.h"

namespace {

/** One line of the file; fields that its line lacks are empty. */
struct Neighbour {
    char mac[18];
    char ip[16];
    char type[8];
    char port[8];
    char serial[24];
    char project_id[8];
    char is_neighbour[8];
    char is_active[8];
};

/** Reads the fields up to the first that is empty or too long; the ones after
 *  it stay empty, so a device without a serial number is no neighbour. */
Neighbour read_neighbour(const char *line) {
    Neighbour device{};
    sscanf(line,
           "mac=%17[^~]~ip=%15[^~]~type=%7[^~]~port=%7[^~]~sn=%23[^~]~project_id=%7[^~]~"
           "is_neigh=%7[^~]~is_active=%7[^~]~",
           device.mac, device.ip, device.type, device.port, device.serial, device.project_id,
           device.is_neighbour, device.is_active);
    return device;
}

void add_neighbour(cJSON *object, const Neighbour &device) {
    cJSON *entry = json_add_named(object, device.mac, json_object());
    json_add_string(entry, "mac", device.mac);
    json_add_string(entry, "ip", device.ip);
    json_add_string(entry, "type", device.type);
    json_add_string(entry, "sn", device.serial);
    json_add_number(entry, "project_id", text_int(device.project_id));
}

}  // namespace

int topo_devs_get(cJSON *object, int switch_port, int neighbours) {
    if (neighbours == 0) {
        return 0;
    }
    const File file(fopen("/tmp/file_topo", "re"));
    char line[256];
    while (file && read_line(file.get(), line)) {
        const Neighbour device = read_neighbour(line);
        if (text_int(device.is_neighbour) == 1 && text_int(device.port) == switch_port) {
            add_neighbour(object, device);
        }
    }
    return 0;
}
