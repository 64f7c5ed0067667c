#include "nxapi/mqtt_error.h"

#include <mosquitto.h>
#include <netdb.h>

#include <cstring>

namespace nxapi {

std::string mqtt_error_text(int result, int error) {
    const bool counts = result == MOSQ_ERR_ERRNO || result == MOSQ_ERR_EAI;
    if (result == MOSQ_ERR_SUCCESS || result == MOSQ_ERR_CONN_LOST || (counts && error == 0)) {
        return "the broker closed the connection";
    }
    switch (result) {
        case MOSQ_ERR_ERRNO:
            return std::strerror(error);
        case MOSQ_ERR_EAI:
            return gai_strerror(error);
        case MOSQ_ERR_KEEPALIVE:
            return "the broker no longer answers";
        default:
            return mosquitto_strerror(result);
    }
}

}  // namespace nxapi
