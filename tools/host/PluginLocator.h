// Finds the effect's component. Components come from the runtime's own
// search (the standard plug-in folders and AU_COMPONENT_PATH) and from
// bundles this program makes known: the one named by --plugin, else the one
// this build assembled beside the program. A bundle made known here wins over
// an installed copy, so a build tree always runs its own plug-in.
#pragma once

#include <AudioUnit/AudioUnit.h>

#include <string>
#include <vector>

// Four-character code as the platform stores it ("aufx" -> 0x61756678). [any]
constexpr OSType fourCharCode(const char (&text)[5])
{
    return (static_cast<OSType>(static_cast<unsigned char>(text[0])) << 24) |
           (static_cast<OSType>(static_cast<unsigned char>(text[1])) << 16) |
           (static_cast<OSType>(static_cast<unsigned char>(text[2])) << 8) |
           static_cast<OSType>(static_cast<unsigned char>(text[3]));
}

class PluginLocator
{
public:
    static constexpr OSType kSubtype = fourCharCode("Vndr");
    static constexpr OSType kManufacturer = fourCharCode("Vdrl");

    // pluginPath: a bundle, or a folder of bundles, to use first; empty for the
    // default search. Throws ToolError(kPluginUnavailable) saying where it
    // looked and how to point at the plug-in. [control]
    static AudioComponent find(const std::string& pluginPath);

private:
    static AudioComponent lastMatch();
    static void registerPath(const std::string& path);
    static std::vector<std::string> defaultBundles();

    // Non-portable: the runtime's call that makes one bundle known. [control]
    static OSStatus registerBundle(const std::string& bundlePath);
    // Non-portable: the folder holding this program's executable. [control]
    static std::string executableFolder();
};
