#include "PluginLocator.h"

#include "ToolError.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

bool exists(const std::string& path)
{
    struct stat info
    {
    };
    return stat(path.c_str(), &info) == 0;
}

bool isBundle(const std::string& path)
{
    return exists(path + "/Contents/Info.plist");
}

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

OSStatus PluginLocator::registerBundle(const std::string& bundlePath)
{
#if defined(__linux__)
    // Linux runtime extension; hosts on the original platform rely on its
    // folder scan alone.
    return AudioComponentRegisterBundle(bundlePath.c_str());
#else
    (void)bundlePath;
    return unimpErr;
#endif
}

std::string PluginLocator::executableFolder()
{
#if defined(__linux__)
    char buffer[4096];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    if (length <= 0)
        return "";
    const std::string path(buffer, static_cast<size_t>(length));
    return path.substr(0, path.rfind('/'));
#else
    return "";
#endif
}

AudioComponent PluginLocator::lastMatch()
{
    const AudioComponentDescription description{kAudioUnitType_Effect, kSubtype, kManufacturer, 0,
                                                0};
    AudioComponent found = nullptr;
    for (AudioComponent next = AudioComponentFindNext(nullptr, &description); next != nullptr;
         next = AudioComponentFindNext(next, &description))
        found = next;
    return found;
}

void PluginLocator::registerPath(const std::string& path)
{
    if (!exists(path))
        throw ToolError(ExitStatus::kPluginUnavailable,
                        "The plug-in path '" + path + "' does not exist.");
    std::vector<std::string> bundles;
    if (isBundle(path)) {
        bundles.push_back(path);
    } else if (DIR* dir = opendir(path.c_str())) {
        while (dirent* entry = readdir(dir))
            if (endsWith(entry->d_name, ".component"))
                bundles.push_back(path + "/" + entry->d_name);
        closedir(dir);
        std::sort(bundles.begin(), bundles.end());
    }
    if (bundles.empty())
        throw ToolError(
            ExitStatus::kPluginUnavailable,
            "'" + path +
                "' is neither a plug-in bundle (X.component with Contents/Info.plist) nor a folder "
                "holding one.");
    for (const std::string& bundle : bundles) {
        const OSStatus status = registerBundle(bundle);
        if (status != noErr)
            throw ToolError(
                ExitStatus::kPluginUnavailable,
                "The plug-in bundle '" + bundle + "' could not be loaded (status " +
                    std::to_string(status) +
                    "): its Info.plist or its binary is missing or broken. Rebuild it.");
    }
}

std::vector<std::string> PluginLocator::defaultBundles()
{
    std::vector<std::string> candidates;
    // A build tree puts the program in <build>/tools/vandrel/ and the bundle
    // in <build>/.
    const std::string folder = executableFolder();
    if (!folder.empty())
        candidates.push_back(folder + "/../../Vandrel.component");
    candidates.push_back(VANDREL_BUILT_BUNDLE_DIR);
    return candidates;
}

AudioComponent PluginLocator::find(const std::string& pluginPath)
{
    if (!pluginPath.empty()) {
        registerPath(pluginPath);
        if (AudioComponent component = lastMatch())
            return component;
        throw ToolError(
            ExitStatus::kPluginUnavailable,
            "'" + pluginPath +
                "' holds no Vandrel plug-in (type aufx, subtype Vndr, manufacturer Vdrl).");
    }
    for (const std::string& bundle : defaultBundles())
        if (isBundle(bundle) && registerBundle(bundle) == noErr)
            break;
    if (AudioComponent component = lastMatch())
        return component;
    throw ToolError(
        ExitStatus::kPluginUnavailable,
        "The Vandrel plug-in was not found beside this program, in the standard plug-in folders "
        "(~/Library/Audio/Plug-Ins/Components, /Library/Audio/Plug-Ins/Components) or in "
        "AU_COMPONENT_PATH. "
        "Build it (scripts/demo.sh) or give its bundle with --plugin PATH/Vandrel.component.");
}
