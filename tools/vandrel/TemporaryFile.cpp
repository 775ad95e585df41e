#include "TemporaryFile.h"

#include "ToolError.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
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

// The temporary name adds 16 bytes to the destination's; a name near the
// file system's limit keeps only its start.
std::string baseNameOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    return base.substr(0, 200);
}

[[noreturn]] void fail(const std::string& destination, const std::string& reason)
{
    throw ToolError(ExitStatus::kOutputUnwritable,
                    "Cannot write '" + destination + "': " + reason + ".");
}

[[noreturn]] void fail(const std::string& destination, int error)
{
    fail(destination, std::strerror(error));
}

const char* const kNotSeekable =
    "audio files are written with seeks, and it is a pipe or terminal; name a file instead";

// The mode a file created with open(..., 0666) would get under the current
// umask; mkstemp creates its files private.
mode_t newFileMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

TemporaryFile::TemporaryFile(const std::string& destination, bool seekable)
    : mDestination(destination), mTarget(destination)
{
    if (destination.empty() || destination.back() == '/')
        fail(destination, EISDIR);
    // The entry itself first: a link is followed to what it points to.
    struct stat entry
    {
    };
    if (lstat(destination.c_str(), &entry) != 0) {
        if (errno != ENOENT)
            fail(destination, errno);
    } else {
        const bool link = S_ISLNK(entry.st_mode);
        struct stat existing = entry;
        if (link && stat(destination.c_str(), &existing) != 0) {
            if (errno == ENOENT)
                fail(destination, "it is a symbolic link to a missing file");
            fail(destination, errno);
        }
        if (S_ISDIR(existing.st_mode))
            fail(destination, EISDIR);
        if (!S_ISREG(existing.st_mode)) {
            // A device or a stream: written in place. A pipe is refused
            // before opening, which would wait for a reader.
            if (seekable && (S_ISFIFO(existing.st_mode) || S_ISSOCK(existing.st_mode)))
                fail(destination, kNotSeekable);
            mDescriptor = open(destination.c_str(), (seekable ? O_RDWR : O_WRONLY) | O_CLOEXEC);
            if (mDescriptor < 0)
                fail(destination, errno);
            if (seekable && lseek(mDescriptor, 0, SEEK_CUR) < 0) {
                close(mDescriptor);
                fail(destination, kNotSeekable);
            }
            return;
        }
        mMode = static_cast<int>(existing.st_mode & 0777);
        // Through a link, the file it points to is replaced and the link kept.
        if (link) {
            const std::unique_ptr<char, decltype(&std::free)> resolved(
                realpath(destination.c_str(), nullptr), &std::free);
            if (!resolved)
                fail(destination, errno);
            mTarget = resolved.get();
        }
    }
    std::string pattern = folderOf(mTarget) + "/." + baseNameOf(mTarget) + ".partial-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    mDescriptor = mkostemp(buffer.data(), O_CLOEXEC);
    if (mDescriptor < 0)
        fail(destination, errno);
    mTemporaryPath = buffer.data();
}

TemporaryFile::~TemporaryFile()
{
    if (mDescriptor >= 0)
        close(mDescriptor);
    if (!mCommitted && !mTemporaryPath.empty())
        unlink(mTemporaryPath.c_str());
}

void TemporaryFile::commit()
{
    const mode_t mode = mMode >= 0 ? static_cast<mode_t>(mMode) : newFileMode();
    if (!mTemporaryPath.empty() && fchmod(mDescriptor, mode) != 0)
        fail(mDestination, errno);
    const int descriptor = mDescriptor;
    mDescriptor = -1;
    if (close(descriptor) != 0)
        fail(mDestination, errno);
    if (!mTemporaryPath.empty() && std::rename(mTemporaryPath.c_str(), mTarget.c_str()) != 0)
        fail(mDestination, errno);
    mCommitted = true;
}
