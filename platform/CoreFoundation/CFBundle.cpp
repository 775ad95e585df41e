// Bundles: folders with Contents/Info.plist, Contents/Resources and the
// executable in Contents/Linux.
//
// A process-wide registry makes bundles unique per folder. Bundles created
// by callers are held weakly (the last CFRelease removes them); bundles found
// around loaded shared objects are held by the registry until the process
// ends, since the code they carry stays loaded. Localized string tables are
// parsed once per bundle, language folder and table, and kept with the
// bundle; the language itself is read from the environment at every call so
// that a change of locale takes effect at once.
#include "CFRuntimeBase.h"
#include "CFStringsTable.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <vector>

struct __CFBundle final : CFRuntimeBase
{
    __CFBundle(std::string path, CFDictionaryRef info)
        : CFRuntimeBase(kCFRuntimeTypeIDBundle, false), mPath(std::move(path)), mInfo(info)
    {
    }
    ~__CFBundle() override;

    std::string description() const override { return "CFBundle " + mPath; }

    std::string contentsPath() const { return mPath + "/Contents"; }
    std::string resourcesPath() const { return contentsPath() + "/Resources"; }
    CFStringRef infoString(CFStringRef key) const;
    // Borrowed table for a language folder ("" for Resources itself); NULL
    // when the file is missing or unreadable.
    CFDictionaryRef stringsTable(const std::string& lproj, const std::string& table);

    const std::string mPath;
    const CFDictionaryRef mInfo;
    std::mutex mMutex;
    std::map<std::string, CFDictionaryRef> mTables;
    void* mHandle = nullptr;
};

namespace {

struct BundleRegistry
{
    std::mutex mMutex;
    std::map<std::string, __CFBundle*> mByPath;
    std::vector<__CFBundle*> mKeptAlive;
    std::set<std::string> mExaminedObjects;
};

BundleRegistry& registry()
{
    // Never destroyed: bundles may be released during other libraries'
    // static destruction.
    static BundleRegistry* sRegistry = new BundleRegistry;
    return *sRegistry;
}

__CFBundle* asBundle(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFBundle>(cf, kCFRuntimeTypeIDBundle);
}

bool isDirectory(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The whole file, read with plain system calls: a C++ file stream would
// build the process's first locale, which costs more than the read itself.
bool readFile(const std::string& path, std::vector<UInt8>& bytes)
{
    struct Descriptor
    {
        const int fd;
        ~Descriptor()
        {
            if (fd >= 0) {
                close(fd);
            }
        }
    } file{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    struct stat info;
    if (file.fd < 0 || fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    // The size is a hint: reading goes on to the end, should the file grow.
    bytes.resize(static_cast<size_t>(info.st_size) + 1);
    size_t used = 0;
    for (;;) {
        if (used == bytes.size()) {
            bytes.resize(bytes.size() * 2);
        }
        const ssize_t got = read(file.fd, bytes.data() + used, bytes.size() - used);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (got == 0) {
            break;
        }
        used += static_cast<size_t>(got);
    }
    bytes.resize(used);
    return true;
}

std::string canonicalPath(const std::string& path)
{
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : std::string();
}

// The canonical path of a loaded file, with the folders already resolved
// (canonical form by folder) reused: most libraries share a few folders, and
// resolving a whole path costs a system call per component. A link to a name
// in its own folder (a library's version link) is followed here; a regular
// file keeps its name in its folder's canonical form; anything else is
// resolved whole.
std::string canonicalObjectPath(const std::string& path,
                                std::map<std::string, std::string>& folders)
{
    constexpr int kMaxLinks = 40;
    std::string current = path;
    for (int links = 0; links <= kMaxLinks; ++links) {
        const size_t slash = current.rfind('/');
        struct stat info
        {
        };
        if (slash == std::string::npos || lstat(current.c_str(), &info) != 0) {
            break;
        }
        if (S_ISLNK(info.st_mode)) {
            char target[PATH_MAX];
            const ssize_t length = readlink(current.c_str(), target, sizeof target);
            if (length <= 0 || length >= static_cast<ssize_t>(sizeof target) ||
                std::memchr(target, '/', static_cast<size_t>(length)) != nullptr) {
                break;
            }
            current.replace(slash + 1, std::string::npos, target, static_cast<size_t>(length));
            continue;
        }
        if (!S_ISREG(info.st_mode)) {
            break;
        }
        auto folder = folders.try_emplace(current.substr(0, slash)).first;
        if (folder->second.empty()) {
            folder->second = canonicalPath(slash == 0 ? "/" : folder->first);
            if (folder->second.empty()) {
                return std::string();
            }
        }
        return (folder->second == "/" ? std::string() : folder->second) + current.substr(slash);
    }
    return canonicalPath(current);
}

// Owned Info.plist dictionary, empty when the file is missing or invalid.
CFDictionaryRef readInfo(const std::string& bundlePath)
{
    std::vector<UInt8> bytes;
    if (readFile(bundlePath + "/Contents/Info.plist", bytes) && !bytes.empty()) {
        if (CFDictionaryRef info = CFRuntimeCreateDictionaryFromPropertyList(bytes)) {
            return info;
        }
    }
    return CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0,
                              &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
}

// Registry entry for a canonical folder path, retained for the caller, or a
// new bundle. The registry lock must be held.
__CFBundle* bundleForPathLocked(BundleRegistry& reg, const std::string& path)
{
    auto found = reg.mByPath.find(path);
    if (found != reg.mByPath.end() && found->second->retainIfAlive()) {
        return found->second;
    }
    auto* bundle = new __CFBundle(path, readInfo(path));
    reg.mByPath[path] = bundle;
    return bundle;
}

// The bundle folder around a loaded file at <Bundle>/Contents/<dir>/<file>,
// or "" when the file does not sit in one.
std::string bundleFolderOf(const std::string& file)
{
    static const std::string kContents = "/Contents/";
    size_t at = file.rfind(kContents);
    while (at != std::string::npos) {
        const std::string rest = file.substr(at + kContents.size());
        const size_t slash = rest.find('/');
        if (at > 0 && slash != std::string::npos && slash > 0 && slash + 1 < rest.size() &&
            rest.find('/', slash + 1) == std::string::npos) {
            return file.substr(0, at);
        }
        at = at > 0 ? file.rfind(kContents, at - 1) : std::string::npos;
    }
    return std::string();
}

int collectObjectName(struct dl_phdr_info* info, size_t, void* data)
{
    auto* names = static_cast<std::vector<std::string>*>(data);
    if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0') {
        names->emplace_back(info->dlpi_name);
    }
    return 0;
}

// Makes the bundles around every loaded shared object (and the main
// program) known to the registry, which keeps them alive. Lock held.
void examineLoadedObjectsLocked(BundleRegistry& reg)
{
    std::vector<std::string> names;
    dl_iterate_phdr(collectObjectName, &names);
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        names.emplace_back(self, static_cast<size_t>(length));
    }
    std::map<std::string, std::string> canonicalFolders;
    for (const std::string& name : names) {
        if (!reg.mExaminedObjects.insert(name).second) {
            continue;
        }
        std::string folder = bundleFolderOf(name);
        if (folder.empty()) {
            folder = bundleFolderOf(canonicalObjectPath(name, canonicalFolders));
        }
        folder = folder.empty() ? folder : canonicalPath(folder);
        if (folder.empty() || !isDirectory(folder + "/Contents")) {
            continue;
        }
        __CFBundle* bundle = bundleForPathLocked(reg, folder);
        reg.mKeptAlive.push_back(bundle);
    }
}

__CFBundle* findByIdentifierLocked(BundleRegistry& reg, CFStringRef bundleID)
{
    for (const auto& entry : reg.mByPath) {
        __CFBundle* bundle = entry.second;
        if (bundle->retainCount() > 0 &&
            CFEqual(bundle->infoString(CFSTR("CFBundleIdentifier")), bundleID)) {
            return bundle;
        }
    }
    return nullptr;
}

const char* legacyLanguageName(const std::string& code)
{
    static const std::map<std::string, const char*> kNames = {
        {"en", "English"}, {"fr", "French"},   {"de", "German"}, {"es", "Spanish"},
        {"it", "Italian"}, {"ja", "Japanese"}, {"nl", "Dutch"},  {"sv", "Swedish"},
        {"da", "Danish"},  {"fi", "Finnish"},  {"ko", "Korean"}, {"pt", "Portuguese"}};
    auto found = kNames.find(code);
    return found != kNames.end() ? found->second : nullptr;
}

// Language folder names to try, in order: the locale's language (with
// region, plain, legacy name), the bundle's development region, English.
std::vector<std::string> languageFolders(const __CFBundle& bundle)
{
    std::vector<std::string> names;
    auto addLanguage = [&names](const std::string& tag) {
        std::string code = tag.substr(0, tag.find_first_of(".@"));
        if (code.empty() || code == "C" || code == "POSIX") {
            return;
        }
        std::string language = code.substr(0, code.find_first_of("_-"));
        const std::vector<std::string> forms = {
            code, language, legacyLanguageName(language) ? legacyLanguageName(language) : ""};
        for (const std::string& form : forms) {
            if (!form.empty() && std::find(names.begin(), names.end(), form) == names.end()) {
                names.push_back(form);
            }
        }
    };
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && value[0] != '\0') {
            addLanguage(value);
            break;
        }
    }
    addLanguage(CFRuntimeUTF8(bundle.infoString(CFSTR("CFBundleDevelopmentRegion"))));
    addLanguage("en");
    for (std::string& name : names) {
        name += ".lproj";
    }
    return names;
}

std::string withoutLeadingDot(std::string type)
{
    return !type.empty() && type[0] == '.' ? type.substr(1) : type;
}

} // namespace

__CFBundle::~__CFBundle()
{
    {
        BundleRegistry& reg = registry();
        std::lock_guard<std::mutex> lock(reg.mMutex);
        auto found = reg.mByPath.find(mPath);
        if (found != reg.mByPath.end() && found->second == this) {
            reg.mByPath.erase(found);
        }
    }
    for (const auto& entry : mTables) {
        CFRelease(entry.second);
    }
    CFRelease(mInfo);
}

CFStringRef __CFBundle::infoString(CFStringRef key) const
{
    CFTypeRef value = CFDictionaryGetValue(mInfo, key);
    return CFGetTypeID(value) == CFStringGetTypeID() ? static_cast<CFStringRef>(value) : nullptr;
}

CFDictionaryRef __CFBundle::stringsTable(const std::string& lproj, const std::string& table)
{
    const std::string folder = lproj.empty() ? resourcesPath() : resourcesPath() + "/" + lproj;
    const std::string key = folder + "/" + table;
    std::lock_guard<std::mutex> lock(mMutex);
    auto found = mTables.find(key);
    if (found != mTables.end()) {
        return found->second;
    }
    std::vector<UInt8> bytes;
    CFDictionaryRef parsed = nullptr;
    if (readFile(folder + "/" + table + ".strings", bytes)) {
        parsed = CFStringsTable::create(bytes);
    }
    mTables.emplace(key, parsed);
    return parsed;
}

CFTypeID CFBundleGetTypeID(void)
{
    return kCFRuntimeTypeIDBundle;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL)
{
    char path[PATH_MAX];
    if (!CFURLGetFileSystemRepresentation(bundleURL, true, reinterpret_cast<UInt8*>(path),
                                          sizeof path)) {
        return nullptr;
    }
    const std::string folder = canonicalPath(path);
    if (folder.empty() || !isDirectory(folder)) {
        return nullptr;
    }
    BundleRegistry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mMutex);
    return bundleForPathLocked(reg, folder);
}

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID)
{
    if (CFGetTypeID(bundleID) != CFStringGetTypeID()) {
        return nullptr;
    }
    BundleRegistry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mMutex);
    if (__CFBundle* bundle = findByIdentifierLocked(reg, bundleID)) {
        return bundle;
    }
    examineLoadedObjectsLocked(reg);
    return findByIdentifierLocked(reg, bundleID);
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle)
{
    const __CFBundle* value = asBundle(bundle);
    return value != nullptr ? value->infoString(CFSTR("CFBundleIdentifier")) : nullptr;
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle)
{
    const __CFBundle* value = asBundle(bundle);
    return value != nullptr ? value->mInfo : nullptr;
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key)
{
    const __CFBundle* value = asBundle(bundle);
    return value != nullptr ? CFDictionaryGetValue(value->mInfo, key) : nullptr;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle)
{
    const __CFBundle* value = asBundle(bundle);
    if (value == nullptr) {
        return nullptr;
    }
    return CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(value->mPath.data()),
        static_cast<CFIndex>(value->mPath.size()), true);
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle)
{
    const __CFBundle* value = asBundle(bundle);
    if (value == nullptr) {
        return nullptr;
    }
    const std::string path = value->resourcesPath();
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), true);
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle)
{
    const __CFBundle* value = asBundle(bundle);
    if (value == nullptr) {
        return nullptr;
    }
    const std::string name = CFRuntimeUTF8(value->infoString(CFSTR("CFBundleExecutable")));
    if (name.empty()) {
        return nullptr;
    }
    const std::string path = value->contentsPath() + "/Linux/" + name;
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), false);
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName)
{
    const __CFBundle* value = asBundle(bundle);
    if (value == nullptr || CFGetTypeID(resourceName) != CFStringGetTypeID()) {
        return nullptr;
    }
    const std::string type = withoutLeadingDot(CFRuntimeUTF8(resourceType));
    const std::string file = CFRuntimeUTF8(resourceName) + (type.empty() ? "" : "." + type);
    const std::string subdir = CFRuntimeUTF8(subDirName);
    std::vector<std::string> folders = {""};
    for (const std::string& lproj : languageFolders(*value)) {
        folders.push_back(lproj);
    }
    for (const std::string& lproj : folders) {
        std::string path = value->resourcesPath();
        for (const std::string& part : {lproj, subdir, file}) {
            path += part.empty() ? "" : "/" + part;
        }
        struct stat info;
        if (stat(path.c_str(), &info) == 0) {
            return CFURLCreateFromFileSystemRepresentation(
                kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
                static_cast<CFIndex>(path.size()), S_ISDIR(info.st_mode));
        }
    }
    return nullptr;
}

CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key, CFStringRef value,
                                        CFStringRef tableName)
{
    const bool useValue = CFGetTypeID(value) == CFStringGetTypeID() && CFStringGetLength(value) > 0;
    CFStringRef fallback = useValue ? value : key;
    __CFBundle* target = asBundle(bundle);
    if (CFGetTypeID(key) != CFStringGetTypeID()) {
        return useValue ? CFStringCreateCopy(kCFAllocatorDefault, value)
                        : CFRuntimeCreateString("");
    }
    if (target != nullptr) {
        std::string table = CFRuntimeUTF8(tableName);
        table = table.empty() ? "Localizable" : table;
        std::vector<std::string> folders = languageFolders(*target);
        folders.push_back("");
        for (const std::string& lproj : folders) {
            CFTypeRef found = CFDictionaryGetValue(target->stringsTable(lproj, table), key);
            if (CFGetTypeID(found) == CFStringGetTypeID()) {
                return static_cast<CFStringRef>(CFRetain(found));
            }
        }
    }
    return CFStringCreateCopy(kCFAllocatorDefault, fallback);
}

Boolean CFBundleLoadExecutable(CFBundleRef bundle)
{
    __CFBundle* value = asBundle(bundle);
    if (value == nullptr) {
        return false;
    }
    CFURLRef url = CFBundleCopyExecutableURL(bundle);
    char path[PATH_MAX];
    const bool havePath =
        url != nullptr &&
        CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path);
    CFRelease(url);
    // The executable stays loaded for the life of the process, even after the
    // bundle is released: its code may still be running or referenced.
    std::lock_guard<std::mutex> lock(value->mMutex);
    if (value->mHandle == nullptr && havePath) {
        value->mHandle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    }
    return value->mHandle != nullptr;
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName)
{
    __CFBundle* value = asBundle(bundle);
    if (value == nullptr || CFGetTypeID(functionName) != CFStringGetTypeID() ||
        !CFBundleLoadExecutable(bundle)) {
        return nullptr;
    }
    const std::string name = CFRuntimeUTF8(functionName);
    std::lock_guard<std::mutex> lock(value->mMutex);
    return dlsym(value->mHandle, name.c_str());
}
