/**
 * A fleet on several brokers of which one dies and one freezes.
 */
#ifndef SOAK_BROKERS_H
#define SOAK_BROKERS_H

namespace soak {

/** Spreads this many agents over three brokers, kills one, starts it again, freezes
 *  another; prints how long the devices could not be commanded, and false when that was
 *  too long, a command ran twice or an upload was lost. */
bool outlive_brokers(int devices);

}  // namespace soak

#endif
