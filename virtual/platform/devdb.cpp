/* Device database: platform/devdb.h. A table is a file of the folder. */
#include "platform/devdb.h"

#include <algorithm>
#include <cstdio>
#include <list>
#include <stdexcept>
#include <string_view>

#include "virtual/device/effect.h"
#include "virtual/folder/files.h"
#include "virtual/folder/json.h"
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

/** A handle: it outlives the device on which it was got, as its owner does. */
struct Table {
    std::string database, name;

    std::filesystem::path file() const {
        return folder() / "db" / (database + "." + name + ".json");
    }
};

std::mutex tables_mutex;

std::list<Table> &tables() {
    static std::list<Table> &all = *new std::list<Table>;
    return all;
}

bool table_word(const char *text) {
    const std::string_view word = text == nullptr ? "" : text;
    return !word.empty() && word.find_first_not_of(
                                "abcdefghijklmnopqrstuvwxyz"
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                "0123456789_-") == word.npos;
}

/** The columns as JSON; null when one makes no sense. */
Json column_list(const db_column *columns, int count) {
    Json list = Json::array();
    for (int i = 0; columns != nullptr && i < count; i++) {
        const db_column &column = columns[i];
        const bool text = column.kind == DB_KIND_TEXT;
        if (column.index != i || !table_word(column.name) || column.width < (text ? 1 : 0) ||
            (!text && column.kind != DB_KIND_INTEGER)) {
            return nullptr;
        }
        list.push_back({{"name", column.name},
                        {"kind", text ? "text" : "integer"},
                        {"width", column.width},
                        {"key", (column.flags & DB_FLAG_KEY) != 0}});
    }
    return list.empty() ? Json() : list;
}

/** What a table's file holds; null, with a line on standard error, for a broken one. */
Json read_table(const Table &table) {
    const std::optional<std::string> text = read_file(table.file());
    if (!text) {
        return Json::object();  // it is new
    }
    try {
        if (Json document = parse_json(*text); document.is_object()) {
            return document;
        }
        throw std::runtime_error("no JSON object");
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "vap: %s: %s\n", table.file().c_str(), error.what());
        return nullptr;
    }
}

bool write_table(const Table &table, const Json &document) {
    return make_folders(table.file().parent_path()) &&
           replace_file(table.file(), document.dump(2) + "\n");
}

Table *handle_of(const char *database, const char *name) {
    for (Table &table : tables()) {
        if (table.database == database && table.name == name) {
            return &table;
        }
    }
    return &tables().emplace_back(Table{database, name});
}

/** Declares the columns in the table's file; its rows stay. */
Table *declare(const char *database, const char *name, const Json &columns) {
    if (!table_word(database) || !table_word(name) || columns.is_null()) {
        return nullptr;
    }
    const std::lock_guard lock(tables_mutex);
    Table *table = handle_of(database, name);
    Json document = read_table(*table);
    if (document.is_null()) {
        return nullptr;
    }
    document["columns"] = columns;
    document["delayed"] = false;
    if (!document.contains("rows")) {
        document["rows"] = Json::array();
    }
    return write_table(*table, document) ? table : nullptr;
}

}  // namespace
}  // namespace vap

using namespace vap;

extern "C" {

void *db_table_init(const char *database, const char *table, const db_column *columns, int count) {
    const Json list = column_list(columns, count);
    Table *handle = nullptr;
    const int failed =
        effect("db_table_init", Json::array({text_arg(database), text_arg(table), list}), -1, [&] {
            handle = declare(database, table, list);
            return handle != nullptr ? 0 : -1;
        });
    return failed != 0 ? nullptr : handle;
}

int db_table_set_delay_sync_memdb(void *table, int delay) {
    const std::lock_guard lock(tables_mutex);
    const auto found = std::ranges::find_if(tables(), [&](Table &one) { return &one == table; });
    const Json name = found == tables().end() ? Json() : Json(found->database + "." + found->name);
    return effect("db_table_set_delay_sync_memdb", Json::array({name, delay}), -1, [&] {
        if (found == tables().end() || (delay != 0 && delay != 1)) {
            return -1;
        }
        Json document = read_table(*found);
        if (document.is_null()) {
            return -1;
        }
        document["delayed"] = delay == 1;
        return write_table(*found, document) ? 0 : -1;
    });
}

}  // extern "C"
