#include "StateFile.h"

#include "TemporaryFile.h"
#include "ToolError.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

CFRef<CFPropertyListRef> StateFile::load(const std::string& path)
{
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  &std::fclose);
    if (!file)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read the state file '" + path + "': " + std::strerror(errno) + ".");
    // Read up to one byte past the limit, so that an endless or huge file
    // (a device, a wrong name) is refused instead of filling the memory.
    std::vector<char> bytes;
    size_t used = 0;
    while (used <= kMaxBytes) {
        bytes.resize(std::min(kMaxBytes + 1, std::max<size_t>(used * 2, 1 << 16)));
        const size_t got = std::fread(bytes.data() + used, 1, bytes.size() - used, file.get());
        used += got;
        if (got == 0)
            break;
    }
    if (std::ferror(file.get()))
        throw ToolError(ExitStatus::kInputUnreadable, "Reading the state file '" + path +
                                                          "' failed: " + std::strerror(errno) +
                                                          ".");
    if (used > kMaxBytes)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "'" + path + "' is too large for a saved plug-in state (over " +
                            std::to_string(kMaxBytes >> 20) + " MiB).");
    CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault,
                                       reinterpret_cast<const UInt8*>(bytes.data()),
                                       static_cast<CFIndex>(used)));
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
