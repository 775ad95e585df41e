/*
 * Umbrella header of the audio-unit runtime: audio components, the host API,
 * properties, and (as on the platform) the Component Manager and the audio
 * data records.
 */
#ifndef AUDIOUNIT_AUDIOUNIT_H
#define AUDIOUNIT_AUDIOUNIT_H

#include <MacTypes.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreServices/Components.h>
#include <AudioUnit/AudioComponent.h>
#include <AudioUnit/AUComponent.h>
#include <AudioUnit/AudioUnitProperties.h>

#endif /* AUDIOUNIT_AUDIOUNIT_H */
