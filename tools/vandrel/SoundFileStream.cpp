#include "SoundFileStream.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

SoundFileStream::SoundFileStream(std::FILE* file, size_t bufferBytes)
    : mFile(file), mBuffer(new char[bufferBytes])
{
    std::setvbuf(mFile, mBuffer.get(), _IOFBF, bufferBytes);
}

SoundFileStream::~SoundFileStream()
{
    if (mFile != nullptr)
        std::fclose(mFile);
}

bool SoundFileStream::close()
{
    std::FILE* file = mFile;
    mFile = nullptr;
    if (std::fclose(file) != 0)
        return false;
    // libsndfile does not check every write it makes.
    errno = mError;
    return mError == 0;
}

SF_VIRTUAL_IO* SoundFileStream::callbacks()
{
    static SF_VIRTUAL_IO sCallbacks{&SoundFileStream::length, &SoundFileStream::seek,
                                    &SoundFileStream::read, &SoundFileStream::write,
                                    &SoundFileStream::tell};
    return &sCallbacks;
}

sf_count_t SoundFileStream::length(void* user)
{
    auto& self = *static_cast<SoundFileStream*>(user);
    std::FILE* file = self.mFile;
    // Data still in the buffer belongs to the length too.
    if (std::fflush(file) != 0)
        self.noteError();
    struct stat info
    {
    };
    return fstat(fileno(file), &info) == 0 ? static_cast<sf_count_t>(info.st_size) : -1;
}

sf_count_t SoundFileStream::seek(sf_count_t offset, int whence, void* user)
{
    auto& self = *static_cast<SoundFileStream*>(user);
    std::FILE* file = self.mFile;
    // A seek first writes out what is buffered, which can fail.
    if (fseeko(file, static_cast<off_t>(offset), whence) != 0) {
        self.noteError();
        return -1;
    }
    return static_cast<sf_count_t>(ftello(file));
}

sf_count_t SoundFileStream::read(void* data, sf_count_t bytes, void* user)
{
    auto& self = *static_cast<SoundFileStream*>(user);
    const size_t got = std::fread(data, 1, static_cast<size_t>(bytes), self.mFile);
    if (got < static_cast<size_t>(bytes) && std::ferror(self.mFile))
        self.noteError();
    return static_cast<sf_count_t>(got);
}

sf_count_t SoundFileStream::write(const void* data, sf_count_t bytes, void* user)
{
    auto& self = *static_cast<SoundFileStream*>(user);
    const size_t put = std::fwrite(data, 1, static_cast<size_t>(bytes), self.mFile);
    if (put < static_cast<size_t>(bytes))
        self.noteError();
    return static_cast<sf_count_t>(put);
}

void SoundFileStream::noteError()
{
    if (mError == 0)
        mError = errno != 0 ? errno : EIO;
}

std::string SoundFileStream::failure(const char* libraryMessage) const
{
    if (mError != 0)
        return std::strerror(mError);
    std::string message = libraryMessage;
    while (!message.empty() && (message.back() == '.' || message.back() == ' '))
        message.pop_back();
    return message;
}

sf_count_t SoundFileStream::tell(void* user)
{
    return static_cast<sf_count_t>(ftello(static_cast<SoundFileStream*>(user)->mFile));
}
