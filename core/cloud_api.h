/**
 * The cloud family of commands.
 */
#ifndef CORE_CLOUD_API_H
#define CORE_CLOUD_API_H

/** Registers the family with the cloud library. 0, or -1. */
int cloud_api();

#endif
