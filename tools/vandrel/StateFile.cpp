#include "StateFile.h"

#include "TemporaryFile.h"
#include "ToolError.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <vector>

CFRef<CFPropertyListRef> StateFile::load(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read the state file '" + path + "': " + std::strerror(errno) + ".");
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                  std::istreambuf_iterator<char>());
    if (file.bad())
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Reading the state file '" + path + "' failed.");
    CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                       reinterpret_cast<const UInt8*>(bytes.data()),
                                       static_cast<CFIndex>(bytes.size())));
    CFRef<CFPropertyListRef> state(CFPropertyListCreateWithData(
        kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
    if (!state || CFGetTypeID(state.get()) != CFDictionaryGetTypeID())
        throw ToolError(
            ExitStatus::kInputUnreadable,
            "'" + path +
                "' is not a saved plug-in state (an .aupreset property list with a dictionary).");
    return state;
}

void StateFile::save(const std::string& path, CFPropertyListRef state)
{
    CFRef<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, state,
                                                   kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (!data)
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Cannot write '" + path + "': the plug-in's state is not a property list.");
    TemporaryFile file(path, false);
    const UInt8* bytes = CFDataGetBytePtr(data.get());
    size_t left = static_cast<size_t>(CFDataGetLength(data.get()));
    while (left > 0) {
        const ssize_t written = ::write(file.descriptor(), bytes, left);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw ToolError(ExitStatus::kOutputUnwritable,
                            "Writing '" + path + "' failed: " + std::strerror(errno) + ".");
        }
        bytes += written;
        left -= static_cast<size_t>(written);
    }
    file.commit();
}
