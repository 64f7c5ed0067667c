#include "topo/device_table.h"

#include <array>
#include <atomic>

#include "platform/devdb.h"

namespace {

constexpr std::array columns{
    db_column{0, "mac", DB_KIND_TEXT, 32, DB_FLAG_KEY},
    db_column{1, "ip", DB_KIND_TEXT, 32, 0},
    db_column{2, "type", DB_KIND_TEXT, 64, 0},
    db_column{3, "port", DB_KIND_INTEGER, 0, 0},
    db_column{4, "sn", DB_KIND_TEXT, 64, 0},
    db_column{5, "project_id", DB_KIND_TEXT, 64, 0},
    db_column{6, "is_neigh", DB_KIND_INTEGER, 0, 0},
    db_column{7, "is_active", DB_KIND_INTEGER, 0, 0},
};

std::atomic<int> is_delayed{0};

}  // namespace

void *alldevs_open() {
    void *table = db_table_init("default", "alldevs", columns.data(), columns.size());
    if (table != nullptr && is_delayed.exchange(1, std::memory_order_relaxed) == 0) {
        db_table_set_delay_sync_memdb(table, 1);
    }
    return table;
}
