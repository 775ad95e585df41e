/*
 * Reads one component bundle: X.component/Contents/Info.plist and the binary
 * Contents/Linux/<CFBundleExecutable>.
 *
 * Info.plist lists the bundle's components under "AudioComponents", an array
 * of dictionaries with "type", "subtype", "manufacturer" (four-character
 * strings), "name" (string), "version" (number), "factoryFunction" (symbol
 * name of the audio-component factory) and "entryFunction" (symbol name of
 * the Component Manager entry function). A component needs at least one of
 * the two functions; one whose fields are malformed or whose named symbols
 * are missing from the binary is left out, and the others still load.
 *
 * The binary is loaded with RTLD_NOW | RTLD_LOCAL and stays loaded for the
 * life of the process once one of its components is used, since registered
 * components are never removed.
 */
#ifndef AUDIOUNIT_COMPONENTBUNDLE_H
#define AUDIOUNIT_COMPONENTBUNDLE_H

#include <AudioUnit/AudioUnit.h>

#include <string>
#include <vector>

class ComponentBundle
{
public:
    /* One component listed by the bundle; the bundle owns mName. */
    struct Entry
    {
        AudioComponentDescription mDescription;
        CFStringRef mName;
        UInt32 mVersion;
        AudioComponentFactoryFunction mFactory;
        ComponentRoutineProcPtr mEntry;
    };

    ComponentBundle() = default;
    ComponentBundle(const ComponentBundle&) = delete;
    ComponentBundle& operator=(const ComponentBundle&) = delete;
    ~ComponentBundle();

    /* Reads the bundle at path and loads its binary. Returns noErr with at
       least one entry; fnfErr when path does not exist;
       kAudioUnitErr_InvalidFile when it is not a bundle, lists no usable
       component or its binary does not load (the binary is then unloaded).
       [control] */
    OSStatus Load(const std::string& path);

    const std::vector<Entry>& Entries() const { return mEntries; }
    /* The bundle object after a successful Load, owned by this object. */
    CFBundleRef Bundle() const { return mBundle; }

private:
    void ReadEntries(CFArrayRef components, void* binary);

    std::vector<Entry> mEntries;
    CFBundleRef mBundle = nullptr;
};

#endif /* AUDIOUNIT_COMPONENTBUNDLE_H */
