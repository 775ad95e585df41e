#include "TemporaryFile.h"

#include "ToolError.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

std::string folderOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

[[noreturn]] void fail(const std::string& destination, int error)
{
    throw ToolError(ExitStatus::kOutputUnwritable,
                    "Cannot write '" + destination + "': " + std::strerror(error) + ".");
}

// The mode a file created with open(..., 0666) would get under the current
// umask; mkstemp creates its files private.
mode_t newFileMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

TemporaryFile::TemporaryFile(const std::string& destination) : mDestination(destination)
{
    if (destination.empty() || destination.back() == '/')
        fail(destination, EISDIR);
    struct stat existing
    {
    };
    if (stat(destination.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode))
        fail(destination, EISDIR);
    std::string pattern =
        folderOf(destination) + "/." + baseNameOf(destination) + ".partial-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    mDescriptor = mkstemp(buffer.data());
    if (mDescriptor < 0)
        fail(destination, errno);
    mTemporaryPath = buffer.data();
}

TemporaryFile::~TemporaryFile()
{
    if (mDescriptor >= 0)
        close(mDescriptor);
    if (!mCommitted)
        unlink(mTemporaryPath.c_str());
}

void TemporaryFile::commit()
{
    if (fchmod(mDescriptor, newFileMode()) != 0)
        fail(mDestination, errno);
    const int descriptor = mDescriptor;
    mDescriptor = -1;
    if (close(descriptor) != 0)
        fail(mDestination, errno);
    if (std::rename(mTemporaryPath.c_str(), mDestination.c_str()) != 0)
        fail(mDestination, errno);
    mCommitted = true;
}
