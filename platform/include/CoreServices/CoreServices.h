/*
 * Umbrella header of the core services this platform layer provides: the
 * basic types and the Component Manager.
 */
#ifndef CORESERVICES_CORESERVICES_H
#define CORESERVICES_CORESERVICES_H

#include <MacTypes.h>
#include <CoreServices/Components.h>

#endif /* CORESERVICES_CORESERVICES_H */
