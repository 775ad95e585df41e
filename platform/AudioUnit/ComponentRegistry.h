/*
 * The process-wide list of known components and open instances.
 *
 * Components come from bundles (found by the one-time folder scan or named
 * by the host) and from the two registration calls; they stay registered for
 * the life of the process, so the handles given out (AudioComponent and
 * Component are both the address of a RegisteredComponent) never dangle. The
 * folder scan runs on the first look-up: the folders in AU_COMPONENT_PATH
 * (colon-separated; an entry may also be one bundle), then
 * $HOME/Library/Audio/Plug-Ins/Components and
 * /Library/Audio/Plug-Ins/Components. Look-ups list components in
 * registration order.
 *
 * Open instances are tracked so that a handle can be told apart from a
 * component handle (GetComponentInfo accepts both) and so that closing an
 * unknown or already closed instance is refused instead of crashing.
 *
 * All operations are safe from several threads at once; one mutex guards the
 * lists, another serializes bundle loading (so a bundle named twice at once
 * is loaded once). No lock is held while a plug-in's code runs, except the
 * bundle lock while a bundle's binary is loaded.
 */
#ifndef AUDIOUNIT_COMPONENTREGISTRY_H
#define AUDIOUNIT_COMPONENTREGISTRY_H

#include <AudioUnit/AudioUnit.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

/* One registered component. Either function may be null, not both. */
struct RegisteredComponent
{
    AudioComponentDescription mDescription;
    CFStringRef mName; // retained; may be null
    UInt32 mVersion;
    AudioComponentFactoryFunction mFactory;
    ComponentRoutineProcPtr mEntry;
};

class ComponentRegistry
{
public:
    /* The process's registry. [any] */
    static ComponentRegistry& Shared();

    /* Registers a component; the name is retained. Returns it, or null when
       the runtime cannot allocate. [any] */
    RegisteredComponent* Add(const AudioComponentDescription& description, CFStringRef name,
                             UInt32 version, AudioComponentFactoryFunction factory,
                             ComponentRoutineProcPtr entry);

    /* The next component after `after` (null: the first) matching
       `description` (null matches all); entryPointOnly lists only components
       with an entry function. Runs the folder scan first. [any] */
    RegisteredComponent* FindNext(const RegisteredComponent* after,
                                  const AudioComponentDescription* description,
                                  bool entryPointOnly);

    /* Number of components matching description (null matches all). Runs the
       folder scan first. [any] */
    UInt32 Count(const AudioComponentDescription* description);

    /* Whether handle is a registered component. [any] */
    bool IsComponent(const void* handle);

    /* Registers the components of one bundle (see AudioComponentRegisterBundle
       for the layout and the statuses). Runs the folder scan first. [any] */
    OSStatus AddBundle(const char* path);

    /* Instance tracking: AddInstance records a new instance (false when the
       runtime cannot allocate), ClaimInstance removes one and says whether
       it was there, IsInstance tests for one. [any] */
    bool AddInstance(ComponentInstanceRecord* instance);
    bool ClaimInstance(ComponentInstanceRecord* instance);
    bool IsInstance(const void* handle);

    /* Whether a component's description matches a search description: zero
       fields are wildcards, and the flag bits in the search mask must be
       equal. */
    static bool Matches(const AudioComponentDescription& component,
                        const AudioComponentDescription& search);

private:
    ComponentRegistry() = default;

    void EnsureScanned();
    void Scan();
    void ScanFolderOrBundle(const std::string& path);
    OSStatus LoadBundle(const std::string& path);

    std::mutex mMutex;
    std::vector<std::unique_ptr<RegisteredComponent>> mComponents;
    std::unordered_set<const void*> mComponentHandles;
    std::unordered_set<const void*> mInstances;

    std::once_flag mScanOnce;
    std::mutex mBundleMutex;
    std::set<std::string> mLoadedBundles;
    /* The loaded bundles, retained as long as their binaries stay loaded
       (for the life of the process), so that a plug-in's lookup of its own
       bundle by identifier finds it without examining every loaded library. */
    std::vector<CFBundleRef> mBundles;
};

#endif /* AUDIOUNIT_COMPONENTREGISTRY_H */
