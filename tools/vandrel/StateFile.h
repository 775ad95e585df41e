// .aupreset files: the unit's saved state (its class-info dictionary) as an
// XML property list, the form hosts exchange presets in.
#pragma once

#include "CFRef.h"

#include <cstddef>
#include <string>

class StateFile
{
public:
    // The largest state file read; saved states take a few kilobytes.
    static constexpr size_t kMaxBytes = size_t{16} << 20;

    // Reads a state file (XML or binary property list holding a dictionary).
    // Throws ToolError(kInputUnreadable) when the file is missing, unreadable,
    // larger than kMaxBytes or not such a property list. [control]
    static CFRef<CFPropertyListRef> load(const std::string& path);

    // Writes the state as an XML property list, replacing the file only when
    // complete. Throws ToolError(kOutputUnwritable). [control]
    static void save(const std::string& path, CFPropertyListRef state);
};
