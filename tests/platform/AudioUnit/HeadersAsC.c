/* The platform headers compiled as strict C11 into the registry test, so
   that their static assertions pin the record layouts for C as they do for
   C++. */
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreServices/CoreServices.h>
