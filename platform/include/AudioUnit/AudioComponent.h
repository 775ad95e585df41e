/*
 * Audio components: the newer of the two ways a host finds and opens a
 * plug-in. A component is registered with a factory function; opening an
 * instance calls the factory, which returns the plug-in's instance record
 * (Open, Close, Lookup). The runtime then calls Open(self, instance), looks up
 * one method per selector with Lookup and calls it as method(self, args...),
 * and finally calls Close(self) when the host disposes of the instance.
 *
 * Components come from bundles and from the two registration calls
 * (AudioComponentRegister here, RegisterComponent of the Component Manager),
 * and are listed by AudioComponentFindNext in registration order. The first
 * look-up of the process scans for bundles (X.component folders, layout at
 * AudioComponentRegisterBundle), following symbolic links and skipping
 * bundles that do not load, in this order: the folders (or single bundles)
 * named in the environment variable AU_COMPONENT_PATH, colon-separated; then
 * $HOME/Library/Audio/Plug-Ins/Components; then
 * /Library/Audio/Plug-Ins/Components. A host adds other bundles with
 * AudioComponentRegisterBundle. A component that has only an entry function
 * is opened through it; the host does not need to know which style an
 * instance uses.
 *
 * Thread tags: [control] host control threads; [any] any thread.
 */
#ifndef AUDIOUNIT_AUDIOCOMPONENT_H
#define AUDIOUNIT_AUDIOCOMPONENT_H

#include <MacTypes.h>
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>

/* The runtime library exports these functions; plug-ins look some of them up
   at run time by name. */
#ifndef AU_EXPORT
#define AU_EXPORT extern __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct OpaqueAudioComponent* AudioComponent;
/* The same record type as a Component Manager ComponentInstance. */
typedef struct ComponentInstanceRecord* AudioComponentInstance;

/* A component's identity: 20 bytes. Zero fields of a search description are
   wildcards; componentFlagsMask selects the flag bits that must match. */
typedef struct AudioComponentDescription
{
    OSType componentType;
    OSType componentSubType;
    OSType componentManufacturer;
    UInt32 componentFlags;
    UInt32 componentFlagsMask;
} AudioComponentDescription;

typedef UInt32 AudioComponentFlags;
enum
{
    kAudioComponentFlag_Unsearchable = 1,
    kAudioComponentFlag_SandboxSafe = 2,
    kAudioComponentFlag_IsV3AudioUnit = 4,
    kAudioComponentFlag_RequiresAsyncInstantiation = 8,
    kAudioComponentFlag_CanLoadInProcess = 0x10
};

/* Statuses of component look-up and instantiation. */
enum
{
    kAudioComponentErr_InstanceTimedOut = -66754,
    kAudioComponentErr_InstanceInvalidated = -66749,
    kAudioComponentErr_DuplicateDescription = -66752,
    kAudioComponentErr_UnsupportedType = -66751,
    kAudioComponentErr_TooManyInstances = -66750,
    kAudioComponentErr_NotPermitted = -66748,
    kAudioComponentErr_InitializationTimedOut = -66747,
    kAudioComponentErr_InvalidFormat = -66746
};

/* A method handed out by Lookup; called as method(self, the host call's
   arguments...). */
typedef OSStatus (*AudioComponentMethod)(void* self, ...);

/* The first 32 bytes of a plug-in's instance record. The runtime passes the
   record's address as self to every function. Open gets the instance handle
   the host will use; Lookup returns null for a selector the plug-in does not
   answer. */
typedef struct AudioComponentPlugInInterface
{
    OSStatus (*Open)(void* self, AudioComponentInstance mInstance);
    OSStatus (*Close)(void* self);
    AudioComponentMethod (*Lookup)(SInt16 selector);
    void* reserved;
} AudioComponentPlugInInterface;

/* A plug-in's factory: returns a new instance record, null on failure. */
typedef AudioComponentPlugInInterface* (*AudioComponentFactoryFunction)(
    const AudioComponentDescription* inDesc);

/* Next component after inComponent (null: from the start) matching inDesc
   (null matches all); null when there is none. The first call of any
   component function in the process scans the plug-in folders. [control] */
AU_EXPORT AudioComponent AudioComponentFindNext(AudioComponent inComponent,
                                                const AudioComponentDescription* inDesc);

/* Number of components matching inDesc (null matches all). [control] */
AU_EXPORT UInt32 AudioComponentCount(const AudioComponentDescription* inDesc);

/* The component's name in *outName; the caller owns (releases) it. paramErr
   for a null or unknown component or a null outName. [control] */
AU_EXPORT OSStatus AudioComponentCopyName(AudioComponent inComponent, CFStringRef* outName);

/* The component's description (componentFlagsMask 0). paramErr for a null or
   unknown component or a null outDesc. [control] */
AU_EXPORT OSStatus AudioComponentGetDescription(AudioComponent inComponent,
                                                AudioComponentDescription* outDesc);

/* The component's version (from its bundle, or as registered). paramErr for
   a null or unknown component. [control] */
AU_EXPORT OSStatus AudioComponentGetVersion(AudioComponent inComponent, UInt32* outVersion);

/* Registers a factory component, in this process only. The name is retained.
   Returns the component, or null for a null description or factory. [control] */
AU_EXPORT AudioComponent AudioComponentRegister(const AudioComponentDescription* inDesc,
                                                CFStringRef inName, UInt32 inVersion,
                                                AudioComponentFactoryFunction inFactory);

/* Linux runtime extension: makes the components of one bundle known, as the
   folder scan does for the bundles it finds. A bundle is a folder
   X.component/Contents/ with Info.plist and the binary at
   Contents/Linux/<CFBundleExecutable> (loaded with RTLD_NOW | RTLD_LOCAL).
   Info.plist holds "AudioComponents", an array of dictionaries with "type",
   "subtype", "manufacturer" (four-character strings), "name" (string),
   "version" (number) and the symbol names of its functions, at least one:
   "factoryFunction" (the audio-component factory) and "entryFunction" (this
   runtime's key for the Component Manager entry function). A component
   without "entryFunction" opens through its factory only and is not listed
   by FindNextComponent; one without "factoryFunction" opens through its
   entry function either way. An entry whose symbols are missing or whose
   codes are malformed is skipped. Registering a bundle twice
   registers it once. Returns noErr; paramErr for null; fnfErr when the path
   does not exist; kAudioUnitErr_InvalidFile when it is not a loadable
   component bundle. [control] */
AU_EXPORT OSStatus AudioComponentRegisterBundle(const char* bundlePath);

/* Opens an instance: through the factory when the component has one, else
   through its entry function. Returns noErr and *outInstance, or the
   plug-in's open status with *outInstance = null (nothing is left open);
   paramErr for null or unknown arguments. [control] */
AU_EXPORT OSStatus AudioComponentInstanceNew(AudioComponent inComponent,
                                             AudioComponentInstance* outInstance);

/* Closes an instance opened either way. Returns the plug-in's close status;
   the handle is invalid afterwards in every case. paramErr for a null or
   unknown instance. [control] */
AU_EXPORT OSStatus AudioComponentInstanceDispose(AudioComponentInstance inInstance);

/* The component an instance was opened from; null for null. [any] */
AU_EXPORT AudioComponent AudioComponentInstanceGetComponent(AudioComponentInstance inInstance);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus)
static_assert(sizeof(AudioComponentDescription) == 20, "component description is 20 bytes");
static_assert(offsetof(AudioComponentDescription, componentFlagsMask) == 16, "flags mask at 16");
static_assert(sizeof(AudioComponentPlugInInterface) == 32, "plug-in interface is 32 bytes");
static_assert(offsetof(AudioComponentPlugInInterface, Lookup) == 16, "Lookup at 16");
#else
_Static_assert(sizeof(AudioComponentDescription) == 20, "component description is 20 bytes");
_Static_assert(offsetof(AudioComponentDescription, componentFlagsMask) == 16, "flags mask at 16");
_Static_assert(sizeof(AudioComponentPlugInInterface) == 32, "plug-in interface is 32 bytes");
_Static_assert(offsetof(AudioComponentPlugInInterface, Lookup) == 16, "Lookup at 16");
#endif

#endif /* AUDIOUNIT_AUDIOCOMPONENT_H */
