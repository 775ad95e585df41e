// Errors of the command-line host: each carries the message shown to the user
// and the exit status the program ends with, so that every failure path ends in
// one place (Application::run) with a message a person can act on.
#pragma once

#include <stdexcept>
#include <string>

// Exit statuses of the program, documented in --help and the manual page.
enum class ExitStatus : int
{
    kSuccess = 0,
    kProcessingFailed = 1,  // the plug-in refused a call or failed while rendering
    kUsage = 2,             // bad arguments, unknown preset or parameter name
    kInputUnreadable = 3,   // input audio or state file missing or unreadable
    kOutputUnwritable = 4,  // output audio or state file cannot be written
    kPluginUnavailable = 5, // plug-in bundle not found or cannot be opened
    kUnsupportedInput = 6,  // input the plug-in cannot take (channel count)
    kInterrupted = 130,     // stopped by a signal (128 + SIGINT, as shells report it)
};

class ToolError : public std::runtime_error
{
public:
    // message: one or more full sentences, without a trailing newline. [any]
    ToolError(ExitStatus status, const std::string& message)
        : std::runtime_error(message), mStatus(status)
    {
    }

    ExitStatus status() const { return mStatus; }

private:
    ExitStatus mStatus;
};
