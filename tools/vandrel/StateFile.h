// .aupreset files: the unit's saved state (its class-info dictionary) as an
// XML property list, the form hosts exchange presets in.
#pragma once

#include "CFRef.h"

#include <string>

class StateFile
{
public:
    // Reads a state file (XML or binary property list holding a dictionary).
    // Throws ToolError(kInputUnreadable) when the file is missing, unreadable
    // or not such a property list. [control]
    static CFRef<CFPropertyListRef> load(const std::string& path);

    // Writes the state as an XML property list, replacing the file only when
    // complete. Throws ToolError(kOutputUnwritable). [control]
    static void save(const std::string& path, CFPropertyListRef state);
};
