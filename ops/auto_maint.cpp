#include "ops/maintenance.h"
#include "ops/nx_dev_api.h"

int auto_maint(cJSON *request, cJSON *) {
    maintenance_apply(request, nullptr);  // the daemon gets no text here, unlike after a download
    return 0;
}
