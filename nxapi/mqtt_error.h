/**
 * Why libmosquitto could not do what it was asked for.
 */
#ifndef NXAPI_MQTT_ERROR_H
#define NXAPI_MQTT_ERROR_H

#include <string>

namespace nxapi {

/** What an MOSQ_ERR number means; `error` is the errno that came with it. A result that
 *  tells of no fault stands for a connection that ended without one. */
std::string mqtt_error_text(int result, int error);

}  // namespace nxapi

#endif
