// The test bundle's two exported functions.
#include "AUPluginDispatch.h"
#include "GainEffect.h"

AU_EXPORT_COMPONENT_ENTRIES(GainEffect, GainTestEntry, GainTestFactory)
