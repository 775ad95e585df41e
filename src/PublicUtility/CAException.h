/*
 * Exception types that carry a status code.
 *
 * Most of the framework raises a failure by throwing the bare 32-bit status;
 * these two classes exist for code that wants to attach more. The entry layer
 * passes on the status of a CAXException (the operation text is for
 * debugging only) and turns a CAException into the generic failure -1, so a
 * CAException marks a failure whose exact status the host need not see.
 */
#ifndef CAEXCEPTION_H
#define CAEXCEPTION_H

#include <MacTypes.h>

#include <cstddef>

// A failure carrying a status that the entry layer returns to the host,
// plus a short description of the operation that failed.
class CAXException
{
public:
    // Room for the operation text, terminator included: longer texts are cut.
    static constexpr std::size_t kOperationSize = 256;

    // operation: a NUL-terminated text or null (stored as ""), copied. [any]
    CAXException(const char* operation, OSStatus err);

    // The carried status. [any]
    OSStatus GetError() const { return mError; }
    // Borrowed; valid as long as the exception. [any]
    const char* GetOperation() const { return mOperation; }

private:
    char mOperation[kOperationSize];
    OSStatus mError;
};

// A failure carrying a status for the code that catches it; the entry layer
// reports it to the host as -1.
class CAException
{
public:
    // Carries err. [any]
    explicit CAException(OSStatus err) : mError(err) {}

    OSStatus GetError() const { return mError; }

private:
    OSStatus mError;
};

#endif
