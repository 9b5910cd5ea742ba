#pragma once

#include <string>

namespace devsim {

// Usage text of the command line (options) and of the control channel.
std::string optionsHelpText();
std::string controlHelpText();

}  // namespace devsim
