// A file written under a temporary name beside its destination and renamed
// onto it only when complete, so that an interrupted or failed run never
// leaves a partial file under the name the user asked for.
#pragma once

#include <string>

class TemporaryFile
{
public:
    // Creates an empty hidden file in the destination's folder. Throws
    // ToolError(kOutputUnwritable) naming the destination when the folder is
    // missing or not writable. [control]
    explicit TemporaryFile(const std::string& destination);
    // Removes the temporary file unless it was committed. [control]
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Open descriptor of the temporary file, owned by this object. [control]
    int descriptor() const { return mDescriptor; }

    // Flushes, closes and renames the file onto the destination, with the
    // permissions a new file would get. Throws ToolError(kOutputUnwritable). [control]
    void commit();

private:
    std::string mDestination;
    std::string mTemporaryPath;
    int mDescriptor = -1;
    bool mCommitted = false;
};
