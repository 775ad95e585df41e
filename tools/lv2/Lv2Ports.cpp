#include "Lv2Ports.h"

#include <cctype>
#include <cstring>

unsigned Lv2Ports::channelsFor(const char* uri)
{
    if (uri == nullptr)
        return 0;
    if (std::strcmp(uri, kMonoUri) == 0)
        return 1;
    return std::strcmp(uri, kStereoUri) == 0 ? 2 : 0;
}

std::string Lv2Ports::identifier(const std::string& name, char separator)
{
    std::string result;
    bool pending = false;
    for (const char c : name) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && std::isalnum(byte)) {
            if (pending && !result.empty())
                result += separator;
            result += static_cast<char>(std::tolower(byte));
            pending = false;
        } else {
            pending = true;
        }
    }
    if (!result.empty() && std::isdigit(static_cast<unsigned char>(result[0])))
        result.insert(0, 1, 'n');
    return result;
}
