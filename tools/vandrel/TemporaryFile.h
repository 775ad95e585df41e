// A file written under a temporary name beside its destination and renamed
// onto it only when complete, so that an interrupted or failed run never
// leaves a partial file under the name the user asked for. A destination
// that is a symbolic link stays one: the file it points to is replaced. A
// destination that exists and is not a regular file (a device such as
// /dev/null, a pipe) is written directly, as there is nothing to rename onto.
#pragma once

#include <string>

class TemporaryFile
{
public:
    // Creates an empty hidden file in the destination's folder, or opens an
    // existing special file. With `seekable`, refuses a destination that
    // cannot seek (a pipe, a terminal) before writing anything. Throws
    // ToolError(kOutputUnwritable) naming the destination when the folder is
    // missing or not writable, or the destination is a directory, a broken
    // link or (with `seekable`) a stream. [control]
    TemporaryFile(const std::string& destination, bool seekable);
    // Removes the temporary file unless it was committed. [control]
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Open descriptor of the temporary file, owned by this object. [control]
    int descriptor() const { return mDescriptor; }

    // Closes the file and renames it onto the destination, with the
    // permissions of the file it replaces (or those a new file would get).
    // Throws ToolError(kOutputUnwritable). [control]
    void commit();

private:
    std::string mDestination;   // as the user named it, for messages
    std::string mTarget;        // the path renamed onto: links resolved
    std::string mTemporaryPath; // empty when writing a special file directly
    int mDescriptor = -1;
    int mMode = -1; // permissions of the replaced file, -1 for a new one
    bool mCommitted = false;
};
