/**
 * The discovery and topology daemons, which the process monitor keeps running.
 */
#ifndef TOPO_DAEMONS_H
#define TOPO_DAEMONS_H

/** Writes "/etc/lldpd.conf", always six lines, with the device's serial number up to a
 *  line end and the project in "nx.project.id", none if that is no number; then starts
 *  the link-layer discovery daemon, or restarts the one that runs. Any thread. */
void nx_start_lldpd();

/** Puts the current project into line 3 of "/etc/lldpd.conf" and ends the daemon;
 *  the monitor starts it again. A project id that is neither empty nor a number
 *  leaves the line as it is. */
void nx_restart_lldpd();

/** Start a daemon that does not run yet. The monitor's answer: nonzero when it
 *  runs already, otherwise what starting it gave, below 0 on failure (logged). */
int nx_start_ssdpd();
int nx_start_ndtt();

#endif
