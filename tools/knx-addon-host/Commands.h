// The commands of knx-addon-host: one per line, run on the add-on's IP
// configuration manager and factory reset manager.
#ifndef KNX_ADDON_HOST_COMMANDS_H
#define KNX_ADDON_HOST_COMMANDS_H

#include "KnxStackAddonInterface.h"
#include "Result.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

struct ServiceObjects {
    KnxStack::IIpConfigurationManager& ipConfig;
    KnxStack::IFactoryResetManager& factoryReset;
};

using Words = std::vector<std::string>;

// The words of a command line; a word starting with '#' begins a comment.
Words SplitCommandLine(const std::string& line);

// Runs the command that `words` (not empty) name: its result line, or no line
// for a command that ends the session.
Result<std::optional<std::string>> RunCommand(ServiceObjects& objects, const Words& words);

// One line per command with its arguments, indented.
void PrintCommands(std::ostream& out);

#endif
