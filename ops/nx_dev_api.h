/**
 * The dev family of commands.
 */
#ifndef OPS_NX_DEV_API_H
#define OPS_NX_DEV_API_H

/** Registers the family with the cloud library. 0, or -1. */
int dev_api();

#endif
