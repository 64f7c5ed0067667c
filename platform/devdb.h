/** Device database. All calls may be made from any thread. */
#ifndef PLATFORM_DEVDB_H
#define PLATFORM_DEVDB_H

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds and flags of a column. */
enum { DB_KIND_INTEGER = 0, DB_KIND_TEXT = 1 };
enum { DB_FLAG_KEY = 1 };

/** A column of a table. */
typedef struct db_column {
    int index; /**< position, from 0 */
    const char *name;
    int kind;
    int width; /**< bytes of a text, NUL included; 0 for an integer */
    int flags;
} db_column;

/** Declares a table and opens it, creating it when it is not there; the columns
 *  are copied. Returns its handle, which lives as long as the process; null:
 *  failure. */
void *db_table_init(const char *database, const char *table, const db_column *columns, int count);

/** Switches a table between immediate (0) and delayed (1) saving. 0: done. */
int db_table_set_delay_sync_memdb(void *table, int delay);

#ifdef __cplusplus
}
#endif

#endif
