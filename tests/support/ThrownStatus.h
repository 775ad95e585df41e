// Framework calls report errors by throwing an OSStatus; tests compare it.
#ifndef THROWNSTATUS_H
#define THROWNSTATUS_H

#include <CoreServices/CoreServices.h>

// The status a call throws, or noErr.
template <class F> OSStatus ThrownStatus(F&& inCall)
{
    try {
        inCall();
    } catch (OSStatus status) {
        return status;
    }
    return noErr;
}

#endif
