// File URLs. The path is kept as given (minus trailing slashes) together
// with its absolute form, resolved against the working directory at
// creation, so later changes of directory do not move the URL.
#include "CFRuntimeBase.h"

#include <cstring>
#include <unistd.h>

struct __CFURL final : CFRuntimeBase
{
    __CFURL(std::string path, std::string absolute, bool isDirectory)
        : CFRuntimeBase(kCFRuntimeTypeIDURL, false), mPath(std::move(path)),
          mAbsolute(std::move(absolute)), mDirectory(isDirectory)
    {
    }

    bool equals(const CFRuntimeBase& other) const override
    {
        const auto& url = static_cast<const __CFURL&>(other);
        return mAbsolute == url.mAbsolute && mDirectory == url.mDirectory;
    }
    CFHashCode hash() const override { return std::hash<std::string>()(mAbsolute); }
    std::string description() const override
    {
        return "file://" + mAbsolute + (mDirectory && mAbsolute != "/" ? "/" : "");
    }

    const std::string mPath;
    const std::string mAbsolute;
    const bool mDirectory;
};

namespace {

__CFURL* asURL(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFURL>(cf, kCFRuntimeTypeIDURL);
}

std::string withoutTrailingSlashes(std::string path)
{
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

__CFURL* makeURL(const std::string& rawPath, bool isDirectory)
{
    if (rawPath.empty()) {
        return nullptr;
    }
    std::string path = withoutTrailingSlashes(rawPath);
    std::string absolute = path;
    if (path[0] != '/') {
        char cwd[4096];
        if (getcwd(cwd, sizeof cwd) == nullptr) {
            return nullptr;
        }
        absolute = withoutTrailingSlashes(cwd) + (std::strcmp(cwd, "/") == 0 ? "" : "/") + path;
    }
    return new __CFURL(std::move(path), std::move(absolute), isDirectory);
}

} // namespace

CFTypeID CFURLGetTypeID(void)
{
    return kCFRuntimeTypeIDURL;
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory)
{
    if (pathStyle != kCFURLPOSIXPathStyle || CFGetTypeID(filePath) != CFStringGetTypeID()) {
        return nullptr;
    }
    return makeURL(CFRuntimeUTF8(filePath), isDirectory != 0);
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory)
{
    if (buffer == nullptr || bufLen <= 0) {
        return nullptr;
    }
    std::string path(reinterpret_cast<const char*>(buffer), static_cast<size_t>(bufLen));
    path.resize(std::strlen(path.c_str()));
    return makeURL(path, isDirectory != 0);
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef, CFURLRef url,
                                               CFStringRef pathComponent, Boolean isDirectory)
{
    const __CFURL* base = asURL(url);
    if (base == nullptr || CFGetTypeID(pathComponent) != CFStringGetTypeID()) {
        return nullptr;
    }
    const std::string component = CFRuntimeUTF8(pathComponent);
    const std::string separator = base->mPath == "/" ? "" : "/";
    const std::string absoluteSeparator = base->mAbsolute == "/" ? "" : "/";
    return new __CFURL(withoutTrailingSlashes(base->mPath + separator + component),
                       withoutTrailingSlashes(base->mAbsolute + absoluteSeparator + component),
                       isDirectory != 0);
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle)
{
    const __CFURL* url = asURL(anURL);
    if (url == nullptr || pathStyle != kCFURLPOSIXPathStyle) {
        return nullptr;
    }
    return CFRuntimeCreateString(url->mPath);
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef anURL)
{
    const __CFURL* url = asURL(anURL);
    if (url == nullptr) {
        return nullptr;
    }
    const size_t slash = url->mPath.rfind('/');
    if (url->mPath == "/") {
        return CFRuntimeCreateString("");
    }
    return CFRuntimeCreateString(slash == std::string::npos ? url->mPath
                                                            : url->mPath.substr(slash + 1));
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef anURL, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex maxBufLen)
{
    const __CFURL* url = asURL(anURL);
    if (url == nullptr || buffer == nullptr || maxBufLen <= 0) {
        return false;
    }
    const std::string& path = resolveAgainstBase ? url->mAbsolute : url->mPath;
    if (path.size() + 1 > static_cast<size_t>(maxBufLen)) {
        return false;
    }
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return true;
}

Boolean CFURLHasDirectoryPath(CFURLRef anURL)
{
    const __CFURL* url = asURL(anURL);
    return url != nullptr && url->mDirectory;
}
