#include "cloud/config_file.h"
#include "json.h"
#include "ops/nx_dev_api.h"
#include "platform/nxapi.h"
#include "trace.h"

/** Uploads the configuration for a copy, under the serial number "copy_sn". The
 *  result without an export is that of its trace line: 0 while tracing is off. */
int dev_config_copy_upload(cJSON *request, cJSON *) {
    const char *serial = cJSON_GetObjectStringValue(request, "copy_sn", "");
    const ConfigExport file = export_config();
    if (file.path[0] == '\0') {
        return NX_TRACE("filename is NULL!\n");
    }
    return upload_config(file, config_body_size(file), serial, nx_api_duplicate_config_upload);
}
