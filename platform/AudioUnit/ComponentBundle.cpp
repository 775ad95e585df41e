#include "ComponentBundle.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>

namespace {

/* A CF value of the expected type, or null. */
template <typename Ref> Ref TypedValue(CFTypeRef value, CFTypeID type)
{
    return (value != nullptr && CFGetTypeID(value) == type) ? static_cast<Ref>(value) : nullptr;
}

std::string StringValue(CFTypeRef value)
{
    CFStringRef string = TypedValue<CFStringRef>(value, CFStringGetTypeID());
    if (string == nullptr) {
        return std::string();
    }
    CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(string, &text[0], size, kCFStringEncodingUTF8)) {
        return std::string();
    }
    text.resize(std::strlen(text.c_str()));
    return text;
}

/* A four-character string as its code, first character in the top byte. */
bool FourCharCodeValue(CFTypeRef value, OSType& outCode)
{
    std::string text = StringValue(value);
    if (text.size() != 4) {
        return false;
    }
    outCode = 0;
    for (unsigned char c : text) {
        if (c < 0x20 || c > 0x7E) {
            return false;
        }
        outCode = (outCode << 8) | c;
    }
    return true;
}

} // namespace

ComponentBundle::~ComponentBundle()
{
    for (Entry& entry : mEntries) {
        if (entry.mName != nullptr) {
            CFRelease(entry.mName);
        }
    }
    if (mBundle != nullptr) {
        CFRelease(mBundle);
    }
}

OSStatus ComponentBundle::Load(const std::string& path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return fnfErr;
    }
    if (!S_ISDIR(info.st_mode)) {
        return kAudioUnitErr_InvalidFile;
    }

    CFStringRef pathString =
        CFStringCreateWithCString(kCFAllocatorDefault, path.c_str(), kCFStringEncodingUTF8);
    if (pathString == nullptr) {
        return kAudioUnitErr_InvalidFile;
    }
    CFURLRef url =
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, pathString, kCFURLPOSIXPathStyle, true);
    CFRelease(pathString);
    CFBundleRef bundle = (url != nullptr) ? CFBundleCreate(kCFAllocatorDefault, url) : nullptr;
    if (url != nullptr) {
        CFRelease(url);
    }
    if (bundle == nullptr) {
        return kAudioUnitErr_InvalidFile;
    }

    CFArrayRef components = TypedValue<CFArrayRef>(
        CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("AudioComponents")), CFArrayGetTypeID());
    std::string executable =
        StringValue(CFBundleGetValueForInfoDictionaryKey(bundle, CFSTR("CFBundleExecutable")));
    OSStatus status = kAudioUnitErr_InvalidFile;
    if (components != nullptr && !executable.empty() && executable.find('/') == std::string::npos) {
        std::string binaryPath = path + "/Contents/Linux/" + executable;
        void* binary = dlopen(binaryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (binary != nullptr) {
            ReadEntries(components, binary);
            if (mEntries.empty()) {
                dlclose(binary);
            } else {
                status = noErr;
            }
        }
    }
    if (status == noErr) {
        mBundle = bundle;
    } else {
        CFRelease(bundle);
    }
    return status;
}

void ComponentBundle::ReadEntries(CFArrayRef components, void* binary)
{
    // Reserved up front so that adding an entry (with its retained name)
    // cannot fail half-way.
    mEntries.reserve(static_cast<size_t>(CFArrayGetCount(components)));
    for (CFIndex i = 0; i < CFArrayGetCount(components); ++i) {
        CFDictionaryRef fields = TypedValue<CFDictionaryRef>(CFArrayGetValueAtIndex(components, i),
                                                             CFDictionaryGetTypeID());
        if (fields == nullptr) {
            continue;
        }
        Entry entry = {};
        if (!FourCharCodeValue(CFDictionaryGetValue(fields, CFSTR("type")),
                               entry.mDescription.componentType) ||
            !FourCharCodeValue(CFDictionaryGetValue(fields, CFSTR("subtype")),
                               entry.mDescription.componentSubType) ||
            !FourCharCodeValue(CFDictionaryGetValue(fields, CFSTR("manufacturer")),
                               entry.mDescription.componentManufacturer)) {
            continue;
        }

        std::string factoryName =
            StringValue(CFDictionaryGetValue(fields, CFSTR("factoryFunction")));
        std::string entryName = StringValue(CFDictionaryGetValue(fields, CFSTR("entryFunction")));
        if (factoryName.empty() && entryName.empty()) {
            continue;
        }
        // A named function that the binary lacks makes the whole component
        // unusable: a host would otherwise open it in one style only.
        if (!factoryName.empty()) {
            entry.mFactory =
                reinterpret_cast<AudioComponentFactoryFunction>(dlsym(binary, factoryName.c_str()));
            if (entry.mFactory == nullptr) {
                continue;
            }
        }
        if (!entryName.empty()) {
            entry.mEntry =
                reinterpret_cast<ComponentRoutineProcPtr>(dlsym(binary, entryName.c_str()));
            if (entry.mEntry == nullptr) {
                continue;
            }
        }

        CFNumberRef version = TypedValue<CFNumberRef>(
            CFDictionaryGetValue(fields, CFSTR("version")), CFNumberGetTypeID());
        SInt64 versionValue = 0;
        if (version != nullptr && CFNumberGetValue(version, kCFNumberSInt64Type, &versionValue)) {
            entry.mVersion = static_cast<UInt32>(versionValue);
        }
        CFStringRef name = TypedValue<CFStringRef>(CFDictionaryGetValue(fields, CFSTR("name")),
                                                   CFStringGetTypeID());
        entry.mName = (name != nullptr) ? static_cast<CFStringRef>(CFRetain(name)) : nullptr;
        mEntries.push_back(entry);
    }
}
