/*
 * Component Manager: the older of the two ways a host finds and opens a
 * plug-in. A component is a description (type, subtype, manufacturer) plus an
 * entry function; every call to an open instance reaches that one function as
 * a parameter block carrying a selector. The instance keeps one pointer-sized
 * storage word for the plug-in's object, which the plug-in sets while handling
 * the open selector and receives back with every later call.
 *
 * Handles are shared with the audio-component API: a ComponentInstance and an
 * AudioComponentInstance are the same type, so an instance opened either way
 * can be passed to every AudioUnit call.
 *
 * Thread tags: [control] host control threads; [any] any thread.
 */
#ifndef CORESERVICES_COMPONENTS_H
#define CORESERVICES_COMPONENTS_H

#include <MacTypes.h>
#include <stddef.h>

/* The runtime library exports these functions; plug-ins look some of them up
   at run time by name. */
#ifndef CS_EXPORT
#define CS_EXPORT extern __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ComponentRecord* Component;
typedef struct ComponentInstanceRecord* ComponentInstance;

/* A component call's result: a 32-bit status. */
typedef SInt32 ComponentResult;

/* A component's identity: 20 bytes. Zero fields of a search description are
   wildcards; componentFlagsMask selects the flag bits that must match. */
typedef struct ComponentDescription
{
    OSType componentType;
    OSType componentSubType;
    OSType componentManufacturer;
    UInt32 componentFlags;
    UInt32 componentFlagsMask;
} ComponentDescription;

/* One call to a component entry function. Slot 0 of params holds the
   instance; slots 1, 2, ... the call's arguments in the order of the host
   call. A 32-bit integer or float argument sits in the low 4 bytes of its
   slot (the upper 4 bytes are zero); a pointer fills the slot. paramSize is
   the number of argument bytes (8 per argument, the instance slot excluded). */
typedef struct ComponentParameters
{
    UInt8 flags;
    UInt8 paramSize;
    SInt16 what;
    UInt32 padding;
    long params[1];
} ComponentParameters;

/* The component entry function: the call's block and the instance's storage
   word (null while the open selector runs). */
typedef ComponentResult (*ComponentRoutineProcPtr)(ComponentParameters* cp,
                                                   Handle componentStorage);
typedef ComponentRoutineProcPtr ComponentRoutineUPP;

/* Selectors every component answers. */
enum
{
    kComponentOpenSelect = -1,
    kComponentCloseSelect = -2,
    kComponentCanDoSelect = -3,
    kComponentVersionSelect = -4,
    kComponentRegisterSelect = -5,
    kComponentTargetSelect = -6,
    kComponentUnregisterSelect = -7,
    kComponentGetMPWorkFunctionSelect = -8,
    kComponentExecuteWiredActionSelect = -9,
    kComponentGetPublicResourceSelect = -10
};

/* Component Manager statuses. badComponentSelector is outside the range of
   a C enumerator, hence a macro. */
enum
{
    invalidComponentID = -3000,
    validInstancesExist = -3001,
    componentNotCaptured = -3002,
    componentDontRegister = -3003,
    unresolvedComponentDLLErr = -3004,
    retryComponentRegistrationErr = -3005
};
#define badComponentInstance ((ComponentResult)0x80008001)
#define badComponentSelector ((ComponentResult)0x80008002)

/* Registration scope for RegisterComponent. */
enum
{
    registerComponentGlobal = 1,
    registerComponentNoDuplicates = 2,
    registerComponentAfterExisting = 4,
    registerComponentAliasesOnly = 8
};

/* Next component after aComponent (null: from the start) whose description
   matches looking (null matches all); null when there is none. Only
   components with an entry function are listed. The first call of any
   component function in the process scans the plug-in folders. [control] */
CS_EXPORT Component FindNextComponent(Component aComponent, ComponentDescription* looking);

/* Registers an entry-point component. componentName, when non-null and
   *componentName non-null, is a Pascal string (length byte, then the bytes);
   componentInfo and componentIcon are ignored. Returns the component, or null
   for a null description or entry. global is accepted and ignored. [control] */
CS_EXPORT Component RegisterComponent(ComponentDescription* cd,
                                      ComponentRoutineUPP componentEntryPoint, SInt16 global,
                                      Handle componentName, Handle componentInfo,
                                      Handle componentIcon);

/* Opens an instance through the component's entry function (open selector,
   -1). Returns noErr and *ci, or the entry's open status with *ci = null
   (no instance is left behind); paramErr for a null argument;
   invalidComponentID for an unknown component or one without an entry
   function. The caller closes it with CloseComponent. [control] */
CS_EXPORT OSErr OpenAComponent(Component aComponent, ComponentInstance* ci);

/* Closes an instance opened either way (entry close selector -2, or the
   factory record's Close). Returns the plug-in's status; the handle is
   invalid afterwards in every case. paramErr for a null or unknown instance.
   [control] */
CS_EXPORT OSErr CloseComponent(ComponentInstance aComponentInstance);

/* The instance's storage word; null until set or for a null instance. [any] */
CS_EXPORT Handle GetComponentInstanceStorage(ComponentInstance aComponentInstance);

/* Sets the instance's storage word; the instance does not own it. [any] */
CS_EXPORT void SetComponentInstanceStorage(ComponentInstance aComponentInstance, Handle theStorage);

/* Describes a component, or the component of an instance passed in its place.
   Fills *cd when cd is non-null (componentFlagsMask 0). When componentName and
   *componentName are non-null, writes the name as a Pascal string into
   *componentName, which must have room for 256 bytes (a Str255), truncated to
   255 bytes. componentInfo and componentIcon are ignored. Returns noErr, or
   invalidComponentID for a handle that is neither. [control] */
CS_EXPORT OSErr GetComponentInfo(Component aComponent, ComponentDescription* cd,
                                 Handle componentName, Handle componentInfo, Handle componentIcon);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus)
static_assert(sizeof(ComponentDescription) == 20, "component description is 20 bytes");
static_assert(offsetof(ComponentParameters, what) == 2, "selector at 2");
static_assert(offsetof(ComponentParameters, params) == 8, "argument slots start at 8");
static_assert(sizeof(((ComponentParameters*)0)->params[0]) == 8, "argument slots are 8 bytes");
static_assert(sizeof(ComponentResult) == 4, "component result is 32-bit");
#else
_Static_assert(sizeof(ComponentDescription) == 20, "component description is 20 bytes");
_Static_assert(offsetof(ComponentParameters, what) == 2, "selector at 2");
_Static_assert(offsetof(ComponentParameters, params) == 8, "argument slots start at 8");
_Static_assert(sizeof(((ComponentParameters*)0)->params[0]) == 8, "argument slots are 8 bytes");
_Static_assert(sizeof(ComponentResult) == 4, "component result is 32-bit");
#endif

#endif /* CORESERVICES_COMPONENTS_H */
