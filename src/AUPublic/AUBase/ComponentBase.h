// ComponentBase: the root of every unit's class tree, and the two ways a host
// opens one.
//
// Why: a host reaches a unit either through the component entry point (every
// call is a parameter block with a selector; the unit object is kept as the
// component's instance storage) or through the audio-component factory (the
// host gets an instance record with Open, Close and Lookup; the unit object is
// built in place inside that record). ComponentBase carries what both styles
// need to know about an instance: the host's handle and which style opened it.
//
// Lifecycle: construct (under the process-wide open mutex) -> PostConstructor
// -> any number of selector calls -> PreDestructor -> destroy. Construction
// and PostConstructor are serialized by ComponentInitLocker, a recursive mutex
// set up once through pthread_once, so that the process-wide statics touched
// while a unit is being built need no locks of their own.
//
// Thread tags used in this folder's headers: [render] runs on the host's
// audio thread (no allocation, no lock, no system call, no exception
// escaping); [control] runs on host control threads; [any] may run anywhere.
#ifndef COMPONENTBASE_H
#define COMPONENTBASE_H

#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <pthread.h>

#include <cstddef>

// The component's own base: instance handle and opening style.
class ComponentBase
{
public:
    enum
    {
        kComponentMgrInstance = 0,  // opened through the component entry point
        kAudioComponentInstance = 1 // opened through the factory's instance record
    };

    // The opening style handed to the object under construction. Differs from
    // kComponentMgrInstance only while a factory open holds the open mutex.
    static UInt32 sNewInstanceType;

    // Stores the host's handle and copies sNewInstanceType. [control]
    explicit ComponentBase(AudioComponentInstance inInstance);

    // Virtual operations, in this slot order: destructors, PostConstructor,
    // PreDestructor, Version.
    virtual ~ComponentBase();
    // Second phase of construction, run under the open mutex right after the
    // constructor; may throw (the open then fails and the object is destroyed).
    // [control]
    virtual void PostConstructor();
    // Run before the object is destroyed by a close. [control]
    virtual void PreDestructor();
    // The component's version number (answer to the version selector). [any]
    virtual OSStatus Version();

    // The host's handle of this instance (not owned) and its opening style.
    // [any]
    AudioComponentInstance GetComponentInstance() const { return mComponentInstance; }
    UInt32 GetInstanceType() const { return mInstanceType; }

    // Type, subtype, manufacturer, flags and mask of this instance's component,
    // looked up through the audio-component runtime (factory instances) or the
    // component manager; all zero when the look-up is unavailable or fails.
    // [control]
    AudioComponentDescription GetComponentDescription() const;

    // Factory style: the instance record's Open and Close. `self` is the record
    // (see AudioComponentPlugInInstance). Open constructs the unit in place and
    // runs PostConstructor; on failure it destroys what was built, frees the
    // whole record and returns the converted status, so the caller must not
    // touch the record again. Close runs PreDestructor, destroys the unit and
    // frees the record; if that throws, the record stays allocated and the
    // converted status is returned. [control]
    static OSStatus AP_Open(void* self, AudioComponentInstance inInstance);
    static OSStatus AP_Close(void* self);

    // The selectors every component answers: version, can-do (for version,
    // can-do, close and open), close (PreDestructor, then delete). A null
    // object gives paramErr; any other selector badComponentSelector. [control]
    static OSStatus ComponentEntryDispatch(ComponentParameters* params, ComponentBase* This);

    // For a can-do call, the selector asked about (low 16 bits of slot 1,
    // signed); 0 for any other call. [any]
    static SInt16 GetSelectorForCanDo(ComponentParameters* params);

protected:
    AudioComponentInstance mComponentInstance;
    UInt32 mInstanceType;
};

// Serializes unit construction process-wide and hands the opening style to the
// object under construction: the constructor locks the recursive open mutex
// and sets ComponentBase::sNewInstanceType, the destructor restores the
// previous type and unlocks, so every exit path of an open does both. [control]
class ComponentInitLocker
{
public:
    explicit ComponentInitLocker(UInt32 inNewInstanceType);
    ~ComponentInitLocker();

    ComponentInitLocker(const ComponentInitLocker&) = delete;
    ComponentInitLocker& operator=(const ComponentInitLocker&) = delete;

private:
    static void InitComponentInitLocker();

    static pthread_mutex_t sComponentOpenMutex;
    static pthread_once_t sOnce;

    UInt32 mPreviousInstanceType;
};

// Layout of the factory's instance record: the platform's plug-in interface,
// then the construct and destruct functions of the unit class, then the unit
// object itself, built in place at offset kInstanceStorageOffset.
struct AudioComponentPlugInInstance
{
    AudioComponentPlugInInterface mPlugInInterface;
    void* (*mConstruct)(void* memory, AudioComponentInstance inInstance);
    void (*mDestruct)(void* memory);
    void* mPad[2];
};

// Where the unit object starts inside an instance record; 16-byte aligned
// because the record comes from malloc.
constexpr std::size_t kInstanceStorageOffset = 64;

static_assert(sizeof(AudioComponentPlugInInterface) == 32, "plug-in interface is four pointers");
static_assert(offsetof(AudioComponentPlugInInstance, mConstruct) == 32, "construct at 32");
static_assert(offsetof(AudioComponentPlugInInstance, mDestruct) == 40, "destruct at 40");
static_assert(offsetof(AudioComponentPlugInInstance, mPad) == 48, "two spare words at 48");
static_assert(sizeof(AudioComponentPlugInInstance) == kInstanceStorageOffset,
              "unit storage follows the record header");

// The unit object stored in an instance record. [any]
inline void* AudioComponentPlugInInstanceStorage(void* inRecord)
{
    return static_cast<char*>(inRecord) + kInstanceStorageOffset;
}

// Component-manager instance storage, looked up once at run time; reads give
// null and writes are dropped when the component manager is unavailable. [any]
char** CMgr_GetComponentInstanceStorage(ComponentInstance inInstance);
void CMgr_SetComponentInstanceStorage(ComponentInstance inInstance, char** inStorage);

// One-time run-time look-up of the component manager's instance-storage and
// component-info functions. The first call tries once; later calls do nothing.
// [control]
void CSInit();

#endif
