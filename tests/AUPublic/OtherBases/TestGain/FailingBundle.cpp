// A bundle whose unit never opens: construction fails for an instance opened
// through the entry point (a thrown OSErr), PostConstructor fails for one
// opened through the factory (std::bad_alloc). Exercises both open paths'
// clean-up through the runtime.
#include "AUPluginDispatch.h"
#include "GainEffect.h"

#include <new>

class FailingEffect : public GainEffect
{
public:
    explicit FailingEffect(AudioComponentInstance inInstance) : GainEffect(inInstance)
    {
        if (mInstanceType == kComponentMgrInstance) {
            throw static_cast<OSErr>(-50);
        }
    }

    void PostConstructor() override
    {
        GainEffect::PostConstructor();
        throw std::bad_alloc();
    }
};

AU_EXPORT_COMPONENT_ENTRIES(FailingEffect, FailingTestEntry, FailingTestFactory)
