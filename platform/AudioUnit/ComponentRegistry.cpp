#include "ComponentRegistry.h"

#include "ComponentBundle.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace {

bool IsDirectory(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool HasSuffix(const std::string& text, const std::string& suffix)
{
    return text.size() > suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/* The canonical form of a path (symbolic links resolved), so that a bundle
   reached through two paths loads once; the path itself when it cannot be
   resolved. */
std::string CanonicalPath(const std::string& path)
{
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
}

} // namespace

ComponentRegistry& ComponentRegistry::Shared()
{
    static ComponentRegistry* sRegistry = new ComponentRegistry(); // lives until the process ends
    return *sRegistry;
}

bool ComponentRegistry::Matches(const AudioComponentDescription& component,
                                const AudioComponentDescription& search)
{
    return (search.componentType == 0 || search.componentType == component.componentType) &&
           (search.componentSubType == 0 ||
            search.componentSubType == component.componentSubType) &&
           (search.componentManufacturer == 0 ||
            search.componentManufacturer == component.componentManufacturer) &&
           ((component.componentFlags ^ search.componentFlags) & search.componentFlagsMask) == 0;
}

RegisteredComponent* ComponentRegistry::Add(const AudioComponentDescription& description,
                                            CFStringRef name, UInt32 version,
                                            AudioComponentFactoryFunction factory,
                                            ComponentRoutineProcPtr entry)
{
    CFStringRef retainedName =
        (name != nullptr) ? static_cast<CFStringRef>(CFRetain(name)) : nullptr;
    std::unique_ptr<RegisteredComponent> component(
        new (std::nothrow) RegisteredComponent{description, retainedName, version, factory, entry});
    if (component == nullptr) {
        if (retainedName != nullptr) {
            CFRelease(retainedName);
        }
        return nullptr;
    }
    component->mDescription.componentFlagsMask = 0;
    RegisteredComponent* handle = component.get();
    try {
        std::lock_guard<std::mutex> lock(mMutex);
        mComponentHandles.insert(handle);
        try {
            // A failed push_back leaves the component with its owner here.
            mComponents.push_back(std::move(component));
        } catch (const std::bad_alloc&) {
            mComponentHandles.erase(handle);
            throw;
        }
    } catch (const std::bad_alloc&) {
        if (retainedName != nullptr) {
            CFRelease(retainedName);
        }
        return nullptr;
    }
    return handle;
}

RegisteredComponent* ComponentRegistry::FindNext(const RegisteredComponent* after,
                                                 const AudioComponentDescription* description,
                                                 bool entryPointOnly)
{
    EnsureScanned();
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = mComponents.begin();
    if (after != nullptr) {
        it = std::find_if(
            mComponents.begin(), mComponents.end(),
            [after](const std::unique_ptr<RegisteredComponent>& c) { return c.get() == after; });
        if (it == mComponents.end()) {
            return nullptr;
        }
        ++it;
    }
    for (; it != mComponents.end(); ++it) {
        const RegisteredComponent& component = **it;
        if ((!entryPointOnly || component.mEntry != nullptr) &&
            (description == nullptr || Matches(component.mDescription, *description))) {
            return it->get();
        }
    }
    return nullptr;
}

UInt32 ComponentRegistry::Count(const AudioComponentDescription* description)
{
    EnsureScanned();
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<UInt32>(
        std::count_if(mComponents.begin(), mComponents.end(),
                      [description](const std::unique_ptr<RegisteredComponent>& c) {
                          return description == nullptr || Matches(c->mDescription, *description);
                      }));
}

bool ComponentRegistry::IsComponent(const void* handle)
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mComponentHandles.count(handle) != 0;
}

bool ComponentRegistry::AddInstance(ComponentInstanceRecord* instance)
{
    try {
        std::lock_guard<std::mutex> lock(mMutex);
        mInstances.insert(instance);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool ComponentRegistry::ClaimInstance(ComponentInstanceRecord* instance)
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mInstances.erase(instance) != 0;
}

bool ComponentRegistry::IsInstance(const void* handle)
{
    std::lock_guard<std::mutex> lock(mMutex);
    return mInstances.count(handle) != 0;
}

OSStatus ComponentRegistry::AddBundle(const char* path)
{
    if (path == nullptr) {
        return paramErr;
    }
    EnsureScanned();
    return LoadBundle(path);
}

OSStatus ComponentRegistry::LoadBundle(const std::string& path)
{
    std::lock_guard<std::mutex> bundleLock(mBundleMutex);
    std::string canonical = CanonicalPath(path);
    if (mLoadedBundles.count(canonical) != 0) {
        return noErr;
    }
    ComponentBundle bundle;
    OSStatus status = bundle.Load(path);
    if (status != noErr) {
        return status;
    }
    mLoadedBundles.insert(canonical);
    mBundles.push_back(bundle.Bundle());
    CFRetain(bundle.Bundle());
    for (const ComponentBundle::Entry& entry : bundle.Entries()) {
        if (Add(entry.mDescription, entry.mName, entry.mVersion, entry.mFactory, entry.mEntry) ==
            nullptr) {
            return memFullErr;
        }
    }
    return noErr;
}

void ComponentRegistry::EnsureScanned()
{
    std::call_once(mScanOnce, [this] { Scan(); });
}

void ComponentRegistry::Scan()
{
    // A folder or bundle that cannot be read is skipped: one broken plug-in
    // must not hide the others.
    if (const char* list = std::getenv("AU_COMPONENT_PATH")) {
        std::string paths(list);
        size_t start = 0;
        while (start <= paths.size()) {
            size_t end = paths.find(':', start);
            if (end == std::string::npos) {
                end = paths.size();
            }
            if (end > start) {
                ScanFolderOrBundle(paths.substr(start, end - start));
            }
            start = end + 1;
        }
    }
    if (const char* home = std::getenv("HOME")) {
        ScanFolderOrBundle(std::string(home) + "/Library/Audio/Plug-Ins/Components");
    }
    ScanFolderOrBundle("/Library/Audio/Plug-Ins/Components");
}

void ComponentRegistry::ScanFolderOrBundle(const std::string& path)
{
    if (!IsDirectory(path)) {
        return;
    }
    if (IsDirectory(path + "/Contents")) {
        LoadBundle(path);
        return;
    }
    DIR* folder = opendir(path.c_str());
    if (folder == nullptr) {
        return;
    }
    std::vector<std::string> bundles;
    while (const dirent* item = readdir(folder)) {
        std::string name(item->d_name);
        if (HasSuffix(name, ".component")) {
            bundles.push_back(path + "/" + name);
        }
    }
    closedir(folder);
    // Sorted, so that the order of look-ups does not depend on the file
    // system.
    std::sort(bundles.begin(), bundles.end());
    for (const std::string& bundle : bundles) {
        LoadBundle(bundle);
    }
}
