/**
 * The service as a whole.
 */
#ifndef CONTROLLER_SERVICE_H
#define CONTROLLER_SERVICE_H

#include "controller/options.h"

namespace controller {

/** Runs until SIGTERM or SIGINT. Throws std::exception when it cannot start. */
void serve(const Options &options);

}  // namespace controller

#endif
