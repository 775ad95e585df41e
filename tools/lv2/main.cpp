// vandrel-lv2-ttl: opens the unit in a component bundle, as an LV2 host
// will through the wrapper, and writes the LV2 bundle's metadata from its
// answers. The build runs it after every change of the unit.
// Usage: vandrel-lv2-ttl COMPONENT_BUNDLE OUTPUT_FOLDER
#include "PluginLocator.h"
#include "ToolError.h"
#include "TurtleWriter.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("Usage: vandrel-lv2-ttl COMPONENT_BUNDLE OUTPUT_FOLDER\n", stderr);
        return static_cast<int>(ExitStatus::kUsage);
    }
    try {
        PluginHost host(PluginLocator::find(argv[1]));
        TurtleWriter(host).write(argv[2]);
        return 0;
    } catch (const ToolError& error) {
        std::fprintf(stderr, "vandrel-lv2-ttl: %s\n", error.what());
        return static_cast<int>(error.status());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vandrel-lv2-ttl: %s\n", error.what());
        return static_cast<int>(ExitStatus::kProcessingFailed);
    }
}
