/**
 * Sites, what their devices shall be, and how far each device is. Times are seconds since
 * 1970; what is sealed is sealed by the caller.
 */
#ifndef CONTROLLER_STORE_SITE_TABLES_H
#define CONTROLLER_STORE_SITE_TABLES_H

#include <string>

#include "controller/store/sql.h"

namespace store {

/** {"id", "document", "version", "sealed", "configuration_version"}, the last two of the
 *  newest configuration or null. */
Json sites(Sql &sql);

/** The id of a new site, whose version is 0; 0 when there is one of this name. */
long long make_site(Sql &sql, const std::string &name, const std::string &document);

/** False when another site has this name, or this one is not of the version before. */
bool change_site(Sql &sql, long long id, const std::string &name, const std::string &document,
                 long long version);
void forget_site(Sql &sql, long long id);

/** Keeps a further version of a site's configuration; false when there is one of this
 *  number. */
struct Version {
    long long site = 0, number = 0, made_at = 0;
    std::string made_by;
};
bool save_configuration(Sql &sql, const Version &version, const std::string &sealed);

/** {"version", "made_at", "made_by"} of all that are kept, newest first. */
Json configuration_versions(Sql &sql, long long site);

/** {"sealed"} of one; null for none. */
Json configuration(Sql &sql, long long site, long long version);

/** {"serial", "overrides", "knowledge"} of all devices. */
Json progress(Sql &sql);

void save_knowledge(Sql &sql, const std::string &serial, const std::string &text);
void save_overrides(Sql &sql, const std::string &serial, const Json &sealed);

}  // namespace store

#endif
