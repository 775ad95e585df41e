/*
 * Umbrella header of the audio toolbox: here, the audio-unit runtime and the
 * audio data records it exchanges.
 */
#ifndef AUDIOTOOLBOX_AUDIOTOOLBOX_H
#define AUDIOTOOLBOX_AUDIOTOOLBOX_H

#include <CoreAudio/CoreAudioTypes.h>
#include <AudioUnit/AudioUnit.h>

#endif /* AUDIOTOOLBOX_AUDIOTOOLBOX_H */
