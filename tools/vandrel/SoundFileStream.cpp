#include "SoundFileStream.h"

#include <sys/stat.h>

SoundFileStream::SoundFileStream(std::FILE* file) : mFile(file), mBuffer(new char[kBufferBytes])
{
    std::setvbuf(mFile, mBuffer.get(), _IOFBF, kBufferBytes);
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
    return std::fclose(file) == 0;
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
    std::FILE* file = static_cast<SoundFileStream*>(user)->mFile;
    // Data still in the buffer belongs to the length too.
    std::fflush(file);
    struct stat info
    {
    };
    return fstat(fileno(file), &info) == 0 ? static_cast<sf_count_t>(info.st_size) : -1;
}

sf_count_t SoundFileStream::seek(sf_count_t offset, int whence, void* user)
{
    std::FILE* file = static_cast<SoundFileStream*>(user)->mFile;
    if (fseeko(file, static_cast<off_t>(offset), whence) != 0)
        return -1;
    return static_cast<sf_count_t>(ftello(file));
}

sf_count_t SoundFileStream::read(void* data, sf_count_t bytes, void* user)
{
    return static_cast<sf_count_t>(std::fread(data, 1, static_cast<size_t>(bytes),
                                              static_cast<SoundFileStream*>(user)->mFile));
}

sf_count_t SoundFileStream::write(const void* data, sf_count_t bytes, void* user)
{
    return static_cast<sf_count_t>(std::fwrite(data, 1, static_cast<size_t>(bytes),
                                               static_cast<SoundFileStream*>(user)->mFile));
}

sf_count_t SoundFileStream::tell(void* user)
{
    return static_cast<sf_count_t>(ftello(static_cast<SoundFileStream*>(user)->mFile));
}
