/**
 * The net family of commands.
 */
#ifndef NET_NET_API_H
#define NET_NET_API_H

/** Registers the family with the cloud library. 0, or -1. */
int net_api();

#endif
